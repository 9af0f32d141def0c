// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Asic/GroupLogFollower.h"
#include "Asic/Versions.h"
#include "Vanta/EntityManager.h"
#include "hardware/HardwareUnit.h"
#include "hardware/Resynchroniser.h"
#include "hardware/StepBudget.h"

namespace SimAsic {

// Where the tables' writer runs. One on this thread is at rest whenever the hardware looks; one in
// another process may be between any two of its stores.
enum class Writer : std::uint8_t { onThisThread, elsewhere };

// The hardware of one group of tables, simulated: follows the shared log, applies it in order and
// tells how far it is. It holds the entries of the FEC table; of the other tables it knows versions
// alone.
//
// It sees what a process of its own would see: the state folder, through reader mounts. It takes
// the operations of the group log in order; one is applied when every version that it needs has
// been applied and every earlier operation of its own table has, from the table's log rows up to
// its version.
//
// What the log does not tell any more (a row of either log that is missing or damaged) is made good
// by a resynchronisation from the configuration rows. That, too, goes no further than what may be
// applied: up to the first operation that needs a version which has not been applied. It forgets
// nothing that waits.
//
// Kind: object with identity.
// Ownership: holds its reader mounts and the hardware's content, which goes with it.
// Threads: one; the writer of the tables may be another process.
// Invariants: applied versions only rise. A step is bounded by the rows that it touches; the
// constructor and resynchronise() are not, and are for an agent's start.
class SimulatedAsic {
 public:
  // One unit's hardware table.
  using HardwareTable = HardwareUnit::Table;

  // What the clean-up after the report of a write touches: its log row twice, its group row.
  static constexpr std::uint64_t kRowsOfACleanup = 3;
  // The same of a deletion: its configuration row twice.
  static constexpr std::uint64_t kRowsOfADeletion = 2;
  // What one write counts in a step: its group row, its log row, and its clean-up.
  static constexpr std::uint64_t kRowsOfAWrite = 2 + kRowsOfACleanup;

  // Mounts the tables of these units for reading and resynchronises, whole. Throws
  // ZevGlint::MountException when one is not there.
  SimulatedAsic(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds,
                Writer writer = Writer::onThisThread);
  SimulatedAsic(const SimulatedAsic&) = delete;
  SimulatedAsic& operator=(const SimulatedAsic&) = delete;

  // Takes what has been announced, and then compares every configuration row that may be applied by
  // now with what the hardware holds and repairs the difference, in this call. For the start of the
  // agent whose hardware this is from then on: the writer is on this thread.
  Resynchronisation resynchronise();

  // Goes on with a resynchronisation that has begun, then takes what is new in the group log and
  // applies what can be applied, until nothing is left or the work of so many rows (at least 1) is
  // done: rows touched here, and rows that the clean-up after the report will touch. One operation,
  // or one row, is begun as long as any of it is left, and finished. True when it stopped for the
  // budget.
  bool step(std::uint32_t rows);

  // Up to where each table has been applied. Of other tables than the FEC table that is at least
  // what the agent has on record: they may have been applied before this hardware was there.
  const std::map<Asic::SwTableId, Asic::LogVersion>& appliedVersions() const { return applied_; }
  Asic::LogVersion appliedVersion(Asic::SwTableId tableId) const;
  // The version of the first deletion of a whole table behind `from`; `to` when there is none up to
  // that. Costs a look at each version.
  Asic::LogVersion upToTableDeletion(Asic::TableVersion from, Asic::LogVersion to) const;

  // Null for a unit that it does not have.
  const HardwareTable* hardwareTable(Asic::UnitId unitId) const;
  // Operations applied in order since construction.
  std::uint64_t operationsApplied() const { return operationsApplied_; }
  // Times the log did not tell enough and the configuration tables were read instead.
  std::uint64_t repairs() const { return repairs_; }
  // True from such a time on until the tables have been read.
  bool resynchronising() const { return catchingUp_ || resynchroniser_; }
  // Rows of the group log that were missing or damaged. Those of a hardware that comes behind the
  // agent's own count too: rows go when they have been applied there.
  std::uint64_t missedGroupRows() const { return missedGroupRows_; }

 private:
  // What had been logged and announced when a resynchronisation began.
  struct Target {
    Asic::LogVersion version;
    std::uint64_t sequence = 0;
  };
  using Announcements = std::deque<Asic::Announcement>;

  void beginResynchronisation();
  void repair(std::string_view why);
  std::optional<Resynchronisation> goOnResynchronising(StepBudget& budget);
  bool catchUp(StepBudget& budget);
  void takeRecordedVersions();
  ResynchronisationRange range(Asic::LogVersion newest) const;

  bool takeOrRepair();
  Asic::GroupLogFollower::Found takeNext();
  bool applyWaiting(StepBudget& budget);
  bool applyTable(Asic::SwTableId tableId, Announcements& waiting, StepBudget& budget);
  bool needsAreApplied(const Asic::Announcement& announcement) const;
  void traceBlocked(Asic::LogVersion limit, const Asic::Announcement& announcement) const;
  void traceWaiting() const;
  Pell::String unappliedNeeds(const Asic::Announcement& announcement,
                              Asic::LogVersion ofFecTable) const;
  bool needsAreApplied(const Asic::Announcement& announcement, Asic::LogVersion ofFecTable) const;
  bool applyUpTo(Asic::TableVersion target, StepBudget& budget);
  bool applyVersion(Asic::LogVersion version, StepBudget& budget);
  void applyRow(const LogRow& row, StepBudget& budget);

  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Asic::GroupLogGlint> groupLog_;
  Pell::Ptr<Asic::GroupVersionsGlint> recorded_;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log_;
  Asic::GroupLogFollower follower_;
  Writer writer_;
  HardwareUnits units_;
  std::map<Asic::SwTableId, Asic::LogVersion> applied_;
  std::map<Asic::SwTableId, Announcements> waiting_;  // in version order
  Asic::LogVersion recordedApplied_;                  // of the FEC table
  std::optional<Target> catchingUp_;                  // a resynchronisation takes announcements
  std::unique_ptr<Resynchroniser> resynchroniser_;    // it compares
  std::optional<Asic::LogVersion> owed_;              // another is due when it has been applied
  std::uint64_t operationsApplied_ = 0;
  std::uint64_t repairs_ = 0;
  std::uint64_t missedGroupRows_ = 0;
};

}  // namespace SimAsic
