#pragma once

#include <deque>
#include <vector>

#include "Asic/GroupLogInterface.h"
#include "Asic/GroupLogRows.h"
#include "Vanta/EntityManager.h"

namespace Asic {

// The rows of a group of tables in shared memory, in group order. Rows go when they are applied.
class GroupLogGlint : public Zev::Entity {
 public:
  static constexpr const char* kTypeName = "Asic::GroupLogGlint";
  static constexpr const char* kCollectionName = "groupLog";
  // As many as the logs of its tables may hold together, for a group of one busy table.
  static constexpr std::uint32_t kCapacity = 100000;

  explicit GroupLogGlint(const ZevGlint::MountSite& site);
  const Zev::TypeRecord& fwkType() const override;
  Glint::GlintMap<GroupLogRow>& groupLog() { return groupLog_; }

 private:
  Glint::GlintMap<GroupLogRow> groupLog_;
};

// The applied version of each table of a group in shared memory.
class GroupVersionsGlint : public Zev::Entity {
 public:
  static constexpr const char* kTypeName = "Asic::GroupVersionsGlint";
  static constexpr const char* kCollectionName = "appliedVersions";
  static constexpr std::uint32_t kCapacity = 64;

  explicit GroupVersionsGlint(const ZevGlint::MountSite& site);
  const Zev::TypeRecord& fwkType() const override;
  Glint::GlintMap<GroupVersionRow>& appliedVersions() { return appliedVersions_; }

 private:
  Glint::GlintMap<GroupVersionRow> appliedVersions_;
};

// The group log: takes what the entry logs announce, in the order in which they announce it, and
// keeps up to where the hardware has applied each table.
//
// Ownership: holds its mounts.
// Threads: the event loop's; other processes read the rows.
// Invariants: sequences only rise, also across a restart; only this process writes.
class GroupLog : public GroupLogInterface {
 public:
  static constexpr const char* kTypeName = "Asic::GroupLog";
  // Published when a row has been added.
  static constexpr short kGroupLogAttribute = 2;
  // Published when the applied version of a table has been recorded.
  static constexpr short kAppliedVersionsAttribute = 3;

  // Mounts (creates, if there are none) the two tables. Throws ZevGlint::MountException.
  GroupLog(const Pell::Ptr<Vanta::EntityManager>& entityManager, const Pell::String& agentName,
           const Pell::String& groupName);
  ~GroupLog() override;

  const Zev::TypeRecord& fwkType() const override;

  void addGroupLogEntry(SwTableId tableId, LogVersion version,
                        const Pell::Ptr<NeededEntry const>& neededEntry) override;

  // Whether the hardware has ever applied anything of the table, and up to which version. Both
  // may throw Pell::CorruptionDetectedException; the caller passes its message to
  // versionsMap().doCorruptionDetected().
  bool hasTableVersion(SwTableId tableId) const;
  LogVersion tableVersion(SwTableId tableId) const;

  // The hardware has applied the table up to the version: records it and drops the rows up to it.
  // A version below the recorded one changes nothing: what has been applied stays applied.
  void tableVersionIs(TableVersion applied);

  // Rows that may come on top of what requests may take, which is the nominal capacity, whether or
  // not they have taken it. Grows with each report.
  std::uint32_t room() const;

  Glint::GlintMapBase& versionsMap() const { return versions_->appliedVersions(); }
  Glint::GlintMapBase& logMap() const { return log_->groupLog(); }

 private:
  struct Pending {
    LogVersion version;
    std::uint64_t sequence = 0;
  };
  // The rows of one table that are not applied yet, in version order.
  struct PendingOfTable {
    explicit PendingOfTable(SwTableId id) : tableId(id) {}
    SwTableId tableId;
    std::deque<Pending> rows;
  };

  void readPending();
  std::deque<Pending>& pending(SwTableId tableId);

  Pell::Ptr<GroupLogGlint> log_;
  Pell::Ptr<GroupVersionsGlint> versions_;
  std::uint64_t lastSequence_ = 0;
  std::vector<PendingOfTable> pending_;  // a group has a handful of tables
};

}  // namespace Asic
