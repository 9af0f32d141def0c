// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Pell/String.h"
#include "folder/Mapping.h"
#include "folder/RootFolder.h"
#include "format/TableView.h"

namespace Glint {

// One mapped table file: its life, its free slots, its counters, and the treatment of damage.
// RowAccess, which knows the size of a row at compile time, changes the rows.
//
// Kind: object, shared by everything in the process that has mounted the file, so that only one
// object decides which slots are free.
// Ownership: holds the mapping and, as writer, the root folder's writer lock.
// Threads: one. Readers in other processes are not part of that: see the protocol in Table.cpp.
// Invariants: as writer, free + live + retired slots = slots in use, and no change is in flight
// between two operations.
class Table {
 public:
  // Creates the file when there is none; finishes what a killed writer left; throws
  // ZevGlint::MountException.
  static std::shared_ptr<Table> mountWriter(const std::shared_ptr<RootFolder>& root,
                                            const Pell::String& fileName,
                                            const TableLayout& layout);
  // The file must exist. A nominal capacity of 0 takes what the file has.
  static std::shared_ptr<Table> mountReader(const std::shared_ptr<RootFolder>& root,
                                            const Pell::String& fileName,
                                            const TableLayout& layout);
  // Makes a file whose slots or index are so damaged that a mount refuses it mountable again, in
  // place: good rows keep their slots, damaged ones are retired and counted, and the index is
  // rebuilt. A scratchpad that cannot be read becomes the larger of the one before it, if that can,
  // and `scratchpadFloor`. Does nothing to a file that a mount accepts, or that does not exist.
  // Throws ZevGlint::MountException: the sealed header must be good and fit the layout.
  static void mend(const std::shared_ptr<RootFolder>& root, const Pell::String& fileName,
                   const TableLayout& layout, std::uint64_t scratchpadFloor);
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  bool isWriter() const { return writerLock_ != nullptr; }
  const Pell::String& filePath() const { return filePath_; }
  const TableView& view() const { return view_; }
  std::uint32_t capacity() const { return view_.fixed().nominalCapacity; }
  // Says how this table differs from the one that a mount with `layout` needs; empty if it does
  // not.
  Pell::String layoutFinding(const TableLayout& layout) const;

  // Rows that exist. A reader uses the count in the header, or counts the rows if that count is
  // damaged.
  std::uint32_t rowCount() const { return isWriter() ? rowCount_ : sharedRowCount(); }
  // Slots that may be looked at. Throws corruption if a reader finds the word damaged.
  std::uint32_t slotsInUse() const { return isWriter() ? slotsInUse_ : sharedSlotsInUse(); }
  std::uint64_t generation() const { return loadAcquire(view_.header().generation); }

  std::uint64_t scratchpad() const;
  void scratchpadIs(std::uint64_t value);

  // --- steps of a writer's change, in the order in which RowAccess takes them

  // A slot that no chain reaches; reserves more of the file when none is free. A table that has no
  // room left stops the process with a text that says so.
  std::uint32_t takeFreeSlot();
  void rowInserted();
  // After the slot has been unlinked: raises the generation, then gives the slot back.
  void rowDeleted(std::uint32_t slot);

  // --- damage

  // Throw Pell::CorruptionDetectedException and remember what must be taken out of use.
  [[noreturn]] void throwDamagedRow(std::uint32_t slot, std::uint64_t keyBits) const;
  [[noreturn]] void throwDamagedSlot(std::uint32_t slot, const char* what) const;
  [[noreturn]] void throwDamagedIndex(std::uint32_t bucket, const char* what) const;
  // Counts the damage that was thrown last. As writer, it takes it out of use: a row's slot is
  // retired, an index is rebuilt from the slots. Never throws.
  void corruptionDetected() noexcept;
  std::uint64_t corruptionCount() const;

 private:
  enum class Suspect : std::uint8_t { none, slot, index };

  Table(Mapping mapping, const FixedHeader& sealed, Pell::String filePath);

  static std::shared_ptr<Table> map(const RootFolder::File& file, const Pell::String& path,
                                    const TableLayout& layout, Mapping::Access access);
  void recover();
  void mendStructure(std::uint64_t scratchpadFloor);
  void mendScratchpad(std::uint64_t floor);
  std::uint32_t findSlotsInUse() const;
  int reserveChunk();
  void retire(std::uint32_t slot);
  void unlinkWherever(std::uint32_t slot);
  void unlink(std::uint32_t slot, std::uint32_t& word);
  void rebuildIndex();
  void relinkOrRetire(std::uint32_t slot, Seq seq);
  bool relink(std::uint32_t slot, Seq seq);
  void countCorruption(std::uint32_t times);
  std::uint32_t sharedSlotsInUse() const;
  std::uint32_t sharedRowCount() const;
  std::uint32_t countLiveSlots() const;
  void generationIs(std::uint64_t generation);
  [[noreturn]] void throwDamaged(Suspect suspect, std::uint32_t slot,
                                 const Pell::String& what) const;

  TableView view_;
  Pell::String filePath_;

  // As writer only: copies of the shared words, kept where no other process can damage them.
  std::shared_ptr<WriterLock> writerLock_;
  UniqueFd file_;
  std::vector<std::uint32_t> freeSlots_;
  std::uint32_t slotsInUse_ = 0;
  std::uint32_t rowCount_ = 0;
  std::uint64_t generation_ = 0;
  std::uint64_t scratchpad_ = 0;

  std::uint64_t readerCorruptionCount_ = 0;  // what this reader has met; it cannot write
  mutable Suspect suspect_ = Suspect::none;
  mutable std::uint32_t suspectSlot_ = 0;

  Mapping mapping_;  // goes before the lock that allows to write to it
};

}  // namespace Glint
