// SPDX-License-Identifier: Apache-2.0

// Rows are added with a rising sequence, which the collection's scratchpad keeps across restarts;
// GroupLogFollower reads them. What is not applied yet is remembered per table, oldest first, so
// that a report drops its rows without a search; a restart reads that back from the rows.

#include "Asic/GroupLog.h"

#include <algorithm>
#include <span>
#include <vector>

#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Pell/Assert.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "GroupLog";

// What is asked of the log, and what becomes of its rows.
Zev::TraceHandle& trace = Zev::traceHandle(kClass);
Zev::TraceHandle& rowsTrace = Zev::traceHandle("GroupLogRows");

template <typename Entity>
Pell::Ptr<Entity> mount(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                        const Pell::String& path) {
  auto entity = ZevSharedMem::mountForWriting<Entity>(entityManager, path);
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

GroupLogGlint::GroupLogGlint(const ZevGlint::MountSite& site)
    : Typed(site.path()), groupLog_(site) {}

GroupVersionsGlint::GroupVersionsGlint(const ZevGlint::MountSite& site)
    : Typed(site.path()), appliedVersions_(site) {}

GroupLog::GroupLog(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                   const Pell::String& agentName, const Pell::String& groupName)
    : log_(mount<GroupLogGlint>(entityManager, Constants::groupLogGlintPath(agentName, groupName))),
      versions_(mount<GroupVersionsGlint>(entityManager,
                                          Constants::groupVersionsGlintPath(agentName, groupName))),
      lastSequence_(log_->groupLog().control().scratchpad()) {
  readApplied();
  readPending();
  if (auto& control = log_->groupLog().control(); control.scratchpad() != lastSequence_) {
    control.scratchpadIs(lastSequence_);
  }
  ZEV_TRACE(trace, 2, kClass, "rows: {} lastSequence: {}", logMap().rowCount(), lastSequence_);
}

Zev::TypeRecord GroupLog::typeRecord() {
  return {kTypeName,
          {{"groupLog", kGroupLogAttribute}, {"appliedVersions", kAppliedVersionsAttribute}}};
}

void GroupLog::readApplied() {
  const bool sawAll =
      Glint::walkOverDamage(versions_->appliedVersions(), [this](const GroupVersionRow& row) {
        ZEV_TRACE_AS(rowsTrace, 8, kClass, "readApplied", "applied on record: {}",
                     row.tableVersion());
        raiseAnnounced(row.tableVersion());
        tables_[row.tableVersion().tableId()].applied = row.tableVersion().logVersion();
      });
  if (!sawAll) {
    ZEV_TRACE(trace, 3, kClass, "applied versions are damaged; they count as absent");
  }
}

// A row that was written before its sequence reached the scratchpad counts too: the agent may have
// died in between. So do the rows of an operation that was cut short; they go with its version.
void GroupLog::readPending() {
  struct Found {
    std::uint64_t sequence;
    TableVersion tableVersion;
  };
  std::vector<Found> rows;
  rows.reserve(logMap().rowCount());
  const bool sawAll = Glint::walkOverDamage(log_->groupLog(), [&rows](const GroupLogRow& row) {
    rows.push_back({row.sequence(), row.tableVersion()});
  });
  if (!sawAll) {
    ZEV_TRACE(trace, 3, kClass, "rows are damaged; what they announced is not known");
  }
  std::sort(rows.begin(), rows.end(),
            [](const Found& a, const Found& b) { return a.sequence < b.sequence; });
  for (const Found& row : rows) {
    lastSequence_ = std::max(lastSequence_, row.sequence);
    ZEV_TRACE(rowsTrace, 9, kClass, "row: {} on record: {}", row.sequence, row.tableVersion);
    raiseAnnounced(row.tableVersion);
    tables_[row.tableVersion.tableId()].rows.push_back(
        {row.tableVersion.logVersion(), row.sequence});
  }
}

// The scratchpad goes from the last row of the operation before to the last row of this one, so a
// process that goes by it sees all of the rows or none.
void GroupLog::addGroupLogEntry(SwTableId tableId, LogVersion version,
                                const Pell::Ptr<NeededEntry const>& neededEntry) {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} version: {} neededEntry: {}", tableId, version,
            neededEntry);
  const bool didFit = requestsFit();
  std::span<const TableVersion> needed;
  if (neededEntry) {
    needed = neededEntry->tableVersions();
  }
  const TableVersion tableVersion(tableId, version);
  OfTable& table = tables_[tableId];
  table.announced = std::max(table.announced, version);
  std::uint32_t marks = GroupLogRow::kContinued;
  while (needed.size() > GroupLogRow::kNeededPerRow) {
    addRow(table,
           {lastSequence_ + 1, tableVersion, needed.first(GroupLogRow::kNeededPerRow), marks});
    needed = needed.subspan(GroupLogRow::kNeededPerRow);
    marks |= GroupLogRow::kContinuation;
  }
  addRow(table, {lastSequence_ + 1, tableVersion, needed, marks & ~GroupLogRow::kContinued});
  log_->groupLog().control().scratchpadIs(lastSequence_);
  if (didFit && !requestsFit()) {
    ZEV_TRACE(trace, 3, kClass, "full: {} rows; requests are held back", logMap().rowCount());
  }
  ZEV_TRACE(rowsTrace, 8, kClass, "announced: {} lastSequence: {} room: {}", tableVersion,
            lastSequence_, room());
  publisher().attributeChange(kGroupLogAttribute);
}

void GroupLog::addRow(OfTable& table, const GroupLogRow& row) {
  log_->groupLog().rowIs(row);
  lastSequence_ = row.sequence();
  table.rows.push_back({row.tableVersion().logVersion(), row.sequence()});
  ZEV_TRACE(rowsTrace, 9, kClass, "row: {} added: {}", row.sequence(), row.tableVersion());
}

void GroupLog::announcedIs(TableVersion handedOut) {
  ZEV_TRACE(trace, 8, kClass, "handedOut: {}", handedOut);
  raiseAnnounced(handedOut);
}

void GroupLog::raiseAnnounced(TableVersion tableVersion) {
  LogVersion& announced = tables_[tableVersion.tableId()].announced;
  announced = std::max(announced, tableVersion.logVersion());
}

LogVersion GroupLog::announced(SwTableId tableId) const {
  const OfTable* table = tables_.find(tableId);
  return table == nullptr ? LogVersion() : table->announced;
}

bool GroupLog::hasTableVersion(SwTableId tableId) const {
  return versions_->appliedVersions().has(tableId);
}

LogVersion GroupLog::tableVersion(SwTableId tableId) const {
  const auto row = versions_->appliedVersions().row(tableId);
  return row ? row->tableVersion().logVersion() : LogVersion();
}

LogVersion GroupLog::applied(SwTableId tableId) const {
  const OfTable* table = tables_.find(tableId);
  return table == nullptr ? LogVersion() : table->applied;
}

void GroupLog::tableVersionIs(TableVersion applied) {
  ZEV_TRACE(trace, 8, kClass, "applied: {}", applied);
  OfTable& table = tables_[applied.tableId()];
  if (applied.logVersion() < table.applied) {
    ZEV_TRACE(trace, 3, kClass, "applied: {} is below {} on record", applied,
              TableVersion(applied.tableId(), table.applied));
    return;
  }
  versions_->appliedVersions().rowIs(GroupVersionRow(applied));
  table.applied = applied.logVersion();
  raiseAnnounced(applied);
  std::deque<Pending>& rows = table.rows;
  while (!rows.empty() && rows.front().version <= applied.logVersion()) {
    log_->groupLog().rowDel(rows.front().sequence);
    ZEV_TRACE(rowsTrace, 9, kClass, "row: {} dropped", rows.front().sequence);
    rows.pop_front();
  }
  ZEV_TRACE(rowsTrace, 8, kClass, "applied: {} rows waiting: {}", applied, rows.size());
  publisher().attributeChange(kAppliedVersionsAttribute);
}

bool GroupLog::hasRoomFor(const Pell::Ptr<NeededEntry const>& neededEntry) const {
  return GroupLogRow::rowsFor(neededEntry ? neededEntry->tableVersions().size() : 0) <= room();
}

std::uint32_t GroupLog::redriveRoom() const {
  const Glint::GlintMapBase& rows = log_->groupLog();
  return rows.slotCount() - std::min(rows.slotCount(), std::max(rows.rowCount(), rows.capacity()));
}

}  // namespace Asic
