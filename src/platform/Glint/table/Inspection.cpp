// SPDX-License-Identifier: Apache-2.0

// The look at a whole table that a mount and the verifier share. One pass goes over the slots and
// decides for each whether it is dead, retired, or live with a row that checks out, and to which
// bucket that row belongs; a second pass follows every chain and crosses the slots off.

#include "table/Inspection.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <utility>

#include <fmt/format.h>

#include "format/Scratchpad.h"

namespace Glint {

namespace {

constexpr std::uint32_t kNoBucket = UINT32_MAX;

enum class SlotKind : std::uint8_t { dead, retired, live, damagedRow, damagedSeq };

struct SlotNote {
  SlotKind kind;
  bool reached;
  std::uint32_t bucket;  // of the live row; kNoBucket if it is not known
};

class Inspector {
 public:
  explicit Inspector(const TableView& view) : view_(view) {}

  Inspection run() {
    inspectHeader();
    inspectSlots();
    if (!result_.indexUnfinished) {
      inspectChains();
      inspectReachability();
    }
    collectFreeSlots();
    sayHowManyMore();
    return std::move(result_);
  }

 private:
  void inspectHeader() {
    Header& header = view_.header();
    const Counter inUse(loadAcquire(header.slotsInUse));
    if (!view_.canBeInUse(inUse)) {
      structural(fmt::format("slots in use: impossible word {:#018x}", inUse.word()));
    } else {
      result_.slotsInUse = inUse.value();
    }
    for (const auto& [name, word] : {std::pair("row count", &header.rowCount),
                                     std::pair("corruption count", &header.corruptionCount)}) {
      if (!Counter(loadRelaxed(*word)).valid()) {
        result_.counters.push_back(
            fmt::format("{}: impossible word {:#018x}", name, loadRelaxed(*word)));
      }
    }
    result_.indexUnfinished = (loadRelaxed(header.generation) & 1U) != 0;
    inspectScratchpad();
  }

  void inspectScratchpad() {
    const ScratchpadSlot& pad = view_.header().scratchpad;
    const Seq seq(loadAcquire(pad.seq));
    if (!seq.valid() || !seq.live()) {
      structural(fmt::format("scratchpad: impossible seq {:#018x}", seq.word()));
      return;
    }
    std::uint64_t value = 0;
    if (readScratchpad(pad, seq, value) != CopyState::good) {
      structural("scratchpad: the checksum does not match");
      return;
    }
    result_.scratchpad = value;
    result_.scratchpadGood = true;
  }

  void inspectSlots() {
    notes_.reserve(result_.slotsInUse);
    for (std::uint32_t slot = 0; slot < result_.slotsInUse; ++slot) {
      notes_.push_back(inspectSlot(slot));
    }
  }

  SlotNote inspectSlot(std::uint32_t slot) {
    const Seq seq(loadAcquire(*view_.slot(slot)));
    if (!seq.possible()) {
      if (structural(fmt::format("slot {}: impossible seq {:#018x}", slot, seq.word()))) {
        result_.damagedSeqs.push_back({slot, result_.structure.size() - 1});
      }
      return {SlotKind::damagedSeq, false, kNoBucket};
    }
    if (!seq.live()) {
      result_.retiredSlots += seq.retired() ? 1U : 0U;
      return {seq.retired() ? SlotKind::retired : SlotKind::dead, false, kNoBucket};
    }
    ++result_.liveSlots;
    if (!view_.rowChecksOut(slot, seq)) {
      result_.damagedRows.push_back({slot, damagedRowText(slot, seq)});
      return {SlotKind::damagedRow, false, kNoBucket};
    }
    return {SlotKind::live, false, bucketOfCopy(slot, seq)};
  }

  std::uint32_t bucketOfCopy(std::uint32_t slot, Seq seq) const {
    const FixedHeader& fixed = view_.fixed();
    return bucketOf(view_.keyBits(slot, seq), fixed.keyHash, fixed.bucketCount);
  }

  void inspectChains() {
    const std::uint32_t buckets = view_.fixed().bucketCount;
    for (std::uint32_t bucket = 0; bucket < buckets; ++bucket) {
      inspectChain(bucket);
    }
    if (result_.inFlight.size() > 1) {
      structural(fmt::format("{} slots are reachable but dead; one change can be in flight",
                             result_.inFlight.size()));
    }
  }

  void inspectChain(std::uint32_t bucket) {
    chain_.clear();
    std::uint32_t* word = &view_.head(bucket);
    for (;;) {
      const Link link(loadAcquire(*word));
      if (link.atEnd()) {
        break;
      }
      if (!link.valid() || link.slot() >= result_.slotsInUse) {
        structural(fmt::format("bucket {}: link {:#010x} leads nowhere", bucket, link.word()));
        break;
      }
      SlotNote& note = notes_[link.slot()];
      if (note.reached) {
        structural(fmt::format("bucket {}: slot {} is reached twice", bucket, link.slot()));
        break;
      }
      note.reached = true;
      inspectReached(bucket, link.slot(), note, word);
      word = &view_.linkAfter(link.slot());
    }
    if (chain_.size() > 1) {
      inspectKeys(bucket);
    }
  }

  void inspectKeys(std::uint32_t bucket) {
    std::vector<std::uint64_t> keys;
    keys.reserve(chain_.size());
    for (const std::uint32_t slot : chain_) {
      keys.push_back(view_.keyBits(slot, Seq(loadAcquire(*view_.slot(slot)))));
    }
    std::sort(keys.begin(), keys.end());
    const auto twin = std::adjacent_find(keys.begin(), keys.end());
    if (twin != keys.end()) {
      structural(fmt::format("bucket {}: two rows of key {}", bucket, *twin));
    }
  }

  void inspectReached(std::uint32_t bucket, std::uint32_t slot, const SlotNote& note,
                      std::uint32_t* word) {
    switch (note.kind) {
      case SlotKind::live:
        chain_.push_back(slot);
        if (note.bucket != bucket) {
          structural(fmt::format("slot {}: its row belongs to bucket {}, not to {}", slot,
                                 note.bucket, bucket));
        }
        return;
      case SlotKind::dead:
        if (!changeInFlight(bucket, slot)) {
          structural(
              fmt::format("slot {}: reachable, dead, and no change of it is in flight", slot));
        }
        result_.inFlight.push_back({slot, word});
        ++result_.deadInFlight;
        return;
      case SlotKind::retired:
        result_.inFlight.push_back({slot, word});
        return;
      case SlotKind::damagedRow:
      case SlotKind::damagedSeq:
        return;
    }
  }

  // An insert that has not been published, or a delete that has not been unlinked.
  bool changeInFlight(std::uint32_t bucket, std::uint32_t slot) {
    const Seq seq(loadAcquire(*view_.slot(slot)));
    const Seq insert = seq.published();
    if (view_.rowChecksOut(slot, insert)) {
      return bucketOfCopy(slot, insert) == bucket;
    }
    const Seq erase = seq.beforeDelete();
    return seq.version() > 0 && view_.rowChecksOut(slot, erase) &&
           bucketOfCopy(slot, erase) == bucket;
  }

  void inspectReachability() {
    for (std::uint32_t slot = 0; slot < result_.slotsInUse; ++slot) {
      if (notes_[slot].kind == SlotKind::live && !notes_[slot].reached) {
        structural(fmt::format("slot {}: live but not reachable from bucket {}", slot,
                               notes_[slot].bucket));
      }
    }
  }

  void collectFreeSlots() {
    for (std::uint32_t slot = 0; slot < result_.slotsInUse; ++slot) {
      if (notes_[slot].kind == SlotKind::dead && !notes_[slot].reached) {
        result_.freeSlots.push_back(slot);
      }
    }
  }

  Pell::String damagedRowText(std::uint32_t slot, Seq seq) const {
    return fmt::format("slot {}: the row's checksum does not match (key {}, seq version {})", slot,
                       view_.keyBits(slot, seq), seq.version());
  }

  // Whether the finding is listed, and not only counted.
  bool structural(Pell::String finding) {
    const bool isListed = ++structureFindings_ <= kMaxFindings;
    if (isListed) {
      result_.structure.push_back(std::move(finding));
    }
    return isListed;
  }

  void sayHowManyMore() {
    if (structureFindings_ > kMaxFindings) {
      result_.structure.push_back(
          fmt::format("and {} more findings", structureFindings_ - kMaxFindings));
    }
  }

  TableView view_;
  std::vector<std::uint32_t> chain_;  // live slots of the bucket being looked at
  std::vector<SlotNote> notes_;
  Inspection result_;
  std::size_t structureFindings_ = 0;
};

template <std::size_t kBytes>
bool isTerminated(const std::array<char, kBytes>& name) {
  return std::find(name.begin(), name.end(), '\0') != name.end();
}

bool sizesFit(const FixedHeader& header) {
  return header.headerBytes == kPageBytes && header.chunkSlots == kChunkSlots &&
         header.rowBytes >= header.keyBytes && header.rowBytes <= kPageBytes &&
         (header.keyBytes == 4 || header.keyBytes == 8) &&
         header.slotBytes == slotBytes(header.rowBytes) && header.slotCount >= 1 &&
         header.slotCount <= Link::kMaxSlots && header.nominalCapacity >= 1 &&
         header.nominalCapacity <= header.slotCount &&
         header.bucketCount == std::bit_ceil(header.nominalCapacity) &&
         (header.keyHash == KeyHash::mixing || header.keyHash == KeyHash::identity) &&
         isTerminated(header.rowTypeName) && isTerminated(header.collectionName);
}

}  // namespace

Inspection inspect(const TableView& view) { return Inspector(view).run(); }

Pell::String sealedHeaderFinding(const FixedHeader& header, std::uint64_t fileBytes) {
  if (header.magic != kMagic) {
    return "it is not a shared table (wrong magic)";
  }
  if (header.formatVersion != kFormatVersion) {
    return fmt::format("it has format version {}, but this program knows version {}",
                       header.formatVersion, kFormatVersion);
  }
  if (XXH3_64bits(&header, offsetof(FixedHeader, checksum)) != header.checksum) {
    return "its header is damaged (checksum)";
  }
  if (!sizesFit(header)) {
    return "its header holds impossible sizes";
  }
  const std::uint64_t expected =
      Geometry::of(header.bucketCount, header.slotCount, header.slotBytes).fileBytes;
  if (fileBytes != expected) {
    return fmt::format("it has {} bytes, but its header says {}", fileBytes, expected);
  }
  return {};
}

Pell::String readSealedHeader(int fd, std::uint64_t fileBytes, FixedHeader& header) {
  if (fileBytes < sizeof(Header) ||
      ::pread(fd, &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    return "it is too short for a shared table";
  }
  return sealedHeaderFinding(header, fileBytes);
}

}  // namespace Glint
