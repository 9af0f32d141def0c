// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/ResolverEntry.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "records/FecTableDataModelSwTableBase.h"

namespace LoamFec {

class FecTableSwTable;

// One request on its way through the resolver: the entry, the requester's handle and, once the
// interface has been resolved, the resource that gives the hardware destination.
//
// Ownership: held by the table's transient maps while it is the newest of its key, and by its
// resolver entry until that is committed.
// Threads: the event loop's.
class FecTableEntryWrapper : public Zev::Typed<FecTableEntryWrapper> {
 public:
  using Ptr = Pell::Ptr<FecTableEntryWrapper>;
  using ResourceHandle = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ResourceHandle;

  static constexpr const char* kTypeName = "LoamFec::FecTableEntryWrapper";

  // Hardware destination as the wrapper gives it: three 32-bit fields, the second one of a 16-bit
  // value.
  struct DestId {
    std::uint32_t first;
    std::uint32_t second;
    std::uint32_t third;
    friend constexpr bool operator==(const DestId&, const DestId&) = default;
  };

  FecTableEntryWrapper(const FecTableDataModelEntry& entry,
                       const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle);
  static Ptr FecTableEntryWrapperIs(
      const FecTableDataModelEntry& entry,
      const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle) {
    return Zev::makeObject<FecTableEntryWrapper>(entry, entryHandle);
  }

  static Zev::TypeRecord typeRecord();

  const FecTableDataModelEntry& entry() const { return entry_; }
  void entryIs(const FecTableDataModelEntry& entry) { entry_ = entry; }
  const FecTableDataModelEntryKey& key() const { return entry_.key; }
  const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle() const { return entryHandle_; }

  // Null until the linkage installs it, and for an entry that needs no destination.
  const Pell::Ptr<ResourceHandle const>& intfIdResPtr() const { return intfIdResPtr_; }
  void intfIdResPtrIs(Pell::Ptr<ResourceHandle const> handle) { intfIdResPtr_ = std::move(handle); }

  // The resource's destination; without a resource the unset value (0xFFFF, 0, 0).
  DestId destId() const;
  // Stores destId() as the entry's resolved destination; the client's fields stay.
  void setResolvedFields();

  // Called by the commit-to-log check, before anything is logged. On success the resolved fields
  // are set, unless isDeleted, and the platform helper is told. On failure the helper decides
  // whether the entry is still logged.
  void finalizeOnSuccess(const Pell::Ptr<FecTableSwTable>& swTable, bool isDeleted);
  bool finalizeOnFailure(const Pell::Ptr<FecTableSwTable>& swTable, bool isDeleted);

  // An FEC entry carries no client data beside its fields: does nothing.
  void retrieveClientData() {}

 private:
  FecTableDataModelEntry entry_;
  Pell::Ptr<Asic::OrderedSwTable::EntryHandle> entryHandle_;
  Pell::Ptr<ResourceHandle const> intfIdResPtr_;
};

inline Pell::Ptr<FecTableEntryWrapper> fecTableEntryWrapperFactory(
    const FecTableDataModelEntry& entry,
    const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle) {
  return FecTableEntryWrapper::FecTableEntryWrapperIs(entry, entryHandle);
}

// The entry of one request in the group resolver's queue: its wrapper, its table and its
// dependency.
//
// Ownership: held by the queue; holds wrapper and dependency. The table is not held: one that ends
// takes its entries out of the queue.
class FecTableResolverEntry : public Zev::Typed<FecTableResolverEntry, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableResolverEntry";

  FecTableResolverEntry(const Pell::Ptr<Asic::DependencyEntryHandle const>& dependantEntryHandle,
                        Asic::EntryFlags flags, FecTableSwTable* swTable,
                        const Pell::Ptr<FecTableEntryWrapper>& swTableEntry);
  static Pell::Ptr<FecTableResolverEntry> FecTableResolverEntryIs(
      const Pell::Ptr<Asic::DependencyEntryHandle const>& dependantEntryHandle,
      Asic::EntryFlags flags, FecTableSwTable* swTable,
      const Pell::Ptr<FecTableEntryWrapper>& swTableEntry) {
    return Zev::makeObject<FecTableResolverEntry>(dependantEntryHandle, flags, swTable,
                                                  swTableEntry);
  }

  static Zev::TypeRecord typeRecord();
  bool isResolved() override;
  void commitEntry(const Pell::Ptr<Asic::ResolverEntry>& resolverEntry) override;

  FecTableSwTable* swTable() const { return swTable_; }
  const Pell::Ptr<FecTableEntryWrapper>& swTableEntry() const { return swTableEntry_; }

 private:
  FecTableSwTable* swTable_;
  Pell::Ptr<FecTableEntryWrapper> swTableEntry_;
};

inline Pell::Ptr<FecTableResolverEntry> fecTableResolverEntryFactory(
    const Pell::Ptr<Asic::DependencyEntryHandle const>& dependantEntryHandle,
    Asic::EntryFlags flags, FecTableSwTable* swTable,
    const Pell::Ptr<FecTableEntryWrapper>& swTableEntry) {
  return FecTableResolverEntry::FecTableResolverEntryIs(dependantEntryHandle, flags, swTable,
                                                        swTableEntry);
}

// Hooks of the hardware platform. A platform derives from this class and overrides the hooks that
// it needs; an instance of the class itself does nothing.
//
// Ownership: each software table holds exactly one helper.
// Threads: the event loop's. The first two are called inside a commit, before the entry is logged:
// they may make requests, which wait for a later turn. A hook that throws there refuses the write:
// it is answered as failed, and the exception then passes on to the event loop.
class FecTableSwTableHelperBase : public Zev::Typed<FecTableSwTableHelperBase> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableSwTableHelperBase";

  static Pell::Ptr<FecTableSwTableHelperBase> FecTableSwTableHelperBaseIs() {
    return Zev::makeObject<FecTableSwTableHelperBase>();
  }

  static Zev::TypeRecord typeRecord();

  // A write is about to be logged. isDelete is always false: removes have no hook.
  virtual void finalizeOnSuccess(Pell::Ptr<FecTableEntryWrapper> const& entry, bool isDelete);
  // The resource of a write has failed. True: log it with the destination fields as they are; false
  // (the default): the write fails.
  virtual bool finalizeOnFailure(Pell::Ptr<FecTableEntryWrapper> const& entry, bool isDelete,
                                 Pell::Ptr<FecTableSwTable> const& swTable);
  // Offered to the platform, which calls the next two itself: a resource of the entry has changed
  // (true by default), and the hardware has reported an error for the entry.
  virtual bool finalizeOnResourceUpdate(Pell::Ptr<FecTableEntryWrapper> const& entry,
                                        Pell::Ptr<FecTableSwTable> const& swTable,
                                        bool someResourceHasFailed);
  virtual void handleHwError(Pell::Ptr<FecTableEntryWrapper> const& entry, unsigned int errorCode);
};

inline Pell::Ptr<FecTableSwTableHelperBase> fecTableSwTableHelperBaseFactory() {
  return FecTableSwTableHelperBase::FecTableSwTableHelperBaseIs();
}

}  // namespace LoamFec
