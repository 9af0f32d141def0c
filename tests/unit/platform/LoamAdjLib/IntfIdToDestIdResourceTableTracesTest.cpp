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
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class DestinationTracesTest : public ResourceTableTest {
 protected:
  // Everything since the last call, by level.
  std::vector<std::string> traced() {
    std::vector<std::string> lines = traces_.lines();
    traces_.clear();
    return lines;
  }

  testing_support::TraceRecorder traces_{{"IntfIdToDestIdResourceTableResourceTable"}};
};

TEST_F(DestinationTracesTest, ADestinationIsTracedWhenItIsSetPublishedToldAndAcknowledged) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst, needed({{kOtherTable, Asic::LogVersion(3)}}));
  ack(handle, operation(1));
  EXPECT_THAT(
      traced(),
      ElementsAre("9 ClientInstance::request interface: eth1",
                  "8 IntfIdToDestIdResourceTableResourceTable::targetIs interface: eth1 state: 3 "
                  "destination: 100/1/11 neededEntry: "
                  "{03:01:0806@3}",
                  "2 IntfIdToDestIdResourceTableResourceTable::publishTarget interface: eth1 "
                  "update: 1 state: 3 destination: "
                  "100/1/11 neededEntry: {03:01:0806@3}",
                  "8 IntfIdToDestIdResourceTableResourceTable::tellNext interface: eth1 update: 1 "
                  "told to all",
                  "8 ClientInstance::ackUpdate interface: eth1 update: 1 current: 1 operation: "
                  "03:01:0805@1"));
}

TEST_F(DestinationTracesTest, AnUpdateThatWaitsTellsForWhomAndForWhichVersion) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(1));
  const auto other = table_->makeClientInstance();
  traces_.clear();
  other->ackUpdate(handle, 0, operation(2, kOtherTable));
  EXPECT_THAT(traced(), ElementsAre("8 ClientInstance::ackUpdate interface: eth1 update: 0 "
                                    "current: 1 operation: 03:01:0806@2"));
  run();
  traces_.clear();
  destinationIs("eth1", kSecond);
  EXPECT_THAT(traces_.lines(3),
              ElementsAre("3 IntfIdToDestIdResourceTableResourceTable::fileWaits interface: eth1 "
                          "waits for 1 of 2 clients to acknowledge update 1; the hardware to apply "
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
  const std::string table = "IntfIdToDestIdResourceTableResourceTable";
  const std::string first = " interface: eth1 destination: 100/1/11 is ";
  EXPECT_THAT(traced(),
              Contains("8 " + table + "::fileWaits" + first + "not free: users may log it"));
  ack(handle, operation(4));
  EXPECT_THAT(traced(), AllOf(Contains("8 " + table + "::fileWaits" + first +
                                       "not free: not applied: 03:01:0805@4"),
                              Not(Contains(HasSubstr("is free")))));
  applied(4);
  EXPECT_THAT(traced(), ElementsAre("2 " + table + "::freeOne" + first + "free"));
}

TEST_F(DestinationTracesTest, AnInterfaceWithoutDestinationAReleaseAndAClientsEndAreTraced) {
  const HandlePtr handle = request();
  table_->destinationFailed(intf("eth1"));
  client_->release(handle, nullptr);
  client_->end();
  EXPECT_THAT(traced(), ElementsAre("9 ClientInstance::request interface: eth1",
                                    "8 IntfIdToDestIdResourceTableResourceTable::targetIs "
                                    "interface: eth1 state: 5 destination: none "
                                    "neededEntry: null",
                                    "8 ClientInstance::release interface: eth1 operation: none",
                                    "8 ClientInstance::end "));
}

TEST_F(DestinationTracesTest, ATurnThatLeavesWorkSaysSo) {
  for (std::uint32_t i = 0; i <= ResourceTable::kStepsPerTurn; ++i) {
    table_->destinationIs(intf(fmt::format("eth{}", i).c_str()), kFirst);
  }
  traces_.clear();
  loop_.runOne();
  EXPECT_EQ(traces_.lines().back(),
            fmt::format("8 IntfIdToDestIdResourceTableResourceTable::review next turn goes on, "
                        "updates waiting: {}",
                        table_->waitingUpdates()));
  EXPECT_GT(table_->waitingUpdates(), 1U);
}

}  // namespace
