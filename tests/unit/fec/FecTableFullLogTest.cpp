// SPDX-License-Identifier: Apache-2.0

// The log at its limit when a destination changes under every entry of a full unit.

#include <gtest/gtest.h>

#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"

namespace {

using LoamFec::FecTableConstants;
using testing_support::FecHarness;

constexpr std::uint32_t kFullUnit = FecTableConstants::kConfigCapacity;
constexpr std::uint32_t kFullLog = FecTableConstants::kEntryLogCapacity;

class FecTableFullLogTest : public testing_support::LeakCheckedTest {
 protected:
  std::uint32_t logRows() { return agent_.log().entryLogConfigRows(); }
  std::uint64_t version() { return agent_.log().tableVersion().value(); }
  std::uint32_t waiting() { return agent_.group()->groupResolver()->resolverQueueLength(); }

  // Writes to the keys from 1 on, again and again.
  void write(std::uint32_t requests) {
    const auto entry = FecHarness::entry("eth1");
    for (std::uint32_t i = 0; i < requests; ++i) {
      agent_.table().entryWrite(FecHarness::key(1 + i % kFullUnit), entry, nullptr);
    }
    agent_.run();
  }
  void changeDestination(std::uint32_t destination) { agent_.destinationIs("eth1", destination); }

  FecHarness agent_;
};

TEST_F(FecTableFullLogTest,
       ARedriveOfEveryEntryGoesOnTopOfAFullLogAndNoSecondOneBeforeItIsApplied) {
  changeDestination(1);
  write(kFullLog + 1000);
  ASSERT_EQ(logRows(), kFullLog);
  ASSERT_EQ(waiting(), 1000U);

  changeDestination(2);
  EXPECT_EQ(logRows(), kFullLog + kFullUnit) << "an update does not wait for room";
  EXPECT_LT(logRows(), agent_.log().tableEntryLog()->entryLogConfig().slotCount());
  EXPECT_EQ(waiting(), 1000U);
  changeDestination(3);
  agent_.report(version() - 1);
  agent_.run();
  EXPECT_EQ(waiting(), 0U) << "there is room again";
  EXPECT_EQ(logRows(), 1U + 1000U) << "the next update waits until this one is applied";

  agent_.reportAll();
  agent_.run();
  EXPECT_EQ(logRows(), kFullUnit);
  agent_.reportAll();
  agent_.run();
  EXPECT_EQ(logRows(), 0U);
  EXPECT_EQ(agent_.table().entryRead(FecHarness::key(kFullUnit)).resolvedDest.first, 3U);
}

}  // namespace
