// SPDX-License-Identifier: Apache-2.0

// The rows behind their entities: inserted or replaced, looked up, walked, counted and removed.

#include <cstdint>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "format/Format.h"
#include "records/FecTableConstants.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"
#include "testing/TemporaryRoot.h"

namespace {

using namespace LoamFec;
using Asic::LogVersion;
using Asic::UnitId;
using testing_support::FecHarness;

class FecSharedTablesTest : public testing_support::LeakCheckedTest {
 protected:
  FecSharedTablesTest() { harness_.makeTable(); }

  FecTableDataModelEntryLogGlint& log() { return *harness_.log().tableEntryLog(); }
  FecTableDataModelConfigGlint& config() { return *harness_.log().tableConfigGlint(UnitId(0)); }

  static FecTableDataModelConfigGlintEntry configRow(std::uint32_t key, std::uint64_t version) {
    FecTableDataModelLogEntry logged;
    logged.key = FecTableDataModelEntryKey(key);
    return {logged, {}, LogVersion(version), false};
  }

  FecHarness harness_;
};

TEST_F(FecSharedTablesTest, ALogRowIsInsertedReplacedAndRemovedByItsVersion) {
  log().entryLogConfigIs({LogVersion(5), 1, UnitId(0), {}});
  log().entryLogConfigIs({LogVersion(5), 0, UnitId(3), {}});
  log().entryLogConfigIs({LogVersion(6), 2, UnitId(0), {}});
  EXPECT_EQ(log().entryLogConfig().rowCount(), 2U);
  EXPECT_EQ(log().entryLogConfig().row(LogVersion(5))->unitId(), UnitId(3));
  log().entryLogConfigDel(LogVersion(5));
  log().entryLogConfigDel(LogVersion(5));
  EXPECT_FALSE(log().entryLogConfig().has(LogVersion(5)));
  std::set<LogVersion> versions;
  EXPECT_TRUE(Glint::walkOverDamage(log().entryLogConfig(),
                                    [&](const auto& row) { versions.insert(row.version()); }));
  EXPECT_EQ(versions, std::set<LogVersion>{LogVersion(6)});
}

TEST_F(FecSharedTablesTest, AConfigurationRowIsInsertedReplacedAndRemovedByItsKey) {
  config().swTableEntriesIs(configRow(1, 10));
  config().swTableEntriesIs(configRow(1, 11));
  config().swTableEntriesIs(configRow(2, 12));
  EXPECT_EQ(config().swTableEntries().rowCount(), 2U);
  EXPECT_EQ(config().swTableEntries().row(FecTableDataModelEntryKey(1))->version(), LogVersion(11));
  config().swTableEntriesDel(FecTableDataModelEntryKey(1));
  EXPECT_FALSE(config().swTableEntries().has(FecTableDataModelEntryKey(1)));
  EXPECT_TRUE(config().swTableEntries().iteratorAt(FecTableDataModelEntryKey(2)).valid());
}

TEST_F(FecSharedTablesTest, TheEntitiesNameTheirTypesAndCollections) {
  EXPECT_EQ(log().fwkType().name, "LoamFec::FecTableDataModelEntryLogGlint");
  EXPECT_EQ(config().fwkType().name, "LoamFec::FecTableDataModelConfigGlint");
  EXPECT_STREQ(FecTableDataModelEntryLogGlint::kCollectionName, "entryLogConfig");
  EXPECT_STREQ(FecTableDataModelConfigGlint::kCollectionName, "swTableEntries");
  EXPECT_EQ(log().entryLogConfig().capacity(), 100000U);
  EXPECT_EQ(config().swTableEntries().capacity(), 65536U);
}

TEST(FecSharedTablesMountTest, ATableIsMountedWithTheCapacityOfItsType) {
  using Log = FecTableDataModelEntryLogGlint;
  using ZevGlint::ZevGlintType;
  const testing_support::TemporaryRoot root;
  const auto agent = Zev::makeObject<Vanta::EntityManager>(root.path());
  const auto other = Zev::makeObject<Vanta::EntityManager>(root.path());
  const auto writer = ZevSharedMem::mountForWriting<Log>(agent, "log");
  EXPECT_EQ(writer->entryLogConfig().capacity(), 100000U);
  EXPECT_TRUE(writer->entryLogConfig().isWriter());
  writer->entryLogConfigIs({LogVersion(5), 1, UnitId(0), {}});
  const auto reader = ZevSharedMem::mountForReading<Log>(other, "log");
  EXPECT_FALSE(reader->entryLogConfig().isWriter());
  EXPECT_TRUE(reader->entryLogConfig().has(LogVersion(5)));

  ZevSharedMem::mountEntity<Log>(agent, "smaller", ZevGlintType::writer, Log::kCapacity - 1);
  EXPECT_THROW(ZevSharedMem::mountForReading<Log>(other, "smaller"), ZevGlint::MountException);
  EXPECT_THROW(ZevSharedMem::mountForWriting<Log>(agent, "smaller"), ZevGlint::MountException);
}

// One of a full table, with what belongs to it of the index: the slot, the link after it and its
// share of the bucket heads. As laid out, and as the file of a table has it.
TEST_F(FecSharedTablesTest, AConfigurationRowTakesAtMost160BytesWithEverything) {
  constexpr auto kLayout = Glint::tableLayout<FecTableDataModelConfigGlintEntry>(
      FecTableDataModelConfigGlint::kCollectionName, FecTableConstants::kConfigCapacity);
  constexpr std::size_t kSlot = Glint::slotBytes(kLayout.rowBytes);
  constexpr auto kBytesOfARow = [](std::size_t slot, std::uint64_t buckets, std::uint64_t rows) {
    return slot + sizeof(std::uint32_t) + (sizeof(std::uint32_t) * buckets + rows - 1) / rows;
  };
  EXPECT_LE(kBytesOfARow(kSlot, kLayout.bucketCount(), kLayout.nominalCapacity), 160U);

  std::ifstream file(config().swTableEntries().filePath(), std::ios::binary);
  Glint::FixedHeader header{};
  ASSERT_TRUE(file.read(static_cast<char*>(static_cast<void*>(&header)), sizeof header));
  EXPECT_EQ(header.rowBytes, sizeof(FecTableDataModelConfigGlintEntry));
  EXPECT_EQ(header.nominalCapacity, FecTableConstants::kConfigCapacity);
  EXPECT_LE(kBytesOfARow(header.slotBytes, header.bucketCount, header.nominalCapacity), 160U);
}

TEST_F(FecSharedTablesTest, ATableDeleteIsLoggedWithTheDefaultLogEntry) {
  harness_.table().entryWrite(testing_support::FecHarness::key(5),
                              testing_support::FecHarness::entry(""), nullptr);
  harness_.table().entryRemoveAll(nullptr);
  harness_.run();
  const auto row = log().entryLogConfig().row(LogVersion(2)).value();
  EXPECT_EQ(row.operation(), FecTableDataModelLogGlintEntry::kTableDeleted);
  EXPECT_THAT(row.logEntry(), testing_support::IsEq(FecTableDataModelLogEntry()));
}

}  // namespace
