// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>

#include "Asic/OrderedSwTableStatus.h"
#include "Asic/TableInterfaceBase.h"
#include "Pell/HashMap.h"
#include "fec/FecTableEntryLog.h"
#include "fec/FecTableSwTable.h"

namespace LoamFec {

// There are more units than the logs have room for.
class FecTableUnitsException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The FEC table of this process: where an agent begins.
//
//   auto fec = FecTableInterface::getIntf(orderedTables);
//   auto table = fec->makeSwTable(unitId, platformHelper, false);
//   table->entryWriteWithResponseHandler(key, entry, nullptr, handler);
//
// Kind: one per process, registered as "LoamFec::FecTableInterface" with the platform's registry of
// table interfaces.
// Ownership: held by the registry; holds the entry log, the status and the table of each unit.
// Threads: the event loop's.
class FecTableInterface : public Zev::Typed<FecTableInterface, Asic::TableInterfaceBase> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableInterface";

  // The process's interface, made on the first call; later calls ignore the argument.
  static Pell::Ptr<FecTableInterface> getIntf(
      Pell::Ptr<Asic::OrderedTableInterface> const& ordTblIntf);

  // The canonical name under which the resource table must be filed with the ordered-table
  // interface before the first makeSwTable().
  static Pell::String resourceTableName();

  // Joins the table's group and mounts the entry log. A second interface stops the process: use
  // getIntf(). Throws ZevGlint::MountException.
  explicit FecTableInterface(Pell::Ptr<Asic::OrderedTableInterface> const& orderedTableIntf);

  static Zev::TypeRecord typeRecord();
  ~FecTableInterface() override;

  void handleInitialized();

  const Pell::String& tableName() const { return tableName_; }
  const Pell::String& groupName() const { return groupName_; }
  const Pell::String& agentName() const { return agentName_; }

  // The unit's table. The first call makes it, and restores it from shared memory or, with reset,
  // logs a deletion of what is there; a later call returns the same table, cleared with reset. A
  // helper that is not null replaces the table's. Throws ZevGlint::MountException,
  // FecTableUnitsException for a unit beyond FecTableConstants::kMaxUnits, and
  // FecTableLogRoomException when a restored table has more to log again than the log has room for;
  // the unit has no table then.
  Pell::Ptr<FecTableSwTable> makeSwTable(Asic::UnitId unitId,
                                         Pell::Ptr<FecTableSwTableHelperBase> const& swTableHelper,
                                         bool reset);

  // The log of these three: the existing log if it is theirs, otherwise a new one. Existing tables
  // keep their log.
  Pell::Ptr<FecTableEntryLog> entryLogIs(
      Asic::SwTableId tableId, Pell::Ptr<Vanta::EntityManager> const& entityManager,
      Pell::Ptr<Asic::GroupLogInterface> const& groupLogInterface);
  const Pell::Ptr<FecTableEntryLog>& entryLog() const { return entryLog_; }
  void entryLogDel() { entryLog_ = nullptr; }

  // The status of that table, made when there is none.
  Pell::Ptr<Asic::OrderedSwTableStatus> swTableStatusIs(Asic::SwTableId tableId);
  const Pell::Ptr<Asic::OrderedSwTableStatus>& swTableStatus() const { return swTableStatus_; }
  void swTableStatusDel() { swTableStatus_ = nullptr; }

  void swTableIs(Asic::UnitId unitId, Pell::Ptr<FecTableSwTable> const& table);
  // Null when the unit has none.
  Pell::Ptr<FecTableSwTable> swTable(Asic::UnitId unitId) const;
  // Drop the interface's references. The group's set of tables holds a reference too, until the
  // unit is made again: then the former table ends as by unitDel().
  void swTableDel(Asic::UnitId unitId) { swTable_.erase(unitId); }
  void swTableDelAll() { swTable_.clear(); }

  // Ends the unit, which may be made again: its table leaves this interface and the group's set,
  // and its requests leave the resolver's queue. Requests that wait there or for the hardware are
  // never answered, and requests that depend on them go on waiting. Committed entries stay, and go
  // to the hardware; they are driven again only when the unit is made again. Code that still holds
  // the table may read it, but must make no more requests. Without a table this does nothing.
  void unitDel(Asic::UnitId unitId);

 private:
  static constexpr std::uint32_t kSwTableSalt = 0x0c35f9e1;

  Pell::Ptr<Asic::GroupInterface> groupIntf() const;
  void cleanUpToCommittedVersion(Asic::GroupInterface& groupIntf);
  void catchUpWithReports(const Asic::GroupInterface& groupIntf);
  static void end(Asic::OrderedSwTable& table);
  Pell::Ptr<FecTableIntfIdToDestIdLinkage> makeLinkage(FecTableSwTable& table) const;

  Pell::String tableName_;
  Pell::String groupName_;
  Pell::String agentName_;
  Pell::Ptr<FecTableEntryLog> entryLog_;
  Pell::Ptr<Asic::OrderedSwTableStatus> swTableStatus_;
  Pell::HashMap<Asic::UnitId, Pell::Ptr<FecTableSwTable>, Asic::UnitIdHash<kSwTableSalt>> swTable_;
};

}  // namespace LoamFec
