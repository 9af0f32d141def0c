// SPDX-License-Identifier: Apache-2.0

// The rule by which bytes of a table count as a row: its one function, and what is made of it for a
// slot of any row size and for the scratchpad.

#include <array>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "format/Scratchpad.h"
#include "format/TableView.h"

namespace {

using Glint::CopyState;
using Glint::Counter;
using Glint::SealedRow;
using Glint::Seq;

constexpr std::size_t kWords = 3;
using Copy = std::array<std::uint64_t, 1 + kWords>;

constexpr Seq kPublished(8, true, 1);

Copy publishedCopy() {
  Copy copy{};
  SealedRow<kWords> row{{11, 22, 33, 0}};
  Glint::fillCopy(copy.data(), row, kPublished.word());
  return copy;
}

bool checksOut(const Copy& copy, Seq seq) {
  SealedRow<kWords> row{};
  return Glint::checksOut(copy.data(), seq.word(), std::span(row.words));
}

TEST(CheckedCopy, ChecksOutUnderExactlyTheSeqThatPublishedIt) {
  const Copy copy = publishedCopy();
  EXPECT_TRUE(checksOut(copy, kPublished));
  for (const Seq other :
       {Seq(7, true, 1), Seq(9, true, 1), Seq(8, true, 0), Seq(8, false, 1), Seq()}) {
    EXPECT_FALSE(checksOut(copy, other)) << other.word();
  }
}

TEST(CheckedCopy, NoFlippedBitGoesUnseen) {
  for (std::size_t word = 0; word < 1 + kWords; ++word) {
    for (unsigned bit = 0; bit < 64; ++bit) {
      Copy copy = publishedCopy();
      copy[word] ^= std::uint64_t{1} << bit;
      EXPECT_FALSE(checksOut(copy, kPublished)) << "word " << word << " bit " << bit;
    }
  }
}

TEST(CheckedCopy, ZeroedMemoryIsNoRow) { EXPECT_FALSE(checksOut(Copy{}, kPublished)); }

TEST(CheckedCopy, LeavesTheRowAndItsSeqWhateverTheAnswerIs) {
  Copy copy = publishedCopy();
  for (const bool isGood : {true, false}) {
    std::vector<std::uint64_t> sealed(kWords + 1);
    EXPECT_EQ(Glint::checksOut(copy.data(), kPublished.word(), std::span(sealed)), isGood);
    EXPECT_EQ(sealed, (std::vector<std::uint64_t>{11, 22, 33, kPublished.word()}));
    ++copy[0];
  }
}

TEST(CheckedCopy, AChangeOfTheSeqIsToldFromDamage) {
  Copy copy = publishedCopy();
  const std::uint64_t same = kPublished.word();
  const std::uint64_t later = kPublished.published().word();
  SealedRow<kWords> row{};
  EXPECT_EQ(Glint::readCopy(copy.data(), same, kPublished.word(), row), CopyState::good);
  EXPECT_EQ(Glint::readCopy(copy.data(), later, kPublished.word(), row), CopyState::changed);
  ++copy[1];
  EXPECT_EQ(Glint::readCopy(copy.data(), same, kPublished.word(), row), CopyState::damaged);
  EXPECT_EQ(Glint::readCopy(copy.data(), later, kPublished.word(), row), CopyState::changed);
}

TEST(CheckedCopy, NoRowIsPublishedUnderVersion0) {
  EXPECT_FALSE(Seq(0, true, 0).possible());
  EXPECT_TRUE(Seq(0, false, 0).possible());
  EXPECT_TRUE(Seq(1, true, 0).possible());
  EXPECT_TRUE(Seq::retiredSlot().possible());
  EXPECT_FALSE(Seq().possible());
  EXPECT_FALSE(Seq(kPublished.word() ^ 4U).possible());
}

// A table of one slot in memory.
class CheckedSlot : public testing::TestWithParam<std::uint32_t> {
 protected:
  static Glint::FixedHeader header() {
    Glint::FixedHeader header{};
    header.rowBytes = GetParam();
    header.keyBytes = 4;
    header.slotBytes = static_cast<std::uint32_t>(Glint::slotBytes(GetParam()));
    header.slotCount = 1;
    header.bucketCount = 1;
    return header;
  }

  // Fills the copy that `seq` names as fillCopy() does, by other means.
  void publish(Seq seq) {
    const std::size_t words = Glint::rowWords(GetParam());
    std::vector<std::uint64_t> sealed(words + 1);
    for (std::size_t word = 0; word < words; ++word) {
      sealed[word] = 0x0101010101010101U * (word + 1);
    }
    sealed[words] = seq.word();
    std::uint64_t* copy = view_.slot(0) + 1 + seq.copy() * (1 + words);
    copy[0] = XXH3_64bits(sealed.data(), 8 * sealed.size());
    std::memcpy(copy + 1, sealed.data(), 8 * words);
  }

  std::vector<std::uint64_t> bytes_ = std::vector<std::uint64_t>(
      Glint::Geometry::of(1, 1, static_cast<std::uint32_t>(Glint::slotBytes(GetParam())))
          .fileBytes /
      8);
  Glint::TableView view_{static_cast<std::byte*>(static_cast<void*>(bytes_.data())), header()};
};

TEST_P(CheckedSlot, EachCopyChecksOutUnderItsOwnSeqAlone) {
  const Seq first(3, true, 0);
  const Seq second(4, true, 1);
  publish(first);
  EXPECT_TRUE(view_.rowChecksOut(0, first));
  EXPECT_FALSE(view_.rowChecksOut(0, second));
  publish(second);
  EXPECT_TRUE(view_.rowChecksOut(0, first));
  EXPECT_TRUE(view_.rowChecksOut(0, second));
  EXPECT_FALSE(view_.rowChecksOut(0, Seq(5, true, 1)));
}

TEST_P(CheckedSlot, TheLastByteOfARowCounts) {
  const Seq seq(3, true, 1);
  publish(seq);
  view_.copyAt(0, 1)[Glint::rowWords(GetParam())] ^= std::uint64_t{1} << 63;
  EXPECT_FALSE(view_.rowChecksOut(0, seq));
}

TEST_P(CheckedSlot, TheKeyIsThatOfTheCopyThatTheSeqNames) {
  publish(Seq(3, true, 1));
  EXPECT_EQ(view_.keyBits(0, Seq(3, true, 1)), 0x01010101U);
  EXPECT_EQ(view_.keyBits(0, Seq(2, true, 0)), 0U);
}

INSTANTIATE_TEST_SUITE_P(RowsOfAllSizes, CheckedSlot,
                         testing::Values(4U, 8U, 9U, 56U, Glint::kPageBytes - 1,
                                         Glint::kPageBytes));

TEST(CheckedCopy, NoMoreSlotsAreInUseThanThereAre) {
  Glint::FixedHeader header{};
  header.slotCount = 100;
  std::vector<std::byte> file(4 * Glint::kPageBytes);
  const Glint::TableView view(file.data(), header);
  for (const std::uint32_t slots : {0U, 99U, 100U, 101U, UINT32_MAX}) {
    EXPECT_EQ(view.canBeInUse(Counter::of(slots)), slots <= 100) << slots;
  }
  EXPECT_FALSE(view.canBeInUse(Counter(50)));  // without its check
}

TEST(Scratchpad, HoldsWhatWasPublishedLastAndWhatWasBefore) {
  Glint::ScratchpadSlot pad{};
  const Seq first = Seq(0, true, 0).published();
  const Seq second = first.published();
  publishScratchpad(pad, Seq(0, true, 0), 71);
  EXPECT_EQ(pad.seq, first.word());
  publishScratchpad(pad, first, 72);
  EXPECT_EQ(pad.seq, second.word());
  std::uint64_t value = 0;
  EXPECT_TRUE(scratchpadChecksOut(pad, second, value));
  EXPECT_EQ(value, 72U);
  EXPECT_TRUE(scratchpadChecksOut(pad, first, value));
  EXPECT_EQ(value, 71U);
  EXPECT_FALSE(scratchpadChecksOut(pad, second.published(), value));
  EXPECT_FALSE(scratchpadChecksOut(pad, Seq(0, true, 1), value));
}

TEST(Scratchpad, ReadingTellsAChangeFromDamage) {
  Glint::ScratchpadSlot pad{};
  const Seq seq = Seq(0, true, 0).published();
  publishScratchpad(pad, Seq(0, true, 0), 71);
  std::uint64_t value = 0;
  EXPECT_EQ(readScratchpad(pad, seq, value), CopyState::good);
  EXPECT_EQ(value, 71U);
  EXPECT_EQ(readScratchpad(pad, Seq(0, true, 0), value), CopyState::changed);
  pad.copies[seq.copy()].value = 70;
  EXPECT_EQ(readScratchpad(pad, seq, value), CopyState::damaged);
}

}  // namespace
