// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <stdexcept>
#include <vector>

#include "Asic/EntryLogBase.h"
#include "Pell/HashMap.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"

namespace LoamFec {

// The log has no room for the changes that a restart must log again, because the hardware has not
// applied its rows.
class FecTableLogRoomException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The FEC table's log of committed changes, and the configuration table of each unit, in shared
// memory.
//
// Kind: object with identity, one per table interface.
// Ownership: holds its mounts; their contents outlive it.
// Threads: the event loop's; other processes read the tables.
// Invariants: every change gets a version one above the last, across all units. A change is
// written in the order configuration rows, log row, scratchpad, group log, so a process that sees a
// version in the scratchpad finds its rows. A deleted entry keeps its row, marked, until the log is
// cleaned up past its deletion.
class FecTableEntryLog : public Zev::Typed<FecTableEntryLog, Asic::EntryLogBase> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableEntryLog";

  // The committed state of one key at one moment. Each question answers as the log's query of that
  // name does, and is traced like it.
  //
  // Kind: value type; later changes of the row do not show.
  class Look {
   public:
    FecTableDataModelLogEntry entry() const;
    bool entryHas() const;
    FecTableDataModelResourceKeys entryRsrcKeys() const;

   private:
    friend class FecTableEntryLog;
    Look(const FecTableDataModelEntryKey& key, Asic::UnitId unitId,
         std::optional<FecTableDataModelConfigGlintEntry> row)
        : key_(key), unitId_(unitId), row_(row) {}

    FecTableDataModelEntryKey key_;
    Asic::UnitId unitId_;
    std::optional<FecTableDataModelConfigGlintEntry> row_;  // nothing: absent or damaged
  };

  // Mounts the entry log; tableVersion() goes on where the last process stopped. Throws
  // ZevGlint::MountException.
  FecTableEntryLog(Asic::SwTableId tableId, const Pell::Ptr<Vanta::EntityManager>& entityManager,
                   const Pell::Ptr<Asic::GroupLogInterface>& groupLogInterface);
  static Pell::Ptr<FecTableEntryLog> FecTableEntryLogIs(
      Asic::SwTableId tableId, const Pell::Ptr<Vanta::EntityManager>& entityManager,
      const Pell::Ptr<Asic::GroupLogInterface>& groupLogInterface) {
    return Zev::makeObject<FecTableEntryLog>(tableId, entityManager, groupLogInterface);
  }

  static Zev::TypeRecord typeRecord();
  ~FecTableEntryLog() override;

  void handleInitialized();
  void mountGlintChangeLog();
  // Mounts the unit's configuration table, replacing an earlier mount. Throws
  // ZevGlint::MountException.
  void mountGlintConfig(Asic::UnitId unitId);

  // Null when the entity at the log's path was of another type.
  const Pell::Ptr<FecTableDataModelEntryLogGlint>& tableEntryLog() const { return tableEntryLog_; }

  // The configuration table of each unit; a unit's pointer may be null after a mount of another
  // type.
  void tableConfigGlintIs(Asic::UnitId unitId,
                          const Pell::Ptr<FecTableDataModelConfigGlint>& configGlint);
  // Returns what was there; null when the unit had none.
  Pell::Ptr<FecTableDataModelConfigGlint> tableConfigGlintDel(Asic::UnitId unitId);
  void tableConfigGlintDelAll();
  // Null when the unit has none.
  Pell::Ptr<FecTableDataModelConfigGlint> tableConfigGlint(Asic::UnitId unitId) const;
  bool tableConfigGlintHas(Asic::UnitId unitId) const;

  // Tells the log that the group knows of changes up to that version, applied or not. If the log is
  // below it, because its file was removed, the log goes on above it, also in the next process.
  // Only raises the version; does nothing without a log.
  void versionsGoOnAbove(Asic::LogVersion announced);

  // Logs the write of an entry and returns its version. The unit's configuration table must be
  // mounted: the process stops otherwise.
  Asic::LogVersion entryIs(const FecTableDataModelLogEntry& logEntry,
                           const FecTableDataModelResourceKeys& rsrcKeys,
                           const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                           Asic::UnitId unitId);
  // Logs the deletion of a key and returns its version; 0, with nothing logged, when the key has
  // no row. A row that is marked deleted already is marked again.
  Asic::LogVersion entryDel(const FecTableDataModelEntryKey& key,
                            const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                            Asic::UnitId unitId);
  // Logs the deletion of all of a unit's entries, under one version, and returns it.
  Asic::LogVersion tableDel(const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                            Asic::UnitId unitId);

  // Removes the log rows up to the version, and the configuration rows that the deletions among
  // them marked. A version below the last one removes nothing and moves the cursor back.
  void cleanupEntryLog(Asic::LogVersion version);
  // Removes the rows of the unit that a deletion up to the version has marked and that no log row
  // speaks for: nothing else would remove them. Where damage hides whether there is a log row, the
  // marked row stays. Linear in the unit's rows.
  void sweepOrphans(Asic::UnitId unitId, Asic::LogVersion applied) const;
  // Argument of the last cleanup; 0: none has run in this process.
  Asic::LogVersion prevTableVersion() const { return prevTableVersion_; }

  // A hint that the key's entry will be read or written soon: starts to fetch its row.
  void fetchAhead(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const;

  // What is committed. The unit's configuration table must be mounted.
  // The default log entry when the key has no row or a deleted one.
  FecTableDataModelLogEntry entry(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const;
  // True when the key has a row that is not deleted.
  bool entryHas(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const;
  // The resource keys of the key's row, deleted or not; the default keys when the key has no row.
  FecTableDataModelResourceKeys entryRsrcKeys(const FecTableDataModelEntryKey& key,
                                              Asic::UnitId unitId) const;
  // One look at the key's row, for several of the questions above.
  Look look(const FecTableDataModelEntryKey& key, Asic::UnitId unitId) const;
  // Rows marked deleted, up to the first damaged one. Linear in the unit's rows.
  std::uint32_t entrysInDeletion(Asic::UnitId unitId) const;
  // Rows that are not marked deleted. Linear in the unit's rows.
  std::uint32_t entrys(Asic::UnitId unitId) const;

  // Rows of the log. Constant time.
  std::uint32_t entryLogConfigRows() const;
  // Throws FecTableLogRoomException, which says what to do, when the log or the group log has no
  // room for one more change of the unit that needs these versions.
  void throwWithoutRoom(const Pell::Ptr<const Asic::NeededEntry>& neededEntry,
                        Asic::UnitId unitId) const;

 private:
  static constexpr std::uint32_t kTableConfigGlintSalt = 0x525a0dd4;
  using ConfigMap = Glint::GlintMap<FecTableDataModelConfigGlintEntry>;
  using LogMap = Glint::GlintMap<FecTableDataModelLogGlintEntry>;

  FecTableDataModelEntryLogGlint& logGlint() const;
  LogMap& log() const;
  FecTableDataModelConfigGlint& configGlint(Asic::UnitId unitId) const;
  ConfigMap& config(Asic::UnitId unitId) const;
  void logChange(const FecTableDataModelLogGlintEntry& row,
                 const Pell::Ptr<const Asic::NeededEntry>& neededEntry);
  void cleanupFirstTime(Asic::LogVersion version) const;
  void cleanupFromCursor(Asic::LogVersion version) const;
  void cleanupEachVersion(Asic::LogVersion version) const;
  void cleanupRowsInOrder(Asic::LogVersion version) const;
  std::vector<Asic::LogVersion> versionsFromCursor(Asic::LogVersion version) const;
  void cleanupVersion(Asic::LogVersion version) const;
  void cleanupConfig(const FecTableDataModelLogGlintEntry& logRow) const;
  static void cleanupConfigRow(FecTableDataModelConfigGlint& unit,
                               const FecTableDataModelLogGlintEntry& logRow);
  static void cleanupConfigTable(FecTableDataModelConfigGlint& unit, Asic::LogVersion version);

  Pell::Ptr<FecTableDataModelEntryLogGlint> tableEntryLog_;
  Pell::HashMap<Asic::UnitId, Pell::Ptr<FecTableDataModelConfigGlint>,
                Asic::UnitIdHash<kTableConfigGlintSalt>>
      tableConfigGlint_;
  Asic::LogVersion prevTableVersion_;
};

inline Pell::Ptr<FecTableEntryLog> fecTableEntryLogFactory(
    Asic::SwTableId tableId, const Pell::Ptr<Vanta::EntityManager>& entityManager,
    const Pell::Ptr<Asic::GroupLogInterface>& groupLogInterface) {
  return FecTableEntryLog::FecTableEntryLogIs(tableId, entityManager, groupLogInterface);
}

}  // namespace LoamFec
