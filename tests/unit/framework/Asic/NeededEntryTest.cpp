// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/NeededEntry.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"

namespace {

using Asic::LogVersion;
using Asic::NeededEntry;
using Asic::SwTableId;
using Asic::TableVersion;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TableVersion version(std::uint32_t table, std::uint64_t logVersion) {
  return {SwTableId(table), LogVersion(logVersion)};
}

class NeededEntryTest : public testing_support::LeakCheckedTest {
 protected:
  // Every number once, and not in order.
  static std::uint32_t tableAt(std::uint32_t i) { return 0x03010000 + (i * 7919) % 65536; }

  Pell::Ptr<NeededEntry> needed_ = Zev::makeObject<NeededEntry>();
};

TEST_F(NeededEntryTest, StartsEmpty) {
  EXPECT_TRUE(needed_->empty());
  EXPECT_THAT(needed_->tableVersions(), IsEmpty());
  EXPECT_TRUE(needed_->hasNotificationActive());
}

TEST_F(NeededEntryTest, HoldsOneVersionATable) {
  needed_->add(version(1, 10));
  needed_->add(version(2, 20));
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 10), version(2, 20)));
  EXPECT_FALSE(needed_->empty());
}

TEST_F(NeededEntryTest, KeepsTheHigherOfTwoVersionsOfATable) {
  needed_->add(version(1, 10));
  needed_->add(version(1, 11));
  needed_->add(version(1, 9));
  needed_->add(version(1, 11));
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 11)));
}

TEST_F(NeededEntryTest, MergeAddsEachElementOfTheOther) {
  const auto other = Zev::makeObject<NeededEntry>();
  other->add(version(2, 5));
  other->add(version(3, 7));
  needed_->add(version(1, 1));
  needed_->add(version(2, 6));
  needed_->merge(other);
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 1), version(2, 6), version(3, 7)));
  EXPECT_THAT(other->tableVersions(), ElementsAre(version(2, 5), version(3, 7)));
}

TEST_F(NeededEntryTest, MergingNullOrItselfChangesNothing) {
  needed_->add(version(1, 1));
  needed_->merge(nullptr);
  needed_->merge(needed_);
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 1)));
}

TEST_F(NeededEntryTest, HoldsAnyNumberOfTablesInTheOrderOfTheirFirstAddition) {
  for (const std::uint32_t tables : {7U, 8U, 9U, 10U, 1000U}) {
    const auto needed = Zev::makeObject<NeededEntry>();
    for (std::uint32_t i = 0; i < tables; ++i) {
      needed->add(version(tableAt(i), i + 1));
    }
    ASSERT_EQ(needed->tableVersions().size(), tables);
    for (std::uint32_t i = 0; i < tables; ++i) {
      EXPECT_EQ(needed->tableVersions()[i], version(tableAt(i), i + 1)) << tables;
    }
  }
}

TEST_F(NeededEntryTest, KeepsOneVersionATableOnBothSidesOfTheIndex) {
  for (const std::uint32_t tables : {8U, 9U, 1000U}) {
    const auto needed = Zev::makeObject<NeededEntry>();
    for (const std::uint64_t logVersion : {5U, 6U, 4U}) {
      for (std::uint32_t i = 0; i < tables; ++i) {
        needed->add(version(tableAt(i), logVersion));
      }
    }
    ASSERT_EQ(needed->tableVersions().size(), tables);
    for (std::uint32_t i = 0; i < tables; ++i) {
      EXPECT_EQ(needed->tableVersions()[i], version(tableAt(i), 6)) << tables;
    }
  }
}

TEST_F(NeededEntryTest, TablesThatDifferInTheirHighBitsAloneAreTwo) {
  for (std::uint32_t high = 0; high < 20; ++high) {
    needed_->add(version(high << 16 | 0x0805, high));
  }
  EXPECT_EQ(needed_->tableVersions().size(), 20U);
}

TEST_F(NeededEntryTest, VersionsOfATableAreComparedWhole) {
  needed_->add(version(1, 0x1FFFFFFFF));
  needed_->add(version(1, 0x200000000));
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 0x200000000)));
  needed_->add(version(1, 0x1FFFFFFFF));
  EXPECT_THAT(needed_->tableVersions(), ElementsAre(version(1, 0x200000000)));
}

TEST_F(NeededEntryTest, MergingALargeSetIntoItselfChangesNothing) {
  for (std::uint32_t i = 0; i < 100; ++i) {
    needed_->add(version(tableAt(i), i));
  }
  needed_->merge(needed_);
  EXPECT_EQ(needed_->tableVersions().size(), 100U);
}

TEST_F(NeededEntryTest, PrintsItsVersionsAndNull) {
  using Pointer = Pell::Ptr<NeededEntry const>;
  EXPECT_EQ(fmt::format("{}", Pointer()), "null");
  EXPECT_EQ(fmt::format("{}", needed_), "{}");
  needed_->add(version(0x03010805, 4));
  needed_->add(version(2, 5));
  EXPECT_EQ(fmt::format("{}", Pointer(needed_)), "{03:01:0805@4, 00:00:0002@5}");
}

TEST_F(NeededEntryTest, ItNamesItsType) { EXPECT_EQ(needed_->fwkType().name, "Asic::NeededEntry"); }

}  // namespace
