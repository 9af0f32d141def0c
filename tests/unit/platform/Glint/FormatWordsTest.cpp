// SPDX-License-Identifier: Apache-2.0

// The words of a table file: what they hold, and that no flipped bit in one goes unseen.

#include <set>

#include <gtest/gtest.h>

#include "format/Format.h"

namespace {

using Glint::Counter;
using Glint::Link;
using Glint::Seq;

template <typename Word>
int unseenFlips(std::uint64_t word, int bits) {
  int unseen = 0;
  for (int bit = 0; bit < bits; ++bit) {
    using Raw = decltype(std::declval<Word>().word());
    unseen += Word(static_cast<Raw>(word ^ std::uint64_t{1} << bit)).valid() ? 1 : 0;
  }
  return unseen;
}

TEST(FormatWords, SeqHoldsVersionStateAndCopy) {
  const Seq seq(12345, true, 1);
  EXPECT_TRUE(seq.valid());
  EXPECT_TRUE(seq.live());
  EXPECT_EQ(seq.copy(), 1U);
  EXPECT_EQ(seq.version(), 12345U);
}

TEST(FormatWords, PublishingFlipsTheCopyAndRaisesTheVersion) {
  const Seq dead(7, false, 0);
  EXPECT_EQ(dead.published(), Seq(8, true, 1));
  EXPECT_EQ(dead.published().published(), Seq(9, true, 0));
  EXPECT_EQ(dead.published().deleted(), Seq(9, false, 1));
  EXPECT_EQ(dead.published().deleted().beforeDelete(), dead.published());
}

TEST(FormatWords, EveryFlippedBitOfASeqShows) {
  for (const std::uint64_t version : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xFFFF},
                                      Seq::kVersionLimit - 1, Seq::kVersionLimit}) {
    for (const unsigned copy : {0U, 1U}) {
      EXPECT_EQ(unseenFlips<Seq>(Seq(version, false, copy).word(), 64), 0) << version;
      EXPECT_EQ(unseenFlips<Seq>(Seq(version, true, copy).word(), 64), 0) << version;
    }
  }
}

TEST(FormatWords, EveryFlippedBitOfALinkShows) {
  EXPECT_EQ(unseenFlips<Link>(Link::end().word(), 32), 0);
  for (const std::uint32_t slot : {0U, 1U, 255U, 65535U, Link::kMaxSlots - 1}) {
    EXPECT_EQ(unseenFlips<Link>(Link::to(slot).word(), 32), 0) << slot;
    EXPECT_EQ(Link::to(slot).slot(), slot);
    EXPECT_FALSE(Link::to(slot).atEnd());
  }
}

TEST(FormatWords, EveryFlippedBitOfACounterShows) {
  for (const std::uint32_t value : {0U, 1U, 100000U, UINT32_MAX}) {
    EXPECT_EQ(unseenFlips<Counter>(Counter::of(value).word(), 64), 0) << value;
    EXPECT_EQ(Counter::of(value).value(), value);
  }
}

TEST(FormatWords, AZeroedWordIsNeverValid) {
  EXPECT_FALSE(Seq(0).valid());
  EXPECT_FALSE(Link(0).valid());
  EXPECT_FALSE(Counter(0).valid());
}

TEST(FormatWords, OnlyARetiredSlotHasTheLastVersion) {
  EXPECT_TRUE(Seq::retiredSlot().valid());
  EXPECT_TRUE(Seq::retiredSlot().retired());
  EXPECT_FALSE(Seq(Seq::kVersionLimit - 1, false, 0).retired());
  EXPECT_FALSE(Seq(Seq::kVersionLimit, true, 0).retired());
}

TEST(FormatWords, RisingKeysFillBucketsEvenlyAndMixedOnesSpread) {
  std::set<std::uint32_t> identity;
  std::set<std::uint32_t> mixed;
  for (std::uint64_t key = 5000; key < 5000 + 1024; ++key) {
    identity.insert(Glint::bucketOf(key, Glint::KeyHash::identity, 1024));
    mixed.insert(Glint::bucketOf(key * 1024, Glint::KeyHash::mixing, 1024));
  }
  EXPECT_EQ(identity.size(), 1024U);
  EXPECT_GT(mixed.size(), 500U);  // multiples of the bucket count share one bucket unmixed
}

}  // namespace
