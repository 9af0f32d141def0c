// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/OrderedSwTable.h"
#include "records/FecRecords.h"

namespace LoamFec {

// State of a walk over the entries of one FEC software table.
//
// Ownership: held by the code that walks.
class FecTableDataModelSwTableIteratorState : public Zev::PtrInterface {
 public:
  // Moves to the next entry and returns it; at the end of the walk the default entry, and atEnd()
  // is true from then on.
  virtual FecTableDataModelEntry maybeUpdateCurrentEntry() = 0;

  const FecTableDataModelEntry& currentEntry() const { return currentEntry_; }
  bool atEnd() const { return atEnd_; }

 protected:
  FecTableDataModelEntry currentEntry_;
  bool atEnd_ = false;
};

// Walk over the entries of one FEC software table, in the form of an iterator.
//
// Kind: move-only: there is one walk, and two iterators would move each other. One that has been
// moved from may only be assigned to and destroyed.
class FecTableDataModelEntryIteratorConst {
 public:
  // Starts at the state's next entry.
  explicit FecTableDataModelEntryIteratorConst(
      Pell::Ptr<FecTableDataModelSwTableIteratorState> state);
  FecTableDataModelEntryIteratorConst(FecTableDataModelEntryIteratorConst&&) = default;
  FecTableDataModelEntryIteratorConst& operator=(FecTableDataModelEntryIteratorConst&&) = default;

  explicit operator bool() const { return !state_->atEnd(); }
  const FecTableDataModelEntry& operator*() const { return state_->currentEntry(); }
  const FecTableDataModelEntry* operator->() const { return &state_->currentEntry(); }
  FecTableDataModelEntryIteratorConst& operator++();

 private:
  Pell::Ptr<FecTableDataModelSwTableIteratorState> state_;
};

// Base of FEC software tables: the requests and reads that the framework's clients know.
class FecTableDataModelSwTableBase : public Asic::OrderedSwTable {
 public:
  using Key = FecTableDataModelEntryKey;
  using Entry = FecTableDataModelEntry;
  using Dependency = Pell::Ptr<Asic::DependencyEntryHandle const>;
  using ResponseHandler = Asic::OrderedSwTable::EntryHandle::ResponseHandler;

  // Handle of one queued or logged operation.
  class EntryHandle : public Asic::OrderedSwTable::EntryHandle {
   public:
    // The table is not held, and not looked at after construction.
    EntryHandle(Asic::EntryVersion const& version, Key const& key,
                FecTableDataModelSwTableBase* table);

    const Asic::EntryVersion& version() const { return version_; }
    bool isOfVersion(Asic::EntryVersion const& version) const override {
      return Asic::EntryVersion::isEq(version_, version);
    }
    // The default key for a remove-all.
    const Key& key() const { return key_; }
    FecTableDataModelSwTableBase* table() const { return table_; }

   private:
    Asic::EntryVersion version_;
    Key key_;
    FecTableDataModelSwTableBase* table_;
  };

  // The handle that FEC tables hand out: fixes the type, adds nothing.
  class FecEntryHandle : public Zev::Typed<FecEntryHandle, EntryHandle> {
   public:
    static constexpr const char* kTypeName = "LoamFec::FecTableSwTable::EntryHandle";

    using Typed::Typed;
  };

  // Requests. The dependency is the operation of another table that must be resolved first; null:
  // none. The handler is called with the operation's handle, never inside the request.
  virtual Pell::Ptr<FecEntryHandle const> entryWrite(Key const& key, Entry const& entry,
                                                     Dependency const& dependency) = 0;
  virtual Pell::Ptr<FecEntryHandle const> entryWriteWithResponseHandler(
      Key const& key, Entry const& entry, Dependency const& dependency,
      ResponseHandler const& handler) = 0;
  virtual Pell::Ptr<FecEntryHandle const> entryRemove(Key const& key,
                                                      Dependency const& dependency) = 0;
  virtual Pell::Ptr<FecEntryHandle const> entryRemoveWithResponseHandler(
      Key const& key, Dependency const& dependency, ResponseHandler const& handler) = 0;
  virtual void entryRemoveAll(Dependency const& dependency) = 0;
  virtual void entryRemoveAllWithResponseHandler(Dependency const& dependency,
                                                 ResponseHandler const& handler) = 0;

  // Reads, of the table as it will be once every accepted request has been committed.
  virtual Entry entryRead(Key const& key) const = 0;
  virtual Entry entry(Key const& key) const = 0;
  virtual bool entryHas(Key const& key) const = 0;
  virtual unsigned entrys() const = 0;
  virtual FecTableDataModelEntryIteratorConst entryIteratorConst(Key const& key) const = 0;
  virtual FecTableDataModelEntryIteratorConst entryIteratorConst() const = 0;
  virtual Pell::Ptr<FecTableDataModelSwTableIteratorState> initIterState() const = 0;
  virtual Pell::Ptr<FecTableDataModelSwTableIteratorState> initIterStateFromKey(
      Key const& key) const = 0;

 protected:
  using Asic::OrderedSwTable::OrderedSwTable;
};

}  // namespace LoamFec
