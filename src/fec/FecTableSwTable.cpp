// SPDX-License-Identifier: Apache-2.0

// The software table itself: construction, the elementary operations on its transient state, and
// its public operations, which hold what they need for the duration of the call and run the generic
// algorithms of the accessors. The accessors come first: they read the table's members and change
// them by its operations, and use the entry log (what is committed), the linkage (resources) and
// the group resolver (what waits).
//
//   request -> transient maps, resolver queue -> isResolved -> commit -> entry log, in-log queue
//           -> status version -> response handler

#include "fec/FecTableSwTable.h"

#include <utility>

#include "Pell/Assert.h"
#include "Zev/Exceptions.h"
#include "Zev/FirstException.h"
#include "Zev/Trace.h"

namespace {

constexpr const char* kClass = "FecTableSwTable";

// The software table's own handle, and the accessors' default one.
Zev::TraceHandle& trace = Zev::traceHandle(kClass);

constexpr const char* kIteratorClass = "FecTableSwTableIteratorState";
Zev::TraceHandle& iteratorTrace = Zev::traceHandle(kIteratorClass);

constexpr const char* kSnapshotClass = "SwTableEntries_py";
Zev::TraceHandle& snapshotTrace = Zev::traceHandle(kSnapshotClass);

}  // namespace

namespace Asic {

// The generic algorithms of an ordered software table.
//
// Kind: a view made for one call; refers to the table.
template <typename Table>
class OrderedSwTableAccessor {
 public:
  using Key = typename Table::Key;
  using Entry = typename Table::Entry;
  using Handle = typename Table::EntryHandle;
  using Dependency = typename Table::Dependency;
  using ResponseHandler = typename Table::ResponseHandler;

  explicit OrderedSwTableAccessor(Table& table) : table_(table) {}

  // Requests. Keys come by value: a caller's key may stand in what the request replaces.

  template <typename Constants, typename TableResolverEntry, typename Wrapper, typename Linkage>
  Pell::Ptr<Handle const> entryWriteGeneric(Key key, const Entry& entry,
                                            const Dependency& dependency,
                                            const ResponseHandler& handler,
                                            const Linkage& linkage) {
    ZEV_TRACE(trace, 8, kClass, "key: {}", key);
    const Pell::Ptr<Handle> handle = newHandle(nextVersion(key, __func__), key, handler);
    Entry written = entry;
    written.key = key;
    const Pell::Ptr<Wrapper> wrapper = Wrapper::FecTableEntryWrapperIs(written, handle);
    table_.transientRemoveEntryDel(key);
    table_.transientAddEntryIs(wrapper);
    linkage->resolveEntry(wrapper);
    enqueue<TableResolverEntry>(dependency, EntryFlags::write(), wrapper);
    ZEV_TRACE(trace, 2, kClass, "Done processing write for key: {} ", key);
    maybeUpdateSuspend<Constants>();
    return handle;
  }

  template <typename Constants, typename TableResolverEntry, typename Wrapper>
  Pell::Ptr<Handle const> entryRemoveGeneric(Key key, const Dependency& dependency,
                                             const ResponseHandler& handler) {
    ZEV_TRACE(trace, 8, kClass, " Key: {} ", key);
    const Pell::Ptr<Handle> handle = newHandle(nextVersion(key, __func__), key, handler);
    Entry removed;
    removed.key = key;
    const Pell::Ptr<Wrapper> wrapper = Wrapper::FecTableEntryWrapperIs(removed, handle);
    const auto resolverEntry =
        newResolverEntry<TableResolverEntry>(dependency, EntryFlags::entryDelete(), wrapper);
    table_.transientAddEntryDel(key);
    table_.transientRemoveEntryIs(wrapper);
    enqueue(resolverEntry);
    ZEV_TRACE(trace, 2, kClass, " Done processing remove for key: {} ", key);
    maybeUpdateSuspend<Constants>();
    return handle;
  }

  template <typename Constants, typename TableResolverEntry, typename Wrapper>
  void entryRemoveAllGeneric(const Dependency& dependency, const ResponseHandler& handler) {
    ZEV_TRACE(trace, 8, kClass, "");
    const Pell::Ptr<Handle> handle = newHandle(EntryVersion(), Key(), handler);
    const Pell::Ptr<Wrapper> wrapper = Wrapper::FecTableEntryWrapperIs(Entry(), handle);
    const auto resolverEntry =
        newResolverEntry<TableResolverEntry>(dependency, EntryFlags::tableDelete(), wrapper);
    table_.transientAddEntryDelAll();
    table_.transientRemoveEntryDelAll();
    raiseRemoveAllVersion(__func__);
    enqueue(resolverEntry);
    ZEV_TRACE(trace, 2, kClass, "Done processing remove all ");
    maybeUpdateSuspend<Constants>();
  }

  template <typename Constants>
  void maybeUpdateSuspend() {
    ZEV_TRACE(trace, 8, kClass, "");
    const std::uint32_t waiting =
        table_.groupResolver_ ? table_.groupResolver_->resolverQueueLength() : 0;
    const Pell::Ptr<OrderedSwTableStatus>& status = table_.status();
    if (status->suspend()) {
      if (waiting <= Constants::kResumeAtOrBelow) {
        ZEV_TRACE(trace, 2, kClass, "Turning off suspend");
        status->suspendIs(false);
      }
    } else if (waiting > Constants::kSuspendAbove) {
      ZEV_TRACE(trace, 2, kClass, "Turning on suspend");
      status->suspendIs(true);
    }
  }

  // Resolution.

  template <typename Constants, typename TableResolverEntryPtr, typename... Linkages>
  bool isResolverEntryResolved(const TableResolverEntryPtr& resolverEntry,
                               const Linkages&... linkages) {
    const auto& wrapper = resolverEntry->swTableEntry();
    const bool isEntryDeleted = resolverEntry->isEntryDeleted();
    if (table_.entryLog_->entryLogConfigRows() >= Constants::kEntryLogCapacity) {
      ZEV_TRACE(trace, 1, kClass, "key: {}, isEntryDeleted: {} : no space in entryLog!",
                wrapper->key(), isEntryDeleted);
      return false;
    }
    if (!table_.entryLog_->groupLogInterface()->requestsFit()) {
      ZEV_TRACE(trace, 1, kClass, "key: {}, isEntryDeleted: {} : no space in the group log!",
                wrapper->key(), isEntryDeleted);
      return false;
    }
    if (const auto& dependency = resolverEntry->dependantEntryHandle()) {
      if (dependency->entryState() == EntryState::notResolved) {
        ZEV_TRACE(trace, 3, kClass, "key: {} dependant entry not yet resolved", wrapper->key());
        return false;
      }
      ZEV_TRACE(trace, 3, kClass, "key: {} dependant entry is resolved", wrapper->key());
    }
    if (!isEntryDeleted) {
      table_.setRsrcPtrs(wrapper, true);
      if (!(resAccessorCheckResolved(wrapper, linkages) && ...)) {
        return false;
      }
    }
    ZEV_TRACE(trace, 3, kClass, "key: {}, isEntryDeleted: {}, isTableDeleted: {}, resolved: true",
              wrapper->key(), isEntryDeleted, resolverEntry->isTableDeleted());
    return true;
  }

  // Commit.

  template <typename Constants, typename TableResolverEntry, typename Wrapper, typename... Linkages>
  void commitEntry(const Pell::Ptr<ResolverEntry>& resolverEntry, const Linkages&... linkages) {
    const auto typedEntry = Pell::dynamicPtrCast<TableResolverEntry>(resolverEntry);
    const Dependency dependency = typedEntry->dependantEntryHandle();
    const Pell::Ptr<Wrapper> wrapper = typedEntry->swTableEntry();
    const bool isEntryDelete = typedEntry->isEntryDeleted();
    const bool isTableDelete = typedEntry->isTableDeleted();
    ZEV_TRACE(trace, 8, kClass, "Entry: {}, isEntryDeleted: {}, isTableDeleted: {}", wrapper->key(),
              isEntryDelete, isTableDelete);
    PELL_ASSERT(!(isEntryDelete && isTableDelete), "!( isEntryDelete && isTableDelete )");
    const Pell::Ptr<Handle> entryHandle = Pell::dynamicPtrCast<Handle>(wrapper->entryHandle());
    PELL_ASSERT(entryHandle, "entryHandle != NULL");
    const EntryVersion entryConfVersion = entryHandle->version();
    PELL_ASSERT(isTableDelete || entryConfVersion.valid(), "entryConfVersion.valid()");

    Zev::FirstException first;
    first.from([&] {
      const bool dependencyFailed = dependency && hasFailed(dependency->entryState());
      bool committed = !dependencyFailed;
      if (dependencyFailed) {
        traceFailedDependency(wrapper, isTableDelete);
      } else if (isTableDelete) {
        commitTableDelete(wrapper, dependency, linkages...);
      } else if (isEntryDelete) {
        commitEntryDelete(wrapper, entryHandle, dependency, linkages...);
      } else {
        committed = commitEntryWrite(wrapper, entryHandle, dependency, first, linkages...);
      }
      if (committed) {
        table_.status()->pendingHwWritesIs(true);
      } else {
        fail(wrapper, entryHandle, isTableDelete);
      }
    });
    maybeUpdateSuspend<Constants>();
    first.rethrow();
  }

  // Reads.

  Entry entryReadGeneric(const Key& key) const {
    ZEV_TRACE(trace, 8, kClass, "key: {}", key);
    if (const auto* pending = table_.transientAddEntry_.find(key)) {
      return (*pending)->entry();
    }
    if (!table_.transientRemoveEntry_.has(key) &&
        table_.entryLog_->entryHas(key, table_.unitId())) {
      return table_.entryFromConfig(key);
    }
    ZEV_TRACE(trace, 1, kClass, "Failed to find entry for key: {}", key);
    return Entry();
  }

  Entry entryFromConfig(const Key& key) const {
    ZEV_TRACE(trace, 8, kClass, "key: {}", key);
    return entryFromLook(table_.entryLog_->look(key, table_.unitId()));
  }

  // Shared memory.

  template <typename Wrapper>
  Pell::Ptr<Wrapper> entryWrapperFromConfig(const Key& key, bool refreshRsrcPtrs) {
    ZEV_TRACE(trace, 8, kClass, "key: {}, refreshRsrcPtrs: {}", key, refreshRsrcPtrs);
    return wrapperOf<Wrapper>(key, table_.entryFromConfig(key), refreshRsrcPtrs);
  }

  template <typename Wrapper, typename Linkage>
  void restoreEntries(const Linkage& linkage) {
    ZEV_TRACE(trace, 8, kClass, "");
    const auto configGlint = unitConfig();
    if (!configGlint) {
      return;
    }
    (void)Glint::walkToDamage(configGlint->swTableEntries(), [&](const auto& row) {
      if (!row.isDeleted()) {
        linkage->restoreEntry(entryWrapperFromConfig<Wrapper>(row.key(), true));
      }
    });
    linkage->handleResourceChangeAtInit();
  }

  template <typename Wrapper, typename Linkage>
  void delAllEntries(bool releaseResources, const Pell::Ptr<NeededEntry const>& neededEntry,
                     const Linkage& linkage) {
    ZEV_TRACE(trace, 8, kClass, " releaseResources: {}, neededEntry:{} ", releaseResources,
              neededEntry);
    const auto configGlint = unitConfig();
    if (!configGlint || !configGlint->swTableEntries().isReady()) {
      return;
    }
    if (releaseResources) {
      (void)Glint::walkOverDamage(configGlint->swTableEntries(), [&](const auto& row) {
        linkage->updateLocalUsage(entryWrapperFromConfig<Wrapper>(row.key(), false), true);
      });
    }
    table_.entryLog_->tableDel(neededEntry, table_.unitId());
  }

  template <typename Wrapper, typename Linkage>
  Pell::Ptr<OrderedSwTable::EntryHandle const> updateEntry(const Key& key, const Linkage& linkage) {
    const auto& log = table_.entryLog_;
    const auto committed = log->look(key, table_.unitId());
    if (!committed.entryHas()) {
      ZEV_TRACE(trace, 3, kClass, " key: {} entry does not exist ", key);
      return nullptr;
    }
    const Pell::Ptr<Wrapper> wrapper = entryWrapperFromLook<Wrapper>(key, committed);
    wrapper->setResolvedFields();
    const bool commitToLog = linkage->entryResolutionState(wrapper) != EntryState::notResolved;
    if (!commitToLog) {
      ZEV_TRACE(trace, 3, kClass, "key: {} is still unresolved!", key);
    }
    const Pell::Ptr<OrderedSwTable::EntryHandle>& handle = wrapper->entryHandle();
    const auto logEntry = wrapper->entry().logEntry();
    const bool changed = !logEntry.isEq(logEntry, committed.entry());
    if (changed && commitToLog) {
      const Pell::Ptr<NeededEntry> needed = table_.getNeededEntrySet(wrapper);
      log->throwWithoutRoom(needed, table_.unitId());
      const LogVersion version =
          log->entryIs(logEntry, wrapper->entry().resourceKeys(), needed, table_.unitId());
      handle->logVersionIs(version);
      handle->entryStateIs(EntryState::hwWritePending);
      ZEV_TRACE(trace, 3, kClass, " key: {}, neededEntry: {}, entryLogVersion: {} ", key, needed,
                version);
    } else {
      ZEV_TRACE(trace, 3, kClass,
                " key: {}, commitToLog: {}, no change in logEntry or don't commit to log", key,
                commitToLog);
      handle->logVersionIs(log->tableVersion());
      handle->entryStateIs(EntryState::hwWritePending);
    }
    return handle;
  }

  // Calls a copy of the handle's handler, if it has one: the handler may replace it.
  static void respond(const Pell::Ptr<Handle>& entryHandle) {
    const ResponseHandler handler = entryHandle->responseHandler();
    if (handler) {
      handler(entryHandle);
    }
  }

 private:
  static bool hasFailed(EntryState state) {
    return state == EntryState::dependencyFailed || state == EntryState::commitFailed ||
           state == EntryState::resourceFailed;
  }

  // The entry is asked for before the resource keys.
  template <typename Look>
  static Entry entryFromLook(const Look& committed) {
    const auto logEntry = committed.entry();
    return Entry::fromLog(logEntry, committed.entryRsrcKeys());
  }

  // entryWrapperFromConfig() without a refresh, of a row that has been looked at; traced like it.
  template <typename Wrapper, typename Look>
  Pell::Ptr<Wrapper> entryWrapperFromLook(const Key& key, const Look& committed) {
    ZEV_TRACE_AS(trace, 8, kClass, "entryWrapperFromConfig", "key: {}, refreshRsrcPtrs: {}", key,
                 false);
    ZEV_TRACE_AS(trace, 8, kClass, "entryFromConfig", "key: {}", key);
    return wrapperOf<Wrapper>(key, entryFromLook(committed), false);
  }

  template <typename Wrapper>
  Pell::Ptr<Wrapper> wrapperOf(const Key& key, const Entry& entry, bool refreshRsrcPtrs) {
    const Pell::Ptr<Handle> handle = Table::entryHandleFactory(EntryVersion(), key, &table_);
    Pell::Ptr<Wrapper> wrapper = Wrapper::FecTableEntryWrapperIs(entry, handle);
    table_.setRsrcPtrs(wrapper, refreshRsrcPtrs);
    wrapper->retrieveClientData();
    return wrapper;
  }

  // Version of a new write or remove: one above the newest that is pending for the key. Traced as a
  // step of the request, as the next one is.
  EntryVersion nextVersion(const Key& key, const char* request) {
    EntryVersion version;
    if (const EntryVersion* currEntryVersion = table_.transientVersionForKey_.find(key)) {
      PELL_ASSERT(currEntryVersion->valid(), "currEntryVersion.valid()");
      version = EntryVersion(currEntryVersion->major() + 1, currEntryVersion->minor());
    } else {
      ZEV_TRACE_AS(trace, 8, kClass, request, " Key: {} not found in entry version collection",
                   key);
    }
    // It differs from what is held: no need to look at that again.
    table_.elementStore(table_.transientVersionForKey_, key, version,
                        Table::kTransientVersionForKeyAttribute);
    return version;
  }

  void raiseRemoveAllVersion(const char* request) {
    const MajorVersion current = table_.transientRemoveAllVersion_;
    if (current.valid()) {
      ZEV_TRACE_AS(trace, 8, kClass, request, "Found valid table remove all version: {}", current);
      table_.transientRemoveAllVersionIs(current + 1);
    } else {
      ZEV_TRACE_AS(trace, 8, kClass, request, "No remove all operation currently enqueued");
      table_.transientRemoveAllVersionIs(MajorVersion(0));
    }
  }

  Pell::Ptr<Handle> newHandle(const EntryVersion& version, const Key& key,
                              const ResponseHandler& handler) {
    Pell::Ptr<Handle> handle = Table::entryHandleFactory(version, key, &table_);
    handle->responseHandlerIs(handler);
    handle->entryStateIs(EntryState::notResolved);
    return handle;
  }

  template <typename TableResolverEntry, typename Wrapper>
  Pell::Ptr<TableResolverEntry> newResolverEntry(const Dependency& dependency, EntryFlags flags,
                                                 const Pell::Ptr<Wrapper>& wrapper) {
    return TableResolverEntry::FecTableResolverEntryIs(dependency, flags, &table_, wrapper);
  }

  template <typename TableResolverEntry, typename Wrapper>
  void enqueue(const Dependency& dependency, EntryFlags flags, const Pell::Ptr<Wrapper>& wrapper) {
    enqueue(newResolverEntry<TableResolverEntry>(dependency, flags, wrapper));
  }
  void enqueue(const Pell::Ptr<ResolverEntry>& resolverEntry) {
    table_.groupResolver_->resolverQueueEnq(resolverEntry);
    table_.groupResolver_->updateGenId();
  }

  template <typename Wrapper, typename Linkage>
  bool resAccessorCheckResolved(const Pell::Ptr<Wrapper>& wrapper, const Linkage& linkage) const {
    if (linkage->entryResolutionState(wrapper) == EntryState::notResolved) {
      ZEV_TRACE(trace, 3, kClass, "key: {} is still unresolved!", wrapper->key());
      return false;
    }
    return true;
  }

  // False: a linkage refused the write, or a hook threw, which refuses it too.
  template <typename Wrapper, typename... Linkages>
  bool commitEntryWrite(const Pell::Ptr<Wrapper>& wrapper, const Pell::Ptr<Handle>& entryHandle,
                        const Dependency& dependency, Zev::FirstException& first,
                        const Linkages&... linkages) {
    bool mayBeLogged = false;
    first.from([&] { mayBeLogged = (linkages->checkCommitToLog(wrapper, false) && ...); });
    if (!mayBeLogged) {
      return false;
    }
    const Pell::Ptr<NeededEntry> needed = table_.getNeededEntrySet(wrapper);
    (linkages->updateLocalUsage(wrapper, false), ...);
    addDependency(needed, dependency);
    cleanAddSide(wrapper->key(), entryHandle->version());
    const LogVersion logVersion = table_.entryLog_->entryIs(
        wrapper->entry().logEntry(), wrapper->entry().resourceKeys(), needed, table_.unitId());
    enterLog(entryHandle, logVersion);
    return true;
  }

  template <typename Wrapper, typename... Linkages>
  void commitEntryDelete(const Pell::Ptr<Wrapper>& wrapper, const Pell::Ptr<Handle>& entryHandle,
                         const Dependency& dependency, const Linkages&... linkages) {
    (linkages->updateLocalUsage(wrapper, true), ...);
    const Pell::Ptr<NeededEntry> needed = Zev::makeObject<NeededEntry>();
    addDependency(needed, dependency);
    const Key key = wrapper->key();
    cleanRemoveSide(key, entryHandle->version());
    enterLog(entryHandle, table_.entryLog_->entryDel(key, needed, table_.unitId()));
  }

  // The handle of a table delete goes neither into the log queue nor to its handler.
  template <typename Wrapper, typename... Linkages>
  void commitTableDelete(const Pell::Ptr<Wrapper>& wrapper, const Dependency& dependency,
                         const Linkages&... linkages) {
    const MajorVersion currRemoveAllVersion = table_.transientRemoveAllVersion_;
    PELL_ASSERT(currRemoveAllVersion.valid(), "currRemoveAllVersion.valid()");
    ZEV_TRACE_AS(trace, 8, kClass, "commitEntry", "Committing table delete for version: {}",
                 currRemoveAllVersion);
    const Pell::Ptr<NeededEntry> needed = table_.getNeededEntrySet(wrapper);
    addDependency(needed, dependency);
    (delAllEntries<Wrapper>(true, needed, linkages), ...);
    table_.transientRemoveAllVersionIs(currRemoveAllVersion - 1);
  }

  static void addDependency(const Pell::Ptr<NeededEntry>& needed, const Dependency& dependency) {
    if (dependency) {
      needed->add(dependency->entryTableVersion());
    }
  }

  void enterLog(const Pell::Ptr<Handle>& entryHandle, LogVersion logVersion) {
    entryHandle->logVersionIs(logVersion);
    entryHandle->entryStateIs(EntryState::hwWritePending);
    table_.entryHandleInLogEnq(entryHandle);
  }

  // A newer request of the key, still in flight, keeps its records.
  void cleanAddSide(Key key, const EntryVersion& version) {
    if (isNewest(table_.transientAddEntry_, key, version)) {
      table_.transientAddEntryDel(key);
      table_.transientVersionForKeyDel(key);
    }
  }
  void cleanRemoveSide(Key key, const EntryVersion& version) {
    if (isNewest(table_.transientRemoveEntry_, key, version)) {
      table_.transientRemoveEntryDel(key);
      table_.transientVersionForKeyDel(key);
    }
  }
  template <typename Entries>
  static bool isNewest(const Entries& entries, const Key& key, const EntryVersion& version) {
    const auto* held = entries.find(key);
    if (held == nullptr) {
      return false;
    }
    const auto& handle = (*held)->entryHandle();
    return handle && handle->isOfVersion(version);
  }

  template <typename Wrapper>
  static void traceFailedDependency(const Pell::Ptr<Wrapper>& wrapper, bool isTableDelete) {
    if (isTableDelete) {
      ZEV_TRACE_AS(trace, 1, kClass, "commitEntry", "Failed dependent entry for remove all");
    } else {
      ZEV_TRACE_AS(trace, 1, kClass, "commitEntry", "Failed dependent entry for key: {}",
                   wrapper->key());
    }
  }

  template <typename Wrapper>
  static void fail(const Pell::Ptr<Wrapper>& wrapper, const Pell::Ptr<Handle>& entryHandle,
                   bool isTableDelete) {
    if (isTableDelete) {
      ZEV_TRACE_AS(trace, 1, kClass, "commitEntry", "Failed to commit entry remove all operation");
    } else {
      ZEV_TRACE_AS(trace, 1, kClass, "commitEntry", "Failed to commit entry key: {}",
                   wrapper->key());
    }
    entryHandle->entryStateIs(EntryState::commitFailed);
    respond(entryHandle);
  }

  // Null when the table has no entry log or the unit no configuration table.
  auto unitConfig() const {
    const auto& log = table_.entryLog_;
    return log ? log->tableConfigGlint(table_.unitId()) : nullptr;
  }

  Table& table_;
};

// The steps of a walk over a table's entries.
template <typename State>
class IterStateAccessor {
 public:
  using Entry = LoamFec::FecTableDataModelEntry;
  using Key = LoamFec::FecTableDataModelEntryKey;

  explicit IterStateAccessor(State& iterState) : iterState_(&iterState) {}

  // At the first pending write. The committed entries follow from their first row on, as it is
  // then: a pending write that is committed before the walk reaches it is met among them.
  void initIterState() {
    const auto& table = *iterState_->swTable_;
    iterState_->removeAllPending_ = table.transientRemoveAllVersion().valid();
    iterState_->transientAt_ = table.transientAddEntry().begin();
    iterState_->configGlint_ = table.entryLog()->tableConfigGlint(table.unitId());
  }

  void initIterStateFromKey(const Key& key) {
    initIterState();
    const auto& table = *iterState_->swTable_;
    const auto& pending = table.transientAddEntry();
    iterState_->transientAt_.reset();
    if (pending.has(key)) {
      iterState_->transientAt_ = pending.cursorOf(key);
      iterState_->positioned_ = true;
    } else if (!iterState_->removeAllPending_ && table.entryLog()->entryHas(key, table.unitId())) {
      iterState_->inTblCfg_ = true;
      startConfigAt([&key](auto& rows) { return rows.iteratorAt(key); });
    } else {
      iterState_->atEnd_ = true;
    }
  }

  Entry maybeUpdateCurrentEntry() {
    if (iterState_->atEnd_) {
      return {};
    }
    if (nextTransient()) {
      return iterState_->currentEntry_;
    }
    if (iterState_->removeAllPending_) {
      iterState_->positioned_ = false;
      iterState_->inTblCfg_ = false;
      iterState_->removeAllPending_ = false;
      return end();
    }
    if (!iterState_->inTblCfg_) {
      iterState_->inTblCfg_ = true;
      startConfigAt([](auto& rows) { return rows.iterator(); });
    }
    return nextConfig() ? iterState_->currentEntry_ : end();
  }

 private:
  bool nextTransient() {
    const auto& pending = iterState_->swTable_->transientAddEntry();
    auto& at = iterState_->transientAt_;
    if (at && pending.elementAt(*at) == nullptr) {
      at = pending.next(*at);
    }
    const auto* element = at ? pending.elementAt(*at) : nullptr;
    if (element == nullptr) {
      at.reset();
      return false;
    }
    PELL_ASSERT(!iterState_->inTblCfg(), "!iterState_->inTblCfg()");
    iterState_->currentEntry_ = element->value->entry();
    iterState_->fromTransient_ = true;
    at = pending.next(*at);
    return true;
  }

  // The row is read again when its turn comes: it may have changed since the last step. It is read
  // by its place, not by its key: an entry that has left and come back elsewhere is met there.
  // Corruption ends the walk.
  bool nextConfig() {
    iterState_->fromTransient_ = false;
    auto& at = iterState_->configAt_;
    while (at && at->valid()) {
      std::optional<LoamFec::FecTableDataModelConfigGlintEntry> row;
      if (!Glint::guarded(iterState_->configGlint_->swTableEntries(), [&] {
            at->refresh();
            if (at->valid()) {
              row = at->row();
              at->advance();
            }
          })) {
        at.reset();
      }
      if (row && !row->isDeleted() && !isShadowed(row->key())) {
        iterState_->currentEntry_ = Entry::fromLog(row->logEntry(), row->rsrcKeys());
        return true;
      }
    }
    return false;
  }

  bool isShadowed(const Key& key) const {
    return iterState_->swTable_->transientRemoveEntry().has(key) ||
           iterState_->swTable_->transientAddEntry().has(key);
  }

  Entry end() {
    iterState_->atEnd_ = true;
    iterState_->fromTransient_ = false;
    iterState_->currentEntry_ = Entry();
    return {};
  }

  template <typename Start>
  void startConfigAt(Start&& start) {
    if (iterState_->configGlint_) {
      auto& rows = iterState_->configGlint_->swTableEntries();
      Glint::guarded(rows, [&] { iterState_->configAt_.emplace(start(rows)); });
    }
  }

  State* iterState_;
};

}  // namespace Asic

namespace LoamFec {

using Accessor = Asic::OrderedSwTableAccessor<FecTableSwTable>;
using ReadAccessor = Asic::OrderedSwTableAccessor<const FecTableSwTable>;

// Construction and wiring.

FecTableSwTable::FecTableSwTable(Pell::Ptr<Asic::CanonicalTableName const> const& tableName,
                                 Asic::SwTableId tableId, Asic::UnitId unitId,
                                 Pell::Ptr<Asic::OrderedSwTableStatus> const& status,
                                 Pell::Ptr<FecTableEntryLog> const& entryLog,
                                 Pell::Ptr<Asic::GroupResolver> const& groupResolver)
    : Typed(tableName, tableId, unitId, status),
      entryLog_(entryLog),
      groupResolver_(groupResolver) {
  handleInitialized();
}

// What holds the table's pending work goes in the reverse order of the members' declaration, the
// linkage first and the helper last. What waits in the resolver's queue points at the table, and
// goes with it.
FecTableSwTable::~FecTableSwTable() {
  intfIdToDestIdLinkage_ = nullptr;
  entryHandleInLog_.doClear(false);
  if (groupResolver_) {
    waitingRequestsDel();
    groupResolver_ = nullptr;
  }
  entryLog_ = nullptr;
  transientVersionForKey_.clear();
  transientRemoveEntry_.clear();
  transientAddEntry_.clear();
  swTableHelper_ = nullptr;
}

const Pell::Publisher* FecTableSwTable::notifieeList() const { return &publisher_; }

Zev::TypeRecord FecTableSwTable::typeRecord() {
  return {kTypeName,
          {{"swTableHelper", kSwTableHelperAttribute},
           {"transientAddEntry", kTransientAddEntryAttribute},
           {"transientRemoveEntry", kTransientRemoveEntryAttribute},
           {"transientVersionForKey", kTransientVersionForKeyAttribute},
           {"transientRemoveAllVersion", kTransientRemoveAllVersionAttribute},
           {"entryLog", kEntryLogAttribute},
           {"groupResolver", kGroupResolverAttribute},
           {"entryHandleInLog", kEntryHandleInLogAttribute},
           {"intfIdToDestIdLinkage", kIntfIdToDestIdLinkageAttribute}},
          {{"transientVersionForKeyDelAll", {}}, {"getTableEntries_py", {}}}};
}

void FecTableSwTable::doCreateHwTable() {}

void FecTableSwTable::handleInitialized() {
  ZEV_TRACE(trace, 8, kClass, "");
  swTableHelper_ = fecTableSwTableHelperBaseFactory();
}

void FecTableSwTable::swTableHelperIs(Pell::Ptr<FecTableSwTableHelperBase> const& helper) {
  if (!helper) {
    Zev::throwMutatorArgNullPointerException(kClass, "swTableHelper");
  }
  if (swTableHelper_ != helper) {
    swTableHelper_ = helper;
    publisher_.attributeChange(kSwTableHelperAttribute);
  }
}

void FecTableSwTable::intfIdToDestIdLinkageIs(
    Pell::Ptr<FecTableIntfIdToDestIdLinkage> const& linkage) {
  if (intfIdToDestIdLinkage_ != linkage) {
    intfIdToDestIdLinkage_ = linkage;
    publisher_.attributeChange(kIntfIdToDestIdLinkageAttribute);
  }
}

// Transient state. Keys are copied before anything is released: a caller's reference may stand in
// what goes. Where more is to do after a publication, the table is held: an observer may drop the
// last other reference to it.

template <typename Map, typename Value>
void FecTableSwTable::elementStore(Map& map, Key key, Value const& value, short attributeId) {
  map.insertOrAssign(key, value);
  publisher_.attributeElementChange(attributeId, &key);
}

template <typename Entries>
void FecTableSwTable::wrapperIs(Entries& entries, Pell::Ptr<FecTableEntryWrapper> const& wrapper,
                                const char* attributeName, short attributeId) {
  if (!wrapper) {
    Zev::throwMutatorArgNullPointerException(kClass, attributeName);
  }
  const Key& key = wrapper->key();
  if (const auto* held = entries.find(key); held != nullptr && *held == wrapper) {
    return;
  }
  elementStore(entries, key, wrapper, attributeId);
}

template <typename Map>
void FecTableSwTable::elementDel(Map& map, Key const& key, short attributeId) {
  const Key removed = key;
  if (map.erase(removed)) {
    publisher_.attributeElementChange(attributeId, &removed);
  }
}

template <typename Map>
void FecTableSwTable::elementDelAll(Map& map, short attributeId) {
  const Pell::Ptr<FecTableSwTable> self(this);
  if (publisher_.idle()) {
    map.clear();
  } else {
    map.forEach([&](Key const& key, const auto&) { elementDel(map, key, attributeId); });
  }
}

void FecTableSwTable::transientAddEntryIs(Pell::Ptr<FecTableEntryWrapper> const& wrapper) {
  wrapperIs(transientAddEntry_, wrapper, "transientAddEntry", kTransientAddEntryAttribute);
}

void FecTableSwTable::transientAddEntryDel(Key const& key) {
  elementDel(transientAddEntry_, key, kTransientAddEntryAttribute);
}

void FecTableSwTable::transientAddEntryDelAll() {
  elementDelAll(transientAddEntry_, kTransientAddEntryAttribute);
}

void FecTableSwTable::transientRemoveEntryIs(Pell::Ptr<FecTableEntryWrapper> const& wrapper) {
  wrapperIs(transientRemoveEntry_, wrapper, "transientRemoveEntry", kTransientRemoveEntryAttribute);
}

void FecTableSwTable::transientRemoveEntryDel(Key const& key) {
  elementDel(transientRemoveEntry_, key, kTransientRemoveEntryAttribute);
}

void FecTableSwTable::transientRemoveEntryDelAll() {
  elementDelAll(transientRemoveEntry_, kTransientRemoveEntryAttribute);
}

void FecTableSwTable::transientVersionForKeyIs(Key const& key, Asic::EntryVersion const& version) {
  if (const Asic::EntryVersion* held = transientVersionForKey_.find(key);
      held != nullptr && Asic::EntryVersion::isEq(*held, version)) {
    return;
  }
  elementStore(transientVersionForKey_, key, version, kTransientVersionForKeyAttribute);
}

void FecTableSwTable::transientVersionForKeyDel(Key const& key) {
  elementDel(transientVersionForKey_, key, kTransientVersionForKeyAttribute);
}

void FecTableSwTable::transientVersionForKeyDelAll() {
  elementDelAll(transientVersionForKey_, kTransientVersionForKeyAttribute);
}

void FecTableSwTable::transientRemoveAllVersionIs(Asic::MajorVersion version) {
  const Asic::MajorVersion oldVersion = transientRemoveAllVersion_;
  if (oldVersion == version) {
    return;
  }
  transientRemoveAllVersion_ = version;
  publisher_.recursiveAttributeChange(kTransientRemoveAllVersionAttribute, &oldVersion);
}

// In-log queue.

void FecTableSwTable::entryHandleInLogEnq(const Pell::Ptr<EntryHandle>& handle) {
  if (!handle) {
    Zev::throwMutatorArgNullPointerException(kClass, "entryHandleInLog");
  }
  const std::uint32_t sequence = entryHandleInLog_.enq(handle);
  publisher_.attributeElementChange(kEntryHandleInLogAttribute, &sequence);
}

Pell::Ptr<FecTableSwTable::EntryHandle> FecTableSwTable::entryHandleInLogDeq() {
  std::uint32_t sequence = 0;
  Pell::Ptr<EntryHandle> handle = entryHandleInLog_.deq(&sequence);
  if (handle) {
    publisher_.attributeElementChange(kEntryHandleInLogAttribute, &sequence);
  }
  return handle;
}

void FecTableSwTable::entryHandleInLogDelAll() {
  const Pell::Ptr<FecTableSwTable> self(this);
  if (publisher_.idle()) {
    entryHandleInLog_.doClear(true);
    return;
  }
  while (!entryHandleInLog_.empty()) {
    entryHandleInLogDeq();
  }
}

// Requests. An observer that runs inside may drop the last other reference to the table: it is held
// until the call is done.

Pell::Ptr<FecTableSwTable::EntryHandle const> FecTableSwTable::entryWrite(
    Key const& key, Entry const& entry, Dependency const& dependency) {
  ZEV_TRACE(trace, 8, kClass, " key: {}", key);
  return entryWriteWithResponseHandler(key, entry, dependency, ResponseHandler());
}

Pell::Ptr<FecTableSwTable::EntryHandle const> FecTableSwTable::entryWriteWithResponseHandler(
    Key const& key, Entry const& entry, Dependency const& dependency,
    ResponseHandler const& handler) {
  const Pell::Ptr<FecTableSwTable> self(this);
  ZEV_TRACE(trace, 8, kClass, " key: {}", key);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  return Accessor(*this)
      .entryWriteGeneric<FecTableConstants, FecTableResolverEntry, FecTableEntryWrapper>(
          key, entry, dependency, handler, linkage);
}

Pell::Ptr<FecTableSwTable::EntryHandle const> FecTableSwTable::entryRemove(
    Key const& key, Dependency const& dependency) {
  ZEV_TRACE(trace, 8, kClass, " key: {}", key);
  return entryRemoveWithResponseHandler(key, dependency, ResponseHandler());
}

Pell::Ptr<FecTableSwTable::EntryHandle const> FecTableSwTable::entryRemoveWithResponseHandler(
    Key const& key, Dependency const& dependency, ResponseHandler const& handler) {
  const Pell::Ptr<FecTableSwTable> self(this);
  ZEV_TRACE(trace, 8, kClass, " key: {}", key);
  return Accessor(*this)
      .entryRemoveGeneric<FecTableConstants, FecTableResolverEntry, FecTableEntryWrapper>(
          key, dependency, handler);
}

void FecTableSwTable::entryRemoveAll(Dependency const& dependency) {
  ZEV_TRACE(trace, 8, kClass, "");
  entryRemoveAllWithResponseHandler(dependency, ResponseHandler());
}

void FecTableSwTable::entryRemoveAllWithResponseHandler(Dependency const& dependency,
                                                        ResponseHandler const& handler) {
  const Pell::Ptr<FecTableSwTable> self(this);
  ZEV_TRACE(trace, 8, kClass, "");
  Accessor(*this)
      .entryRemoveAllGeneric<FecTableConstants, FecTableResolverEntry, FecTableEntryWrapper>(
          dependency, handler);
}

// Framework calls. Handlers and hooks that run inside may drop the last other reference to the
// table: it is held until the call is done.

bool FecTableSwTable::isResolverEntryResolved(
    const Pell::Ptr<FecTableResolverEntry>& resolverEntry) {
  const Pell::Ptr<FecTableSwTable> self(this);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  const Pell::Ptr<FecTableResolverEntry> held = resolverEntry;
  // Most often the commit follows at once and needs the row; what lies between covers the wait.
  if (entryLog_) {
    entryLog_->fetchAhead(held->swTableEntry()->key(), unitId());
  }
  return Accessor(*this)
      .isResolverEntryResolved<FecTableConstants, Pell::Ptr<FecTableResolverEntry>>(held, linkage);
}

void FecTableSwTable::commitEntry(const Pell::Ptr<Asic::ResolverEntry>& resolverEntry) {
  const Pell::Ptr<FecTableSwTable> self(this);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  Accessor(*this).commitEntry<FecTableConstants, FecTableResolverEntry, FecTableEntryWrapper>(
      resolverEntry, linkage);
}

// Observers and handlers may report again inside this call. The inner report first answers the
// handle that the outer one has taken off the queue and not answered yet, and then goes on with
// those behind it: so answers keep the queue's order. The front of the queue is read afresh for
// each.
void FecTableSwTable::tableStatusVersion(Asic::LogVersion version) {
  const Pell::Ptr<FecTableSwTable> self(this);
  ZEV_TRACE(trace, 8, kClass, "tableVersion: {}", version);
  entryLog_->cleanupEntryLog(version);
  groupResolver_->updateGenId();
  Zev::FirstException first;
  for (;;) {
    // What throws while a handle's state is set leaves its answer for the second time round.
    first.from([this] { finishRelease(); });
    if (releasing_.handle) {
      continue;
    }
    const Pell::Ptr<EntryHandle> handle = entryHandleInLogFront();
    if (!handle || version < handle->logVersion()) {
      break;
    }
    releasing_ = {handle, version, false};
    first.from([this] { entryHandleInLogDeq(); });
  }
  if (entryLog_->tableVersion() == version) {
    first.from([this] { status()->pendingHwWritesIs(false); });
  }
  first.rethrow();
}

void FecTableSwTable::finishRelease() {
  const Pell::Ptr<EntryHandle> handle = releasing_.handle;
  if (handle && !std::exchange(releasing_.isDone, true)) {
    ZEV_TRACE_AS(trace, 3, kClass, "tableStatusVersion", "Processing version: {}, key: {}",
                 releasing_.version, handle->key());
    handle->entryStateIs(EntryState::done);
  }
  if (const Pell::Ptr<EntryHandle> unanswered = std::exchange(releasing_.handle, nullptr)) {
    Accessor::respond(unanswered);
  }
}

// The suspend flag is shared by all units: what goes may be what it was raised for, and no request
// of this table's comes any more to take it down.
void FecTableSwTable::waitingRequestsDel() {
  const std::uint32_t waiting = groupResolver_->resolverQueueLength();
  groupResolver_->resolverQueueDelIf([this](const Asic::ResolverEntry& entry) {
    const auto* typed = dynamic_cast<const FecTableResolverEntry*>(&entry);
    return typed != nullptr && typed->swTable() == this;
  });
  if (groupResolver_->resolverQueueLength() != waiting) {
    Accessor(*this).maybeUpdateSuspend<FecTableConstants>();
  }
}

void FecTableSwTable::setRsrcPtrs(const Pell::Ptr<FecTableEntryWrapper>& wrapper, bool refresh) {
  ZEV_TRACE(trace, 8, kClass, "key: {}, refresh: {}", wrapper->key(), refresh);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  if (refresh) {
    linkage->resolveEntry(wrapper);
  } else {
    linkage->setResourceHandle(wrapper);
  }
}

Pell::Ptr<Asic::NeededEntry> FecTableSwTable::getNeededEntrySet(
    const Pell::Ptr<FecTableEntryWrapper const>& wrapper) const {
  ZEV_TRACE(trace, 8, kClass, "key: {}", wrapper->key());
  const Pell::Ptr<Asic::NeededEntry> reported = intfIdToDestIdLinkage_->getNeededEntrySet(wrapper);
  if (!reported) {
    return nullptr;
  }
  Pell::Ptr<Asic::NeededEntry> needed = Zev::makeObject<Asic::NeededEntry>();
  needed->merge(reported);
  return needed;
}

// Reads.

FecTableDataModelEntry FecTableSwTable::entryRead(Key const& key) const {
  ZEV_TRACE_AS(trace, 8, kClass, "entryRead", " key: {}", key);
  return ReadAccessor(*this).entryReadGeneric(key);
}

FecTableDataModelEntry FecTableSwTable::entry(Key const& key) const {
  ZEV_TRACE_AS(trace, 8, kClass, "entryRead", " key: {}", key);
  return ReadAccessor(*this).entryReadGeneric(key);
}

bool FecTableSwTable::entryHas(Key const& key) const {
  ZEV_TRACE(trace, 8, kClass, "key: {}", key);
  if (transientAddEntry_.has(key)) {
    return true;
  }
  return !transientRemoveEntry_.has(key) && !transientRemoveAllVersion_.valid() &&
         entryLog_->entryHas(key, unitId());
}

std::optional<FecTableSwTable::Row> FecTableSwTable::row(Key const& key) const {
  return Glint::guardedRow(config()->swTableEntries(), key);
}

FecTableDataModelEntry FecTableSwTable::entryFromConfig(Key const& key) const {
  return ReadAccessor(*this).entryFromConfig(key);
}

unsigned FecTableSwTable::entrys() const {
  if (transientRemoveAllVersion_.valid()) {
    return transientAddEntry_.size();
  }
  unsigned count = entryLog_->entrys(unitId());
  transientAddEntry_.forEach(
      [&](Key const& key, const auto&) { count += entryLog_->entryHas(key, unitId()) ? 0U : 1U; });
  transientRemoveEntry_.forEach(
      [&](Key const& key, const auto&) { count -= entryLog_->entryHas(key, unitId()) ? 1U : 0U; });
  return count;
}

FecTableDataModelEntryIteratorConst FecTableSwTable::entryIteratorConst(Key const& key) const {
  return FecTableDataModelEntryIteratorConst(initIterStateFromKey(key));
}

FecTableDataModelEntryIteratorConst FecTableSwTable::entryIteratorConst() const {
  return FecTableDataModelEntryIteratorConst(initIterState());
}

Pell::Ptr<FecTableDataModelSwTableIteratorState> FecTableSwTable::initIterState() const {
  auto state = fecTableSwTableIteratorStateFactory(Pell::Ptr<FecTableSwTable const>(this));
  Asic::IterStateAccessor<FecTableSwTableIteratorState>(*state).initIterState();
  return state;
}

Pell::Ptr<FecTableDataModelSwTableIteratorState> FecTableSwTable::initIterStateFromKey(
    Key const& key) const {
  auto state = fecTableSwTableIteratorStateFactory(Pell::Ptr<FecTableSwTable const>(this));
  Asic::IterStateAccessor<FecTableSwTableIteratorState>(*state).initIterStateFromKey(key);
  return state;
}

Pell::Ptr<SwTableEntries_py> FecTableSwTable::getTableEntries_py() const {
  Pell::Ptr<SwTableEntries_py> snapshot = Zev::makeObject<SwTableEntries_py>();
  const auto state = initIterState();
  for (;;) {
    const Entry entry = state->maybeUpdateCurrentEntry();
    if (state->atEnd()) {
      return snapshot;
    }
    snapshot->tableEntriesIs(entry);
  }
}

// From shared memory. Observers may drop the last other reference to the table here too.

void FecTableSwTable::restoreEntries() {
  const Pell::Ptr<FecTableSwTable> self(this);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  Accessor(*this).restoreEntries<FecTableEntryWrapper>(linkage);
}

void FecTableSwTable::clearTable(bool releaseResources) {
  const Pell::Ptr<FecTableSwTable> self(this);
  ZEV_TRACE(trace, 8, kClass, "");
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  Accessor(*this).delAllEntries<FecTableEntryWrapper>(releaseResources, nullptr, linkage);
}

Pell::Ptr<Asic::OrderedSwTable::EntryHandle const> FecTableSwTable::updateEntry(Key const& key) {
  const Pell::Ptr<FecTableSwTable> self(this);
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = intfIdToDestIdLinkage_;
  return Accessor(*this).updateEntry<FecTableEntryWrapper>(key, linkage);
}

// Walk and snapshot.

FecTableSwTableIteratorState::FecTableSwTableIteratorState(
    const Pell::Ptr<FecTableSwTable const>& swTable)
    : swTable_(swTable) {}

FecTableDataModelEntry FecTableSwTableIteratorState::maybeUpdateCurrentEntry() {
  ZEV_TRACE(iteratorTrace, 9, kIteratorClass, "");
  return Asic::IterStateAccessor<FecTableSwTableIteratorState>(*this).maybeUpdateCurrentEntry();
}

Zev::TypeRecord SwTableEntries_py::typeRecord() { return {kTypeName, {{"tableEntries", 1}}}; }

void SwTableEntries_py::tableEntriesIs(const FecTableDataModelEntry& entry) {
  ZEV_TRACE(snapshotTrace, 9, kSnapshotClass, "key: {}", entry.key);
  tableEntries_.insertOrAssign(entry.key, entry);
}

void SwTableEntries_py::tableEntriesDel(const FecTableDataModelEntryKey& key) {
  tableEntries_.erase(key);
}

void SwTableEntries_py::tableEntriesDelAll() { tableEntries_.clear(); }

}  // namespace LoamFec
