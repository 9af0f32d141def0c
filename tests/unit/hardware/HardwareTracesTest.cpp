// SPDX-License-Identifier: Apache-2.0

// What is traced of the hardware side: what is applied and reported, what an operation waits for,
// and why a resynchronisation begins.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HardwareFixture.h"
#include "hardware/HardwareTurns.h"
#include "testing/TraceRecorder.h"

namespace {

using namespace hardware_test;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::TraceRecorder;

class HardwareTracesTest : public HardwareFixture {
 protected:
  std::vector<std::string> traced(int highestLevel) {
    std::vector<std::string> lines = traces_.lines(highestLevel);
    traces_.clear();
    return lines;
  }
  void step() { asic_->step(kPlenty); }

  TraceRecorder traces_{{"LogDrivenHardware", "Resynchroniser", "HardwareTurns"}};
};

TEST_F(HardwareTracesTest, WhatIsAppliedIsTraced) {
  write(1);
  remove(1);
  announce(kOther, 5);
  step();
  EXPECT_THAT(
      traced(9),
      ElementsAre("9 LogDrivenHardware::giveToAsic version: 1 operation: 0 unitId: 0 key: 1",
                  "9 LogDrivenHardware::giveToAsic version: 2 operation: 1 unitId: 0 key: 1",
                  "8 LogDrivenHardware::applyOther applied: 03:01:0806@5",
                  "8 LogDrivenHardware::flush applied: 03:01:0805@1",
                  "8 LogDrivenHardware::flush applied: 03:01:0805@2"));
}

TEST_F(HardwareTracesTest, AnOperationThatIsBlockedTellsWhatItWaitsFor) {
  announce(kOther, 2, {{kThird, Asic::LogVersion(9)}, fec(0)});
  announce(kOther, 3);
  announce(kThird, 8);
  step();
  EXPECT_THAT(traced(3), ElementsAre("3 LogDrivenHardware::step 03:01:0806@2 waits for "
                                     "03:01:0807@9, applied up to 8; operations behind it: 1"));
  step();
  EXPECT_EQ(traced(3).size(), 1U) << "once per step";
  announce(kThird, 9);
  step();
  EXPECT_THAT(traced(3), IsEmpty());
}

TEST_F(HardwareTracesTest, AMissingLogRowIsToldBeforeTheResynchronisationAndWhatThatFound) {
  for (std::uint32_t fecId = 1; fecId <= 11; ++fecId) {
    write(fecId);
  }
  step();
  traces_.clear();
  write(12);
  loseLogRow(12);
  write(1, 10);
  write(2, 20);
  for (std::uint32_t fecId = 8; fecId <= 11; ++fecId) {
    remove(fecId);
  }
  announce(kOther, 1);
  step();
  EXPECT_THAT(traced(3),
              ElementsAre("3 LogDrivenHardware::repair a row of the entry log is missing or "
                          "damaged: the log does not tell enough",
                          "2 LogDrivenHardware::beginResynchronisation resynchronises, "
                          "logged: 18 lastSequence: 19",
                          "2 LogDrivenHardware::goOnResynchronising resynchronised up to: 18 "
                          "unchanged: 5 added: 1 changed: 2 removed: 4"));
}

TEST_F(HardwareTracesTest, AMissingGroupRowIsTold) {
  write(1);
  write(2);
  loseGroupRow(1);
  step();
  EXPECT_EQ(
      traced(3).front(),
      "3 LogDrivenHardware::repair a row of the group log is missing or damaged: the log does not "
      "tell enough");
}

TEST_F(HardwareTracesTest, WhereABlockedResynchronisationEndsAndWhatFollowsIsTold) {
  write(1);
  writeThatNeeds(2, 20, kOther, 7);
  configRow(3, 30, 9);  // never logged
  traces_.clear();
  start();
  EXPECT_THAT(
      traced(3),
      ElementsAre("2 LogDrivenHardware::beginResynchronisation resynchronises, logged: 2 "
                  "lastSequence: 2",
                  "3 LogDrivenHardware::range resynchronises up to: 1, because 03:01:0805@2 "
                  "waits for 03:01:0806@7, applied up to 0;",
                  "3 Resynchroniser::owe another resynchronisation follows when version: 2 "
                  "is applied",
                  "2 LogDrivenHardware::goOnResynchronising resynchronised up to: 1 unchanged: "
                  "0 added: 1 changed: 0 removed: 0"));
  announce(kOther, 7);
  step();
  EXPECT_EQ(
      traced(3).front(),
      "3 LogDrivenHardware::repair a row may be taken that no log row tells of: the log does not "
      "tell enough");
}

TEST_F(HardwareTracesTest, WhatEachConfigurationRowDecidesIsTraced) {
  write(11);
  writeThatNeeds(12, 20, kOther, 7);
  traces_.clear();
  start();
  EXPECT_THAT(
      traced(9),
      AllOf(Contains("9 Resynchroniser::lookAt unitId: 0 key: 11 version: 1 decides: true"),
            Contains("9 Resynchroniser::lookAt unitId: 0 key: 12 version: 2 decides: false")));
}

TEST_F(HardwareTracesTest, DamagedRowsOfAUnitAreTold) {
  write(1);
  testing_support::damageRowOf(config().filePath(), 1);
  traces_.clear();
  start();
  EXPECT_THAT(traced(3), Contains("3 Resynchroniser::lookAtRowsOf unitId: 0 has damaged rows: no "
                                  "key is taken off for want of one"));
}

TEST_F(HardwareTracesTest, ALogRowOfAUnitThatTheHardwareDoesNotHaveIsTold) {
  harness_.table(3).entryRemoveAll(nullptr);
  harness_.run();
  step();
  EXPECT_THAT(
      traced(3),
      ElementsAre("3 LogDrivenHardware::giveToAsic version: 1 is of unitId: 3, which this hardware "
                  "does not have"));
}

TEST_F(HardwareTracesTest, ReportsAreTracedWithWhatHasBeenAppliedAndSoIsATurnThatLeavesWork) {
  constexpr std::uint32_t kWrites =
      Hardware::HardwareTurns::kRowsPerTurn / Asic::HardwareSide::kRowsOfAWrite + 1;
  for (std::uint32_t fecId = 1; fecId <= kWrites; ++fecId) {
    harness_.table().entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr);
  }
  harness_.run();
  Hardware::HardwareTurns side(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(),
                               *asic_);
  side.resume();
  harness_.run();
  const auto report = [](std::uint32_t version) {
    return fmt::format("8 HardwareTurns::reportApplied reports: 03:01:0805@{0} applied: {0}",
                       version);
  };
  const std::vector<std::string> lines = traced(8);
  EXPECT_EQ(std::ranges::count(lines, "8 HardwareTurns::applySome next turn applies more"), 1);
  EXPECT_THAT(lines, Contains(report(kWrites)));
  write(1);
  EXPECT_THAT(traced(8), Contains(report(kWrites + 1)));
}

}  // namespace
