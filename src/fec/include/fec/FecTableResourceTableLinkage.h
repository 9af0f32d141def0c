// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "Pell/HashMap.h"
#include "fec/FecTableInfraTypes.h"

namespace LoamFec {

class FecTableSwTable;

// Links the entries of one software table to the interface-to-destination resource table: requests
// the destination of each entry's interface, says in which state that leaves the entry, keeps track
// of which entries use which destination, and has them driven again when it changes.
//
// Ownership: held by its table; holds its client of the resource table and one usage record for
// each resource in use. Destroying it drops the records and releases nothing: committed entries go
// on using their destinations.
// Threads: the event loop's. Changes of a resource arrive in turns of their own.
// Invariants: the usage records mirror what is committed, never what is queued.
class FecTableIntfIdToDestIdLinkage
    : public Zev::Typed<FecTableIntfIdToDestIdLinkage, Zev::NotifyingObject> {
 public:
  using ResourceTable = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable;
  using ResourceHandle = ResourceTable::ResourceHandle;
  using ClientInstance = ResourceTable::ClientInstance;
  using ResourceKey = LoamAdjLib::IntfIdToDestIdResourceTableEntryKey;
  using EntryState = Asic::SwTableBase::EntryState;

  static constexpr const char* kTypeName = "LoamFec::FecTableIntfIdToDestIdLinkage";
  // Published, with the key (a ResourceKey) as element, when a usage record is filed or removed.
  static constexpr short kEntryUsageSmAttribute = 139;
  static constexpr std::uint32_t kEntryUsageSmSalt = 0x94914ce4;

  // The FEC entries that use one resource, and the subscription to its changes.
  //
  // Ownership: held by the linkage while an entry uses the resource, and by code that has removed
  // it.
  // Invariants: filed in the linkage under its handle's key (the null key without a handle), and,
  // outside the linkage's own steps, exactly while an entry uses it. Hears nothing once its
  // notifications are off.
  class LocalUsageUpdateSm : public Zev::Typed<LocalUsageUpdateSm, Zev::NotifyingObject> {
   public:
    static constexpr const char* kTypeName =
        "LoamFec::FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm";
    // Published, with the FEC key as element, when a user comes or goes.
    static constexpr short kEntryUsageAttribute = 4;
    using Keys = Pell::HashMap<FecTableDataModelEntryKey, bool, FecKeyHash<0x3d90a7e2>>;

    // A null handle: a record that hears of no changes. The parent is not held.
    LocalUsageUpdateSm(const Pell::Ptr<ResourceHandle const>& resourceHandle,
                       FecTableIntfIdToDestIdLinkage* parent);
    static Pell::Ptr<LocalUsageUpdateSm> LocalUsageUpdateSmIs(
        const Pell::Ptr<ResourceHandle const>& resourceHandle,
        FecTableIntfIdToDestIdLinkage* parent) {
      return Zev::makeObject<LocalUsageUpdateSm>(resourceHandle, parent);
    }

    static Zev::TypeRecord typeRecord();
    ~LocalUsageUpdateSm() override;

    const Pell::Ptr<ResourceHandle const>& resourceHandle() const { return resourceHandle_; }
    ResourceKey key() const { return resourceHandle_ ? resourceHandle_->key() : ResourceKey(); }

    const Keys& entryUsage() const { return entryUsage_; }
    // Adding a key that is there, or removing one that is not, changes nothing.
    void entryUsageIs(const FecTableDataModelEntryKey& key);
    void entryUsageDel(const FecTableDataModelEntryKey& key);
    void entryUsageDelAll();
    bool entryUsageHas(const FecTableDataModelEntryKey& key) const { return entryUsage_.has(key); }

    // The handle's change notification: drives the entries again for the handle's change
    // attribute, ignores every other, and everything while this record is being destroyed.
    void resPtrDispatch(Pell::Publisher* publisher, Pell::Subscriber* subscriber, short attributeId,
                        const void* element, const void* oldValue);
    void handleResourceChange();

   private:
    Pell::Ptr<ResourceHandle const> resourceHandle_;
    Zev::Reactor resPtr_;
    bool subscribed_ = false;
    FecTableIntfIdToDestIdLinkage* parent_;
    Keys entryUsage_;
  };

  // The table is not held.
  FecTableIntfIdToDestIdLinkage(FecTableSwTable* swTable,
                                const Pell::Ptr<ClientInstance>& resTblClient);

  static Zev::TypeRecord typeRecord();
  ~FecTableIntfIdToDestIdLinkage() override;

  FecTableSwTable* swTable() const { return swTable_; }
  const Pell::Ptr<ClientInstance>& resTblClient() const { return resTblClient_; }
  // True from construction on; nothing depends on it.
  bool resolvesEntries() const { return resolvesEntries_; }

  // Resolution.

  // Requests the resource of the entry's interface and stores its handle in the wrapper; does
  // nothing for the null interface.
  void resolveEntry(const Pell::Ptr<FecTableEntryWrapper>& entry);
  // Stores the handle that the usage record of the entry's interface holds; without a record the
  // wrapper stays as it is. Never asks the resource table.
  void setResourceHandle(const Pell::Ptr<FecTableEntryWrapper>& entry);
  // 0 not yet resolved, 3 success (also: no resource needed, null wrapper), 5 failure. A handle in
  // any state beyond 5 stops the process.
  EntryState entryResolutionState(const Pell::Ptr<FecTableEntryWrapper const>& entry) const;
  // The versions that the entry's destination needs; never null, empty without a handle.
  Pell::Ptr<Asic::NeededEntry> getNeededEntrySet(
      const Pell::Ptr<FecTableEntryWrapper const>& entry) const;

  // Usage records.

  // Null when the key has none.
  Pell::Ptr<LocalUsageUpdateSm> entryUsageSm(const ResourceKey& key) const;
  // The record filed under the handle's key, made when there is none.
  Pell::Ptr<LocalUsageUpdateSm> entryUsageSmIs(const Pell::Ptr<ResourceHandle const>& handle);
  // Removes the record, turns its notifications off and returns it; null when the key has none.
  Pell::Ptr<LocalUsageUpdateSm> entryUsageSmDel(const ResourceKey& key);
  // Removes every record; releases nothing to the resource table.
  void entryUsageSmDelAll();
  std::uint32_t entryUsageSms() const { return entryUsageSm_.size(); }
  // Calls visit(record) for each; visit may file and remove records.
  template <typename Visit>
  void forEachUsage(Visit&& visit) const {
    entryUsageSm_.forEach([&](const ResourceKey&, const Pell::Ptr<LocalUsageUpdateSm>& record) {
      visit(Pell::Ptr<LocalUsageUpdateSm>(record));
    });
  }

  // Called once for each write and delete that is being committed, before it is logged: moves the
  // entry from the resource that is committed for it to the one it wants now.
  void updateLocalUsage(const Pell::Ptr<FecTableEntryWrapper>& entry, bool isDeleted);

  // Commit and change.

  // Whether the operation may be logged, after the wrapper has been finalised for its resource's
  // state. An unresolved resource stops the process.
  bool checkCommitToLog(const Pell::Ptr<FecTableEntryWrapper>& entry, bool isDeleted);
  // Files the usage of one entry found at a restart; acknowledges nothing.
  void restoreEntry(const Pell::Ptr<FecTableEntryWrapper>& entry);
  // Handles every resource in use as changed once.
  void handleResourceChangeAtInit();
  // Drives every entry that uses the record's resource again, then acknowledges its update. An
  // exception of one of them (if the log has no room, for instance) holds back neither the others
  // nor the acknowledgement, and is passed on after them.
  void handleResourceChange(const Pell::Ptr<LocalUsageUpdateSm>& record);

  // Removes every usage record and ends the client's uses; releases nothing. No change of a
  // resource reaches the table's entries any more.
  void end();

 private:
  FecTableSwTable* swTable_;
  Pell::Ptr<ClientInstance> resTblClient_;
  Pell::HashMap<ResourceKey, Pell::Ptr<LocalUsageUpdateSm>,
                LoamAdjLib::ResourceKeyHash<kEntryUsageSmSalt>>
      entryUsageSm_;
  bool resolvesEntries_ = true;
};

// Allocates, constructs and marks notification-active.
inline Pell::Ptr<FecTableIntfIdToDestIdLinkage> fecTableIntfIdToDestIdLinkageFactory(
    FecTableSwTable* swTable,
    const Pell::Ptr<FecTableIntfIdToDestIdLinkage::ClientInstance>& resTblClient) {
  return Zev::makeObject<FecTableIntfIdToDestIdLinkage>(swTable, resTblClient);
}
inline Pell::Ptr<FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm> localUsageUpdateSmFactory(
    const Pell::Ptr<FecTableIntfIdToDestIdLinkage::ResourceHandle const>& resourceHandle,
    FecTableIntfIdToDestIdLinkage* parent) {
  return FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm::LocalUsageUpdateSmIs(resourceHandle,
                                                                                 parent);
}

}  // namespace LoamFec

namespace Asic {

// The generic steps by which a linkage works, run on one linkage of one software table.
//
// Kind: a view made for one call; refers to the linkage.
template <typename Linkage>
class SwTableResourceAccessor {
 public:
  using ResourceKey = typename Linkage::ResourceKey;
  using ResourceHandle = typename Linkage::ResourceHandle;
  using Wrapper = LoamFec::FecTableEntryWrapper;
  using Key = LoamFec::FecTableDataModelEntryKey;
  using Record = typename Linkage::LocalUsageUpdateSm;

  explicit SwTableResourceAccessor(Linkage& linkage) : linkage_(linkage) {}

  // The key of the entry's interface; the null key for a null wrapper.
  static ResourceKey resourceKeyFromEntry(const Pell::Ptr<Wrapper const>& entry);
  // The handle's state folded onto 0, 3 and 5.
  static EntryState entryResolutionState(const Pell::Ptr<Wrapper const>& entry);

  void resolveEntry(const Pell::Ptr<Wrapper>& entry) const;
  void setResourceHandle(const Pell::Ptr<Wrapper>& entry) const;
  static Pell::Ptr<NeededEntry> getNeededEntrySet(const Pell::Ptr<Wrapper const>& entry);
  void addResKeyMapping(const ResourceKey& resKey, const Pell::Ptr<Wrapper>& entry, bool ack) const;
  void deleteResKeyMapping(const ResourceKey& resKey, const Key& swKey,
                           const Pell::Ptr<OrderedSwTable::EntryHandle>& entryHandle) const;
  void updateLocalUsage(const Pell::Ptr<Wrapper>& entry, bool isDeleted) const;
  bool checkCommitToLog(const Pell::Ptr<Wrapper>& entry, bool isDeleted) const;
  void handleResourceChange(const Pell::Ptr<Record>& record) const;
  void handleResourceChangeAtInit() const;
  void restoreEntry(const Pell::Ptr<Wrapper>& entry) const;

 private:
  Linkage& linkage_;
};

}  // namespace Asic
