#include "Asic/GroupInterface.h"

namespace Asic {

GroupInterface::GroupInterface(Zev::EventLoop& loop,
                               const Pell::Ptr<Vanta::EntityManager>& entityManager,
                               const Pell::String& agentName, const Pell::String& groupName,
                               std::uint16_t agentAndGroupId)
    : agentAndGroupId_(agentAndGroupId),
      groupResolver_(Zev::makeObject<GroupResolver>(loop)),
      groupLog_(Zev::makeObject<GroupLog>(entityManager, agentName, groupName)) {}

GroupInterface::~GroupInterface() {
  hasNotificationActiveIs(false);
  groupResolver_->resolverQueueDelIf([](const ResolverEntry&) { return true; });
}

const Zev::TypeRecord& GroupInterface::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

Pell::Ptr<OrderedSwTableSet> GroupInterface::swTableSetIs(SwTableId tableId) {
  Pell::Ptr<OrderedSwTableSet>& set = swTableSets_[tableId];
  if (!set) {
    set = Zev::makeObject<OrderedSwTableSet>(tableId);
  }
  return set;
}

Pell::Ptr<OrderedSwTableSet> GroupInterface::swTableSet(SwTableId tableId) const {
  const auto found = swTableSets_.find(tableId);
  return found == swTableSets_.end() ? nullptr : found->second;
}

void GroupInterface::tableVersionApplied(TableVersion applied) {
  const Pell::Ptr<GroupInterface> self(this);
  if (const Pell::Ptr<OrderedSwTableSet> set = swTableSet(applied.tableId())) {
    set->tableStatusVersion(applied.logVersion());
  }
  groupLog_->tableVersionIs(applied);
}

}  // namespace Asic
