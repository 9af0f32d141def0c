// A row in the group log asks for a turn that applies, and so does the pending flag when it goes
// up: a delete that had nothing to delete raises it without logging anything, and its answer waits
// for the next report of any version.

#include "asic/HardwareSide.h"

namespace SimAsic {

HardwareSide::HardwareSide(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
                           const Pell::Ptr<Asic::OrderedSwTableStatus>& status, SimulatedAsic& asic)
    : group_(group),
      status_(status),
      asic_(asic),
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
            if (attributeId == Asic::OrderedSwTableStatus::kPendingHwWritesAttribute &&
                status_->pendingHwWrites()) {
              apply_.mark();
            }
          }) {
  group_->groupLog()->publisher().subscriberAdd(groupLogSubscriber_);
  status_->publisher().subscriberAdd(statusSubscriber_);
}

HardwareSide::~HardwareSide() {
  group_->groupLog()->publisher().subscriberRemove(groupLogSubscriber_);
  status_->publisher().subscriberRemove(statusSubscriber_);
}

void HardwareSide::applySome() {
  if (asic_.step(kOperationsPerTurn)) {
    apply_.mark();
  }
  report_.mark();
}

void HardwareSide::reportApplied() {
  for (const auto& [tableId, version] : asic_.appliedVersions()) {
    group_->tableVersionApplied({tableId, version});
  }
}

}  // namespace SimAsic
