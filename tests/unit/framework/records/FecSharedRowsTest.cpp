// SPDX-License-Identifier: Apache-2.0

#include <cstring>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "records/FecSharedRows.h"
#include "testing/Printers.h"

namespace {

using namespace LoamFec;
using Asic::LogVersion;
using Asic::UnitId;
using ::testing::ElementsAreArray;

using LogRow = FecTableDataModelLogGlintEntry;
using ConfigRow = FecTableDataModelConfigGlintEntry;

template <typename Row>
std::vector<unsigned char> bytesOf(const Row& row) {
  std::vector<unsigned char> bytes(sizeof row);
  std::memcpy(bytes.data(), &row, sizeof row);
  return bytes;
}

// The 44 bytes of the default log entry, with that key.
std::vector<unsigned char> logEntryBytes(unsigned char key) {
  std::vector<unsigned char> bytes(44, 0);
  bytes[0] = key;
  bytes[8] = bytes[9] = bytes[32] = bytes[33] = 0xFF;
  return bytes;
}

void append(std::vector<unsigned char>& bytes, const std::vector<unsigned char>& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

FecTableDataModelLogEntry logEntry(std::uint32_t key) {
  FecTableDataModelLogEntry logged;
  logged.key = FecTableDataModelEntryKey(key);
  return logged;
}

TEST(LogRowTest, TheBytesOfARowStandAtTheirOffsets) {
  const LogRow row(LogVersion(0x0102030405060708), LogRow::kEntryDeleted, UnitId(0x0A0B),
                   logEntry(7));
  std::vector<unsigned char> expected = {8, 7, 6, 5, 4, 3, 2, 1, 1, 0, 0x0B, 0x0A};
  append(expected, logEntryBytes(7));
  ASSERT_EQ(expected.size(), 56U);
  EXPECT_THAT(bytesOf(row), ElementsAreArray(expected));
}

TEST(LogRowTest, OffsetsAreThoseOfTheFormat) {
  static_assert(sizeof(LogRow) == 56);
  EXPECT_EQ(LogRow::Layout::kVersion, 0U);
  EXPECT_EQ(LogRow::Layout::kOperation, 8U);
  EXPECT_EQ(LogRow::Layout::kUnitId, 10U);
  EXPECT_EQ(LogRow::Layout::kLogEntry, 12U);
}

TEST(LogRowTest, OperationsAreBitValues) {
  EXPECT_EQ(LogRow::kEntryWritten, 0);
  EXPECT_EQ(LogRow::kEntryDeleted, 1);
  EXPECT_EQ(LogRow::kTableDeleted, 2);
}

TEST(LogRowTest, GivesBackWhatItWasMadeOf) {
  const LogRow row(LogVersion(9), LogRow::kEntryWritten, UnitId(65535), logEntry(4));
  EXPECT_EQ(row.version(), LogVersion(9));
  EXPECT_EQ(row.operation(), 0);
  EXPECT_EQ(row.unitId(), UnitId(65535));
  EXPECT_THAT(row.logEntry(), testing_support::IsEq(logEntry(4)));
}

TEST(LogRowTest, IsKeyedByItsVersionAndRisesWithIt) {
  using Traits = Glint::RowTraits<LogRow>;
  EXPECT_EQ(Traits::key(LogRow(LogVersion(9), 0, UnitId(), {})), LogVersion(9));
  EXPECT_EQ(Traits::keyBits(LogVersion(9)), 9U);
  EXPECT_TRUE(Traits::kRisingKeys);
  EXPECT_EQ(Traits::physicalSlots(100000), 100000U + 16 * 65536U);
}

TEST(ConfigRowTest, TheBytesOfARowStandAtTheirOffsets) {
  const ConfigRow row(logEntry(7), {Wirex::IntfId::fromValue(0x1112131415161718)},
                      LogVersion(0x0102030405060708), true);
  std::vector<unsigned char> expected = logEntryBytes(7);
  append(expected, {0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11});
  append(expected, {8, 7, 6, 5, 4, 3, 2, 1, 1, 0, 0, 0});
  ASSERT_EQ(expected.size(), 64U);
  EXPECT_THAT(bytesOf(row), ElementsAreArray(expected));
}

TEST(ConfigRowTest, OffsetsAreThoseOfTheFormat) {
  static_assert(sizeof(ConfigRow) == 64);
  EXPECT_EQ(ConfigRow::Layout::kLogEntry, 0U);
  EXPECT_EQ(ConfigRow::Layout::kRsrcKeys, 44U);
  EXPECT_EQ(ConfigRow::Layout::kVersion, 52U);
  EXPECT_EQ(ConfigRow::Layout::kIsDeleted, 60U);
}

TEST(ConfigRowTest, GivesBackWhatItWasMadeOf) {
  const Wirex::IntfId eth1 = Wirex::IntfId::fromName("eth1");
  const ConfigRow row(logEntry(4), {eth1}, LogVersion(9), false);
  EXPECT_EQ(row.key(), FecTableDataModelEntryKey(4));
  EXPECT_EQ(row.rsrcKeys().intfId, eth1);
  EXPECT_EQ(row.version(), LogVersion(9));
  EXPECT_FALSE(row.isDeleted());
  EXPECT_TRUE(ConfigRow(logEntry(4), {eth1}, LogVersion(9), true).isDeleted());
}

TEST(ConfigRowTest, ADefaultRowIsALiveDefaultEntryWithoutAnInterface) {
  EXPECT_FALSE(ConfigRow().isDeleted());
  EXPECT_EQ(ConfigRow().version(), LogVersion());
  EXPECT_TRUE(ConfigRow().rsrcKeys().intfId.isNull());
  EXPECT_THAT(ConfigRow().logEntry(), testing_support::IsEq(FecTableDataModelLogEntry{}));
}

TEST(ConfigRowTest, IsKeyedByTheEntrysKey) {
  using Traits = Glint::RowTraits<ConfigRow>;
  EXPECT_EQ(Traits::key(ConfigRow(logEntry(4), {}, {}, false)), FecTableDataModelEntryKey(4));
  EXPECT_EQ(Traits::keyBits(FecTableDataModelEntryKey(0xFFFFFFFF)), 0xFFFFFFFFU);
  EXPECT_FALSE(Traits::kRisingKeys);
  EXPECT_EQ(Traits::physicalSlots(65536), 131072U);
}

}  // namespace
