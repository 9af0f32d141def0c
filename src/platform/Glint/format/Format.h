// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "Glint/TableLayout.h"

// The bytes of a shared table file: constants, words and offsets. docs/format/shared-tables.md
// describes the same for readers in other languages; the golden-bytes tests compare the two.
//
// Every word that is stored by itself carries a check, so that one flipped bit always shows where
// the word is read. The check is the top bits of the product of the word's value and a constant. A
// flipped bit of the value adds the constant, shifted to that bit, to the product, or takes it
// away. The top bits then change, because the shifted constant has neither only zeros nor only ones
// there (flipsAlwaysShow()). An all-zero word does not match its check, so zeroed pages show too.

namespace Glint {

static_assert(std::endian::native == std::endian::little, "table files are little-endian");

inline constexpr std::array<char, 8> kMagic = {'L', 'O', 'A', 'M', 'T', 'B', 'L', '\0'};
inline constexpr std::uint32_t kFormatVersion = 1;
inline constexpr std::uint32_t kPageBytes = 4096;
inline constexpr std::uint32_t kChunkSlots = 1024;  // slots that are reserved at a time
// Names are shorter and zero padded.
inline constexpr std::size_t kRowTypeNameBytes = 64;
inline constexpr std::size_t kCollectionNameBytes = 56;

namespace Detail {

inline constexpr std::uint64_t kMultiplier64 = 0x9E3779B97F4A7C15U;
inline constexpr std::uint32_t kMultiplier32 = 0x9E3779B1U;

// True if adding or taking away `multiplier << bit`, for each bit below `valueBits`, always
// changes the top `checkBits` bits of the product.
template <typename Word>
constexpr bool flipsAlwaysShow(Word multiplier, int valueBits, int checkBits) {
  const int width = static_cast<int>(sizeof(Word)) * 8;
  const Word allOnes = static_cast<Word>(~Word{0}) >> (width - checkBits);
  for (int bit = 0; bit < valueBits; ++bit) {
    const Word window = static_cast<Word>(multiplier << bit) >> (width - checkBits);
    if (window == 0 || window == allOnes) {
      return false;
    }
  }
  return true;
}

static_assert(flipsAlwaysShow(kMultiplier64, 48, 16));
static_assert(flipsAlwaysShow(kMultiplier64, 32, 32));
static_assert(flipsAlwaysShow(kMultiplier32, 24, 8));

}  // namespace Detail

// ---- seq: the word that says whether a slot holds a row, and where.
//
//   bit 0       which of the two row copies is live
//   bit 1       live: the slot holds a row
//   bits 2-47   version, raised by every change of the slot
//   bits 48-63  check of bits 0-47
class Seq {
 public:
  static constexpr std::uint64_t kVersionLimit = (std::uint64_t{1} << 46) - 1;

  constexpr Seq() = default;
  constexpr explicit Seq(std::uint64_t word) : word_(word) {}
  constexpr Seq(std::uint64_t version, bool live, unsigned copy)
      : word_(withCheck(version << 2U | (live ? 2U : 0U) | copy)) {}

  constexpr std::uint64_t word() const { return word_; }
  constexpr bool valid() const { return withCheck(word_ & kValueMask) == word_; }
  constexpr bool live() const { return (word_ & 2U) != 0; }
  constexpr unsigned copy() const { return static_cast<unsigned>(word_ & 1U); }
  constexpr std::uint64_t version() const { return (word_ & kValueMask) >> 2U; }
  // Whether a writer can have left it: no row is published under version 0.
  constexpr bool possible() const { return valid() && (!live() || version() != 0); }

  // A slot that is out of use for good: its version cannot rise any more.
  constexpr bool retired() const { return !live() && version() == kVersionLimit; }
  static constexpr Seq retiredSlot() { return {kVersionLimit, false, 0}; }

  // What an insert or an update publishes next: the copy that is idle now becomes live.
  constexpr Seq published() const { return {version() + 1, true, copy() ^ 1U}; }
  // What a delete stores; the copies stay as they are.
  constexpr Seq deleted() const { return {version() + 1, false, copy()}; }
  // Of a dead slot whose delete has just happened: the seq under which its row was published.
  constexpr Seq beforeDelete() const { return {version() - 1, true, copy()}; }

  friend constexpr bool operator==(Seq, Seq) = default;

 private:
  static constexpr std::uint64_t kValueMask = (std::uint64_t{1} << 48) - 1;
  static constexpr std::uint64_t kCheckSalt = 0x5A3C;

  static constexpr std::uint64_t withCheck(std::uint64_t value) {
    return value | ((value * Detail::kMultiplier64 >> 48U) ^ kCheckSalt) << 48U;
  }

  std::uint64_t word_ = 0;
};

// ---- link: a bucket head, or what follows a slot in its bucket's chain.
//
//   bits 0-23   slot number + 1; 0 ends the chain
//   bits 24-31  check of bits 0-23
class Link {
 public:
  static constexpr std::uint32_t kMaxSlots = (1U << 24U) - 1;

  constexpr explicit Link(std::uint32_t word) : word_(word) {}
  static constexpr Link end() { return Link(withCheck(0)); }
  static constexpr Link to(std::uint32_t slot) { return Link(withCheck(slot + 1)); }

  constexpr std::uint32_t word() const { return word_; }
  constexpr bool valid() const { return withCheck(word_ & kMaxSlots) == word_; }
  constexpr bool atEnd() const { return word_ == end().word_; }
  constexpr std::uint32_t slot() const { return (word_ & kMaxSlots) - 1; }

  friend constexpr bool operator==(Link, Link) = default;

 private:
  static constexpr std::uint32_t withCheck(std::uint32_t value) {
    return value | ((value * Detail::kMultiplier32 >> 24U) ^ 0x5AU) << 24U;
  }

  std::uint32_t word_;
};

// ---- counter: a 32-bit number in one 64-bit word: value below, check above.
class Counter {
 public:
  constexpr explicit Counter(std::uint64_t word) : word_(word) {}
  static constexpr Counter of(std::uint32_t value) {
    const std::uint64_t check = (value * Detail::kMultiplier64 >> 32U) ^ 0x5A3C96E1U;
    return Counter(value | check << 32U);
  }

  constexpr std::uint64_t word() const { return word_; }
  constexpr std::uint32_t value() const { return static_cast<std::uint32_t>(word_); }
  constexpr bool valid() const { return of(value()).word_ == word_; }

 private:
  std::uint64_t word_;
};

// The scratchpad is a slot of its own with one 64-bit word for a row; it is always live.
struct ScratchpadSlot {
  struct Copy {
    std::uint64_t checksum;  // of value, then the publishing seq
    std::uint64_t value;
  };
  std::uint64_t seq;
  std::array<Copy, 2> copies;
};
static_assert(sizeof(ScratchpadSlot) == 40);

// The part that never changes once the file exists, sealed by a checksum.
struct FixedHeader {
  std::array<char, 8> magic;
  std::uint32_t formatVersion;
  std::uint32_t headerBytes;
  std::uint64_t layoutDigest;
  std::uint32_t rowBytes;
  std::uint32_t keyBytes;  // 4 or 8: the key's bytes at the start of the row
  std::uint32_t slotBytes;
  std::uint32_t nominalCapacity;
  std::uint32_t slotCount;
  std::uint32_t bucketCount;  // a power of two
  KeyHash keyHash;
  std::uint32_t chunkSlots;
  std::array<char, kRowTypeNameBytes> rowTypeName;
  std::array<char, kCollectionNameBytes> collectionName;
  std::uint64_t fileNameDigest;  // so that no file passes for another entity's of the same type
  std::uint64_t checksum;        // of all bytes before it
};

struct Header {
  FixedHeader fixed;
  std::uint64_t generation;       // of the structure; odd while the index is being rebuilt
  std::uint64_t rowCount;         // Counter; a hint after a crash, exact after a mount
  std::uint64_t slotsInUse;       // Counter; slots below it are reserved and initialised
  std::uint64_t corruptionCount;  // Counter
  std::array<std::uint64_t, 4> reserved;
  ScratchpadSlot scratchpad;
};

static_assert(std::is_trivially_copyable_v<Header> && std::is_standard_layout_v<Header>);
static_assert(offsetof(FixedHeader, magic) == 0);
static_assert(offsetof(FixedHeader, formatVersion) == 8);
static_assert(offsetof(FixedHeader, headerBytes) == 12);
static_assert(offsetof(FixedHeader, layoutDigest) == 16);
static_assert(offsetof(FixedHeader, rowBytes) == 24);
static_assert(offsetof(FixedHeader, keyBytes) == 28);
static_assert(offsetof(FixedHeader, slotBytes) == 32);
static_assert(offsetof(FixedHeader, nominalCapacity) == 36);
static_assert(offsetof(FixedHeader, slotCount) == 40);
static_assert(offsetof(FixedHeader, bucketCount) == 44);
static_assert(offsetof(FixedHeader, keyHash) == 48);
static_assert(offsetof(FixedHeader, chunkSlots) == 52);
static_assert(offsetof(FixedHeader, rowTypeName) == 56);
static_assert(offsetof(FixedHeader, collectionName) == 120);
static_assert(offsetof(FixedHeader, fileNameDigest) == 176);
static_assert(offsetof(FixedHeader, checksum) == 184);
static_assert(sizeof(FixedHeader) == 192);
static_assert(offsetof(Header, generation) == 192);
static_assert(offsetof(Header, rowCount) == 200);
static_assert(offsetof(Header, slotsInUse) == 208);
static_assert(offsetof(Header, corruptionCount) == 216);
static_assert(offsetof(Header, scratchpad) == 256);
static_assert(sizeof(Header) == 296 && sizeof(Header) <= kPageBytes);

// ---- slot: seq, then two copies of { checksum, row }, in 64-bit words.

constexpr std::size_t rowWords(std::size_t rowBytes) { return (rowBytes + 7) / 8; }
constexpr std::size_t slotBytes(std::size_t rowBytes) {
  return 8 + 2 * (8 + 8 * rowWords(rowBytes));
}
// Word within the slot at which a copy begins: its checksum, the row follows.
constexpr std::size_t copyWord(std::size_t words, unsigned copy) { return 1 + copy * (1 + words); }

// Where the parts of a file begin: header, bucket heads, links, slots, each on a page boundary.
struct Geometry {
  std::uint64_t headsAt = 0;
  std::uint64_t linksAt = 0;
  std::uint64_t slotsAt = 0;
  std::uint64_t fileBytes = 0;

  static constexpr Geometry of(std::uint32_t bucketCount, std::uint32_t slotCount,
                               std::uint32_t slotSize) {
    Geometry result;
    result.headsAt = kPageBytes;
    result.linksAt = wholePages(result.headsAt + std::uint64_t{4} * bucketCount);
    result.slotsAt = wholePages(result.linksAt + std::uint64_t{4} * slotCount);
    result.fileBytes = wholePages(result.slotsAt + std::uint64_t{slotSize} * slotCount);
    return result;
  }

 private:
  static constexpr std::uint64_t wholePages(std::uint64_t bytes) {
    return (bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
  }
};

// The bucket of a key, given as its 64 bits.
constexpr std::uint32_t bucketOf(std::uint64_t keyBits, KeyHash hash, std::uint32_t bucketCount) {
  if (hash == KeyHash::mixing) {
    keyBits *= Detail::kMultiplier64;
    keyBits ^= keyBits >> 32U;
  }
  return static_cast<std::uint32_t>(keyBits) & (bucketCount - 1);
}

// The key's bits in the first word of a row.
constexpr std::uint64_t keyBitsOf(std::uint64_t firstWord, std::uint32_t keyBytes) {
  return keyBytes == 4 ? firstWord & 0xFFFFFFFFU : firstWord;
}

}  // namespace Glint
