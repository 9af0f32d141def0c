// SPDX-License-Identifier: Apache-2.0

// A row in the group log asks for a turn that applies, and so does every hardware write that is
// asked for: a delete that had nothing to delete logs nothing, and its answer waits for the next
// report of any version. Each such turn is followed by one that reports, and a report asks for
// nothing by itself, so a loop with nothing to do comes to rest.

#include "hardware/HardwareTurns.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "Glint/Guarded.h"
#include "Zev/FirstException.h"
#include "Zev/Trace.h"

namespace Hardware {

namespace {

constexpr const char* kClass = "HardwareTurns";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

HardwareTurns::HardwareTurns(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
                             const Pell::Ptr<Asic::OrderedSwTableStatus>& status,
                             Asic::HardwareSide& hardware)
    : group_(group),
      status_(status),
      hardware_(hardware),
      apply_(loop, [this] { applySome(); }),
      report_(loop, [this] { reportApplied(); }),
      groupLogSubscriber_(
          [this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
            if (attributeId == Asic::GroupLog::kGroupLogAttribute) {
              apply_.mark();
            }
          }),
      statusSubscriber_(
          [this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
            if (attributeId == Asic::OrderedSwTableStatus::kHwWriteAskedAttribute) {
              apply_.mark();
            }
          }) {
  group_->groupLog()->publisher().subscriberAdd(groupLogSubscriber_);
  status_->publisher().subscriberAdd(statusSubscriber_);
}

HardwareTurns::~HardwareTurns() {
  group_->groupLog()->publisher().subscriberRemove(groupLogSubscriber_);
  status_->publisher().subscriberRemove(statusSubscriber_);
}

void HardwareTurns::applySome() {
  if (hardware_.step(kRowsPerTurn)) {
    ZEV_TRACE(trace, 8, kClass, "next turn applies more");
    apply_.mark();
  }
  report_.mark();
}

void HardwareTurns::reportApplied() {
  std::vector<Asic::TableVersion> reports;
  bool isAll = true;
  for (const auto& [tableId, version] : hardware_.appliedVersions()) {
    const Asic::LogVersion next = nextToReport({tableId, version});
    ZEV_TRACE(trace, 8, kClass, "reports: {} applied: {}", Asic::TableVersion(tableId, next),
              version);
    reports.emplace_back(tableId, next);
    reported_[tableId] = next;
    isAll = isAll && next == version;
  }
  if (!isAll) {
    report_.mark();
  }
  Zev::FirstException first;
  for (const Asic::TableVersion& report : reports) {
    first.from([&] { group_->tableVersionApplied(report); });
  }
  first.rethrow();
}

Asic::LogVersion HardwareTurns::nextToReport(Asic::TableVersion applied) const {
  std::optional<Asic::LogVersion> last;
  if (const auto reported = reported_.find(applied.tableId()); reported != reported_.end()) {
    last = reported->second;
  } else {
    const Pell::Ptr<Asic::GroupLog>& groupLog = group_->groupLog();
    Glint::guarded(groupLog->versionsMap(), [&] {
      if (groupLog->hasTableVersion(applied.tableId())) {
        last = groupLog->tableVersion(applied.tableId());
      }
    });
  }
  if (!last) {
    return applied.logVersion();
  }
  const Asic::LogVersion next =
      std::min(applied.logVersion(), Asic::LogVersion(last->value() + kVersionsPerReport));
  return hardware_.upToTableDeletion({applied.tableId(), *last}, next);
}

}  // namespace Hardware
