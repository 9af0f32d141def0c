#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/NeededEntry.h"
#include "testing/LeakCheck.h"

namespace {

using Asic::LogVersion;
using Asic::NeededEntry;
using Asic::SwTableId;
using Asic::TableVersion;
using ::testing::ElementsAre;

TableVersion version(std::uint32_t table, std::uint64_t logVersion) {
  return {SwTableId(table), LogVersion(logVersion)};
}

class NeededEntryTest : public testing_support::LeakCheckedTest {
 protected:
  void fill(std::uint32_t tables) {
    for (std::uint32_t table = 0; table < tables; ++table) {
      needed_->add(version(table, 1));
    }
  }

  Pell::Ptr<NeededEntry> needed_ = Zev::makeObject<NeededEntry>();
};

using NeededEntryDeathTest = NeededEntryTest;

TEST_F(NeededEntryTest, StartsEmpty) {
  EXPECT_TRUE(needed_->empty());
  EXPECT_TRUE(needed_->tableVersions().empty());
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

TEST_F(NeededEntryTest, HoldsOneTableLessThanTheBoundAndTheBound) {
  static_assert(NeededEntry::kMaxTables == 8);
  fill(NeededEntry::kMaxTables - 1);
  EXPECT_EQ(needed_->tableVersions().size(), 7U);
  fill(NeededEntry::kMaxTables);
  EXPECT_EQ(needed_->tableVersions().size(), 8U);
  needed_->add(version(7, 2));
  EXPECT_EQ(needed_->tableVersions().back(), version(7, 2));
}

TEST_F(NeededEntryDeathTest, OneTableBeyondTheBoundStopsTheProcess) {
  fill(NeededEntry::kMaxTables);
  EXPECT_DEATH(needed_->add(version(8, 3)),
               "assertion failed: count_ < kMaxTables: an operation can need at most 8 tables; "
               "00:00:0008@3 is one more");
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
