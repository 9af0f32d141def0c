// SPDX-License-Identifier: Apache-2.0

// The writing and the reading side of the FEC table's shared memory. The commit and the update of
// the software table write here; its reads, its restore and the linkage's usage tracking read here;
// the table interface and the table's status reports clean up.
//
// Corruption that a lookup or a walk meets is handed to the map, and the row counts as absent (or
// as the default row); nothing here throws on its account. Walks go on behind it, as the map has
// put the row out of use by then; only the count of deleted rows ends there.

#include "fec/FecTableEntryLog.h"

#include <algorithm>

#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Pell/Assert.h"
#include "Zev/Trace.h"

namespace LoamFec {

namespace {

constexpr const char* kClass = "FecTableEntryLog";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

FecTableEntryLog::FecTableEntryLog(Asic::SwTableId tableId,
                                   const Pell::Ptr<Vanta::EntityManager>& entityManager,
                                   const Pell::Ptr<Asic::GroupLogInterface>& groupLogInterface)
    : Typed(tableId, entityManager, groupLogInterface) {
  handleInitialized();
}

FecTableEntryLog::~FecTableEntryLog() {
  tableConfigGlintDelAll();
  tableEntryLog_ = nullptr;
}

Zev::TypeRecord FecTableEntryLog::typeRecord() {
  return {kTypeName,
          {{"tableEntryLog", 1}, {"tableConfigGlint", 2}, {"prevTableVersion", 3}},
          {{"FecTableEntryLogIs", {"tableId", "entityManager", "groupLogInterface"}}}};
}

// Mounts.

void FecTableEntryLog::handleInitialized() {
  ZEV_TRACE(trace, 8, kClass, "");
  mountGlintChangeLog();
}

void FecTableEntryLog::mountGlintChangeLog() {
  ZEV_TRACE(trace, 8, kClass, "");
  const Pell::String path = FecTableConstants::entryLogGlintPath();
  tableEntryLog_ =
      ZevSharedMem::mountForWriting<FecTableDataModelEntryLogGlint>(entityManager(), path);
  if (tableEntryLog_) {
    tableVersionIs(Asic::LogVersion(log().control().scratchpad()));
  }
  ZEV_TRACE(trace, 2, kClass, " Mounted entryLog: {}, tableVersion: {}", path, tableVersion());
}

void FecTableEntryLog::mountGlintConfig(Asic::UnitId unitId) {
  ZEV_TRACE(trace, 8, kClass, "");
  const Pell::String path = FecTableConstants::configGlintPath(unitId);
  tableConfigGlintIs(
      unitId, ZevSharedMem::mountForWriting<FecTableDataModelConfigGlint>(entityManager(), path));
  ZEV_TRACE(trace, 2, kClass, " Mounted config for unitId: {} at {}", unitId, path);
}

void FecTableEntryLog::tableConfigGlintIs(
    Asic::UnitId unitId, const Pell::Ptr<FecTableDataModelConfigGlint>& configGlint) {
  tableConfigGlint_.insertOrAssign(unitId, configGlint);
}

Pell::Ptr<FecTableDataModelConfigGlint> FecTableEntryLog::tableConfigGlintDel(Asic::UnitId unitId) {
  return tableConfigGlint_.take(unitId).value_or(nullptr);
}

void FecTableEntryLog::tableConfigGlintDelAll() { tableConfigGlint_.clear(); }

Pell::Ptr<FecTableDataModelConfigGlint> FecTableEntryLog::tableConfigGlint(
    Asic::UnitId unitId) const {
  const auto* held = tableConfigGlint_.find(unitId);
  return held == nullptr ? nullptr : *held;
}

bool FecTableEntryLog::tableConfigGlintHas(Asic::UnitId unitId) const {
  return tableConfigGlint_.has(unitId);
}

FecTableDataModelEntryLogGlint& FecTableEntryLog::logGlint() const {
  PELL_ASSERT(tableEntryLog_, "tableEntryLog");
  return *tableEntryLog_;
}

FecTableEntryLog::LogMap& FecTableEntryLog::log() const { return logGlint().entryLogConfig(); }

FecTableDataModelConfigGlint& FecTableEntryLog::configGlint(Asic::UnitId unitId) const {
  const auto* held = tableConfigGlint_.find(unitId);
  PELL_ASSERT(held != nullptr && *held, "tableConfigGlint( unitId )");
  return **held;
}

FecTableEntryLog::ConfigMap& FecTableEntryLog::config(Asic::UnitId unitId) const {
  return configGlint(unitId).swTableEntries();
}

// Versions that are given a second time would count as applied before the hardware has them.
void FecTableEntryLog::versionsGoOnAbove(Asic::LogVersion announced) {
  if (!tableEntryLog_ || announced <= tableVersion()) {
    return;
  }
  ZEV_TRACE(trace, 3, kClass, " raised to announced: {} from tableVersion: {}", announced,
            tableVersion());
  tableVersionIs(announced);
  log().control().scratchpadIs(announced.value());
}

// Writes and deletes.

Asic::LogVersion FecTableEntryLog::entryIs(const FecTableDataModelLogEntry& logEntry,
                                           const FecTableDataModelResourceKeys& rsrcKeys,
                                           const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                                           Asic::UnitId unitId) {
  const Asic::LogVersion version = tableVersionInc(Asic::LogVersion(1));
  ZEV_TRACE(trace, 8, kClass, " logEntry: {} neededEntry: {} version: {} unitId: {}", logEntry,
            neededEntry, version, unitId);
  const auto* held = tableConfigGlint_.find(unitId);
  PELL_ASSERT_MESSAGE(held != nullptr, "tableConfigGlintHas( unitId )",
                      fmt::format("Config glint for unitId:{} is not created yet!", unitId));
  PELL_ASSERT(*held, "tableConfigGlint( unitId )");
  (*held)->swTableEntriesIs({logEntry, rsrcKeys, version, false});
  logChange({version, FecTableDataModelLogGlintEntry::kEntryWritten, unitId, logEntry},
            neededEntry);
  return version;
}

Asic::LogVersion FecTableEntryLog::entryDel(const FecTableDataModelEntryKey& key,
                                            const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                                            Asic::UnitId unitId) {
  ZEV_TRACE(trace, 8, kClass, " key:{} neededEntry: {} unitId: {}", key, neededEntry, unitId);
  FecTableDataModelConfigGlint& unit = configGlint(unitId);
  const auto found = Glint::guardedRow(unit.swTableEntries(), key);
  if (!found) {
    ZEV_TRACE(trace, 3, kClass, " key: {} entry does not exist. So ignoring delete", key);
    return {};
  }
  const Asic::LogVersion version = tableVersionInc(Asic::LogVersion(1));
  unit.swTableEntriesIs({found->logEntry(), found->rsrcKeys(), version, true});
  logChange({version, FecTableDataModelLogGlintEntry::kEntryDeleted, unitId, found->logEntry()},
            neededEntry);
  return version;
}

Asic::LogVersion FecTableEntryLog::tableDel(const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                                            Asic::UnitId unitId) {
  ZEV_TRACE(trace, 8, kClass, " neededEntry:{}, unitId: {}", neededEntry, unitId);
  const Asic::LogVersion version = tableVersionInc(Asic::LogVersion(1));
  FecTableDataModelConfigGlint& unit = configGlint(unitId);
  ConfigMap& entries = unit.swTableEntries();
  // A damaged row needs no mark: it is not in the table any more.
  (void)Glint::walkOverDamage(entries, [&](const FecTableDataModelConfigGlintEntry& walked) {
    const FecTableDataModelConfigGlintEntry row =
        Glint::guardedRow(entries, walked.key()).value_or(FecTableDataModelConfigGlintEntry());
    unit.swTableEntriesIs({row.logEntry(), row.rsrcKeys(), version, true});
  });
  logChange(
      {version, FecTableDataModelLogGlintEntry::kTableDeleted, unitId, FecTableDataModelLogEntry()},
      neededEntry);
  return version;
}

// The log row, the scratchpad and the group log, in this order, after the configuration rows.
void FecTableEntryLog::logChange(const FecTableDataModelLogGlintEntry& row,
                                 const Pell::Ptr<const Asic::NeededEntry>& neededEntry) {
  logGlint().entryLogConfigIs(row);
  log().control().scratchpadIs(row.version().value());
  groupLogInterface()->addGroupLogEntry(tableId(), row.version(), neededEntry);
}

// Cleanup.

void FecTableEntryLog::cleanupEntryLog(Asic::LogVersion version) {
  ZEV_TRACE(trace, 8, kClass, " version {}", version);
  if (version == Asic::LogVersion()) {
    // No row has version 0; hardware that has applied nothing yet reports it again and again.
  } else if (prevTableVersion_ == Asic::LogVersion()) {
    cleanupFirstTime(version);
  } else if (version >= prevTableVersion_) {
    cleanupFromCursor(version);
  }
  prevTableVersion_ = version;
}

// The log may hold rows of earlier runs, with gaps: every row is looked at. What a damaged one said
// is lost with it.
void FecTableEntryLog::cleanupFirstTime(Asic::LogVersion version) const {
  (void)Glint::walkOverDamage(log(), [&](const FecTableDataModelLogGlintEntry& row) {
    if (row.version() <= version) {
      logGlint().entryLogConfigDel(row.version());
      cleanupConfig(row);
    }
  });
}

// Each version from the cursor on is looked up; a gap wider than the log has rows is cheaper to
// close from the rows.
void FecTableEntryLog::cleanupFromCursor(Asic::LogVersion version) const {
  if (version.value() - prevTableVersion_.value() <= log().rowCount()) {
    cleanupEachVersion(version);
  } else {
    cleanupRowsInOrder(version);
  }
}

void FecTableEntryLog::cleanupEachVersion(Asic::LogVersion version) const {
  for (std::uint64_t v = prevTableVersion_.value();; ++v) {
    cleanupVersion(Asic::LogVersion(v));
    if (v == version.value()) {
      return;
    }
  }
}

void FecTableEntryLog::cleanupRowsInOrder(Asic::LogVersion version) const {
  for (const Asic::LogVersion at : versionsFromCursor(version)) {
    cleanupVersion(at);
  }
}

std::vector<Asic::LogVersion> FecTableEntryLog::versionsFromCursor(Asic::LogVersion version) const {
  std::vector<Asic::LogVersion> versions;
  (void)Glint::walkOverDamage(log(), [&](const FecTableDataModelLogGlintEntry& row) {
    if (row.version() >= prevTableVersion_ && row.version() <= version) {
      versions.push_back(row.version());
    }
  });
  std::sort(versions.begin(), versions.end());
  return versions;
}

void FecTableEntryLog::cleanupVersion(Asic::LogVersion version) const {
  if (const auto row = Glint::guardedRow(log(), version)) {
    logGlint().entryLogConfigDel(version);
    cleanupConfig(*row);
  }
}

// What the removal of one log row means for the unit's configuration table.
void FecTableEntryLog::cleanupConfig(const FecTableDataModelLogGlintEntry& logRow) const {
  const Pell::Ptr<FecTableDataModelConfigGlint> held = tableConfigGlint(logRow.unitId());
  if (!held) {
    ZEV_TRACE_AS(trace, 3, kClass, "cleanupEntryLog", " configGlint not found for unitId: {}",
                 logRow.unitId());
    return;
  }
  if ((logRow.operation() & FecTableDataModelLogGlintEntry::kEntryDeleted) != 0) {
    cleanupConfigRow(*held, logRow);
  }
  if ((logRow.operation() & FecTableDataModelLogGlintEntry::kTableDeleted) != 0) {
    ZEV_TRACE_AS(trace, 3, kClass, "cleanupEntryLog", " deleteing all entries for unitId: {}",
                 logRow.unitId());
    cleanupConfigTable(*held, logRow.version());
  }
}

// A row that was written or deleted again since then carries another version and stays.
void FecTableEntryLog::cleanupConfigRow(FecTableDataModelConfigGlint& unit,
                                        const FecTableDataModelLogGlintEntry& logRow) {
  const auto row = Glint::guardedRow(unit.swTableEntries(), logRow.logEntry().key);
  if (row && row->version() == logRow.version()) {
    unit.swTableEntriesDel(row->key());
  }
}

void FecTableEntryLog::cleanupConfigTable(FecTableDataModelConfigGlint& unit,
                                          Asic::LogVersion version) {
  (void)Glint::walkOverDamage(unit.swTableEntries(),
                              [&](const FecTableDataModelConfigGlintEntry& row) {
                                if (row.version() == version) {
                                  unit.swTableEntriesDel(row.key());
                                }
                              });
}

// A deletion's log row may be cleaned up while its unit's configuration table is not mounted, or
// just before the process dies: the row it marked then has nothing left that would remove it. The
// hardware has taken it, though perhaps nobody lived to record that.
void FecTableEntryLog::sweepOrphans(Asic::UnitId unitId, Asic::LogVersion applied) const {
  FecTableDataModelConfigGlint& unit = configGlint(unitId);
  const auto sweep = [&](const FecTableDataModelConfigGlintEntry& row) {
    if (!row.isDeleted() || row.version() > applied) {
      return;
    }
    bool hasLogRow = true;
    Glint::guarded(log(), [&] { hasLogRow = log().has(row.version()); });
    if (!hasLogRow) {
      unit.swTableEntriesDel(row.key());
    }
  };
  (void)Glint::walkOverDamage(unit.swTableEntries(), sweep);
}

// Queries.

void FecTableEntryLog::fetchAhead(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const {
  if (const auto* held = tableConfigGlint_.find(unitId); held != nullptr && *held) {
    (*held)->swTableEntries().fetchAhead(key);
  }
}

FecTableEntryLog::Look FecTableEntryLog::look(const FecTableDataModelEntryKey& key,
                                              Asic::UnitId unitId) const {
  return {key, unitId, Glint::guardedRow(config(unitId), key)};
}

FecTableDataModelLogEntry FecTableEntryLog::Look::entry() const {
  ZEV_TRACE(trace, 8, kClass, " key: {} unitId:{}", key_, unitId_);
  return row_ && !row_->isDeleted() ? row_->logEntry() : FecTableDataModelLogEntry();
}

bool FecTableEntryLog::Look::entryHas() const {
  ZEV_TRACE(trace, 8, kClass, " key: {} unitId:{}", key_, unitId_);
  return row_ && !row_->isDeleted();
}

FecTableDataModelResourceKeys FecTableEntryLog::Look::entryRsrcKeys() const {
  ZEV_TRACE(trace, 8, kClass, " key: {} unitId:{}", key_, unitId_);
  return row_ ? row_->rsrcKeys() : FecTableDataModelResourceKeys();
}

FecTableDataModelLogEntry FecTableEntryLog::entry(const FecTableDataModelEntryKey& key,
                                                  Asic::UnitId unitId) const {
  return look(key, unitId).entry();
}

bool FecTableEntryLog::entryHas(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const {
  return look(key, unitId).entryHas();
}

FecTableDataModelResourceKeys FecTableEntryLog::entryRsrcKeys(const FecTableDataModelEntryKey& key,
                                                              Asic::UnitId unitId) const {
  return look(key, unitId).entryRsrcKeys();
}

std::uint32_t FecTableEntryLog::entrysInDeletion(Asic::UnitId unitId) const {
  ZEV_TRACE(trace, 8, kClass, " unitId:{}", unitId);
  std::uint32_t count = 0;
  (void)Glint::walkToDamage(config(unitId), [&](const FecTableDataModelConfigGlintEntry& row) {
    count += row.isDeleted() ? 1U : 0U;
  });
  return count;
}

std::uint32_t FecTableEntryLog::entrys(Asic::UnitId unitId) const {
  ZEV_TRACE(trace, 8, kClass, " unitId:{}", unitId);
  const std::uint32_t rows = config(unitId).rowCount();
  return rows - entrysInDeletion(unitId);
}

std::uint32_t FecTableEntryLog::entryLogConfigRows() const { return log().rowCount(); }

void FecTableEntryLog::throwWithoutRoom(const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                                        Asic::UnitId unitId) const {
  if (log().rowCount() < log().slotCount() && groupLogInterface()->hasRoomFor(neededEntry)) {
    return;
  }
  throw FecTableLogRoomException(
      fmt::format("{}: unit {} has entries to log again, but all rows of this log ({}) or of its "
                  "group's are taken by changes that the hardware has not applied; let it apply "
                  "them, or begin with empty tables",
                  log().filePath(), unitId, log().slotCount()));
}

}  // namespace LoamFec
