// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Asic/GroupLogFollower.h"
#include "Asic/HardwareSide.h"
#include "Asic/Versions.h"
#include "Vanta/EntityManager.h"
#include "hardware/AsicDriver.h"
#include "records/FecSharedTables.h"

namespace Hardware {

class FecAsic;
class Resynchroniser;
class StepBudget;
struct ResynchronisationRange;

// Drives an ASIC from the shared log: follows it, has the ASIC's driver make the changes in order,
// and tells how far it is. It keeps the entries of the FEC table; of the other tables it knows only
// the versions.
//
// It sees what a process of its own would see: the state folder, through reader mounts. It takes
// the operations of the group log in order. An operation is applied when every version that it
// needs and every earlier operation of its own table have been applied. Applying it means to apply
// the table's log rows up to its version.
//
// When a row of either log is missing or damaged, the hardware is resynchronised from the
// configuration rows. That, too, goes no further than operations may be applied: it ends before the
// first operation that needs a version which has not been applied. It forgets no operation that
// waits.
//
// Kind: object with identity.
// Ownership: holds its reader mounts and the driver.
// Threads: one; the writer of the tables may be another process.
// Invariants: as Asic::HardwareSide. The constructor and resynchronise() are not bounded, and are
// for an agent's start. When the ASIC does not take all then, what is left is done by the steps
// that follow.
class LogDrivenHardware : public Asic::HardwareSide {
 public:
  // Mounts the tables of these units for reading, and carries out a whole resynchronisation. Throws
  // ZevGlint::MountException when a table is missing.
  LogDrivenHardware(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds,
                    std::unique_ptr<AsicDriver> asic,
                    Asic::Writer writer = Asic::Writer::onThisThread);
  ~LogDrivenHardware() override;

  bool step(std::uint32_t rows) override;
  Asic::Resynchronisation resynchronise() override;

  // For a table other than the FEC table, the version is at least the one that the agent has on
  // record: the table may have been applied before this hardware was there.
  const std::map<Asic::SwTableId, Asic::LogVersion>& appliedVersions() const override {
    return applied_;
  }
  Asic::LogVersion upToTableDeletion(Asic::TableVersion from, Asic::LogVersion to) const override;

  bool entry(Asic::SwTableId tableId, Asic::UnitId unitId, std::uint64_t key,
             std::span<std::byte> bytes) const override;
  void forEachEntry(Asic::SwTableId tableId, Asic::UnitId unitId,
                    const VisitEntry& visit) const override;
  std::uint32_t entries(Asic::SwTableId tableId, Asic::UnitId unitId) const override;
  std::uint32_t capacity(Asic::SwTableId tableId) const override;
  Pell::String fault() const override;

  // Operations applied in order since construction.
  std::uint64_t operationsApplied() const { return operationsApplied_; }
  // How many times the log did not tell enough and the configuration tables were read instead.
  std::uint64_t repairs() const { return repairs_; }
  // True from the moment when the log does not tell enough until the tables have been read.
  bool resynchronising() const { return catchingUp_ || resynchroniser_; }
  // Rows of the group log that were missing or damaged. A second hardware side behind the agent's
  // own also counts rows that went because they were applied there.
  std::uint64_t missedGroupRows() const { return missedGroupRows_; }

 private:
  using LogRow = LoamFec::FecTableDataModelLogGlintEntry;
  // What had been logged and announced when a resynchronisation began.
  struct Target {
    Asic::LogVersion version;
    std::uint64_t sequence = 0;
  };
  using Announcements = std::deque<Asic::Announcement>;

  void beginResynchronisation();
  void repair(std::string_view why);
  std::optional<Asic::Resynchronisation> goOnResynchronising(StepBudget& budget);
  bool catchUp(StepBudget& budget);
  void takeRecordedVersions();
  ResynchronisationRange range(Asic::LogVersion newest) const;

  bool goOn(StepBudget& budget);
  bool takeOrRepair();
  Asic::GroupLogFollower::Found takeNext();
  bool applyWaiting(StepBudget& budget);
  bool applyOther(Asic::SwTableId tableId, Announcements& waiting, StepBudget& budget);
  bool applyFecTable(const Announcements& waiting, StepBudget& budget);
  bool giveUpTo(Asic::LogVersion target, StepBudget& budget);
  void giveToAsic(const LogRow& row, StepBudget& budget);
  bool flush();
  void takeBackWhatIsGiven();
  bool needsAreApplied(const Asic::Announcement& announcement, Asic::LogVersion ofFecTable) const;
  void traceBlocked(Asic::LogVersion limit, const Asic::Announcement& announcement) const;
  void traceWaiting() const;
  Pell::String unappliedNeeds(const Asic::Announcement& announcement,
                              Asic::LogVersion ofFecTable) const;

  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Asic::GroupLogGlint> groupLog_;
  Pell::Ptr<Asic::GroupVersionsGlint> recorded_;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log_;
  Asic::GroupLogFollower follower_;
  Asic::Writer writer_;
  std::map<Asic::UnitId, Pell::Ptr<LoamFec::FecTableDataModelConfigGlint>> units_;
  std::unique_ptr<AsicDriver> driver_;
  std::unique_ptr<FecAsic> asic_;
  std::map<Asic::SwTableId, Asic::LogVersion> applied_;
  std::map<Asic::SwTableId, Announcements> waiting_;  // in version order
  Asic::LogVersion given_;              // of the FEC table, to the ASIC; not below applied
  std::size_t announcementsGiven_ = 0;  // of the FEC table, from the front of those that wait
  Asic::LogVersion recordedApplied_;    // of the FEC table
  std::optional<Target> catchingUp_;    // a resynchronisation takes announcements
  std::unique_ptr<Resynchroniser> resynchroniser_;  // it compares
  std::optional<Asic::LogVersion> owed_;            // another is due when it has been applied
  std::uint64_t operationsApplied_ = 0;
  std::uint64_t repairs_ = 0;
  std::uint64_t missedGroupRows_ = 0;
};

// Gives a maker of such hardware. Each hardware that it makes gets its own driver from
// `makeDriver`.
using DriverMaker = std::function<std::unique_ptr<AsicDriver>()>;
Asic::HardwareMaker drivenByTheLog(DriverMaker makeDriver);

}  // namespace Hardware
