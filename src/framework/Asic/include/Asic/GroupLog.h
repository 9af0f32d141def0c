// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>

#include "Asic/GroupLogInterface.h"
#include "Asic/GroupLogRows.h"
#include "Pell/HashMap.h"
#include "Vanta/EntityManager.h"

namespace Asic {

// The rows of a group of tables in shared memory, in group order. Rows go when they are applied.
class GroupLogGlint : public Zev::Typed<GroupLogGlint, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = "Asic::GroupLogGlint";
  static constexpr const char* kCollectionName = "groupLog";
  // As many as the logs of its tables may hold together, for a group of one busy table.
  static constexpr std::uint32_t kCapacity = 100000;

  explicit GroupLogGlint(const ZevGlint::MountSite& site);
  Glint::GlintMap<GroupLogRow>& groupLog() { return groupLog_; }

 private:
  Glint::GlintMap<GroupLogRow> groupLog_;
};

// The applied version of each table of a group in shared memory.
//
// Which tables a group has is fixed when its agent is built; a report for more than its slots hold
// (twice the capacity) stops the process.
class GroupVersionsGlint : public Zev::Typed<GroupVersionsGlint, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = "Asic::GroupVersionsGlint";
  static constexpr const char* kCollectionName = "appliedVersions";
  static constexpr std::uint32_t kCapacity = 64;

  explicit GroupVersionsGlint(const ZevGlint::MountSite& site);
  Glint::GlintMap<GroupVersionRow>& appliedVersions() { return appliedVersions_; }

 private:
  Glint::GlintMap<GroupVersionRow> appliedVersions_;
};

// The group log: takes the announcements of the entry logs in their order, and records up to which
// version the hardware has applied each table.
//
// Ownership: holds its mounts.
// Threads: the event loop's; other processes read the rows.
// Invariants: sequences only rise, also across a restart; only this process writes. Rows of one
// table have rising versions. Observers hear when everything is done; they only mark work. An
// exception of an observer goes to the caller, but the call has had its effect.
// Cost: an announcement and a report cost the rows that they add or drop; a start costs the slots
// in use and one sort of the rows, whatever the number of tables.
class GroupLog : public Zev::Typed<GroupLog, GroupLogInterface> {
 public:
  static constexpr const char* kTypeName = "Asic::GroupLog";
  // Published when the rows of an operation have been added.
  static constexpr short kGroupLogAttribute = 2;
  // Published when the applied version of a table has been recorded.
  static constexpr short kAppliedVersionsAttribute = 3;

  // Mounts (creates, if there are none) the two tables. Throws ZevGlint::MountException.
  GroupLog(const Pell::Ptr<Vanta::EntityManager>& entityManager, const Pell::String& agentName,
           const Pell::String& groupName);

  static Zev::TypeRecord typeRecord();

  // Adds one row, or as many as the needed versions take (GroupLogRow::rowsFor); room() must be as
  // large, or the process stops.
  void addGroupLogEntry(SwTableId tableId, LogVersion version,
                        const Pell::Ptr<NeededEntry const>& neededEntry) override;

  // Rows that may still be added. Slots that are out of use because of damage are not subtracted.
  std::uint32_t room() const { return logMap().slotCount() - logMap().rowCount(); }
  bool hasRoomFor(const Pell::Ptr<NeededEntry const>& neededEntry) const override;
  // True if the rows are within the nominal capacity. The room above it is kept for re-drives and
  // for the one operation that passes the bound.
  bool requestsFit() const override { return logMap().rowCount() < logMap().capacity(); }

  // The table's log has handed the version out, announced here or not. Raises only.
  void announcedIs(TableVersion handedOut);
  // The version up to which the table's operations have been announced: here, by rows that an
  // earlier process left, by an applied version on record, or by announcedIs(). 0: none has.
  LogVersion announced(SwTableId tableId) const;
  bool isAnnounced(TableVersion tableVersion) const {
    return tableVersion.logVersion() <= announced(tableVersion.tableId());
  }

  // Whether the hardware has ever applied anything of the table, and up to which version. Both
  // may throw Pell::CorruptionDetectedException; the caller passes its message to
  // versionsMap().doCorruptionDetected().
  bool hasTableVersion(SwTableId tableId) const;
  LogVersion tableVersion(SwTableId tableId) const;
  // Up to which version the hardware is known to have applied the table: what was on record at the
  // start, and what has been reported since. 0: nothing is known. Never throws; damage to the
  // record takes nothing back.
  LogVersion applied(SwTableId tableId) const;

  // The hardware has applied the table up to the version: records it and drops the rows up to it,
  // those of one operation together, the oldest first. A version below applied() changes nothing:
  // what has been applied stays applied. The caller must check first that the version was
  // announced.
  void tableVersionIs(TableVersion applied);

  // Rows that may be added beyond the nominal capacity, which belongs to requests whether or not
  // they have used it. Grows with each report.
  std::uint32_t redriveRoom() const;
  // redriveRoom() when nothing waits for the hardware: its largest value.
  std::uint32_t redriveRoomAtMost() const { return logMap().slotCount() - logMap().capacity(); }

  Glint::GlintMapBase& versionsMap() const { return versions_->appliedVersions(); }
  Glint::GlintMapBase& logMap() const { return log_->groupLog(); }

 private:
  static constexpr std::uint32_t kTablesSalt = 0x83e05c1d;

  // A row that is not applied yet.
  struct Pending {
    LogVersion version;
    std::uint64_t sequence = 0;
  };
  struct OfTable {
    LogVersion announced;
    LogVersion applied;
    std::deque<Pending> rows;  // in group order, which is that of the versions
  };

  void addRow(OfTable& table, const GroupLogRow& row);
  void readApplied();
  void readPending();
  void raiseAnnounced(TableVersion tableVersion);

  Pell::Ptr<GroupLogGlint> log_;
  Pell::Ptr<GroupVersionsGlint> versions_;
  std::uint64_t lastSequence_ = 0;
  Pell::HashMap<SwTableId, OfTable, SwTableIdHash<kTablesSalt>> tables_;
};

}  // namespace Asic
