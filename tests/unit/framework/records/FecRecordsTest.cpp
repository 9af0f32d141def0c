// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fec/FecTableSwTable.h"
#include "records/FecRecords.h"
#include "testing/Printers.h"

namespace {

using namespace LoamFec;
using ::testing::Each;
using testing_support::IsEq;

FecTableDataModelLogEntry filledLogEntry() {
  FecTableDataModelLogEntry logged;
  logged.key = FecTableDataModelEntryKey(0x01020304);
  logged.flagA = 0x05;
  logged.clientDest = {.first = 0x0A0B0C0D, .second = 0x0E0F, .third = 0x10111213};
  logged.opaqueA = 0x14151617;
  logged.opaqueB = 0x18191A1B;
  logged.flagB = 0x1C;
  logged.resolvedDest = {.first = 0x1D1E1F20, .second = 0x2122, .third = 0x23242526};
  return logged;
}

const Wirex::IntfId kEth1 = Wirex::IntfId::fromName("eth1");

TEST(FecKeyTest, KeysOfOneIdentifierAreEqualAndPrintAlike) {
  const FecTableDataModelEntryKey a(4000000000);
  const FecTableDataModelEntryKey b(4000000000);
  EXPECT_TRUE(FecTableDataModelEntryKey::isEq(a, b));
  EXPECT_EQ(a, b);
  EXPECT_FALSE(FecTableDataModelEntryKey::isEq(a, FecTableDataModelEntryKey(4000000001)));
  EXPECT_EQ(valueToStrep(a), "4000000000");
  EXPECT_EQ(fmt::format("{}", b), valueToStrep(a));
  EXPECT_EQ(sizeof(FecTableDataModelEntryKey), 4U);
  EXPECT_EQ(FecTableDataModelEntryKey().fecId(), 0U);
}

TEST(FecKeyTest, KeysAreOrderedByTheNumberOfTheIdentifier) {
  const std::set<FecTableDataModelEntryKey> keys = {
      FecTableDataModelEntryKey(0xFFFFFFFF), FecTableDataModelEntryKey(0x80000000),
      FecTableDataModelEntryKey(2), FecTableDataModelEntryKey(10)};
  std::vector<std::uint32_t> inOrder;
  for (const FecTableDataModelEntryKey& key : keys) {
    inOrder.push_back(key.fecId());
  }
  EXPECT_THAT(inOrder, ::testing::ElementsAre(2U, 10U, 0x80000000U, 0xFFFFFFFFU));
  EXPECT_THAT(FecTableDataModelEntryKey(2),
              ::testing::Not(::testing::Lt(FecTableDataModelEntryKey(2))));
}

template <typename Map>
struct HashOf;
template <typename Key, typename Value, typename Hash>
struct HashOf<Pell::HashMap<Key, Value, Hash>> {
  using Type = Hash;
};
template <typename Map>
using HashOfMap = typename HashOf<std::remove_cvref_t<Map>>::Type;

TEST(FecKeyTest, EachMapOfATableHashesKeysUnderTheProcessSeedAndASaltOfItsOwn) {
  constexpr std::uint32_t kSeed = 0x9e3779b9;
  using Table = FecTableSwTable;
  const HashOfMap<decltype(std::declval<Table>().transientAddEntry())> add;
  const HashOfMap<decltype(std::declval<Table>().transientRemoveEntry())> remove;
  const HashOfMap<decltype(std::declval<Table>().transientVersionForKey())> version;
  for (const std::uint32_t fecId : {0U, 1U, 0xFFFFFFFFU}) {
    const FecTableDataModelEntryKey key(fecId);
    EXPECT_EQ(add(key), Zev::hashSingleAttr(kSeed ^ 0xaead84daU, fecId));
    EXPECT_EQ(remove(key), Zev::hashSingleAttr(kSeed ^ 0x1f3dfcebU, fecId));
    EXPECT_EQ(version(key), Zev::hashSingleAttr(kSeed ^ 0x4554b525U, fecId));
  }
}

TEST(FecKeyTest, OneKeyLandsInDifferentPlacesOfDifferentMaps) {
  int same = 0;
  for (std::uint32_t fecId = 0; fecId < 1000; ++fecId) {
    const FecTableDataModelEntryKey key(fecId);
    const auto added = FecKeyHash<FecTableSwTable::kTransientAddEntrySalt>()(key) % 1024;
    const auto removed = FecKeyHash<FecTableSwTable::kTransientRemoveEntrySalt>()(key) % 1024;
    const auto version = FecKeyHash<FecTableSwTable::kTransientVersionForKeySalt>()(key) % 1024;
    same += added == removed ? 1 : 0;
    same += added == version ? 1 : 0;
    same += removed == version ? 1 : 0;
  }
  EXPECT_LT(same, 30);  // about one of 1024 by chance, for each two
}

TEST(FecEntryTest, ADefaultEntryHasNoDestinationsZerosAndTheNullInterface) {
  const FecTableDataModelEntry entry;
  EXPECT_EQ(entry.key.fecId(), 0U);
  EXPECT_EQ(entry.flagA, 0);
  EXPECT_EQ(entry.clientDest.first, 0xFFFFU);
  EXPECT_EQ(entry.clientDest.second, 0);
  EXPECT_EQ(entry.clientDest.third, 0U);
  EXPECT_EQ(entry.opaqueA, 0U);
  EXPECT_EQ(entry.opaqueB, 0U);
  EXPECT_EQ(entry.flagB, 0);
  EXPECT_EQ(entry.resolvedDest.first, 0xFFFFU);
  EXPECT_EQ(entry.resolvedDest.second, 0);
  EXPECT_EQ(entry.resolvedDest.third, 0U);
  EXPECT_EQ(entry.intfId, Wirex::IntfId::fromName(""));
  EXPECT_TRUE(entry.intfId.isNull());
}

TEST(FecEntryTest, FieldsHaveTheirWidths) {
  static_assert(sizeof(FecTableDataModelEntry::flagA) == 1);
  static_assert(sizeof(FecTableDataModelEntry::flagB) == 1);
  static_assert(sizeof(FecTableDataModelEntry::opaqueA) == 4);
  static_assert(sizeof(FecTableDataModelEntry::opaqueB) == 4);
  static_assert(sizeof(FecDestination::first) == 4);
  static_assert(sizeof(FecDestination::second) == 2);
  static_assert(sizeof(FecDestination::third) == 4);
  static_assert(sizeof(FecTableDataModelEntry::intfId) == 8);
  SUCCEED();
}

TEST(FecEntryTest, WhatIsLoggedAndTheResourceKeysGiveTheEntryBack) {
  const FecTableDataModelEntry entry =
      FecTableDataModelEntry::fromLog(filledLogEntry(), FecTableDataModelResourceKeys{kEth1});
  EXPECT_EQ(entry.intfId, kEth1);
  EXPECT_THAT(entry.logEntry(), IsEq(filledLogEntry()));
  EXPECT_EQ(entry.resourceKeys().intfId, kEth1);
  EXPECT_THAT(FecTableDataModelEntry::fromLog(entry.logEntry(), entry.resourceKeys()), IsEq(entry));
}

TEST(FecLogEntryTest, TheBytesOfALogEntryStandAtTheirOffsets) {
  const FecTableDataModelLogEntry logged = filledLogEntry();
  ASSERT_EQ(sizeof logged, 44U);
  unsigned char bytes[44];
  std::memcpy(bytes, &logged, sizeof bytes);
  const unsigned char expected[44] = {
      0x04, 0x03, 0x02, 0x01, 0x05, 0,    0,    0,     // key, flag
      0x0D, 0x0C, 0x0B, 0x0A, 0x0F, 0x0E, 0,    0,     // first triple
      0x13, 0x12, 0x11, 0x10, 0x17, 0x16, 0x15, 0x14,  // its third word, field at 20
      0x1B, 0x1A, 0x19, 0x18, 0x1C, 0,    0,    0,     // field at 24, flag
      0x20, 0x1F, 0x1E, 0x1D, 0x22, 0x21, 0,    0,     // second triple
      0x26, 0x25, 0x24, 0x23};
  EXPECT_THAT(bytes, ::testing::ElementsAreArray(expected));
}

TEST(FecLogEntryTest, ADefaultLogEntryIs0xFFFFAtOffsets8And32AndZeroElsewhere) {
  const FecTableDataModelLogEntry logged;
  unsigned char bytes[44];
  std::memcpy(bytes, &logged, sizeof bytes);
  std::vector<unsigned char> expected(44, 0);
  expected[8] = expected[9] = expected[32] = expected[33] = 0xFF;
  EXPECT_THAT(bytes, ::testing::ElementsAreArray(expected));
}

TEST(FecLogEntryTest, IsEqSeesAChangeOfEachField) {
  const std::vector<std::function<void(FecTableDataModelLogEntry&)>> changes = {
      [](auto& e) { e.key = FecTableDataModelEntryKey(9); },
      [](auto& e) { e.flagA ^= 1; },
      [](auto& e) { e.clientDest.first ^= 1; },
      [](auto& e) { e.clientDest.second ^= 1; },
      [](auto& e) { e.clientDest.third ^= 1; },
      [](auto& e) { e.opaqueA ^= 1; },
      [](auto& e) { e.opaqueB ^= 1; },
      [](auto& e) { e.flagB ^= 1; },
      [](auto& e) { e.resolvedDest.first ^= 1; },
      [](auto& e) { e.resolvedDest.second ^= 1; },
      [](auto& e) { e.resolvedDest.third ^= 1; }};
  EXPECT_TRUE(FecTableDataModelLogEntry::isEq(filledLogEntry(), filledLogEntry()));
  for (std::size_t i = 0; i < changes.size(); ++i) {
    FecTableDataModelLogEntry changed = filledLogEntry();
    changes[i](changed);
    EXPECT_FALSE(FecTableDataModelLogEntry::isEq(changed, filledLogEntry())) << i;
  }
}

TEST(FecLogEntryTest, IsEqIgnoresTheBytesBetweenTheFields) {
  FecTableDataModelLogEntry noisy = filledLogEntry();
  for (int i = 0; i < 3; ++i) {
    noisy.zero5[i] = 0xFF;
    noisy.zero29[i] = 0xFF;
  }
  noisy.clientDest.zero6 = 0xFFFF;
  noisy.resolvedDest.zero6 = 0xFFFF;
  EXPECT_TRUE(FecTableDataModelLogEntry::isEq(noisy, filledLogEntry()));
}

TEST(FecEntryTest, WhatIsLoggedOfAnEntryHasZerosBetweenItsFields) {
  FecTableDataModelEntry entry =
      FecTableDataModelEntry::fromLog(filledLogEntry(), FecTableDataModelResourceKeys());
  const FecTableDataModelLogEntry logged = entry.logEntry();
  EXPECT_THAT(logged.zero5, Each(0));
  EXPECT_THAT(logged.zero29, Each(0));
  EXPECT_EQ(logged.clientDest.zero6, 0);
  EXPECT_EQ(logged.resolvedDest.zero6, 0);
}

TEST(FecEntryTest, IsEqComparesTheInterfaceToo) {
  const auto entry = FecTableDataModelEntry::fromLog(filledLogEntry(), {kEth1});
  auto other = entry;
  EXPECT_TRUE(FecTableDataModelEntry::isEq(entry, other));
  other.intfId = Wirex::IntfId();
  EXPECT_FALSE(FecTableDataModelEntry::isEq(entry, other));
  other = entry;
  other.opaqueB ^= 1;
  EXPECT_FALSE(FecTableDataModelEntry::isEq(entry, other));
}

TEST(FecRecordsTest, RecordsPrintTheirFieldsAndTheFormatterPrintsTheSame) {
  const std::string logText =
      "key:16909060 flagA:5 clientDest:0xa0b0c0d/3599/269554195 opaqueA:336926231 "
      "opaqueB:404298267 flagB:28 resolvedDest:0x1d1e1f20/8482/589571366";
  EXPECT_EQ(valueToStrep(filledLogEntry()), logText);
  EXPECT_EQ(fmt::format("{}", filledLogEntry()), logText);
  const auto entry = FecTableDataModelEntry::fromLog(filledLogEntry(), {kEth1});
  EXPECT_EQ(valueToStrep(entry), logText + " intfId:eth1");
  EXPECT_EQ(fmt::format("{}", entry), logText + " intfId:eth1");
}

TEST(FecResourceKeysTest, HoldTheInterfaceInEightBytesAndCompareIt) {
  EXPECT_EQ(sizeof(FecTableDataModelResourceKeys), 8U);
  EXPECT_TRUE(FecTableDataModelResourceKeys().intfId.isNull());
  EXPECT_TRUE(FecTableDataModelResourceKeys::isEq({kEth1}, {kEth1}));
  EXPECT_FALSE(FecTableDataModelResourceKeys::isEq({kEth1}, {}));
}

TEST(FecResourceTableKeyTest, IsOneInterfaceThatComparesOrdersPrintsAndHashes) {
  using Key = LoamAdjLib::IntfIdToDestIdResourceTableEntryKey;
  const Key eth1(kEth1);
  const Key eth2(Wirex::IntfId::fromName("eth2"));
  EXPECT_TRUE(Key::isEq(eth1, Key(Wirex::IntfId::fromName("eth1"))));
  EXPECT_FALSE(Key::isEq(eth1, eth2));
  EXPECT_LT(eth1, eth2);
  EXPECT_THAT(eth2, ::testing::Not(::testing::Lt(eth1)));
  EXPECT_THAT(eth1, ::testing::Not(::testing::Lt(eth1)));
  EXPECT_TRUE(Key().isNull());
  EXPECT_FALSE(eth1.isNull());
  EXPECT_EQ(valueToStrep(eth1), "eth1");
  EXPECT_EQ(fmt::format("{}", eth1), "eth1");
  constexpr std::uint32_t kSalt = 0x94914ce4;
  EXPECT_EQ(LoamAdjLib::ResourceKeyHash<kSalt>()(eth1),
            Zev::hashSingleAttr(Zev::HashHelper::hashSeed32() ^ kSalt, kEth1.value()));
}

}  // namespace
