// SPDX-License-Identifier: Apache-2.0

#include "Asic/OrderedTableInterface.h"

#include "Asic/Constants.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "OrderedTableInterface";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

OrderedTableInterface::OrderedTableInterface(Zev::EventLoop& loop,
                                             const Pell::Ptr<Vanta::EntityManager>& entityManager)
    : loop_(loop), entityManager_(entityManager) {}

void OrderedTableInterface::makeGroupIntf(Pell::String const& agentName,
                                          Pell::String const& groupName,
                                          unsigned short agentAndGroupId) {
  const Pell::String name = Constants::canonicalizeGroupName(agentName, groupName);
  if (!groupIntfs_.contains(name)) {
    ZEV_TRACE(trace, 8, kClass, "group: {} agentAndGroupId: {:#06x}", name, agentAndGroupId);
    const auto group = Zev::makeObject<GroupInterface>(loop_, entityManager_, agentName, groupName,
                                                       agentAndGroupId);
    groupIntfs_[name] = group;
  }
}

void OrderedTableInterface::groupIntfDel(const Pell::String& canonicalGroupName) {
  ZEV_TRACE(trace, 8, kClass, "group: {}", canonicalGroupName);
  groupIntfs_.erase(canonicalGroupName);
}

Pell::Ptr<GroupInterface> OrderedTableInterface::groupIntf(
    const Pell::String& canonicalGroupName) const {
  const auto found = groupIntfs_.find(canonicalGroupName);
  return found == groupIntfs_.end() ? nullptr : found->second;
}

void OrderedTableInterface::resourceTableIs(const Pell::String& canonicalTableName,
                                            const Pell::Ptr<ResourceTableBase>& resourceTable) {
  ZEV_TRACE(trace, 8, kClass, "resourceTable: {}", canonicalTableName);
  resourceTables_[canonicalTableName] = resourceTable;
}

Pell::Ptr<ResourceTableBase> OrderedTableInterface::resourceTable(
    const Pell::String& canonicalTableName) const {
  const auto found = resourceTables_.find(canonicalTableName);
  return found == resourceTables_.end() ? nullptr : found->second;
}

}  // namespace Asic
