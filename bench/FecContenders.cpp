// SPDX-License-Identifier: Apache-2.0

#include "FecContenders.h"

#include <algorithm>

#include <fmt/format.h>

#include "Glint/Guarded.h"

namespace bench {

namespace {

constexpr Asic::UnitId kUnit{0};
// What each entry needs applied first, as if destinations were a table of the group.
constexpr Asic::TableVersion kNeeded{Asic::SwTableId(0x03010806), Asic::LogVersion(1)};

Pell::Ptr<Asic::NeededEntry> neededEntry() {
  auto needed = Zev::makeObject<Asic::NeededEntry>();
  needed->add(kNeeded);
  return needed;
}

}  // namespace

FecAgent::FecAgent(const Workload& workload) : table_(harness_.makeTable(kUnit.value())) {
  for (std::uint32_t i = 0; i < Workload::kInterfaces; ++i) {
    harness_.resources().destinationIs(Workload::interfaceOf(i), {i, 0, 0}, neededEntry());
  }
  harness_.run();
  requestAndLog(workload.everyEntry());
  report();
  firstVersion_ = harness_.log().tableVersion();
}

void FecAgent::requestAndLog(std::span<const LoamFec::FecTableDataModelEntry> entries) {
  const LoamFec::FecTableSwTable::ResponseHandler handler =
      [this](const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>& handle) {
        done_ += handle->entryState() == Asic::EntryState::done ? 1U : 0U;
      };
  for (const LoamFec::FecTableDataModelEntry& entry : entries) {
    table_->entryWriteWithResponseHandler(entry.key, entry, nullptr, handler);
  }
  requested_ += entries.size();
  harness_.run();
}

void FecAgent::report() {
  harness_.reportAll();
  harness_.run();
}

Pell::String FecAgent::agentFinding(const Workload& workload) {
  const LoamFec::FecTableEntryLog& log = harness_.log();
  if (done_ != requested_) {
    return fmt::format("{} of {} requests were answered with success", done_, requested_);
  }
  if (log.tableVersion().value() != firstVersion_.value() + workload.written()) {
    return fmt::format("the log is at version {} after {} writes on {}", log.tableVersion(),
                       workload.written(), firstVersion_);
  }
  if (log.entryLogConfigRows() != 0) {
    return fmt::format("{} rows are left in the log", log.entryLogConfigRows());
  }
  auto& rows = log.tableConfigGlint(kUnit)->swTableEntries();
  std::uint32_t right = 0;
  const auto compare = [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
    const std::uint32_t fecId = row.key().fecId();
    right += row.logEntry().opaqueA == workload.markOf(fecId) && !row.isDeleted() ? 1U : 0U;
  };
  if (!Glint::walkOverDamage(rows, compare)) {
    return "a row is damaged";
  }
  if (right != scale().residentKeys || rows.rowCount() != right) {
    return fmt::format("{} of {} rows are right, {} there should be", right, rows.rowCount(),
                       scale().residentKeys);
  }
  return {};
}

void Road::write() { requestAndLog(batch_); }

Commit::Commit(const Workload& workload) : FecAgent(workload), needed_(neededEntry()) {}

void Commit::prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) {
  batch_.clear();
  for (const LoamFec::FecTableDataModelEntry& entry : batch) {
    batch_.push_back({entry.logEntry(), entry.resourceKeys()});
  }
}

void Commit::write() {
  LoamFec::FecTableEntryLog& log = harness_.log();
  for (std::size_t i = 0; i < batch_.size(); ++i) {
    // As on the road, where the check for resolution does it some way ahead of the commit.
    log.fetchAhead(batch_[std::min(i + 1, batch_.size() - 1)].logEntry.key, kUnit);
    log.entryIs(batch_[i].logEntry, batch_[i].resourceKeys, needed_, kUnit);
  }
}

}  // namespace bench
