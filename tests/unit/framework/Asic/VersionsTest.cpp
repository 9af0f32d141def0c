// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "Asic/SwTableBase.h"
#include "Asic/Versions.h"
#include "testing/Printers.h"

namespace {

using namespace Asic;

constexpr std::uint64_t kAllOnes = std::numeric_limits<std::uint64_t>::max();

template <typename T>
std::string text(const T& value) {
  EXPECT_EQ(fmt::format("{}", value), valueToStrep(value));
  return valueToStrep(value);
}

TEST(LogVersionTest, ComparesTheHigh32BitsThenTheLowUnsigned) {
  const std::uint64_t rising[] = {
      0,           1,           0x7FFFFFFF,         0x80000000,         0xFFFFFFFF,
      0x100000000, 0x100000001, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, kAllOnes};
  for (const std::uint64_t a : rising) {
    for (const std::uint64_t b : rising) {
      EXPECT_EQ(LogVersion(a) < LogVersion(b), a < b) << a << " " << b;
      EXPECT_EQ(LogVersion(a) <= LogVersion(b), a <= b) << a << " " << b;
      EXPECT_EQ(LogVersion(a) > LogVersion(b), a > b) << a << " " << b;
      EXPECT_EQ(LogVersion(a) >= LogVersion(b), a >= b) << a << " " << b;
      EXPECT_EQ(LogVersion(a) == LogVersion(b), a == b) << a << " " << b;
    }
  }
}

TEST(LogVersionTest, DefaultsToZeroAndPrintsDecimal) {
  EXPECT_EQ(LogVersion().value(), 0U);
  EXPECT_EQ(text(LogVersion(kAllOnes)), "18446744073709551615");
}

TEST(MajorVersionTest, IsInvalidForAllOnesOnly) {
  EXPECT_FALSE(MajorVersion(kAllOnes).valid());
  EXPECT_FALSE(MajorVersion().valid());
  EXPECT_TRUE(MajorVersion(kAllOnes - 1).valid());
  EXPECT_TRUE(MajorVersion(0).valid());
}

TEST(MajorVersionTest, CountsIn64BitsAndWraps) {
  EXPECT_EQ((MajorVersion(0xFFFFFFFF) + 1).value(), 0x100000000U);
  EXPECT_EQ((MajorVersion(0) - 1).value(), kAllOnes);
  EXPECT_FALSE((MajorVersion(0) - 1).valid());
  EXPECT_EQ(MajorVersion(kAllOnes) + 1, MajorVersion(0));
  EXPECT_EQ(text(MajorVersion(12)), "12");
}

TEST(EntryVersionTest, ZeroIsValidAndAllOnesIsNot) {
  EXPECT_TRUE(EntryVersion().valid());
  EXPECT_TRUE(EntryVersion(0, 0).valid());
  EXPECT_TRUE(EntryVersion(kAllOnes - 1, 0xFFFF).valid());
  EXPECT_FALSE(EntryVersion(kAllOnes, 0).valid());
  EXPECT_TRUE(EntryVersion::isEq(EntryVersion(), EntryVersion(0, 0)));
}

TEST(EntryVersionTest, IsEqComparesBothParts) {
  EXPECT_TRUE(EntryVersion::isEq({5, 2}, {5, 2}));
  EXPECT_FALSE(EntryVersion::isEq({5, 2}, {6, 2}));
  EXPECT_FALSE(EntryVersion::isEq({5, 2}, {5, 3}));
  EXPECT_FALSE(EntryVersion::isEq({5, 0}, {0x100000005, 0}));
  EXPECT_EQ(text(EntryVersion(5, 2)), "5.2");
}

TEST(SwTableIdTest, GivesItsPartsAndPrintsThem) {
  constexpr SwTableId kFec{0x03010805};
  EXPECT_EQ(kFec.agentId(), 0x03);
  EXPECT_EQ(kFec.groupId(), 0x01);
  EXPECT_EQ(kFec.tblId(), 0x0805);
  EXPECT_EQ(kFec.agentAndGroupId(), 0x0301);
  EXPECT_EQ(text(kFec), "03:01:0805");
}

TEST(SwTableIdTest, PrintsEachPartAtItsFullWidth) {
  EXPECT_EQ(text(SwTableId(0)), "00:00:0000");
  EXPECT_EQ(text(SwTableId(0xFFFEFDFC)), "ff:fe:fdfc");
  EXPECT_EQ(SwTableId(0xFFFEFDFC).agentAndGroupId(), 0xFFFE);
  EXPECT_NE(SwTableId(1), SwTableId(0x00010001));
  EXPECT_LT(SwTableId(0x0000FFFF), SwTableId(0x00010001)) << "ordered by all their bits";
  EXPECT_LT(SwTableId(0x0301FFFF), SwTableId(0x03020000));
}

TEST(TableVersionTest, HoldsATableAndItsVersion) {
  const TableVersion version(SwTableId(0x03010805), LogVersion(77));
  EXPECT_EQ(version.tableId(), SwTableId(0x03010805));
  EXPECT_EQ(version.logVersion(), LogVersion(77));
  EXPECT_EQ(text(version), "03:01:0805@77");
  EXPECT_EQ(version, TableVersion(SwTableId(0x03010805), LogVersion(77)));
  EXPECT_NE(version, TableVersion(SwTableId(0x03010805), LogVersion(78)));
  EXPECT_NE(version, TableVersion(SwTableId(0x03010806), LogVersion(77)));
}

TEST(UnitIdTest, IsA16BitNumberThatPrintsDecimal) {
  EXPECT_EQ(sizeof(UnitId), 2U);
  EXPECT_NE(UnitId(0x0101), UnitId(0x0001));
  EXPECT_LT(UnitId(0x00FF), UnitId(0x0100));
  EXPECT_EQ(text(UnitId(0)), "0");
  EXPECT_EQ(text(UnitId(65535)), "65535");
}

TEST(UnitIdTest, MapsHashItsSixteenBitsUnderTheirOwnSalt) {
  constexpr std::uint32_t kSalt = 0x525a0dd4;
  const std::size_t hash = UnitIdHash<kSalt>()(UnitId(3));
  EXPECT_EQ(hash, Zev::hashSingleAttr(Zev::HashHelper::hashSeed32() ^ kSalt, std::uint16_t{3}));
  EXPECT_NE(hash, UnitIdHash<kSalt + 1>()(UnitId(3)));
}

TEST(SwTableIdTest, MapsHashItsThirtyTwoBitsUnderTheirOwnSalt) {
  constexpr std::uint32_t kSalt = 0x1234;
  EXPECT_EQ(SwTableIdHash<kSalt>()(SwTableId(0x03010007)),
            Zev::hashSingleAttr(Zev::HashHelper::hashSeed32() ^ kSalt, std::uint32_t{0x03010007}));
}

TEST(EntryFlagsTest, HaveTheirValuesInEightBits) {
  EXPECT_EQ(sizeof(EntryFlags), 1U);
  EXPECT_EQ(EntryFlags::write().value(), 0);
  EXPECT_EQ(EntryFlags::entryDelete().value(), 1);
  EXPECT_EQ(EntryFlags::tableDelete().value(), 2);
  EXPECT_EQ(EntryFlags(), EntryFlags::write());
}

TEST(EntryStateTest, HasItsNumbersInEightBits) {
  static_assert(sizeof(SwTableBase::EntryState) == 1);
  EXPECT_EQ(static_cast<int>(EntryState::notResolved), 0);
  EXPECT_EQ(static_cast<int>(EntryState::hwWritePending), 1);
  EXPECT_EQ(static_cast<int>(EntryState::dependencyFailed), 2);
  EXPECT_EQ(static_cast<int>(EntryState::done), 3);
  EXPECT_EQ(static_cast<int>(EntryState::commitFailed), 4);
  EXPECT_EQ(static_cast<int>(EntryState::resourceFailed), 5);
  EXPECT_EQ(SwTableBase::success(), EntryState::done);
}

TEST(EntryStateTest, PrintsItsNumberAlsoWhenItHasNoName) {
  std::ostringstream stream;
  stream << EntryState::commitFailed << ' ' << static_cast<EntryState>(255);
  EXPECT_EQ(stream.str(), "4 255");
  EXPECT_EQ(text(static_cast<EntryState>(6)), "6");
}

TEST(OrderedTableTypeTest, HasItsNumbersInEightBits) {
  EXPECT_EQ(sizeof(OrderedTableType), 1U);
  EXPECT_EQ(static_cast<int>(OrderedTableType::orderedSwTable), 0);
  EXPECT_EQ(static_cast<int>(OrderedTableType::partiallyOrderedSwTable), 1);
  EXPECT_EQ(static_cast<int>(OrderedTableType::resourceTable), 2);
}

}  // namespace
