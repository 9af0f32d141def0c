// SPDX-License-Identifier: Apache-2.0

#include <set>

#include <gtest/gtest.h>

#include "records/FecTableConstants.h"

namespace {

using LoamFec::FecTableConstants;

TEST(FecTableConstantsTest, NamesAndIdAreThoseOfTheFecTable) {
  EXPECT_EQ(FecTableConstants::kTableId.value(), 0x03010805U);
  EXPECT_STREQ(FecTableConstants::kTableName, "FecTable");
  EXPECT_STREQ(FecTableConstants::kGroupName, "LoamAdj");
  EXPECT_STREQ(FecTableConstants::kAgentName, "LoamAdj");
}

TEST(FecTableConstantsTest, CapacitiesAndThresholdsAreFixed) {
  EXPECT_EQ(FecTableConstants::kEntryLogCapacity, 100000U);
  EXPECT_EQ(FecTableConstants::kConfigCapacity, 65536U);
  EXPECT_EQ(FecTableConstants::kMaxUnits, 16U);
  EXPECT_EQ(FecTableConstants::kSuspendAbove, 9999U);
  EXPECT_EQ(FecTableConstants::kResumeAtOrBelow, 7999U);
}

TEST(FecTableConstantsTest, TheTablesHaveTheirNames) {
  EXPECT_EQ(FecTableConstants::entryLogGlintPath(), "LoamAdj.LoamAdj.FecTable.log");
  EXPECT_EQ(FecTableConstants::groupLogGlintPath(), "LoamAdj.LoamAdj.grouplog");
  EXPECT_EQ(FecTableConstants::groupVersionsGlintPath(), "LoamAdj.LoamAdj.applied");
}

TEST(FecTableConstantsTest, EveryUnitHasAConfigurationPathOfItsOwn) {
  EXPECT_EQ(FecTableConstants::configGlintPath(Asic::UnitId(0)), "LoamAdj.FecTable.unit0.config");
  std::set<Pell::String> paths;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    paths.insert(
        FecTableConstants::configGlintPath(Asic::UnitId(static_cast<std::uint16_t>(unit))));
  }
  EXPECT_EQ(paths.size(), 0x10000U);
}

}  // namespace
