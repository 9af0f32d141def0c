// SPDX-License-Identifier: Apache-2.0

// One table file in memory. The protocol, which RowAccess.h carries out row by row:
//
//   A row exists if and only if its slot's seq says live, and every change takes effect at the one
//   64-bit store of that seq. Chains are an index over the slots, kept so that a live slot is
//   always reachable from exactly its key's bucket.
//
//     insert   fill the idle copy, link the slot, set seq live
//     update   fill the idle copy, set seq to it
//     delete   set seq dead, unlink the slot, raise the generation; then the slot may be reused
//
//   A kill leaves a prefix of these stores: at most one slot reachable but dead, which the next
//   mount unlinks. A reader checks a hit against seq and a miss against the generation.
//
// This file has what is not about one row: creation and mount, the free slots, the counters, the
// scratchpad, and what is done about damage. A damaged row's slot is retired: it leaves the index
// and is never used again, but its bytes stay for an inspection. A damaged index is rebuilt from
// the slots; meanwhile the generation is odd and readers scan the slots instead.

#include "table/Table.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "Glint/MountInfo.h"
#include "Pell/Assert.h"
#include "Pell/Exceptions.h"
#include "Zev/Trace.h"
#include "format/Scratchpad.h"
#include "table/Inspection.h"

namespace Glint {

namespace {

constexpr int kScratchpadAttempts = 1000;

constexpr const char* kClass = "GlintTable";

Zev::TraceHandle& tableTraceHandle() {
  static Zev::TraceHandle& handle = Zev::traceHandle(kClass);
  return handle;
}

[[noreturn]] void refuse(const Pell::String& path, const Pell::String& what,
                         const char* remedy =
                             "remove the file to begin with an empty table, or "
                             "choose another state folder") {
  throw ZevGlint::MountException(fmt::format("{}: {}; {}", path, what, remedy));
}

int reserve(int fd, std::uint64_t offset, std::uint64_t bytes) {
  int error = EINTR;
  while (error == EINTR) {
    error = ::posix_fallocate(fd, static_cast<off_t>(offset), static_cast<off_t>(bytes));
  }
  return error;
}

std::uint64_t digestOf(const TableLayout& layout) {
  const Pell::String text = fmt::format("{}\nversion {}\nrow {}\nkey {}\n", layout.rowTypeName,
                                        layout.layoutVersion, layout.rowBytes, layout.keyBytes);
  return XXH3_64bits(text.data(), text.size());
}

std::uint64_t digestOf(std::string_view fileName) {
  const Pell::String text = fmt::format("file {}\n", fileName);
  return XXH3_64bits(text.data(), text.size());
}

template <std::size_t kBytes>
std::string_view nameIn(const std::array<char, kBytes>& field) {
  return {field.data(), ::strnlen(field.data(), field.size())};
}

template <std::size_t kBytes>
void nameInto(std::array<char, kBytes>& field, std::string_view name) {
  field.fill('\0');
  std::copy(name.begin(), name.end(), field.begin());
}

// What keeps `layout` from being a table at all.
Pell::String layoutFault(const TableLayout& layout, bool capacityGiven) {
  if (layout.rowTypeName.size() >= kRowTypeNameBytes ||
      layout.collectionName.size() >= kCollectionNameBytes || layout.collectionName.empty()) {
    return "row types have names of up to 63 bytes, collections of 1 to 55";
  }
  if (capacityGiven && (layout.nominalCapacity < 1 || layout.slotCount > Link::kMaxSlots ||
                        layout.slotCount < layout.nominalCapacity)) {
    return fmt::format("a capacity of {} rows in {} slots is not possible", layout.nominalCapacity,
                       layout.slotCount);
  }
  return {};
}

FixedHeader sealedHeader(const TableLayout& layout, std::string_view fileName) {
  FixedHeader header{};
  header.magic = kMagic;
  header.formatVersion = kFormatVersion;
  header.headerBytes = kPageBytes;
  header.layoutDigest = digestOf(layout);
  header.rowBytes = layout.rowBytes;
  header.keyBytes = layout.keyBytes;
  header.slotBytes = static_cast<std::uint32_t>(slotBytes(layout.rowBytes));
  header.nominalCapacity = layout.nominalCapacity;
  header.slotCount = layout.slotCount;
  header.bucketCount = layout.bucketCount();
  header.keyHash = layout.keyHash;
  header.chunkSlots = kChunkSlots;
  nameInto(header.rowTypeName, layout.rowTypeName);
  nameInto(header.collectionName, layout.collectionName);
  header.fileNameDigest = digestOf(fileName);
  header.checksum = XXH3_64bits(&header, offsetof(FixedHeader, checksum));
  return header;
}

Header newHeader(const TableLayout& layout, std::string_view fileName) {
  Header header{};
  header.fixed = sealedHeader(layout, fileName);
  header.rowCount = Counter::of(0).word();
  header.slotsInUse = Counter::of(0).word();
  header.corruptionCount = Counter::of(0).word();
  const Seq first(1, true, 0);
  const SealedRow<1> zero{{0, first.word()}};
  header.scratchpad.seq = first.word();
  header.scratchpad.copies[0] = {zero.checksum(), 0};
  return header;
}

bool writeAll(int fd, const void* data, std::size_t bytes, std::uint64_t offset) {
  const ssize_t written = ::pwrite(fd, data, bytes, static_cast<off_t>(offset));
  return written >= 0 && static_cast<std::size_t>(written) == bytes;
}

// Header and empty buckets, and room for the first chunk of slots; 0 or an errno.
int writeNewFile(int fd, const TableLayout& layout, std::string_view fileName) {
  const Header header = newHeader(layout, fileName);
  const FixedHeader& fixed = header.fixed;
  const Geometry geometry = Geometry::of(fixed.bucketCount, fixed.slotCount, fixed.slotBytes);
  if (::ftruncate(fd, static_cast<off_t>(geometry.fileBytes)) != 0) {
    return errno;
  }
  const std::uint64_t chunk = std::min(kChunkSlots, fixed.slotCount);
  int error = reserve(fd, 0, geometry.linksAt + 4 * chunk);
  error = error != 0 ? error : reserve(fd, geometry.slotsAt, fixed.slotBytes * chunk);
  if (error != 0) {
    return error;
  }
  const std::vector<std::uint32_t> heads(fixed.bucketCount, Link::end().word());
  if (!writeAll(fd, &header, sizeof header, 0) ||
      !writeAll(fd, heads.data(), heads.size() * sizeof heads[0], geometry.headsAt)) {
    return EIO;
  }
  return 0;
}

std::string_view fileNameOf(std::string_view path) {
  return path.substr(path.find_last_of('/') + 1);
}

void createFile(const RootFolder& root, const Pell::String& fileName, const TableLayout& layout) {
  const UniqueFd file = root.create(fileName);
  if (const int error = writeNewFile(file.get(), layout, fileName); error != 0) {
    root.discard(fileName);
    refuse(root.filePath(fileName),
           fmt::format("cannot create the table: {}", std::strerror(error)),
           error == ENOSPC ? "make room in the file system or enlarge it"
                           : "choose another state folder");
  }
  root.publish(fileName);
}

}  // namespace

Pell::String layoutDifference(const FixedHeader& header, const TableLayout& layout,
                              std::string_view fileName) {
  if (nameIn(header.rowTypeName) != layout.rowTypeName) {
    return fmt::format("it holds rows of {}, not of {}", nameIn(header.rowTypeName),
                       layout.rowTypeName);
  }
  if (header.layoutDigest != digestOf(layout) || header.rowBytes != layout.rowBytes ||
      header.keyBytes != layout.keyBytes || header.keyHash != layout.keyHash) {
    return fmt::format("its rows of {} are laid out differently (another release wrote it)",
                       layout.rowTypeName);
  }
  if (nameIn(header.collectionName) != layout.collectionName) {
    return fmt::format("it holds the collection {}, not {}", nameIn(header.collectionName),
                       layout.collectionName);
  }
  if (header.fileNameDigest != digestOf(fileName)) {
    return "it was made for another table (renamed, or a copy of that one)";
  }
  if (layout.nominalCapacity != 0 &&
      (header.nominalCapacity != layout.nominalCapacity || header.slotCount != layout.slotCount)) {
    return fmt::format("it was made for {} rows in {} slots, not for {} in {}",
                       header.nominalCapacity, header.slotCount, layout.nominalCapacity,
                       layout.slotCount);
  }
  return {};
}

// ---- mounts

std::shared_ptr<Table> Table::mountWriter(const std::shared_ptr<RootFolder>& root,
                                          const Pell::String& fileName, const TableLayout& layout) {
  if (const Pell::String fault = layoutFault(layout, true); !fault.empty()) {
    refuse(root->filePath(fileName), fault, "mount it with other figures");
  }
  const std::shared_ptr<WriterLock> lock = root->lockForWriting();
  RootFolder::File file = root->open(fileName, RootFolder::Access::write);
  if (!file.fd) {
    createFile(*root, fileName, layout);
    file = root->open(fileName, RootFolder::Access::write);
  }
  std::shared_ptr<Table> table =
      map(file, root->filePath(fileName), layout, Mapping::Access::write);
  table->writerLock_ = lock;
  table->file_ = std::move(file.fd);
  table->recover();
  return table;
}

std::shared_ptr<Table> Table::mountReader(const std::shared_ptr<RootFolder>& root,
                                          const Pell::String& fileName, const TableLayout& layout) {
  if (const Pell::String fault = layoutFault(layout, false); !fault.empty()) {
    refuse(root->filePath(fileName), fault, "mount it with other figures");
  }
  const RootFolder::File file = root->open(fileName, RootFolder::Access::read);
  if (!file.fd) {
    refuse(root->filePath(fileName), "there is no such table", "start its writer first");
  }
  return map(file, root->filePath(fileName), layout, Mapping::Access::read);
}

std::shared_ptr<Table> Table::map(const RootFolder::File& file, const Pell::String& path,
                                  const TableLayout& layout, Mapping::Access access) {
  const auto bytes = static_cast<std::size_t>(file.status.st_size);
  FixedHeader header{};
  Pell::String finding = readSealedHeader(file.fd.get(), bytes, header);
  if (finding.empty()) {
    finding = layoutDifference(header, layout, fileNameOf(path));
  }
  if (!finding.empty()) {
    refuse(path, finding);
  }
  Mapping mapping = Mapping::ofFile(file.fd.get(), bytes, access);
  if (!mapping) {
    refuse(path, fmt::format("cannot map it: {}", std::strerror(errno)), "give it more memory");
  }
  return std::shared_ptr<Table>(new Table(std::move(mapping), header, path));
}

Table::Table(Mapping mapping, const FixedHeader& sealed, Pell::String filePath)
    : view_(mapping.base(), sealed), filePath_(std::move(filePath)), mapping_(std::move(mapping)) {}

Pell::String Table::layoutFinding(const TableLayout& layout) const {
  return layoutDifference(view_.fixed(), layout, fileNameOf(filePath_));
}

// Takes over from the last writer, however that one ended. A table whose structure no kill
// explains is refused untouched.
void Table::recover() {
  Inspection found = inspect(view_);
  if (!found.structure.empty()) {
    refuse(filePath_,
           fmt::format("its structure is damaged ({} findings, the first: {})",
                       found.structure.size(), found.structure.front()),
           "nothing has been changed: keep a copy for inspection, then repair it, or remove it to "
           "begin with an empty table");
  }
  slotsInUse_ = found.slotsInUse;
  rowCount_ = found.liveSlots;
  scratchpad_ = found.scratchpad;
  generation_ = generation();
  freeSlots_.reserve(view_.fixed().slotCount);
  freeSlots_.assign(found.freeSlots.rbegin(), found.freeSlots.rend());
  for (const Inspection::InFlight& change : found.inFlight) {
    storeRelease(*change.link, loadRelaxed(view_.linkAfter(change.slot)));
    generationIs(generation_ + 2);
    if (!Seq(loadRelaxed(*view_.slot(change.slot))).retired()) {
      freeSlots_.push_back(change.slot);
    }
  }
  for (const Pell::String& finding : found.counters) {
    ZEV_TRACE(tableTraceHandle(), 1, kClass, "{}: {}", filePath_, finding);
    countCorruption(1);
  }
  for (const Inspection::DamagedRow& row : found.damagedRows) {
    ZEV_TRACE(tableTraceHandle(), 1, kClass, "{}: {}", filePath_, row.finding);
    countCorruption(1);
    retire(row.slot);
  }
  if (found.indexUnfinished) {
    rebuildIndex();
  }
  storeRelaxed(view_.header().rowCount, Counter::of(rowCount_).word());
  if (slotsInUse_ == 0) {
    if (const int error = reserveChunk(); error != 0) {
      refuse(filePath_, fmt::format("cannot reserve room for rows: {}", std::strerror(error)),
             "make room in the file system or enlarge it");
    }
  }
}

// ---- slots

std::uint32_t Table::takeFreeSlot() {
  if (freeSlots_.empty()) [[unlikely]] {
    PELL_ASSERT_MESSAGE(slotsInUse_ < view_.fixed().slotCount, "a slot is free for the row",
                        fmt::format("{}: all {} slots are taken (nominal capacity {}); the row "
                                    "cannot be stored",
                                    filePath_, slotsInUse_, capacity()));
    const int error = reserveChunk();
    PELL_ASSERT_MESSAGE(error == 0, "the file system has room for the row",
                        fmt::format("{}: cannot reserve room for more than {} rows: {}; make room "
                                    "in the file system or enlarge it",
                                    filePath_, slotsInUse_, std::strerror(error)));
  }
  const std::uint32_t slot = freeSlots_.back();
  freeSlots_.pop_back();
  return slot;
}

// Reserves memory for the next chunk of slots, then initialises them, then publishes them. 0 or an
// errno. A kill before the publication leaves slots that nobody looks at.
int Table::reserveChunk() {
  const FixedHeader& fixed = view_.fixed();
  const Geometry& geometry = view_.geometry();
  const std::uint32_t first = slotsInUse_;
  const std::uint32_t count = std::min(kChunkSlots, fixed.slotCount - first);
  int error = reserve(file_.get(), geometry.linksAt + std::uint64_t{4} * first, 4 * count);
  if (error == 0) {
    error = reserve(file_.get(), geometry.slotsAt + std::uint64_t{fixed.slotBytes} * first,
                    std::uint64_t{fixed.slotBytes} * count);
  }
  if (error != 0) {
    return error;
  }
  for (std::uint32_t slot = first + count; slot-- > first;) {
    storeRelaxed(*view_.slot(slot), Seq(0, false, 0).word());
    storeRelaxed(view_.linkAfter(slot), Link::end().word());
    freeSlots_.push_back(slot);
  }
  slotsInUse_ = first + count;
  storeRelease(view_.header().slotsInUse, Counter::of(slotsInUse_).word());
  return 0;
}

void Table::rowInserted() {
  storeRelaxed(view_.header().rowCount, Counter::of(++rowCount_).word());
}

void Table::rowDeleted(std::uint32_t slot) {
  generationIs(generation_ + 2);
  storeRelaxed(view_.header().rowCount, Counter::of(--rowCount_).word());
  freeSlots_.push_back(slot);
}

void Table::generationIs(std::uint64_t generation) {
  generation_ = generation;
  storeRelease(view_.header().generation, generation);
}

std::uint32_t Table::sharedSlotsInUse() const {
  const Counter word(loadAcquire(view_.header().slotsInUse));
  if (!view_.canBeInUse(word)) {
    throwDamaged(Suspect::none, 0,
                 fmt::format("slots in use: impossible word {:#018x}", word.word()));
  }
  return word.value();
}

std::uint32_t Table::sharedRowCount() const {
  const Counter word(loadRelaxed(view_.header().rowCount));
  return word.valid() ? word.value() : countLiveSlots();
}

std::uint32_t Table::countLiveSlots() const {
  std::uint32_t live = 0;
  const std::uint32_t end = slotsInUse();
  for (std::uint32_t slot = 0; slot < end; ++slot) {
    const Seq seq(loadRelaxed(*view_.slot(slot)));
    live += seq.valid() && seq.live() ? 1U : 0U;
  }
  return live;
}

// ---- scratchpad

std::uint64_t Table::scratchpad() const {
  if (isWriter()) {
    return scratchpad_;
  }
  const ScratchpadSlot& pad = view_.header().scratchpad;
  for (int attempt = 0; attempt < kScratchpadAttempts; ++attempt) {
    const Seq seq(loadAcquire(pad.seq));
    if (!seq.valid() || !seq.live()) {
      break;
    }
    std::uint64_t value = 0;
    switch (readScratchpad(pad, seq, value)) {
      case CopyState::good:
        return value;
      case CopyState::changed:
        continue;
      case CopyState::damaged:
        attempt = kScratchpadAttempts;
    }
  }
  throwDamaged(Suspect::none, 0, "the scratchpad is damaged");
}

void Table::scratchpadIs(std::uint64_t value) {
  PELL_ASSERT_MESSAGE(isWriter(), "the table is mounted for writing", filePath_);
  ScratchpadSlot& pad = view_.header().scratchpad;
  publishScratchpad(pad, Seq(loadRelaxed(pad.seq)), value);
  scratchpad_ = value;
}

// ---- damage

void Table::throwDamaged(Suspect suspect, std::uint32_t slot, const Pell::String& what) const {
  suspect_ = suspect;
  suspectSlot_ = slot;
  throw Pell::CorruptionDetectedException(fmt::format("{}: {}", filePath_, what));
}

void Table::throwDamagedRow(std::uint32_t slot, std::uint64_t keyBits) const {
  throwDamaged(
      Suspect::slot, slot,
      fmt::format("slot {}: the checksum of the row of key {} does not match", slot, keyBits));
}

void Table::throwDamagedSlot(std::uint32_t slot, const char* what) const {
  throwDamaged(Suspect::slot, slot, fmt::format("slot {}: {}", slot, what));
}

void Table::throwDamagedIndex(std::uint32_t bucket, const char* what) const {
  throwDamaged(Suspect::index, 0, fmt::format("bucket {}: {}", bucket, what));
}

void Table::corruptionDetected() noexcept {
  const Suspect suspect = std::exchange(suspect_, Suspect::none);
  if (!isWriter()) {
    ++readerCorruptionCount_;
    return;
  }
  countCorruption(1);
  if (suspect == Suspect::slot) {
    retire(suspectSlot_);
  } else if (suspect == Suspect::index) {
    rebuildIndex();
  }
}

std::uint64_t Table::corruptionCount() const {
  const Counter word(loadRelaxed(view_.header().corruptionCount));
  return (word.valid() ? word.value() : 0) + readerCorruptionCount_;
}

void Table::countCorruption(std::uint32_t times) {
  const Counter word(loadRelaxed(view_.header().corruptionCount));
  const std::uint32_t count = word.valid() ? word.value() : 0;
  const std::uint32_t sum = count + std::min(times, UINT32_MAX - count);
  storeRelaxed(view_.header().corruptionCount, Counter::of(sum).word());
}

// The row is gone with the first store; the unlinking follows as after a delete.
void Table::retire(std::uint32_t slot) {
  storeRelease(*view_.slot(slot), Seq::retiredSlot().word());
  std::erase(freeSlots_, slot);
  unlinkWherever(slot);
  rowCount_ = countLiveSlots();
  storeRelaxed(view_.header().rowCount, Counter::of(rowCount_).word());
}

// The slot's key may be damaged, so every chain is looked through.
void Table::unlinkWherever(std::uint32_t slot) {
  std::uint32_t hopsLeft = slotsInUse_;
  for (std::uint32_t bucket = 0; bucket <= view_.bucketMask(); ++bucket) {
    std::uint32_t* word = &view_.head(bucket);
    for (Link link(loadRelaxed(*word)); !link.atEnd(); link = Link(loadRelaxed(*word))) {
      if (!link.valid() || link.slot() >= slotsInUse_ || hopsLeft-- == 0) {
        rebuildIndex();
        return;
      }
      if (link.slot() == slot) {
        unlink(slot, *word);
        return;
      }
      word = &view_.linkAfter(link.slot());
    }
  }
}

void Table::unlink(std::uint32_t slot, std::uint32_t& word) {
  const Link after(loadRelaxed(view_.linkAfter(slot)));
  if (!after.valid()) {
    rebuildIndex();
    return;
  }
  storeRelease(word, after.word());
  generationIs(generation_ + 2);
}

// From the slots alone. The generation is odd from before the first store to after the last, so
// that readers and the next mount know that chains say nothing.
void Table::rebuildIndex() {
  generationIs(generation_ | 1U);
  for (std::uint32_t bucket = 0; bucket <= view_.bucketMask(); ++bucket) {
    storeRelease(view_.head(bucket), Link::end().word());
  }
  freeSlots_.clear();
  rowCount_ = 0;
  for (std::uint32_t slot = slotsInUse_; slot-- > 0;) {
    const Seq seq(loadRelaxed(*view_.slot(slot)));
    if (!seq.valid() || seq.live()) {
      relinkOrRetire(slot, seq);
    } else if (!seq.retired()) {
      freeSlots_.push_back(slot);
    }
  }
  storeRelaxed(view_.header().rowCount, Counter::of(rowCount_).word());
  generationIs(generation_ + 1);
}

void Table::relinkOrRetire(std::uint32_t slot, Seq seq) {
  if (relink(slot, seq)) {
    return;
  }
  ZEV_TRACE(tableTraceHandle(), 1, kClass, "{}: slot {} is retired", filePath_, slot);
  storeRelease(*view_.slot(slot), Seq::retiredSlot().word());
  countCorruption(1);
}

// False if the slot holds no row that could be linked: damaged, or a second one of its key.
bool Table::relink(std::uint32_t slot, Seq seq) {
  const FixedHeader& fixed = view_.fixed();
  if (!seq.valid() || !view_.rowChecksOut(slot, seq)) {
    return false;
  }
  const auto keyOf = [&](std::uint32_t of) {
    return view_.keyBits(of, Seq(loadRelaxed(*view_.slot(of))));
  };
  const std::uint64_t key = keyOf(slot);
  std::uint32_t& head = view_.head(bucketOf(key, fixed.keyHash, fixed.bucketCount));
  const std::uint32_t first = loadRelaxed(head);
  for (Link link(first); !link.atEnd(); link = Link(loadRelaxed(view_.linkAfter(link.slot())))) {
    if (keyOf(link.slot()) == key) {
      return false;
    }
  }
  storeRelaxed(view_.linkAfter(slot), first);
  storeRelease(head, Link::to(slot).word());
  ++rowCount_;
  return true;
}

}  // namespace Glint
