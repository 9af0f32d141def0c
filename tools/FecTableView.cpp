// SPDX-License-Identifier: Apache-2.0

#include "tools/FecTableView.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "captures/NextHopEntry.h"
#include "records/FecTableConstants.h"

namespace Tools {

namespace {

using LoamFec::FecTableConstants;
using ZevSharedMem::mountForReading;
using Row = LoamFec::FecTableDataModelConfigGlintEntry;

std::string destinationText(const LoamFec::FecDestination& destination) {
  return destination.first == LoamFec::FecDestination::kNone ? "-"
                                                             : fmt::format("{}", destination.first);
}

std::string describe(const LoamFec::FecTableDataModelEntry& entry) {
  return fmt::format("{} via {}", entry.intfId, Captures::gatewayText(entry.logEntry()));
}

LoamFec::FecTableDataModelEntry entryOf(const Row& row) {
  return LoamFec::FecTableDataModelEntry::fromLog(row.logEntry(), row.rsrcKeys());
}

}  // namespace

FecTableView readFecTable(const std::string& stateFolder, Asic::UnitId unitId) {
  const auto entityManager = Zev::makeObject<Vanta::EntityManager>(stateFolder);
  const auto config = mountForReading<LoamFec::FecTableDataModelConfigGlint>(
      entityManager, FecTableConstants::configGlintPath(unitId));
  const auto log = mountForReading<LoamFec::FecTableDataModelEntryLogGlint>(
      entityManager, FecTableConstants::entryLogGlintPath());
  FecTableView view;
  view.logVersion = Asic::LogVersion(log->entryLogConfig().control().scratchpad());
  view.logRows = log->entryLogConfig().rowCount();
  for (auto at = config->swTableEntries().iterator(); at.valid(); at.advance()) {
    if (at.row().isDeleted()) {
      ++view.deletedRows;
    } else {
      view.rows.push_back(at.row());
    }
  }
  std::sort(view.rows.begin(), view.rows.end(),
            [](const Row& a, const Row& b) { return a.key() < b.key(); });
  return view;
}

Comparison compare(const FecTableView& view, const Captures::Snapshot& snapshot) {
  std::map<std::uint64_t, bool> isUp;
  for (const Captures::Link& link : snapshot.links) {
    isUp[link.intf.value()] = link.isUp;
  }
  std::map<std::uint32_t, const Row*> rows;
  for (const Row& row : view.rows) {
    rows[row.key().fecId()] = &row;
  }
  Comparison result;
  for (const Captures::NextHop& nextHop : snapshot.nextHops) {
    const auto wanted = Captures::entryOf(nextHop);
    const auto found = rows.find(nextHop.id);
    if (found == rows.end()) {
      if (isUp[nextHop.intf.value()]) {
        result.differences.push_back(
            fmt::format("{}: missing, should be {}", nextHop.id, describe(wanted)));
      } else {
        ++result.waiting;
      }
      continue;
    }
    const auto held = entryOf(*found->second);
    rows.erase(found);
    if (Captures::asksTheSame(held, wanted)) {
      ++result.equal;
    } else {
      result.differences.push_back(
          fmt::format("{}: is {}, should be {}", nextHop.id, describe(held), describe(wanted)));
    }
  }
  for (const auto& [id, row] : rows) {
    result.differences.push_back(
        fmt::format("{}: is {}, should not be there", id, describe(entryOf(*row))));
  }
  return result;
}

std::string fecTableText(const FecTableView& view, std::size_t limit) {
  std::string text = fmt::format("{:>10}  {:<16}  {:<15}  {:>11}  {:>8}\n", "FEC", "interface",
                                 "gateway", "destination", "version");
  const std::size_t shown = limit == 0 ? view.rows.size() : std::min(limit, view.rows.size());
  for (std::size_t i = 0; i < shown; ++i) {
    const Row& row = view.rows[i];
    text += fmt::format("{:>10}  {:<16}  {:<15}  {:>11}  {:>8}\n", row.key(),
                        row.rsrcKeys().intfId.name(), Captures::gatewayText(row.logEntry()),
                        destinationText(row.logEntry().resolvedDest), row.version());
  }
  if (shown < view.rows.size()) {
    text += fmt::format("... {} more; --limit 0 shows all\n", view.rows.size() - shown);
  }
  text += fmt::format(
      "{} entries of {}, {} deletions not cleaned up, log version {}, {} log rows of {} not "
      "applied\n",
      view.rows.size(), FecTableConstants::kConfigCapacity, view.deletedRows, view.logVersion,
      view.logRows, FecTableConstants::kEntryLogCapacity);
  return text;
}

std::string fecTableJson(const FecTableView& view) {
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
  for (const Row& row : view.rows) {
    const auto& resolved = row.logEntry().resolvedDest;
    entries.push_back({{"fec", row.key().fecId()},
                       {"interface", row.rsrcKeys().intfId.name()},
                       {"gateway", Captures::gatewayText(row.logEntry())},
                       {"destination", {resolved.first, resolved.second, resolved.third}},
                       {"version", row.version().value()}});
  }
  const nlohmann::ordered_json all = {{"entries", entries},
                                      {"count", view.rows.size()},
                                      {"capacity", FecTableConstants::kConfigCapacity},
                                      {"deleted_rows", view.deletedRows},
                                      {"log_version", view.logVersion.value()},
                                      {"log_rows", view.logRows},
                                      {"log_capacity", FecTableConstants::kEntryLogCapacity}};
  return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace Tools
