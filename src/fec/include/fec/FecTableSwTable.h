// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>

#include "Asic/GroupResolver.h"
#include "Glint/Guarded.h"
#include "Pell/HashMap.h"
#include "Pell/Publisher.h"
#include "Pell/RQueue.h"
#include "fec/FecTableEntryLog.h"
#include "fec/FecTableInfraTypes.h"
#include "fec/FecTableResourceTableLinkage.h"
#include "records/FecTableDataModelSwTableBase.h"

namespace Asic {
template <typename Table>
class OrderedSwTableAccessor;
template <typename State>
class IterStateAccessor;
}  // namespace Asic

namespace LoamFec {

class FecTableSwTableIteratorState;
class SwTableEntries_py;

// The software copy of the FEC table of one unit.
//
// A request gets a version, is kept as transient state and waits in the group resolver's queue; the
// commit writes it to the entry log; the hardware's report of that log version completes it. Reads
// answer as the table will be once every accepted request has been committed.
//
// Ownership: held by the table interface and by the group's set of tables. Holds its helper, its
// linkage, and everything that is pending. Its entries in the resolver's queue do not hold it: a
// table that ends takes them out, also in the middle of the resolver's walk. Those requests are
// never answered, and operations that depend on them go on waiting.
// Threads: the event loop's.
// Handlers, hooks and observers may call any operation, and may drop the last reference to the
// table. Observers do not throw. Response handlers and hooks may throw. The work that they
// interrupt is finished first: a report answers every handle that is due; a commit answers its
// request (as failed, if a hook threw) and looks at the suspend flag. Then the first exception
// passes on to the event loop. Answers come in the order of their versions, also when an observer
// or a handler reports again.
// Invariants: a mutator publishes its attribute only when the value has changed, after it has.
class FecTableSwTable : public Zev::Typed<FecTableSwTable, FecTableDataModelSwTableBase> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableSwTable";

  using EntryHandle = FecTableDataModelSwTableBase::FecEntryHandle;
  using Row = FecTableDataModelConfigGlintEntry;
  // NOLINTNEXTLINE(readability-identifier-naming): the element tag's fixed name
  struct QE_EntryHandleInLog {};

  // Attributes as they are published. The collections' element is a FecTableDataModelEntryKey; of
  // entryHandleInLog it is the sequence number (unsigned); transientRemoveAllVersion carries the
  // old value (Asic::MajorVersion).
  static constexpr short kSwTableHelperAttribute = 1;
  static constexpr short kTransientAddEntryAttribute = 2;
  static constexpr short kTransientRemoveEntryAttribute = 3;
  static constexpr short kTransientVersionForKeyAttribute = 4;
  static constexpr short kTransientRemoveAllVersionAttribute = 5;
  static constexpr short kEntryLogAttribute = 6;
  static constexpr short kGroupResolverAttribute = 7;
  static constexpr short kEntryHandleInLogAttribute = 8;
  static constexpr short kIntfIdToDestIdLinkageAttribute = 9;

 public:
  // What a client may call, beside status() and unitId() of the base.

  Pell::Ptr<EntryHandle const> entryWrite(Key const& key, Entry const& entry,
                                          Dependency const& dependency) override;
  Pell::Ptr<EntryHandle const> entryWriteWithResponseHandler(
      Key const& key, Entry const& entry, Dependency const& dependency,
      ResponseHandler const& handler) override;
  Pell::Ptr<EntryHandle const> entryRemove(Key const& key, Dependency const& dependency) override;
  Pell::Ptr<EntryHandle const> entryRemoveWithResponseHandler(
      Key const& key, Dependency const& dependency, ResponseHandler const& handler) override;
  // A remove-all that succeeds answers nobody: its handle reaches the handler only on failure.
  void entryRemoveAll(Dependency const& dependency) override;
  void entryRemoveAllWithResponseHandler(Dependency const& dependency,
                                         ResponseHandler const& handler) override;

  // Reads of the table as it will be. A key that is not found gives the default entry.
  Entry entryRead(Key const& key) const override;
  Entry entry(Key const& key) const override;
  bool entryHas(Key const& key) const override;
  // Linear in the unit's rows.
  unsigned entrys() const override;
  FecTableDataModelEntryIteratorConst entryIteratorConst(Key const& key) const override;
  FecTableDataModelEntryIteratorConst entryIteratorConst() const override;
  // Pending writes first, then committed entries that nothing pending shadows. Stable while
  // requests and commits run between two steps. Starting at a pending write's key skips the
  // pending writes before it; starting at a committed key yields committed entries from there on;
  // starting at any other key the walk is at its end.
  Pell::Ptr<FecTableDataModelSwTableIteratorState> initIterState() const override;
  Pell::Ptr<FecTableDataModelSwTableIteratorState> initIterStateFromKey(
      Key const& key) const override;
  Pell::Ptr<SwTableEntries_py> getTableEntries_py() const;

  // Reads of what is committed alone: the unit's rows in shared memory. Damage that they meet is
  // handed to the map of the rows; a damaged row counts as absent.
  // The key's row; a deleted entry keeps its row, marked, until the hardware has applied the
  // deletion.
  std::optional<Row> row(Key const& key) const;
  bool hasRow(Key const& key) const { return row(key).has_value(); }
  // Rows of the unit, those marked deleted included. Constant time.
  std::uint32_t rows() const { return config()->swTableEntries().rowCount(); }
  // Calls visit(row) for each committed entry, with a copy, in the order of the rows; visit may
  // call any operation. True: it has met every entry that stayed committed. False: damage has
  // hidden some, so an entry that was not met need not be absent.
  template <typename Visit>
  [[nodiscard]] bool forEachCommitted(Visit&& visit) const {
    const Pell::Ptr<FecTableDataModelConfigGlint> held = config();
    return Glint::walkOverDamage(held->swTableEntries(), [&](const Row& row) {
      if (!row.isDeleted()) {
        visit(row);
      }
    });
  }

  // Observing does not change the table.
  Pell::Publisher& publisher() const { return publisher_; }

 public:
  // What the framework calls: the table interface, the resolver, the linkage and the reports of the
  // hardware.

  FecTableSwTable(Pell::Ptr<Asic::CanonicalTableName const> const& tableName,
                  Asic::SwTableId tableId, Asic::UnitId unitId,
                  Pell::Ptr<Asic::OrderedSwTableStatus> const& status,
                  Pell::Ptr<FecTableEntryLog> const& entryLog,
                  Pell::Ptr<Asic::GroupResolver> const& groupResolver);
  // Allocates, constructs, installs the default helper and marks notification-active.
  static Pell::Ptr<FecTableSwTable> FecTableSwTableIs(
      Pell::Ptr<Asic::CanonicalTableName const> const& tableName, Asic::SwTableId tableId,
      Asic::UnitId unitId, Pell::Ptr<Asic::OrderedSwTableStatus> const& status,
      Pell::Ptr<FecTableEntryLog> const& entryLog,
      Pell::Ptr<Asic::GroupResolver> const& groupResolver) {
    return Zev::makeObject<FecTableSwTable>(tableName, tableId, unitId, status, entryLog,
                                            groupResolver);
  }
  static Zev::TypeRecord typeRecord();
  const Pell::Publisher* notifieeList() const override;
  ~FecTableSwTable() override;
  // The FEC software table has no hardware table of its own.
  void doCreateHwTable() override;
  void handleInitialized();

  const Pell::Ptr<FecTableEntryLog>& entryLog() const { return entryLog_; }
  const Pell::Ptr<Asic::GroupResolver>& groupResolver() const { return groupResolver_; }
  // A null helper is refused with an exception.
  const Pell::Ptr<FecTableSwTableHelperBase>& swTableHelper() const { return swTableHelper_; }
  void swTableHelperIs(Pell::Ptr<FecTableSwTableHelperBase> const& helper);
  // A linkage must be there before the first write.
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage>& intfIdToDestIdLinkage() const {
    return intfIdToDestIdLinkage_;
  }
  void intfIdToDestIdLinkageIs(Pell::Ptr<FecTableIntfIdToDestIdLinkage> const& linkage);

  bool isResolverEntryResolved(const Pell::Ptr<FecTableResolverEntry>& resolverEntry);
  void commitEntry(const Pell::Ptr<Asic::ResolverEntry>& resolverEntry);
  void tableStatusVersion(Asic::LogVersion version) override;
  // Drops the table's entries from the resolver's queue. They are never answered. The suspend flag
  // is looked at again.
  void waitingRequestsDel();

  // After a restart: rebuilds the usage of resources from the committed entries and brings each in
  // line with its resource's present state. Throws FecTableLogRoomException when that fills the
  // log; what was logged by then stays.
  void restoreEntries();
  // Logs a deletion of the whole table. Pending requests stay.
  void clearTable(bool releaseResources);
  // Logs the committed entry again if its resource has changed what it would log. Null when the
  // key is not committed; otherwise a handle with the version that carries the entry. Throws
  // FecTableLogRoomException when there is no room to log it.
  Pell::Ptr<Asic::OrderedSwTable::EntryHandle const> updateEntry(Key const& key);
  // The committed entry alone; of a key without a live row the default log entry's fields.
  Entry entryFromConfig(Key const& key) const;

 public:
  // What only the generic algorithms and tests use.

  static constexpr std::uint32_t kTransientAddEntrySalt = 0xaead84da;
  static constexpr std::uint32_t kTransientRemoveEntrySalt = 0x1f3dfceb;
  static constexpr std::uint32_t kTransientVersionForKeySalt = 0x4554b525;

  using TransientAddEntries =
      Pell::HashMap<Key, Pell::Ptr<FecTableEntryWrapper>, FecKeyHash<kTransientAddEntrySalt>>;
  using TransientRemoveEntries =
      Pell::HashMap<Key, Pell::Ptr<FecTableEntryWrapper>, FecKeyHash<kTransientRemoveEntrySalt>>;
  using TransientVersions =
      Pell::HashMap<Key, Asic::EntryVersion, FecKeyHash<kTransientVersionForKeySalt>>;

  static Pell::Ptr<EntryHandle> entryHandleFactory(Asic::EntryVersion const& version,
                                                   Key const& key,
                                                   FecTableDataModelSwTableBase* table) {
    return Zev::makeObject<EntryHandle>(version, key, table);
  }

  // Transient state: the newest write, remove and version of each key that is not committed yet,
  // and the newest remove-all. A null wrapper is refused with an exception; deleting an absent key
  // changes nothing.
  const TransientAddEntries& transientAddEntry() const { return transientAddEntry_; }
  void transientAddEntryIs(Pell::Ptr<FecTableEntryWrapper> const& wrapper);
  void transientAddEntryDel(Key const& key);
  void transientAddEntryDelAll();
  const TransientRemoveEntries& transientRemoveEntry() const { return transientRemoveEntry_; }
  void transientRemoveEntryIs(Pell::Ptr<FecTableEntryWrapper> const& wrapper);
  void transientRemoveEntryDel(Key const& key);
  void transientRemoveEntryDelAll();
  const TransientVersions& transientVersionForKey() const { return transientVersionForKey_; }
  void transientVersionForKeyIs(Key const& key, Asic::EntryVersion const& version);
  void transientVersionForKeyDel(Key const& key);
  void transientVersionForKeyDelAll();
  // The number of remove-alls that wait, less one: invalid (all ones) while there is none. A
  // remove-all that fails stays counted.
  Asic::MajorVersion transientRemoveAllVersion() const { return transientRemoveAllVersion_; }
  void transientRemoveAllVersionIs(Asic::MajorVersion version);

  // Handles of logged operations that wait for the hardware, in log order, numbered from 1. Null
  // or false beyond the queue's ends. A null handle is refused with an exception.
  void entryHandleInLogEnq(const Pell::Ptr<EntryHandle>& handle);
  Pell::Ptr<EntryHandle> entryHandleInLogDeq();
  Pell::Ptr<EntryHandle> entryHandleInLogFront() const { return entryHandleInLog_.front(); }
  Pell::Ptr<EntryHandle> entryHandleInLogBack() const { return entryHandleInLog_.back(); }
  Pell::Ptr<EntryHandle> entryHandleInLog(unsigned sequence) const {
    return entryHandleInLog_.at(sequence);
  }
  bool entryHandleInLogHas(unsigned sequence) const { return entryHandleInLog_.has(sequence); }
  // Handlers are not called.
  void entryHandleInLogDelAll();
  std::uint32_t entryHandlesInLog() const { return entryHandleInLog_.size(); }

  // Gives the wrapper its resource handle: with `refresh` the handle of a new request, otherwise
  // the one that the entry's usage record holds.
  void setRsrcPtrs(const Pell::Ptr<FecTableEntryWrapper>& wrapper, bool refresh);
  // Versions of other tables that must be applied before the entry; null when no linkage has any
  // (the FEC linkage always has).
  Pell::Ptr<Asic::NeededEntry> getNeededEntrySet(
      const Pell::Ptr<FecTableEntryWrapper const>& wrapper) const;

 private:
  // The generic algorithms read the table's members directly, and change them by its operations.
  template <typename Table>
  friend class Asic::OrderedSwTableAccessor;

  // What a report has taken off the in-log queue and not answered yet; null: nothing.
  struct Release {
    Pell::Ptr<EntryHandle> handle;
    Asic::LogVersion version;  // of the report
    bool isDone = false;       // its state is set
  };

  void finishRelease();
  // The unit's configuration table must be mounted.
  Pell::Ptr<FecTableDataModelConfigGlint> config() const {
    return entryLog_->tableConfigGlint(unitId());
  }

  // The elementary operations on a map of transient state; each publishes the attribute for every
  // key whose element has changed. elementStore() is for a value that differs from what is held.
  template <typename Map, typename Value>
  void elementStore(Map& map, Key key, Value const& value, short attributeId);
  template <typename Entries>
  void wrapperIs(Entries& entries, Pell::Ptr<FecTableEntryWrapper> const& wrapper,
                 const char* attributeName, short attributeId);
  template <typename Map>
  void elementDel(Map& map, Key const& key, short attributeId);
  template <typename Map>
  void elementDelAll(Map& map, short attributeId);

  mutable Pell::Publisher publisher_;
  Pell::Ptr<FecTableSwTableHelperBase> swTableHelper_;
  TransientAddEntries transientAddEntry_;
  TransientRemoveEntries transientRemoveEntry_;
  TransientVersions transientVersionForKey_;
  Asic::MajorVersion transientRemoveAllVersion_;
  Pell::Ptr<FecTableEntryLog> entryLog_;
  Pell::Ptr<Asic::GroupResolver> groupResolver_;
  Pell::RQueue<Pell::Ptr<EntryHandle>, false, QE_EntryHandleInLog> entryHandleInLog_;
  Release releasing_;
  Pell::Ptr<FecTableIntfIdToDestIdLinkage> intfIdToDestIdLinkage_;
};

// FecTableSwTableIs() by another name.
inline Pell::Ptr<FecTableSwTable> fecTableSwTableFactory(
    Pell::Ptr<Asic::CanonicalTableName const> const& tableName, Asic::SwTableId tableId,
    Asic::UnitId unitId, Pell::Ptr<Asic::OrderedSwTableStatus> const& status,
    Pell::Ptr<FecTableEntryLog> const& entryLog,
    Pell::Ptr<Asic::GroupResolver> const& groupResolver) {
  return FecTableSwTable::FecTableSwTableIs(tableName, tableId, unitId, status, entryLog,
                                            groupResolver);
}

// A walk over one software table.
//
// Ownership: holds the table.
class FecTableSwTableIteratorState
    : public Zev::Typed<FecTableSwTableIteratorState, FecTableDataModelSwTableIteratorState> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableSwTableIteratorState";
  using ConfigIterator = Glint::GlintMap<FecTableDataModelConfigGlintEntry>::Iterator;

  explicit FecTableSwTableIteratorState(const Pell::Ptr<FecTableSwTable const>& swTable);
  static Pell::Ptr<FecTableSwTableIteratorState> FecTableSwTableIteratorStateIs(
      const Pell::Ptr<FecTableSwTable const>& swTable) {
    return Zev::makeObject<FecTableSwTableIteratorState>(swTable);
  }

  FecTableDataModelEntry maybeUpdateCurrentEntry() override;

  // The current entry is that of a pending write.
  bool fromTransient() const { return fromTransient_; }
  // A start key was found among the pending writes.
  bool positioned() const { return positioned_; }
  // The walk is in the configuration phase.
  bool inTblCfg() const { return inTblCfg_; }
  void inTblCfgIs(bool inTblCfg) { inTblCfg_ = inTblCfg; }
  // Committed entries are hidden by a pending remove-all.
  bool removeAllPending() const { return removeAllPending_; }

 private:
  friend class Asic::IterStateAccessor<FecTableSwTableIteratorState>;

  Pell::Ptr<FecTableSwTable const> swTable_;
  // Nothing: the pending writes are exhausted. The map's end would not do: it moves with the map.
  std::optional<FecTableSwTable::TransientAddEntries::Cursor> transientAt_;
  Pell::Ptr<FecTableDataModelConfigGlint> configGlint_;  // the mount that configAt_ walks
  std::optional<ConfigIterator> configAt_;               // nothing: before or behind its rows
  bool fromTransient_ = false;
  bool positioned_ = false;
  bool inTblCfg_ = false;
  bool removeAllPending_ = false;
};

inline Pell::Ptr<FecTableSwTableIteratorState> fecTableSwTableIteratorStateFactory(
    const Pell::Ptr<FecTableSwTable const>& swTable) {
  return FecTableSwTableIteratorState::FecTableSwTableIteratorStateIs(swTable);
}

// Snapshot of a table for scripts: every entry that an iteration yields, by key.
class SwTableEntries_py : public Zev::Typed<SwTableEntries_py> {
 public:
  static constexpr const char* kTypeName = "LoamFec::SwTableEntries_py";
  using Entries =
      Pell::HashMap<FecTableDataModelEntryKey, FecTableDataModelEntry, FecKeyHash<0x71c8e35b>>;

  static Zev::TypeRecord typeRecord();

  const Entries& tableEntries() const { return tableEntries_; }
  // Inserts or replaces the entry under its key.
  void tableEntriesIs(const FecTableDataModelEntry& entry);
  void tableEntriesDel(const FecTableDataModelEntryKey& key);
  void tableEntriesDelAll();

 private:
  Entries tableEntries_;
};

}  // namespace LoamFec
