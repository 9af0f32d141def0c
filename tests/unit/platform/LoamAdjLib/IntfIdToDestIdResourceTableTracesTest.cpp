// SPDX-License-Identifier: Apache-2.0

// What is traced of a destination, from the owner's word to the moment at which it is free.

#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResourceTableFixture.h"
#include "testing/TraceRecorder.h"

namespace {

using namespace resource_table_test;
using ::testing::ElementsAre;

class DestinationTracesTest : public ResourceTableTest {
 protected:
  // Everything since the last call, by level.
  std::vector<std::string> traced() {
    std::vector<std::string> lines;
    for (const auto& record : traces_.records()) {
      lines.push_back(fmt::format("{} {} {}", record.level, record.function, record.message));
    }
    traces_.clear();
    return lines;
  }

  testing_support::TraceRecorder traces_{{"IntfIdToDestIdResourceTableResourceTable"}};
};

TEST_F(DestinationTracesTest, ADestinationIsTracedWhenItIsSetPublishedToldAndAcknowledged) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst, needed({{kOtherTable, Asic::LogVersion(3)}}));
  ack(handle, operation(1));
  EXPECT_THAT(traced(),
              ElementsAre("9 request interface: eth1",
                          "8 targetIs interface: eth1 state: 3 destination: 100/1/11 neededEntry: "
                          "{03:01:0806@3}",
                          "2 publishTarget interface: eth1 update: 1 state: 3 destination: "
                          "100/1/11 neededEntry: {03:01:0806@3}",
                          "8 tellNext interface: eth1 update: 1 told to all",
                          "8 ackUpdate interface: eth1 update: 1 current: 1 operation: "
                          "03:01:0805@1"));
}

TEST_F(DestinationTracesTest, AnUpdateThatWaitsTellsForWhomAndForWhichVersion) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(1));
  const auto other = table_->makeClientInstance();
  other->ackUpdate(handle, 0, operation(2, kOtherTable));
  run();
  traces_.clear();
  destinationIs("eth1", kSecond);
  EXPECT_THAT(traces_.texts(3), ElementsAre("interface: eth1 waits for 1 of 2 clients to "
                                            "acknowledge update 1; the hardware to apply "
                                            "03:01:0805@1;"));
  traces_.clear();
  other->ackUpdate(handle, 1, operation(2, kOtherTable));
  run();
  EXPECT_THAT(traces_.texts(3),
              ElementsAre("interface: eth1 waits for the hardware to apply 03:01:0805@1 "
                          "03:01:0806@2;"));
  traces_.clear();
  applied(1);
  EXPECT_THAT(traces_.texts(3),
              ElementsAre("interface: eth1 waits for the hardware to apply 03:01:0806@2;"));
  traces_.clear();
  applied(2, kOtherTable);
  EXPECT_THAT(traces_.texts(3), ElementsAre());
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(DestinationTracesTest, AnUpdateThatHasNoRoomTellsHowMuchItNeeds) {
  const std::uint32_t room = groupLog_->redriveRoom();
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->usersHandlerIs([room](const ResourceTable::Key&) { return room + 1; });
  traces_.clear();
  destinationIs("eth1", kSecond);
  EXPECT_THAT(traces_.texts(3), ElementsAre(fmt::format(
                                    "interface: eth1 waits for room for {} rows in the group log, "
                                    "where {} are free;",
                                    room + 1, room)));
}

TEST_F(DestinationTracesTest, AReplacedDestinationTellsWhyItIsNotFreeAndWhenItIs) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  EXPECT_TRUE(
      traces_.has(8, "interface: eth1 destination: 100/1/11 is not free: users may log it"));
  ack(handle, operation(4));
  EXPECT_TRUE(traces_.has(
      8, "interface: eth1 destination: 100/1/11 is not free: not applied: 03:01:0805@4"));
  EXPECT_EQ(traces_.count(2, "interface: eth1 destination: 100/1/11 is free"), 0U);
  applied(4);
  EXPECT_EQ(traces_.count(2, "interface: eth1 destination: 100/1/11 is free"), 1U);
}

TEST_F(DestinationTracesTest, AnInterfaceWithoutDestinationAReleaseAndAClientsEndAreTraced) {
  const HandlePtr handle = request();
  table_->destinationFailed(intf("eth1"));
  client_->release(handle, nullptr);
  client_->end();
  EXPECT_THAT(traced(), ElementsAre("9 request interface: eth1",
                                    "8 targetIs interface: eth1 state: 5 destination: none "
                                    "neededEntry: null",
                                    "8 release interface: eth1 operation: none", "8 end "));
}

TEST_F(DestinationTracesTest, ATurnThatLeavesWorkSaysSo) {
  for (std::uint32_t i = 0; i <= ResourceTable::kStepsPerTurn; ++i) {
    table_->destinationIs(intf(fmt::format("eth{}", i).c_str()), kFirst);
  }
  traces_.clear();
  loop_.runOne();
  EXPECT_TRUE(traces_.records().back().message.starts_with("next turn goes on, updates waiting: "));
}

}  // namespace
