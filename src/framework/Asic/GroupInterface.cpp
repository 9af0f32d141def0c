// SPDX-License-Identifier: Apache-2.0

#include "Asic/GroupInterface.h"

#include "Zev/FirstException.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "GroupInterface";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

GroupInterface::GroupInterface(Zev::EventLoop& loop,
                               const Pell::Ptr<Vanta::EntityManager>& entityManager,
                               const Pell::String& agentName, const Pell::String& groupName,
                               std::uint16_t agentAndGroupId)
    : agentAndGroupId_(agentAndGroupId),
      groupResolver_(Zev::makeObject<GroupResolver>(loop)),
      groupLog_(Zev::makeObject<GroupLog>(entityManager, agentName, groupName)) {}

GroupInterface::~GroupInterface() {
  groupResolver_->resolverQueueDelIf([](const ResolverEntry&) { return true; });
}

Pell::Ptr<OrderedSwTableSet> GroupInterface::swTableSetIs(SwTableId tableId) {
  Pell::Ptr<OrderedSwTableSet>& set = swTableSets_[tableId];
  if (!set) {
    ZEV_TRACE(trace, 8, kClass, "tableId: {}", tableId);
    set = Zev::makeObject<OrderedSwTableSet>(tableId);
  }
  return set;
}

Pell::Ptr<OrderedSwTableSet> GroupInterface::swTableSet(SwTableId tableId) const {
  const auto found = swTableSets_.find(tableId);
  return found == swTableSets_.end() ? nullptr : found->second;
}

void GroupInterface::tableVersionApplied(TableVersion applied) {
  ZEV_TRACE(trace, 8, kClass, "applied: {}", applied);
  const Pell::Ptr<GroupInterface> self(this);
  if (!groupLog_->isAnnounced(applied)) {
    ++refusedReports_;
    ZEV_TRACE(trace, 1, kClass, "refused: {} was never announced", applied);
    return;
  }
  const bool requestsFitted = groupLog_->requestsFit();
  Zev::FirstException first;
  if (const Pell::Ptr<OrderedSwTableSet> set = swTableSet(applied.tableId())) {
    first.from([&] { set->tableStatusVersion(applied.logVersion()); });
  }
  first.from([&] { groupLog_->tableVersionIs(applied); });
  if (!requestsFitted && groupLog_->requestsFit()) {
    ZEV_TRACE(trace, 3, kClass, "the group log has room for requests again");
    groupResolver_->updateGenId();
  }
  first.rethrow();
}

}  // namespace Asic
