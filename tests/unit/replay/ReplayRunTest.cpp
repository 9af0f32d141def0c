// SPDX-License-Identifier: Apache-2.0

// Whole replays, with an agent that is killed and with links that go down and up.

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captures/NextHopEntry.h"
#include "replay/Run.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestHardware.h"

namespace {

using Captures::Snapshot;
using Replay::Outcome;
using Replay::Plan;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t kHops = 100;

class ReplayRunTest : public testing_support::LeakCheckedTest {
 protected:
  ReplayRunTest() {
    plan_.stateFolder = root_.path();
    plan_.units = {Asic::UnitId(0)};
    plan_.makeHardware = testing_support::simulatedHardware();
    plan_.snapshots = {{"first", hops(1, kHops)}, {"second", hops(51, kHops)}};
  }

  // eth1 and eth2 up, eth3 down, and `count` next hops from that id on, in turn on the first two.
  static Snapshot hops(std::uint32_t first, std::uint32_t count) {
    Snapshot snapshot;
    for (const char* name : {"eth1", "eth2"}) {
      snapshot.links.push_back({name, Wirex::IntfId::fromName(name), true});
    }
    snapshot.links.push_back({"eth3", Wirex::IntfId::fromName("eth3"), false});
    for (std::uint32_t id = first; id < first + count; ++id) {
      Captures::NextHop hop;
      hop.id = id;
      hop.intf = snapshot.links[id % 2].intf;
      snapshot.nextHops.push_back(hop);
    }
    return snapshot;
  }
  std::string errorOf() const {
    try {
      carryOut(plan_);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return {};
  }

  testing_support::TemporaryRoot root_;
  Plan plan_;
};

TEST_F(ReplayRunTest, SnapshotsAreAppliedInOrder) {
  const Outcome outcome = carryOut(plan_);
  ASSERT_EQ(outcome.snapshots.size(), 2U);
  EXPECT_EQ(outcome.snapshots[0].label, "first");
  EXPECT_EQ(outcome.snapshots[0].report.writes, 100U);
  EXPECT_EQ(outcome.snapshots[1].report.removes, 50U);
  EXPECT_EQ(outcome.snapshots[1].report.writes, 50U);
  EXPECT_TRUE(outcome.good()) << Replay::outcomeText(outcome);
  EXPECT_FALSE(outcome.restart.has_value());
  EXPECT_THAT(outcome.linkChanges, IsEmpty());
}

TEST_F(ReplayRunTest, ASecondRunGoesOnFromTheFirstAndOneWithResetBeginsAnew) {
  carryOut(plan_);
  plan_.snapshots.erase(plan_.snapshots.begin());
  EXPECT_EQ(carryOut(plan_).snapshots[0].report.unchanged, 100U);
  plan_.reset = true;
  const Outcome anew = carryOut(plan_);
  EXPECT_EQ(anew.snapshots[0].report.unchanged, 0U);
  EXPECT_EQ(anew.snapshots[0].report.writes, 100U);
  EXPECT_TRUE(anew.good()) << Replay::outcomeText(anew);
}

TEST_F(ReplayRunTest, LinksFlapBetweenSnapshotsAndNotAfterTheLast) {
  plan_.flaps = {Wirex::IntfId::fromName("eth2"), Wirex::IntfId::fromName("eth3")};
  const Outcome outcome = carryOut(plan_);
  ASSERT_EQ(outcome.linkChanges.size(), 1U);
  const Replay::LinkChangeReport& change = outcome.linkChanges[0];
  EXPECT_EQ(change.after, "first");
  EXPECT_THAT(change.links, ElementsAre("eth2")) << "eth3 is down already";
  EXPECT_EQ(change.down.entries, 50U);
  EXPECT_EQ(change.down.logVersions, 50U);
  EXPECT_EQ(change.up.entries, 50U);
  EXPECT_TRUE(change.hardwareEqual);
  EXPECT_TRUE(outcome.good()) << Replay::outcomeText(outcome);
}

TEST_F(ReplayRunTest, NothingAnsweredIsLostWhenTheAgentIsKilled) {
  for (const std::uint64_t answers : {1U, 2U, 50U, 99U, 100U, 101U, 150U, 199U, 200U}) {
    testing_support::TemporaryRoot root;
    plan_.stateFolder = root.path();
    plan_.killAfter = answers;
    const Outcome outcome = carryOut(plan_);
    ASSERT_TRUE(outcome.restart.has_value());
    const Replay::RestartReport& restart = *outcome.restart;
    EXPECT_EQ(restart.answered, answers);
    EXPECT_EQ(restart.lost, 0U);
    EXPECT_GE(restart.versionFound, restart.versionAnswered);
    EXPECT_EQ(restart.versionAnswered, answers) << "each request has a version of its own";
    EXPECT_TRUE(restart.hardwareEqual);
    EXPECT_EQ(outcome.snapshots.size(), answers <= 100 ? 2U : 1U) << "from where it was killed";
    EXPECT_EQ(outcome.snapshots.back().report.entries, kHops);
    EXPECT_TRUE(outcome.good()) << Replay::outcomeText(outcome);
  }
}

TEST_F(ReplayRunTest, EveryUnitsAnswersSurviveAKill) {
  plan_.units = {Asic::UnitId(0), Asic::UnitId(1), Asic::UnitId(2)};
  plan_.killAfter = 250;
  const Outcome outcome = carryOut(plan_);
  EXPECT_EQ(outcome.restart->answered, 250U);
  EXPECT_TRUE(outcome.good()) << Replay::outcomeText(outcome);
  EXPECT_EQ(outcome.snapshots.back().report.entries, 3 * kHops);
}

TEST_F(ReplayRunTest, AReplayThatEndsBeforeTheKillSaysSo) {
  plan_.killAfter = 201;
  EXPECT_EQ(errorOf(),
            "the agent could not be killed after 201 answers: it was done after 200; give a "
            "smaller number");
}

TEST_F(ReplayRunTest, WhatKeepsTheKilledAgentFromStartingIsToldOnce) {
  plan_.killAfter = 1;
  plan_.stateFolder = root_.path() + "/no/such/place";
  EXPECT_THROW(carryOut(plan_), ZevGlint::MountException);
  EXPECT_THAT(errorOf(), HasSubstr("/no/such/place"));
}

TEST_F(ReplayRunTest, AnAnswerThatDoesNotHoldAnyMoreCountsAsLost) {
  using Moment = Replay::ObservedRequest::Moment;
  plan_.snapshots = {{"first", hops(1, 4)}};  // keys 1 to 4 under versions 1 to 4
  carryOut(plan_);
  const auto asWritten = entryOf(plan_.snapshots[0].snapshot.nextHops[0]);
  auto other = asWritten;
  other.opaqueB = 77;
  const auto lost = [&](const std::vector<Replay::ObservedRequest>& observed) {
    Replay::RestartReport report;
    Replay::KilledAgent killed;
    killed.observed = observed;
    restart(plan_.stateFolder, plan_.units, plan_.makeHardware, std::move(killed), report);
    EXPECT_TRUE(report.hardwareEqual);
    return report.lost;
  };
  const Asic::UnitId unit(0);
  const Agent::FecClient::Key one(1);
  const Agent::FecClient::Key nine(9);  // is not there
  const Asic::LogVersion v1(1);
  using Request = Replay::ObservedRequest;
  EXPECT_EQ(lost({{Moment::carriedOut, unit, one, asWritten, v1}}), 0U);
  EXPECT_EQ(lost({{Moment::carriedOut, unit, one, other, v1}}), 1U) << "other contents";
  EXPECT_EQ(lost({{Moment::carriedOut, unit, one, other, Asic::LogVersion(0)}}), 0U)
      << "a later version of the key";
  EXPECT_EQ(lost({{Moment::carriedOut, unit, nine, asWritten, v1}}), 1U) << "not there";
  const Request written{Moment::carriedOut, unit, nine, asWritten, v1};
  const Request removeAsked{Moment::asked, unit, nine, std::nullopt, {}};
  EXPECT_EQ(lost({written, removeAsked}), 0U) << "the remove was under way";
  EXPECT_EQ(lost({removeAsked, written}), 1U) << "the remove was before";
  EXPECT_EQ(lost({{Moment::carriedOut, unit, nine, std::nullopt, v1}}), 0U);
  EXPECT_EQ(lost({{Moment::carriedOut, unit, one, std::nullopt, v1}}), 1U) << "removed and there";
  EXPECT_EQ(lost({written, {Moment::carriedOut, unit, nine, std::nullopt, v1}}), 0U)
      << "only the last answer counts";
}

TEST_F(ReplayRunTest, AnOutcomeIsGoodOnlyIfEverythingComparedEqual) {
  plan_.killAfter = 10;
  plan_.flaps = {Wirex::IntfId::fromName("eth2")};
  const Outcome outcome = carryOut(plan_);
  EXPECT_TRUE(outcome.good()) << Replay::outcomeText(outcome);
  const auto spoilt = [&outcome](auto&& spoil) {
    Outcome copy = outcome;
    spoil(copy);
    return !copy.good();
  };
  EXPECT_TRUE(spoilt([](Outcome& o) { o.restart->lost = 1; }));
  EXPECT_TRUE(spoilt([](Outcome& o) { o.restart->hardwareEqual = false; }));
  EXPECT_TRUE(spoilt([](Outcome& o) { o.restart->versionFound = o.restart->versionAnswered - 1; }));
  EXPECT_TRUE(spoilt([](Outcome& o) { o.linkChanges[0].hardwareEqual = false; }));
  EXPECT_TRUE(spoilt([](Outcome& o) { o.snapshots[0].report.hardwareEqual = false; }));
  EXPECT_TRUE(spoilt([](Outcome& o) { o.snapshots[0].report.failed = 1; }));
}

TEST_F(ReplayRunTest, RestartAndLinkChangesStandInTextAndJson) {
  plan_.killAfter = 10;
  plan_.flaps = {Wirex::IntfId::fromName("eth2")};
  const Outcome outcome = carryOut(plan_);
  const std::string text = outcomeText(outcome);
  for (const char* words : {"killed (SIGKILL) after", "10 answers", "answered requests lost",
                            "entries restored", "after first: eth2", "50 driven again in 50 log"}) {
    EXPECT_THAT(text, HasSubstr(words));
  }
  const std::string json = outcomeJson(outcome);
  for (const char* words :
       {R"("restart": {)", R"("answered": 10)", R"("lost": 0)", R"("link_changes": [)",
        R"("after": "first")", R"("entries": 50)", R"("log_versions": 50)"}) {
    EXPECT_THAT(json, HasSubstr(words));
  }
}

}  // namespace
