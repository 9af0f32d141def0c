#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "Asic/GroupLog.h"
#include "Asic/Versions.h"
#include "Pell/HashMap.h"
#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"

namespace SimAsic {

// What one resynchronisation found, over all units.
struct Resynchronisation {
  std::uint64_t unchanged = 0;
  std::uint64_t added = 0;
  std::uint64_t changed = 0;
  std::uint64_t removed = 0;
};

// The hardware of one group of tables, simulated: follows the shared log, applies it in order and
// tells how far it is.
//
// It sees what a process of its own would see: the state folder, through reader mounts. It takes
// the rows of the group log in order; a row is applied when every version it needs has been applied
// and every earlier row of its own table has, from the table's log rows up to the row's version.
//
// Kind: object with identity.
// Ownership: holds its reader mounts and the hardware's content, which goes with it.
// Threads: one; the writer of the tables may be another process.
// Invariants: applied versions only rise. What a table's log no longer tells (a row that is
// missing or damaged) is repaired from the configuration tables.
class SimulatedAsic {
 public:
  // One unit's hardware table.
  using HardwareTable =
      Pell::HashMap<LoamFec::FecTableDataModelEntryKey, LoamFec::FecTableDataModelLogEntry,
                    LoamFec::FecKeyHash<0x5b1e92d7>>;

  // Mounts the tables of these units for reading and resynchronises. Throws
  // ZevGlint::MountException when one is not there.
  SimulatedAsic(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds);
  SimulatedAsic(const SimulatedAsic&) = delete;
  SimulatedAsic& operator=(const SimulatedAsic&) = delete;

  // Compares every configuration row with what the hardware holds and repairs the difference; what
  // had been logged by then counts as applied.
  Resynchronisation resynchronise();

  // Takes what is new in the group log and applies up to `budget` operations. True when it stopped
  // for the budget.
  bool step(std::uint32_t budget);

  // Up to where each table has been applied.
  const std::map<Asic::SwTableId, Asic::LogVersion>& appliedVersions() const { return applied_; }
  Asic::LogVersion appliedVersion(Asic::SwTableId tableId) const;

  // Null for a unit that it does not have.
  const HardwareTable* hardwareTable(Asic::UnitId unitId) const;
  // Operations applied from the log since construction.
  std::uint64_t operationsApplied() const { return operationsApplied_; }
  // Times the log did not tell enough and the configuration tables were read instead.
  std::uint64_t repairs() const { return repairs_; }

 private:
  struct Unit {
    Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config;
    HardwareTable table;
  };
  using Rows = std::deque<Asic::GroupLogRow>;

  void takeGroupRows();
  bool needsAreApplied(const Asic::GroupLogRow& row) const;
  bool applyTable(Rows& rows, std::uint32_t& budget);
  bool applyUpTo(Asic::TableVersion target, std::uint32_t& budget);
  bool applyVersion(Asic::LogVersion version);
  void applyRow(const LoamFec::FecTableDataModelLogGlintEntry& row);
  void resynchroniseUnit(Unit& unit, Resynchronisation& result);

  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Asic::GroupLogGlint> groupLog_;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log_;
  std::map<Asic::UnitId, Unit> units_;
  std::map<Asic::SwTableId, Asic::LogVersion> applied_;
  std::map<Asic::SwTableId, Rows> waiting_;
  std::uint64_t lastTaken_ = 0;  // group sequence
  std::uint64_t operationsApplied_ = 0;
  std::uint64_t repairs_ = 0;
};

}  // namespace SimAsic
