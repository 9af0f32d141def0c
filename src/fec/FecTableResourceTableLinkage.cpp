// SPDX-License-Identifier: Apache-2.0

// The linkage's own operations hold the wrapper they are given and forward to the generic steps of
// the resource accessor, which stand below them. The commit of the software table calls check and
// usage; the resource table's notifications call the change handling, which drives entries again
// through the software table.

#include "fec/FecTableResourceTableLinkage.h"

#include <utility>

#include "Pell/Assert.h"
#include "Zev/FirstException.h"
#include "Zev/Trace.h"
#include "fec/FecTableEntryLog.h"
#include "fec/FecTableSwTable.h"

namespace LoamFec {

namespace {

constexpr const char* kUsageClass = "LocalUsageUpdateSm";

Zev::TraceHandle& usageTrace = Zev::traceHandle(kUsageClass);

}  // namespace

using LocalUsageUpdateSm = FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm;
using Accessor = Asic::SwTableResourceAccessor<FecTableIntfIdToDestIdLinkage>;

// Usage record.

LocalUsageUpdateSm::LocalUsageUpdateSm(const Pell::Ptr<ResourceHandle const>& resourceHandle,
                                       FecTableIntfIdToDestIdLinkage* parent)
    : resourceHandle_(resourceHandle),
      resPtr_(*this,
              [this](Pell::Publisher* publisher, Pell::Subscriber* subscriber, short attributeId,
                     const void* element, const void* oldValue) {
                resPtrDispatch(publisher, subscriber, attributeId, element, oldValue);
              }),
      parent_(parent) {
  if (resourceHandle_ && !subscribed_) {
    resourceHandle_->publisher().subscriberAdd(resPtr_);
    subscribed_ = true;
  }
}

LocalUsageUpdateSm::~LocalUsageUpdateSm() {
  zevDoZombieReactors(true);
  if (subscribed_) {
    resourceHandle_->publisher().subscriberRemove(resPtr_);
  }
  entryUsage_.clear();
  resourceHandle_ = nullptr;
}

Zev::TypeRecord LocalUsageUpdateSm::typeRecord() {
  return {
      kTypeName,
      {{"resourceHandle", 1}, {"resPtr", 2}, {"parent", 3}, {"entryUsage", kEntryUsageAttribute}}};
}

void LocalUsageUpdateSm::entryUsageIs(const FecTableDataModelEntryKey& key) {
  const FecTableDataModelEntryKey added = key;
  if (entryUsage_.insertOrAssign(added, true)) {
    publisher().attributeElementChange(kEntryUsageAttribute, &added);
  }
}

void LocalUsageUpdateSm::entryUsageDel(const FecTableDataModelEntryKey& key) {
  const FecTableDataModelEntryKey removed = key;
  if (entryUsage_.erase(removed)) {
    publisher().attributeElementChange(kEntryUsageAttribute, &removed);
  }
}

void LocalUsageUpdateSm::entryUsageDelAll() {
  const Pell::Ptr<LocalUsageUpdateSm> self(this);
  if (publisher().idle()) {
    entryUsage_.clear();
  } else {
    entryUsage_.forEach([this](const FecTableDataModelEntryKey& key, bool) { entryUsageDel(key); });
  }
}

void LocalUsageUpdateSm::resPtrDispatch(Pell::Publisher* /*publisher*/,
                                        Pell::Subscriber* /*subscriber*/, short attributeId,
                                        const void* /*element*/, const void* /*oldValue*/) {
  ZEV_TRACE(usageTrace, 8, kUsageClass, "resKey: {}, attributeId: {}", key(), attributeId);
  if (attributeId == ResourceHandle::kChangeAttribute && !isBeingDestroyed()) {
    handleResourceChange();
  }
}

void LocalUsageUpdateSm::handleResourceChange() {
  const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage(parent_);
  linkage->handleResourceChange(Pell::Ptr<LocalUsageUpdateSm>(this));
}

// Linkage.

FecTableIntfIdToDestIdLinkage::FecTableIntfIdToDestIdLinkage(
    FecTableSwTable* swTable, const Pell::Ptr<ClientInstance>& resTblClient)
    : swTable_(swTable), resTblClient_(resTblClient) {}

FecTableIntfIdToDestIdLinkage::~FecTableIntfIdToDestIdLinkage() { end(); }

// The client may outlive the linkage.
void FecTableIntfIdToDestIdLinkage::end() {
  entryUsageSmDelAll();
  if (resTblClient_) {
    resTblClient_->end();
  }
}

Zev::TypeRecord FecTableIntfIdToDestIdLinkage::typeRecord() {
  return {kTypeName,
          {{"swTable", 1},
           {"resTblClient", 2},
           {"entryUsageSm", kEntryUsageSmAttribute},
           {"resolvesEntries", 4}}};
}

void FecTableIntfIdToDestIdLinkage::resolveEntry(const Pell::Ptr<FecTableEntryWrapper>& entry) {
  const Pell::Ptr<FecTableEntryWrapper> held = entry;
  Accessor(*this).resolveEntry(held);
}

void FecTableIntfIdToDestIdLinkage::setResourceHandle(
    const Pell::Ptr<FecTableEntryWrapper>& entry) {
  const Pell::Ptr<FecTableEntryWrapper> held = entry;
  Accessor(*this).setResourceHandle(held);
}

FecTableIntfIdToDestIdLinkage::EntryState FecTableIntfIdToDestIdLinkage::entryResolutionState(
    const Pell::Ptr<FecTableEntryWrapper const>& entry) const {
  const Pell::Ptr<FecTableEntryWrapper const> held = entry;
  return Accessor::entryResolutionState(held);
}

Pell::Ptr<Asic::NeededEntry> FecTableIntfIdToDestIdLinkage::getNeededEntrySet(
    const Pell::Ptr<FecTableEntryWrapper const>& entry) const {
  const Pell::Ptr<FecTableEntryWrapper const> held = entry;
  return Accessor::getNeededEntrySet(held);
}

Pell::Ptr<LocalUsageUpdateSm> FecTableIntfIdToDestIdLinkage::entryUsageSm(
    const ResourceKey& key) const {
  const auto* held = entryUsageSm_.find(key);
  return held == nullptr ? nullptr : *held;
}

Pell::Ptr<LocalUsageUpdateSm> FecTableIntfIdToDestIdLinkage::entryUsageSmIs(
    const Pell::Ptr<ResourceHandle const>& handle) {
  const ResourceKey key = handle ? handle->key() : ResourceKey();
  if (Pell::Ptr<LocalUsageUpdateSm> held = entryUsageSm(key)) {
    return held;
  }
  Pell::Ptr<LocalUsageUpdateSm> made = LocalUsageUpdateSm::LocalUsageUpdateSmIs(handle, this);
  entryUsageSm_.insertOrAssign(key, made);
  publisher().attributeElementChange(kEntryUsageSmAttribute, &key);
  return made;
}

Pell::Ptr<LocalUsageUpdateSm> FecTableIntfIdToDestIdLinkage::entryUsageSmDel(
    const ResourceKey& key) {
  const ResourceKey removedKey = key;
  Pell::Ptr<LocalUsageUpdateSm> removed = entryUsageSm_.take(removedKey).value_or(nullptr);
  if (removed) {
    publisher().attributeElementChange(kEntryUsageSmAttribute, &removedKey);
    removed->hasNotificationActiveIs(false);
  }
  return removed;
}

void FecTableIntfIdToDestIdLinkage::entryUsageSmDelAll() {
  forEachUsage(
      [this](const Pell::Ptr<LocalUsageUpdateSm>& record) { entryUsageSmDel(record->key()); });
}

void FecTableIntfIdToDestIdLinkage::updateLocalUsage(const Pell::Ptr<FecTableEntryWrapper>& entry,
                                                     bool isDeleted) {
  const Pell::Ptr<FecTableEntryWrapper> held = entry;
  Accessor(*this).updateLocalUsage(held, isDeleted);
}

bool FecTableIntfIdToDestIdLinkage::checkCommitToLog(const Pell::Ptr<FecTableEntryWrapper>& entry,
                                                     bool isDeleted) {
  const Pell::Ptr<FecTableEntryWrapper> held = entry;
  return Accessor(*this).checkCommitToLog(held, isDeleted);
}

void FecTableIntfIdToDestIdLinkage::restoreEntry(const Pell::Ptr<FecTableEntryWrapper>& entry) {
  const Pell::Ptr<FecTableEntryWrapper> held = entry;
  Accessor(*this).restoreEntry(held);
}

void FecTableIntfIdToDestIdLinkage::handleResourceChangeAtInit() {
  Accessor(*this).handleResourceChangeAtInit();
}

void FecTableIntfIdToDestIdLinkage::handleResourceChange(
    const Pell::Ptr<LocalUsageUpdateSm>& record) {
  Accessor(*this).handleResourceChange(record);
}

}  // namespace LoamFec

namespace Asic {

namespace {

constexpr const char* kClass = "FecTableIntfIdToDestIdLinkage";

// A change looks each user's row up: those of the next few are fetched meanwhile.
constexpr std::uint32_t kFetchedAhead = 4;

Zev::TraceHandle& defaultTrace() {
  static Zev::TraceHandle& handle = Zev::traceHandle(kClass);
  return handle;
}

}  // namespace

// Resolution.

template <typename Linkage>
typename SwTableResourceAccessor<Linkage>::ResourceKey
SwTableResourceAccessor<Linkage>::resourceKeyFromEntry(const Pell::Ptr<Wrapper const>& entry) {
  return entry ? ResourceKey(entry->entry().intfId) : ResourceKey();
}

template <typename Linkage>
EntryState SwTableResourceAccessor<Linkage>::entryResolutionState(
    const Pell::Ptr<Wrapper const>& entry) {
  if (!entry || !entry->intfIdResPtr()) {
    return EntryState::done;
  }
  const EntryState state = entry->intfIdResPtr()->entryState();
  switch (state) {
    case EntryState::notResolved:
    case EntryState::hwWritePending:
      return EntryState::notResolved;
    case EntryState::done:
      return EntryState::done;
    case EntryState::dependencyFailed:
    case EntryState::commitFailed:
    case EntryState::resourceFailed:
      return EntryState::resourceFailed;
  }
  PELL_ASSERT(false, "false && \"Unhandled resHandle entryState\"");
  return state;
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::resolveEntry(const Pell::Ptr<Wrapper>& entry) const {
  const ResourceKey key = resourceKeyFromEntry(entry);
  if (!key.isNull()) {
    entry->intfIdResPtrIs(linkage_.resTblClient()->request(key, nullptr));
  }
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::setResourceHandle(const Pell::Ptr<Wrapper>& entry) const {
  const ResourceKey key = resourceKeyFromEntry(entry);
  if (const Pell::Ptr<Record> record = linkage_.entryUsageSm(key)) {
    entry->intfIdResPtrIs(record->resourceHandle());
  }
}

template <typename Linkage>
Pell::Ptr<NeededEntry> SwTableResourceAccessor<Linkage>::getNeededEntrySet(
    const Pell::Ptr<Wrapper const>& entry) {
  Pell::Ptr<NeededEntry> needed = Zev::makeObject<NeededEntry>();
  if (!entry || !entry->intfIdResPtr()) {
    return needed;
  }
  needed->merge(entry->intfIdResPtr()->neededEntry());
  for (const TableVersion& version : needed->tableVersions()) {
    ZEV_TRACE(defaultTrace(), 9, kClass, "neededVersion: {}", version);
  }
  return needed;
}

// Usage.

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::addResKeyMapping(const ResourceKey& resKey,
                                                        const Pell::Ptr<Wrapper>& entry,
                                                        bool ack) const {
  ZEV_TRACE(defaultTrace(), 8, kClass, "resKey: {}, swKey: {}", resKey, entry->key());
  if (resKey.isNull()) {
    ZEV_TRACE(defaultTrace(), 3, kClass, "Null resKey: {}", resKey);
    return;
  }
  if (!linkage_.entryUsageSm(resKey)) {
    const Pell::Ptr<Record> made = linkage_.entryUsageSmIs(entry->intfIdResPtr());
    if (ack && linkage_.resTblClient() && made->resourceHandle()) {
      linkage_.resTblClient()->ackUpdate(made->resourceHandle(),
                                         made->resourceHandle()->updateNumber(), nullptr);
    }
  }
  const Pell::Ptr<Record> record = linkage_.entryUsageSm(resKey);
  PELL_ASSERT_MESSAGE(record, "record",
                      fmt::format("the resource table's handle is not that of {}", resKey));
  record->entryUsageIs(entry->key());
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::deleteResKeyMapping(
    const ResourceKey& resKey, const Key& swKey,
    const Pell::Ptr<OrderedSwTable::EntryHandle>& entryHandle) const {
  ZEV_TRACE(defaultTrace(), 8, kClass, "resKey: {}, swKey: {}", resKey, swKey);
  const Pell::Ptr<Record> record = linkage_.entryUsageSm(resKey);
  if (!record) {
    return;
  }
  record->entryUsageDel(swKey);
  if (record->entryUsage().empty()) {
    linkage_.resTblClient()->release(record->resourceHandle(), entryHandle);
    linkage_.entryUsageSmDel(resKey);
  }
}

// The configuration table still holds the previous entry: the new one is logged after this.
template <typename Linkage>
void SwTableResourceAccessor<Linkage>::updateLocalUsage(const Pell::Ptr<Wrapper>& entry,
                                                        bool isDeleted) const {
  const Key key = entry->key();
  const LoamFec::FecTableSwTable& swTable = *linkage_.swTable();
  const UnitId unit = swTable.unitId();
  ZEV_TRACE(defaultTrace(), 8, kClass, "key: {}", key);
  const auto& log = *swTable.entryLog();
  if (isDeleted) {
    if (log.entryHas(key, unit)) {
      const ResourceKey old(swTable.entryFromConfig(key).intfId);
      deleteResKeyMapping(old, key, entry->entryHandle());
    }
    return;
  }
  const ResourceKey wanted = resourceKeyFromEntry(entry);
  const auto committed = log.look(key, unit);
  if (committed.entryHas()) {
    const ResourceKey old(committed.entryRsrcKeys().intfId);
    if (old == wanted) {
      return;
    }
    deleteResKeyMapping(old, key, entry->entryHandle());
  }
  addResKeyMapping(wanted, entry, true);
}

// Commit and change.

template <typename Linkage>
bool SwTableResourceAccessor<Linkage>::checkCommitToLog(const Pell::Ptr<Wrapper>& entry,
                                                        bool isDeleted) const {
  const EntryState resState = entryResolutionState(entry);
  ZEV_TRACE(defaultTrace(), 8, kClass, " Entry: {}, isDeleted:{}, resourceState: {}", entry->key(),
            isDeleted, resState);
  const Pell::Ptr<LoamFec::FecTableSwTable> swTable(linkage_.swTable());
  if (resState == EntryState::resourceFailed) {
    return entry->finalizeOnFailure(swTable, isDeleted);
  }
  PELL_ASSERT_MESSAGE(resState == SwTableBase::success(),
                      "resState == Asic::SwTableBase::success()",
                      fmt::format("Invalid resState: {}", resState));
  entry->finalizeOnSuccess(swTable, isDeleted);
  return true;
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::handleResourceChange(const Pell::Ptr<Record>& record) const {
  ZEV_TRACE(defaultTrace(), 8, kClass, "");
  const Pell::Ptr<Record> held = record;
  const Pell::Ptr<LoamFec::FecTableSwTable> swTable(linkage_.swTable());
  Pell::Ptr<DependencyEntryHandle const> dependency;
  const auto& users = held->entryUsage();
  Zev::FirstException first;
  for (auto at = users.begin(); users.within(at); at = users.next(at)) {
    if (const auto* soon = users.elementAt(at + kFetchedAhead)) {
      swTable->entryLog()->fetchAhead(soon->key, swTable->unitId());
    }
    const Key key = users.elementAt(at)->key;
    ZEV_TRACE(defaultTrace(), 3, kClass, "Updating sw table entry for key: ", key);
    first.from([&] {
      if (const auto handle = swTable->updateEntry(key)) {
        dependency = handle;
      }
    });
  }
  linkage_.resTblClient()->ackUpdate(held->resourceHandle(), held->resourceHandle()->updateNumber(),
                                     dependency);
  first.rethrow();
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::handleResourceChangeAtInit() const {
  linkage_.forEachUsage([this](const Pell::Ptr<Record>& record) { handleResourceChange(record); });
}

template <typename Linkage>
void SwTableResourceAccessor<Linkage>::restoreEntry(const Pell::Ptr<Wrapper>& entry) const {
  const ResourceKey resKey = resourceKeyFromEntry(entry);
  if (!resKey.isNull()) {
    addResKeyMapping(resKey, entry, false);
  }
}

}  // namespace Asic
