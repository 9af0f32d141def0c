// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>

#include "Asic/GroupInterface.h"
#include "Asic/ResourceTableBase.h"

namespace Asic {

// The ordered tables of one agent: its groups and its resource tables.
//
// Ownership: holds the groups, the resource tables and the state database's entity manager;
// refers to the loop, which outlives it.
class OrderedTableInterface : public Zev::Typed<OrderedTableInterface> {
 public:
  static constexpr const char* kTypeName = "Asic::OrderedTableInterface";

  OrderedTableInterface(Zev::EventLoop& loop, const Pell::Ptr<Vanta::EntityManager>& entityManager);

  Zev::EventLoop& eventLoop() const { return loop_; }
  const Pell::Ptr<Vanta::EntityManager>& entityManager() const { return entityManager_; }

  // Makes the group with its resolver and its log; a group that exists already is left as it is.
  // Throws ZevGlint::MountException when the group's log cannot be mounted.
  void makeGroupIntf(Pell::String const& agentName, Pell::String const& groupName,
                     unsigned short agentAndGroupId);
  // By canonical group name; null when there is none.
  Pell::Ptr<GroupInterface> groupIntf(const Pell::String& canonicalGroupName) const;
  void groupIntfDel(const Pell::String& canonicalGroupName);

  // Files the resource table under its canonical table name, replacing one that is there.
  void resourceTableIs(const Pell::String& canonicalTableName,
                       const Pell::Ptr<ResourceTableBase>& resourceTable);
  // Null when there is none.
  Pell::Ptr<ResourceTableBase> resourceTable(const Pell::String& canonicalTableName) const;

 private:
  Zev::EventLoop& loop_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  std::map<Pell::String, Pell::Ptr<GroupInterface>> groupIntfs_;
  std::map<Pell::String, Pell::Ptr<ResourceTableBase>> resourceTables_;
};

}  // namespace Asic
