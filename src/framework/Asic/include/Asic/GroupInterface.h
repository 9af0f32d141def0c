// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>

#include "Asic/GroupLog.h"
#include "Asic/GroupResolver.h"
#include "Asic/OrderedSwTableSet.h"

namespace Asic {

// One group of ordered tables: its resolver, its log, and the software tables in it.
//
// Ownership: holds all three.
class GroupInterface : public Zev::Typed<GroupInterface> {
 public:
  static constexpr const char* kTypeName = "Asic::GroupInterface";

  GroupInterface(Zev::EventLoop& loop, const Pell::Ptr<Vanta::EntityManager>& entityManager,
                 const Pell::String& agentName, const Pell::String& groupName,
                 std::uint16_t agentAndGroupId);
  // Empties the resolver's queue first, because the waiting entries point at tables that end now.
  ~GroupInterface() override;

  std::uint16_t agentAndGroupId() const { return agentAndGroupId_; }
  const Pell::Ptr<GroupResolver>& groupResolver() const { return groupResolver_; }
  const Pell::Ptr<GroupLog>& groupLog() const { return groupLog_; }
  Pell::Ptr<GroupLogInterface> groupLogInterface() const { return groupLog_; }

  // The set of the table id, made when there is none.
  Pell::Ptr<OrderedSwTableSet> swTableSetIs(SwTableId tableId);
  bool swTableSetHas(SwTableId tableId) const { return swTableSets_.contains(tableId); }
  // Null when there is none.
  Pell::Ptr<OrderedSwTableSet> swTableSet(SwTableId tableId) const;
  const std::map<SwTableId, Pell::Ptr<OrderedSwTableSet>>& swTableSets() const {
    return swTableSets_;
  }

  // The hardware reports a table applied: tells the table of every unit, then records the version
  // in the group log. Called in a turn of its own. A version above the announced versions of the
  // table is refused: nobody hears of it, and it is counted and traced at level 1.
  //
  // Handlers that this calls may report again, drop tables, and drop the group. If handlers throw,
  // the first exception reaches the caller when every table has been told and the version is
  // recorded. A request that the full group log held back is looked at again once the report has
  // made room.
  void tableVersionApplied(TableVersion applied);

  // Reports refused since construction.
  std::uint64_t refusedReports() const { return refusedReports_; }

 private:
  std::uint16_t agentAndGroupId_;
  Pell::Ptr<GroupResolver> groupResolver_;
  Pell::Ptr<GroupLog> groupLog_;
  std::map<SwTableId, Pell::Ptr<OrderedSwTableSet>> swTableSets_;
  std::uint64_t refusedReports_ = 0;
};

}  // namespace Asic
