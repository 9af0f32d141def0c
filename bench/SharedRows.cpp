// SPDX-License-Identifier: Apache-2.0

#include "SharedRows.h"

#include <algorithm>

#include <fmt/format.h>

#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"

namespace bench {

namespace {

using ZevSharedMem::mountForWriting;

}  // namespace

SharedRows::SharedRows(const Workload& workload)
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(root_.path())),
      config_(
          mountForWriting<LoamFec::FecTableDataModelConfigGlint>(entityManager_, "/bench/config")),
      log_(mountForWriting<LoamFec::FecTableDataModelEntryLogGlint>(entityManager_, "/bench/log")),
      group_(mountForWriting<Asic::GroupLogGlint>(entityManager_, "/bench/group")) {
  for (const Rows& rows : rowsOf(workload.everyEntry(), 1)) {
    config_->swTableEntries().rowIs(rows.config);
  }
}

void SharedRows::prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) {
  batch_ = rowsOf(batch, version_ + 1);
}

void SharedRows::write(const Rows& rows) {
  config_->swTableEntries().rowIs(rows.config);
  log_->entryLogConfig().rowIs(rows.log);
  group_->groupLog().rowIs(rows.group);
}

void SharedRows::write() {
  for (const Rows& rows : batch_) {
    write(rows);
  }
}

void SharedRows::finish() {
  version_ += batch_.size();
  for (const Rows& rows : batch_) {
    log_->entryLogConfig().rowDel(rows.log.version());
    group_->groupLog().rowDel(rows.group.sequence());
  }
}

Pell::String SharedRows::finding(const Workload& workload) {
  std::uint32_t right = 0;
  const bool sawAll = Glint::walkOverDamage(
      config_->swTableEntries(), [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
        right += row.logEntry().opaqueA == workload.markOf(row.key().fecId()) ? 1U : 0U;
      });
  if (!sawAll || right != scale().residentKeys || log_->entryLogConfig().rowCount() != 0 ||
      group_->groupLog().rowCount() != 0) {
    return fmt::format("{} rows are right, {} there should be", right, scale().residentKeys);
  }
  return {};
}

void SharedRowsInBatch::write() {
  constexpr std::size_t kAhead = 4;
  const auto& config = config_->swTableEntries();
  for (std::size_t i = 0; i < batch_.size(); ++i) {
    config.fetchAhead(batch_[std::min(i + kAhead, batch_.size() - 1)].config.key());
    SharedRows::write(batch_[i]);
  }
}

}  // namespace bench
