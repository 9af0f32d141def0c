// SPDX-License-Identifier: Apache-2.0

// The FEC tables' files as the first release of the format writes them: what is written today has
// the same bytes, and what was written then is read, row by row, and gone on with. A difference
// here means that a version must rise (docs/format/shared-tables.md) and that files of the old one
// are refused.

#include <cstdlib>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "GoldenState.h"
#include "SparseText.h"
#include "offline/Verify.h"
#include "testing/Printers.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"

namespace {

using Asic::LogVersion;
using Asic::SwTableId;
using Asic::TableVersion;
using format_test::ConfigRow;
using format_test::FecTables;
using format_test::kGoldenFiles;
using format_test::LogRow;
using LoamFec::FecTableDataModelEntryKey;
using LoamFec::FecTableDataModelLogEntry;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ZevGlint::ZevGlintType;

constexpr SwTableId kFec{0x03010805};

class GoldenFilesTest : public ::testing::Test {
 protected:
  std::string fileAt(const std::string& name) const { return root_.path() + "/" + name; }
  void expectClean() const {
    for (const char* name : kGoldenFiles) {
      const Glint::Verification found = Glint::verifyTable(fileAt(name));
      EXPECT_THAT(found.findings, IsEmpty()) << name;
      EXPECT_EQ(found.retiredSlots, 1U) << name;
      EXPECT_EQ(found.corruptionCount, 1U) << name;
      EXPECT_FALSE(found.changeInFlight) << name;
    }
  }

  testing_support::TemporaryRoot root_;
};

// A walk's keys, in slot order.
template <typename Map, typename KeyOf>
std::vector<std::uint64_t> keysOf(const Map& map, KeyOf&& keyOf) {
  std::vector<std::uint64_t> keys;
  for (auto at = map.iterator(); at.valid(); at.advance()) {
    keys.push_back(keyOf(at.row()));
  }
  return keys;
}

void expectEntry(const FecTableDataModelLogEntry& entry, std::uint32_t fecId, std::uint32_t seed) {
  EXPECT_EQ(entry.key.fecId(), fecId);
  EXPECT_EQ(entry.flagA, 0x10 + seed);
  EXPECT_EQ(entry.clientDest.first, 0x20212200 + seed);
  EXPECT_EQ(entry.clientDest.second, 0x2400 + seed);
  EXPECT_EQ(entry.clientDest.third, 0x28292a00 + seed);
  EXPECT_EQ(entry.opaqueA, 0x30313200 + seed);
  EXPECT_EQ(entry.opaqueB, 0x40414200 + seed);
  EXPECT_EQ(entry.flagB, 0x50 + seed);
  EXPECT_EQ(entry.resolvedDest.first, 0x60616200 + seed);
  EXPECT_EQ(entry.resolvedDest.second, 0x6400 + seed);
  EXPECT_EQ(entry.resolvedDest.third, 0x68696a00 + seed);
}

void expectDefaultEntry(const FecTableDataModelLogEntry& entry) {
  EXPECT_THAT(entry, testing_support::IsEq(FecTableDataModelLogEntry()));
}

void expectConfigRow(const FecTables& tables, std::uint32_t fecId, const char* interface,
                     std::uint64_t version, bool isDeleted) {
  const auto row = tables.config().row(FecTableDataModelEntryKey(fecId));
  ASSERT_TRUE(row) << fecId;
  EXPECT_EQ(row->rsrcKeys().intfId.name(), interface);
  EXPECT_EQ(row->version(), LogVersion(version));
  EXPECT_EQ(row->isDeleted(), isDeleted);
}

void expectGoldenConfig(const FecTables& tables) {
  EXPECT_THAT(keysOf(tables.config(), [](const ConfigRow& row) { return row.key().fecId(); }),
              ElementsAre(7, 8, 0));
  EXPECT_EQ(tables.config().rowCount(), 3U);
  expectConfigRow(tables, 7, "eth70", 6, false);
  expectConfigRow(tables, 8, "Ethernet3/1/2.100", 7, true);
  expectConfigRow(tables, 0, "", 3, false);
  expectEntry(tables.config().row(FecTableDataModelEntryKey(7))->logEntry(), 7, 6);
  expectEntry(tables.config().row(FecTableDataModelEntryKey(8))->logEntry(), 8, 2);
  expectDefaultEntry(tables.config().row(FecTableDataModelEntryKey(0))->logEntry());
  EXPECT_FALSE(tables.config().has(FecTableDataModelEntryKey(10))) << "removed";
  EXPECT_FALSE(tables.config().has(FecTableDataModelEntryKey(11))) << "retired";
  EXPECT_EQ(tables.config().control().scratchpad(), 0U);
}

void expectLogRow(const FecTables& tables, std::uint64_t version, std::uint16_t operation,
                  std::uint16_t unit) {
  const auto row = tables.log().row(LogVersion(version));
  ASSERT_TRUE(row) << version;
  EXPECT_EQ(row->version(), LogVersion(version));
  EXPECT_EQ(row->operation(), operation);
  EXPECT_EQ(row->unitId(), Asic::UnitId(unit));
}

void expectGoldenLog(const FecTables& tables) {
  EXPECT_THAT(keysOf(tables.log(), [](const LogRow& row) { return row.version().value(); }),
              ElementsAre(2, 3, 4));
  expectLogRow(tables, 2, 1, 3);
  expectLogRow(tables, 3, 0, 3);
  expectLogRow(tables, 4, 2, 5);
  expectEntry(tables.log().row(LogVersion(2))->logEntry(), 8, 2);
  expectEntry(tables.log().row(LogVersion(3))->logEntry(), 9, 6);
  expectDefaultEntry(tables.log().row(LogVersion(4))->logEntry());
  EXPECT_FALSE(tables.log().has(LogVersion(1))) << "removed";
  EXPECT_FALSE(tables.log().has(LogVersion(5))) << "retired";
  EXPECT_EQ(tables.log().control().scratchpad(), 5U);
}

// The tables are numbered from the FEC table on; each needs version `from` and its own number.
void expectNeeds(const Asic::GroupLogRow& row, std::uint32_t count, std::uint64_t from) {
  ASSERT_EQ(row.neededCount(), count);
  for (std::uint32_t i = 0; i < count; ++i) {
    EXPECT_EQ(row.needed(i), TableVersion(SwTableId(0x03010806 + i), LogVersion(from + 1 + i)));
  }
}

void expectGoldenGroup(const FecTables& tables) {
  EXPECT_THAT(keysOf(tables.group(), [](const Asic::GroupLogRow& row) { return row.sequence(); }),
              ElementsAre(2, 3, 4));
  EXPECT_EQ(tables.group().row(2)->tableVersion(), TableVersion(kFec, LogVersion(2)));
  EXPECT_EQ(tables.group().row(3)->tableVersion(),
            TableVersion(SwTableId(0x03010806), LogVersion(3)));
  EXPECT_EQ(tables.group().row(4)->tableVersion(), TableVersion(kFec, LogVersion(4)));
  expectNeeds(*tables.group().row(2), 2, 60);
  expectNeeds(*tables.group().row(3), 8, 30);
  expectNeeds(*tables.group().row(4), 0, 0);
  EXPECT_EQ(tables.group().control().scratchpad(), 5U);
}

void expectGoldenApplied(const FecTables& tables) {
  EXPECT_THAT(
      keysOf(tables.applied(),
             [](const Asic::GroupVersionRow& row) { return row.tableVersion().tableId().value(); }),
      ElementsAre(0x03010805, 0x03010806, 0x03010807));
  EXPECT_EQ(tables.applied().row(kFec)->tableVersion(),
            TableVersion(kFec, LogVersion(0x123456789)));
  EXPECT_EQ(tables.applied().row(SwTableId(0x03010807))->tableVersion().logVersion(),
            LogVersion(102));
  EXPECT_EQ(tables.applied().control().scratchpad(), 0U);
}

void expectGoldenRows(const FecTables& tables) {
  expectGoldenConfig(tables);
  expectGoldenLog(tables);
  expectGoldenGroup(tables);
  expectGoldenApplied(tables);
}

// With LOAMFEC_GOLDEN_OUT=FOLDER in the environment the texts are also written there: how the
// files of a new format version are made.
TEST_F(GoldenFilesTest, WhatIsWrittenTodayHasTheBytesOfTheFirstRelease) {
  format_test::writeGoldenState(root_.path());
  for (const std::string name : kGoldenFiles) {
    const std::string text = format_test::toText(fileAt(name));
    if (const char* folder = std::getenv("LOAMFEC_GOLDEN_OUT")) {
      std::ofstream(std::string(folder) + "/" + name + ".txt") << text;
    }
    EXPECT_EQ(text, format_test::goldenText(name)) << name;
  }
}

TEST_F(GoldenFilesTest, TheTextHoldsEveryByteOfTheFile) {
  format_test::writeGoldenState(root_.path());
  const testing_support::TemporaryRoot other;
  const std::string smallest = kGoldenFiles[3];
  const std::string restored = other.path() + "/" + smallest;
  format_test::fromText(format_test::toText(fileAt(smallest)), restored);
  EXPECT_EQ(testing_support::readFile(restored), testing_support::readFile(fileAt(smallest)));
}

TEST_F(GoldenFilesTest, AReaderReadsEveryRowOfTheFirstRelease) {
  format_test::restoreGoldenState(root_.path());
  expectGoldenRows(FecTables(root_.path(), ZevGlintType::reader));
  expectClean();
}

TEST_F(GoldenFilesTest, AWriterMountsFilesOfTheFirstReleaseAndChangesNothing) {
  format_test::restoreGoldenState(root_.path());
  expectGoldenRows(FecTables(root_.path(), ZevGlintType::writer));
  expectClean();
  for (const std::string name : kGoldenFiles) {
    EXPECT_EQ(format_test::toText(fileAt(name)), format_test::goldenText(name)) << name;
  }
}

TEST_F(GoldenFilesTest, AWriterGoesOnWithFilesOfTheFirstRelease) {
  format_test::restoreGoldenState(root_.path());
  const FecTables reader(root_.path(), ZevGlintType::reader);
  {
    const FecTables writer(root_.path(), ZevGlintType::writer);
    writer.config().rowIs(
        {format_test::logEntry(11, 7), {Wirex::IntfId::fromName("eth11")}, LogVersion(8), false});
    writer.config().rowIs({format_test::logEntry(7, 8), {}, LogVersion(9), false});
    writer.config().rowDel(FecTableDataModelEntryKey(8));
    writer.log().rowIs(
        {LogVersion(5), LogRow::kEntryWritten, Asic::UnitId(6), format_test::logEntry(12, 9)});
    writer.log().rowDel(LogVersion(2));
    writer.log().control().scratchpadIs(6);
    writer.group().rowIs({5, {kFec, LogVersion(5)}});
    writer.group().rowDel(3);
    writer.applied().rowIs(Asic::GroupVersionRow({SwTableId(0x03010809), LogVersion(1)}));
  }
  expectConfigRow(reader, 7, "", 9, false);
  expectConfigRow(reader, 11, "eth11", 8, false);
  expectConfigRow(reader, 0, "", 3, false);
  EXPECT_FALSE(reader.config().has(FecTableDataModelEntryKey(8)));
  expectLogRow(reader, 5, 0, 6);
  expectLogRow(reader, 3, 0, 3);
  expectLogRow(reader, 4, 2, 5);
  EXPECT_FALSE(reader.log().has(LogVersion(2)));
  EXPECT_EQ(reader.log().control().scratchpad(), 6U);
  EXPECT_TRUE(reader.group().has(5));
  EXPECT_FALSE(reader.group().has(3));
  EXPECT_TRUE(reader.applied().has(SwTableId(0x03010809)));
  expectClean();
}

}  // namespace
