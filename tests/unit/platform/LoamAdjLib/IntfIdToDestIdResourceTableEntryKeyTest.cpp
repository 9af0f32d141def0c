// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"
#include "Zev/Hash.h"
#include "testing/Printers.h"

namespace {

using Key = LoamAdjLib::IntfIdToDestIdResourceTableEntryKey;

Key key(const char* name) { return Key(Wirex::IntfId::fromName(name)); }

TEST(ResourceKeyTest, TheDefaultKeyIsThatOfTheEmptyNameAndMeansNoResource) {
  EXPECT_TRUE(Key().isNull());
  EXPECT_EQ(Key(), key(""));
  EXPECT_EQ(Key().intfId().value(), 0U);
  EXPECT_FALSE(key("eth1").isNull());
}

TEST(ResourceKeyTest, KeysOfOneInterfaceAreEqualAndOthersAreNot) {
  EXPECT_TRUE(Key::isEq(key("eth1"), key("eth1")));
  EXPECT_FALSE(Key::isEq(key("eth1"), key("eth2")));
  EXPECT_EQ(key("eth1"), key("eth1"));
  EXPECT_NE(key("eth1"), key("eth2"));
}

TEST(ResourceKeyTest, KeysAreOrderedByTheirIdentifiersValues) {
  const Key low(Wirex::IntfId::fromValue(1));
  const Key high(Wirex::IntfId::fromValue(std::uint64_t{1} << 63));
  EXPECT_LT(low, high);
  EXPECT_THAT(high, ::testing::Not(::testing::Lt(low)));
  EXPECT_THAT(low, ::testing::Not(::testing::Lt(Key(Wirex::IntfId::fromValue(1)))));
}

TEST(ResourceKeyTest, AKeyPrintsAsTheNameOfItsInterface) {
  EXPECT_EQ(fmt::format("{}", key("Ethernet3/1/2.100")), "Ethernet3/1/2.100");
  EXPECT_EQ(fmt::format("{}", Key()), "");
}

TEST(ResourceKeyTest, AMapsHashIsThatOfAll64BitsUnderTheProcessSeedAndItsSalt) {
  constexpr std::uint32_t kSalt = 0x94914ce4;
  const std::uint64_t value = 0x0123456789abcdefULL;
  EXPECT_EQ(LoamAdjLib::ResourceKeyHash<kSalt>()(Key(Wirex::IntfId::fromValue(value))),
            Zev::hashSingleAttr(Zev::HashHelper::hashSeed32() ^ kSalt, value));
}

}  // namespace
