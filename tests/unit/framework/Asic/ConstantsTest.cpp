// SPDX-License-Identifier: Apache-2.0

#include <set>

#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLogRows.h"

namespace {

using Asic::Constants;

TEST(AsicConstantsTest, AGroupIsKnownByItsAgentAndItsName) {
  EXPECT_EQ(Constants::canonicalizeGroupName("LoamAdj", "LoamAdj"), "LoamAdj.LoamAdj");
  EXPECT_EQ(Constants::canonicalizeGroupName("a", "b"), "a.b");
}

TEST(AsicConstantsTest, TheEntryLogsPathHoldsGroupSubgroupAndTable) {
  EXPECT_EQ(Constants::tableEntryLogGlintPath("LoamAdj", "LoamAdj", "FecTable"),
            "LoamAdj.LoamAdj.FecTable.log");
}

TEST(AsicConstantsTest, ThePathsOfOneGroupAreDistinct) {
  const std::set<Pell::String> paths = {Constants::tableEntryLogGlintPath("a", "b", "c"),
                                        Constants::tableEntryLogGlintPath("a", "b", "d"),
                                        Constants::groupLogGlintPath("a", "b"),
                                        Constants::groupVersionsGlintPath("a", "b")};
  EXPECT_EQ(paths.size(), 4U);
}

TEST(AsicConstantsTest, ALogHasRoomToDriveEveryEntryOfEveryUnitAgainOnTopOfAFullOne) {
  EXPECT_EQ(Constants::kMaxUnits, 16U);
  EXPECT_EQ(Constants::kUnitCapacity, 65536U);
  EXPECT_EQ(Constants::kRedriveRows, 1048576U);
  EXPECT_EQ(Glint::RowTraits<Asic::GroupLogRow>::physicalSlots(1), 1048577U);
}

}  // namespace
