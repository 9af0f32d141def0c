// SPDX-License-Identifier: Apache-2.0

// The other end of GroupLog. The writer raises the scratchpad once all rows of an operation stand,
// so the rows up to it are whole operations, but for those of a writer that was killed between two
// rows: the next start goes on behind them, and the collector drops them.

#include "Asic/GroupLogFollower.h"

#include <algorithm>

#include "Glint/Guarded.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "GroupLogFollower";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

constexpr const char* kCollectorClass = "AnnouncementCollector";

Zev::TraceHandle& collectorTrace = Zev::traceHandle(kCollectorClass);

}  // namespace

bool AnnouncementCollector::take(const GroupLogRow& row) {
  const bool follows = open_ && row.sequence() == collected_.sequence + 1 &&
                       row.tableVersion() == collected_.tableVersion;
  if (row.isContinuation() && !follows) {
    ZEV_TRACE(collectorTrace, 3, kCollectorClass,
              "sequence: {} of {} dropped: rows before it are gone", row.sequence(),
              row.tableVersion());
    return false;
  }
  if (!row.isContinuation()) {
    if (open_) {
      ZEV_TRACE(collectorTrace, 3, kCollectorClass, "{} dropped: rows behind sequence: {} are gone",
                collected_.tableVersion, collected_.sequence);
    }
    collected_.tableVersion = row.tableVersion();
    collected_.needed.clear();
  }
  collected_.sequence = row.sequence();
  for (std::uint32_t at = 0; at < row.neededCount(); ++at) {
    collected_.needed.push_back(row.needed(at));
  }
  open_ = row.isContinued();
  return !open_;
}

GroupLogFollower::GroupLogFollower(const Pell::Ptr<GroupLogGlint>& groupLog) : groupLog_(groupLog) {
  lookForMore();
  lastTaken_ = announced_;
}

bool GroupLogFollower::lookForMore() {
  auto& rows = groupLog_->groupLog();
  return Glint::guarded(rows, [&] { announced_ = rows.control().scratchpad(); });
}

GroupLogFollower::Found GroupLogFollower::next(Announcement& next) {
  if (lastTaken_ >= announced_) {
    lookForMore();
  }
  while (lastTaken_ < announced_) {
    ++lastTaken_;
    const auto row = Glint::guardedRow(groupLog_->groupLog(), lastTaken_);
    if (!row || !row->isPlausible()) {
      ZEV_TRACE(trace, 3, kClass, "sequence: {} is missing or damaged", lastTaken_);
      return Found::gap;
    }
    if (collector_.take(*row)) {
      ZEV_TRACE(trace, 8, kClass, "sequence: {} tableVersion: {}", lastTaken_, row->tableVersion());
      next = collector_.announcement();
      return Found::announcement;
    }
  }
  return Found::nothingNew;
}

bool GroupLogFollower::startOver(std::vector<Announcement>& standing) {
  bool sawAll = lookForMore();
  lastTaken_ = announced_;
  std::vector<GroupLogRow> rows;
  sawAll = Glint::walkOverDamage(groupLog_->groupLog(),
                                 [&](const GroupLogRow& row) {
                                   if (row.sequence() > announced_) {
                                     return;
                                   }
                                   rows.push_back(row);
                                 }) &&
           sawAll;
  std::sort(rows.begin(), rows.end(),
            [](const GroupLogRow& a, const GroupLogRow& b) { return a.sequence() < b.sequence(); });
  standing.clear();
  collector_ = AnnouncementCollector();
  for (const GroupLogRow& row : rows) {
    if (!row.isPlausible()) {
      sawAll = false;
    } else if (collector_.take(row)) {
      standing.push_back(collector_.announcement());
    }
  }
  ZEV_TRACE(trace, 8, kClass, "standing: {} lastTaken: {} sawAll: {}", standing.size(), lastTaken_,
            sawAll);
  return sawAll;
}

}  // namespace Asic
