// SPDX-License-Identifier: Apache-2.0

// How clients of the agent reach the table: one operation per key, coalescing, suspension,
// admission.

#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/FecClient.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"

namespace {

using Agent::Answer;
using LoamFec::FecTableConstants;
using ::testing::IsEmpty;
using testing_support::FecHarness;

class FecClientTest : public testing_support::LeakCheckedTest {
 protected:
  FecClientTest() {
    harness_.table();
    client_.emplace(harness_.loop(), Pell::Ptr<LoamFec::FecTableSwTable>(&harness_.table()));
    harness_.destinationIs("eth1", 100);
  }

  bool write(std::uint32_t fecId, const Pell::String& intfName, std::uint32_t mark = 0) {
    return client_->write(FecHarness::key(fecId), FecHarness::entry(intfName, mark), record());
  }
  void remove(std::uint32_t fecId) { client_->remove(FecHarness::key(fecId), record()); }
  Agent::FecClient::AnswerHandler record() {
    return [this](Answer answer, Asic::LogVersion) { answers_.push_back(answer); };
  }
  void settle() {
    harness_.run();
    harness_.reportAll();
    harness_.run();
  }
  std::uint32_t queued() { return harness_.group()->groupResolver()->resolverQueueLength(); }

  FecHarness harness_;
  std::optional<Agent::FecClient> client_;
  std::vector<Answer> answers_;
};

TEST_F(FecClientTest, AWriteIsAnsweredWhenTheHardwareHasIt) {
  ASSERT_TRUE(write(1, "eth1"));
  harness_.run();
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(client_->unanswered(), 1U);
  settle();
  EXPECT_EQ(answers_, std::vector{Answer::programmed});
  EXPECT_EQ(client_->unanswered(), 0U);
}

TEST_F(FecClientTest, ALaterRequestOfTheKeyWaitsForTheOneInTheTable) {
  ASSERT_TRUE(write(1, "eth9"));
  remove(1);
  harness_.run();
  EXPECT_EQ(queued(), 1U);
  EXPECT_EQ(harness_.log().tableVersion().value(), 0U);
  harness_.destinationIs("eth9", 9);
  settle();
  settle();
  EXPECT_EQ(answers_, (std::vector{Answer::programmed, Answer::programmed}));
  EXPECT_FALSE(harness_.table().entryHas(FecHarness::key(1)));
}

TEST_F(FecClientTest, ARequestThatWaitsIsSupersededByTheNext) {
  ASSERT_TRUE(write(1, "eth9", 1));
  ASSERT_TRUE(write(1, "eth1", 2));
  ASSERT_TRUE(write(1, "eth1", 3));
  EXPECT_EQ(answers_, std::vector{Answer::superseded});
  EXPECT_EQ(client_->unanswered(), 2U);
  EXPECT_EQ(client_->intended(FecHarness::key(1))->opaqueA, 3U);
  harness_.destinationIs("eth9", 9);
  settle();
  settle();
  EXPECT_EQ(harness_.table().entryRead(FecHarness::key(1)).opaqueA, 3U);
  EXPECT_EQ(client_->unanswered(), 0U);
}

TEST_F(FecClientTest, ARemoveOfWhatIsNotThereSucceeds) {
  remove(5);
  settle();
  EXPECT_EQ(answers_, std::vector{Answer::programmed});
}

TEST_F(FecClientTest, AFailedWriteIsAnsweredFailed) {
  harness_.resources().destinationFailed(Wirex::IntfId::fromName("eth7"));
  harness_.run();
  ASSERT_TRUE(write(1, "eth7"));
  settle();
  EXPECT_EQ(answers_, std::vector{Answer::failed});
}

TEST_F(FecClientTest, WhatIsIntendedIsTheNewestRequestThenTheTable) {
  EXPECT_FALSE(client_->intended(FecHarness::key(1)).has_value());
  ASSERT_TRUE(write(1, "eth1", 1));
  settle();
  EXPECT_EQ(client_->intended(FecHarness::key(1))->opaqueA, 1U);
  remove(1);
  EXPECT_FALSE(client_->intended(FecHarness::key(1)).has_value());
  ASSERT_TRUE(write(2, "eth9", 2));
  std::vector<std::uint32_t> keys;
  client_->forEachIntended([&](const auto& entry) { keys.push_back(entry.key.fecId()); });
  EXPECT_EQ(keys, std::vector{2U});
}

TEST_F(FecClientTest, UnansweredWritesAreListedAndRemovesAreNot) {
  ASSERT_TRUE(write(1, "eth9", 1));
  remove(1);
  std::vector<std::uint32_t> marks;
  client_->forEachUnansweredWrite([&](const auto& entry) { marks.push_back(entry.opaqueA); });
  EXPECT_EQ(marks, std::vector{1U});
}

TEST_F(FecClientTest, NothingIsPassedOnWhileTheTableIsSuspendedAndAllOfItAfterwards) {
  harness_.fec().swTableStatus()->suspendIs(true);
  ASSERT_TRUE(write(1, "eth1", 1));
  ASSERT_TRUE(write(2, "eth1", 2));
  ASSERT_TRUE(write(1, "eth1", 3));
  EXPECT_EQ(queued(), 0U);
  EXPECT_EQ(answers_, std::vector{Answer::superseded});
  harness_.fec().swTableStatus()->suspendIs(false);
  EXPECT_EQ(queued(), 0U);
  settle();
  EXPECT_EQ(answers_, (std::vector{Answer::superseded, Answer::programmed, Answer::programmed}));
  EXPECT_EQ(harness_.table().entryRead(FecHarness::key(1)).opaqueA, 3U);
}

class ResumeTest : public FecClientTest {
 protected:
  static constexpr std::uint32_t kBound = Agent::FecClient::kResumedPerTurn;

  // Requests in the table after each turn that passes some on, until none is held back.
  std::vector<std::uint32_t> passedOnByTurns(std::uint32_t requests) {
    harness_.fec().swTableStatus()->suspendIs(true);
    for (std::uint32_t fecId = 1; fecId <= requests; ++fecId) {
      EXPECT_TRUE(write(fecId, "eth9"));  // waits in the table for good
    }
    harness_.fec().swTableStatus()->suspendIs(false);
    std::vector<std::uint32_t> passedOn;
    while (harness_.loop().runOne()) {
      if (passedOn.empty() || queued() != passedOn.back()) {
        passedOn.push_back(queued());
      }
    }
    return passedOn;
  }
};

TEST_F(ResumeTest, OneRequestLessThanTheBoundIsPassedOnInOneTurn) {
  EXPECT_EQ(passedOnByTurns(kBound - 1), std::vector{kBound - 1});
}

TEST_F(ResumeTest, AsManyRequestsAsTheBoundArePassedOnInOneTurn) {
  EXPECT_EQ(passedOnByTurns(kBound), std::vector{kBound});
}

TEST_F(ResumeTest, WhatIsBeyondTheBoundIsPassedOnInTheNextTurns) {
  EXPECT_EQ(passedOnByTurns(2 * kBound + 1), (std::vector{kBound, 2 * kBound, 2 * kBound + 1}));
}

TEST_F(ResumeTest, ATableThatIsSuspendedAgainBetweenTwoTurnsGetsNoMoreUntilItResumes) {
  harness_.fec().swTableStatus()->suspendIs(true);
  for (std::uint32_t fecId = 1; fecId <= kBound + 1; ++fecId) {
    ASSERT_TRUE(write(fecId, "eth9"));
  }
  harness_.fec().swTableStatus()->suspendIs(false);
  ASSERT_TRUE(harness_.loop().runOne());
  harness_.fec().swTableStatus()->suspendIs(true);
  harness_.run();
  EXPECT_EQ(queued(), kBound);
  ASSERT_TRUE(write(kBound + 1, "eth1", 5)) << "takes the place of the one that is held back";
  EXPECT_EQ(answers_, std::vector{Answer::superseded});
  harness_.fec().swTableStatus()->suspendIs(false);
  settle();
  EXPECT_EQ(answers_, (std::vector{Answer::superseded, Answer::programmed}));
}

class FullTableTest : public FecClientTest {
 protected:
  void fillTo(std::uint32_t rows) {
    auto& config = harness_.log().tableConfigGlint(Asic::UnitId(0))->swTableEntries();
    for (std::uint32_t fecId = 1; fecId <= rows; ++fecId) {
      LoamFec::FecTableDataModelLogEntry entry;
      entry.key = FecHarness::key(fecId);
      config.rowIs({entry, {}, Asic::LogVersion(1), false});
    }
  }
  std::uint32_t rows() {
    return harness_.log().tableConfigGlint(Asic::UnitId(0))->swTableEntries().rowCount();
  }
};

TEST_F(FullTableTest, TheLastRowIsGivenAndTheOneBeyondIsRefused) {
  fillTo(FecTableConstants::kConfigCapacity - 1);
  EXPECT_TRUE(write(1'000'000, "eth1"));
  EXPECT_FALSE(write(1'000'001, "eth1"));
  settle();
  EXPECT_FALSE(write(1'000'001, "eth1"));
  EXPECT_EQ(answers_, std::vector{Answer::programmed});
}

TEST_F(FullTableTest, AFullTableStillTakesWritesOfItsOwnKeys) {
  fillTo(FecTableConstants::kConfigCapacity);
  EXPECT_TRUE(write(1, "eth1"));
  EXPECT_FALSE(write(1'000'000, "eth1"));
}

TEST_F(FullTableTest, ANewKeyThatWasAnsweredGivesItsReservationBack) {
  fillTo(FecTableConstants::kConfigCapacity - 2);
  ASSERT_TRUE(write(1'000'000, "eth1"));
  ASSERT_TRUE(write(1'000'000, "eth1", 2));
  settle();
  settle();
  EXPECT_TRUE(write(1'000'001, "eth1"));
}

// The row goes while the write waits for a destination, and comes back with it.
TEST_F(FullTableTest, AWriteBehindARemoveOfItsKeyKeepsItsPlaceWhenTheRowGoes) {
  fillTo(FecTableConstants::kConfigCapacity);
  remove(1);
  EXPECT_TRUE(write(1, "eth9"));
  settle();
  ASSERT_EQ(rows(), FecTableConstants::kConfigCapacity - 1);
  EXPECT_FALSE(write(1'000'000, "eth1"));
  harness_.destinationIs("eth9", 9);
  settle();
  EXPECT_EQ(rows(), FecTableConstants::kConfigCapacity);
  EXPECT_EQ(answers_, (std::vector{Answer::programmed, Answer::programmed}));
}

TEST_F(FullTableTest, AWriteBehindARemoveOfItsKeyKeepsOnePlaceAndNoMore) {
  fillTo(FecTableConstants::kConfigCapacity - 1);
  remove(1);
  EXPECT_TRUE(write(1, "eth9"));
  EXPECT_TRUE(write(1, "eth9", 2)) << "in the same place";
  settle();
  ASSERT_EQ(rows(), FecTableConstants::kConfigCapacity - 2);
  EXPECT_TRUE(write(1'000'000, "eth1"));
  EXPECT_FALSE(write(1'000'001, "eth1"));
  harness_.destinationIs("eth9", 9);
  settle();
  EXPECT_EQ(rows(), FecTableConstants::kConfigCapacity);
}

// An agent before this one has removed the key, and the hardware has not taken that yet.
TEST_F(FullTableTest, AWriteOfAKeyWhoseRowIsMarkedDeletedKeepsItsPlaceWhenTheRowGoes) {
  fillTo(FecTableConstants::kConfigCapacity);
  harness_.table().entryRemove(FecHarness::key(1), nullptr);
  harness_.run();
  ASSERT_EQ(rows(), FecTableConstants::kConfigCapacity);
  EXPECT_TRUE(write(1, "eth9"));
  settle();
  ASSERT_EQ(rows(), FecTableConstants::kConfigCapacity - 1);
  EXPECT_FALSE(write(1'000'000, "eth1"));
}

// The remove never reaches the table, so the row stays and the write needs no other.
TEST_F(FullTableTest, AWriteThatSupersedesARemoveNeedsNoPlaceOfItsOwn) {
  fillTo(FecTableConstants::kConfigCapacity - 1);
  ASSERT_TRUE(write(1, "eth9"));
  remove(1);
  ASSERT_TRUE(write(1, "eth9", 2));
  EXPECT_EQ(answers_, std::vector{Answer::superseded});
  EXPECT_TRUE(write(1'000'000, "eth1"));
  EXPECT_FALSE(write(1'000'001, "eth1"));
}

TEST_F(FecClientTest, AClientThatHasGoneAnswersNobody) {
  ASSERT_TRUE(write(1, "eth1"));
  client_.reset();
  settle();
  EXPECT_THAT(answers_, IsEmpty());
}

}  // namespace
