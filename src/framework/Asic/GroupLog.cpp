// Rows are added with a rising sequence, which the collection's scratchpad keeps across restarts.
// What is not applied yet is remembered per table, oldest first, so that a report drops its rows
// without a search; a restart reads that back from the rows.

#include "Asic/GroupLog.h"

#include <algorithm>
#include <vector>

#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Pell/Assert.h"

namespace Asic {

namespace {

template <typename Entity>
Pell::Ptr<Entity> mountForWriting(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                                  const Pell::String& path) {
  auto entity = ZevSharedMem::mountEntity<Entity>(
      entityManager, path, ZevGlint::ZevGlintType::writer, Entity::kCapacity);
  PELL_ASSERT_MESSAGE(entity, "entity", path + " is not of type " + Entity::kTypeName);
  return entity;
}

const bool kEntityTypesRegistered = [] {
  ZevSharedMem::entityTypeIs(GroupLogGlint::kTypeName, [](const ZevGlint::MountSite& site) {
    return Pell::Ptr<Zev::Entity>(Zev::makeObject<GroupLogGlint>(site));
  });
  ZevSharedMem::entityTypeIs(GroupVersionsGlint::kTypeName, [](const ZevGlint::MountSite& site) {
    return Pell::Ptr<Zev::Entity>(Zev::makeObject<GroupVersionsGlint>(site));
  });
  return true;
}();

}  // namespace

GroupLogRow::GroupLogRow(std::uint64_t sequence, TableVersion tableVersion,
                         const Pell::Ptr<NeededEntry const>& needed)
    : sequence_(sequence),
      version_(tableVersion.logVersion().value()),
      tableId_(tableVersion.tableId().value()) {
  if (needed) {
    for (const TableVersion& version : needed->tableVersions()) {
      needed_[neededCount_++] = {version.tableId().value(), version.logVersion().value()};
    }
  }
}

GroupLogGlint::GroupLogGlint(const ZevGlint::MountSite& site)
    : Entity(site.path()), groupLog_(site) {}

const Zev::TypeRecord& GroupLogGlint::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

GroupVersionsGlint::GroupVersionsGlint(const ZevGlint::MountSite& site)
    : Entity(site.path()), appliedVersions_(site) {}

const Zev::TypeRecord& GroupVersionsGlint::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

GroupLog::GroupLog(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                   const Pell::String& agentName, const Pell::String& groupName)
    : log_(mountForWriting<GroupLogGlint>(entityManager,
                                          Constants::groupLogGlintPath(agentName, groupName))),
      versions_(mountForWriting<GroupVersionsGlint>(
          entityManager, Constants::groupVersionsGlintPath(agentName, groupName))),
      lastSequence_(log_->groupLog().control().scratchpad()) {
  readPending();
}

GroupLog::~GroupLog() { hasNotificationActiveIs(false); }

const Zev::TypeRecord& GroupLog::fwkType() const {
  static const Zev::TypeRecord record{
      kTypeName,
      {{"groupLog", kGroupLogAttribute}, {"appliedVersions", kAppliedVersionsAttribute}}};
  return record;
}

// A row that was written before its sequence reached the scratchpad counts too: the agent may have
// died in between. A damaged row has nothing left to be dropped.
void GroupLog::readPending() {
  std::vector<GroupLogRow> rows;
  (void)Glint::walkOverDamage(log_->groupLog(),
                              [&](const GroupLogRow& row) { rows.push_back(row); });
  std::sort(rows.begin(), rows.end(),
            [](const GroupLogRow& a, const GroupLogRow& b) { return a.sequence() < b.sequence(); });
  for (const GroupLogRow& row : rows) {
    lastSequence_ = std::max(lastSequence_, row.sequence());
    pending(row.tableVersion().tableId())
        .push_back({row.tableVersion().logVersion(), row.sequence()});
  }
}

std::deque<GroupLog::Pending>& GroupLog::pending(SwTableId tableId) {
  const auto held =
      std::find_if(pending_.begin(), pending_.end(),
                   [&](const PendingOfTable& table) { return table.tableId == tableId; });
  return held != pending_.end() ? held->rows : pending_.emplace_back(tableId).rows;
}

void GroupLog::addGroupLogEntry(SwTableId tableId, LogVersion version,
                                const Pell::Ptr<NeededEntry const>& neededEntry) {
  const std::uint64_t sequence = ++lastSequence_;
  log_->groupLog().rowIs(GroupLogRow(sequence, {tableId, version}, neededEntry));
  log_->groupLog().control().scratchpadIs(sequence);
  pending(tableId).push_back({version, sequence});
  publisher().attributeChange(kGroupLogAttribute);
}

bool GroupLog::hasTableVersion(SwTableId tableId) const {
  return versions_->appliedVersions().has(tableId);
}

LogVersion GroupLog::tableVersion(SwTableId tableId) const {
  const auto row = versions_->appliedVersions().row(tableId);
  return row ? row->tableVersion().logVersion() : LogVersion();
}

void GroupLog::tableVersionIs(TableVersion applied) {
  const auto held = Glint::guardedRow(versions_->appliedVersions(), applied.tableId());
  if (held && applied.logVersion() < held->tableVersion().logVersion()) {
    return;
  }
  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
  std::deque<Pending>& rows = pending(applied.tableId());
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    rows.pop_front();
  }
  publisher().attributeChange(kAppliedVersionsAttribute);
}

}  // namespace Asic
