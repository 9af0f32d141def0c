// SPDX-License-Identifier: Apache-2.0

// A replay in this process, on snapshots made by hand.

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "replay/Replayer.h"
#include "replay/ReportText.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestHardware.h"

namespace {

using Agent::FecAgent;
using Captures::NextHop;
using Captures::Snapshot;
using Replay::Replayer;
using Replay::Report;

const Asic::UnitId kUnit(0);

class ReplayTest : public testing_support::LeakCheckedTest {
 protected:
  ReplayTest() { start(); }

  void start() {
    agent_ = std::make_unique<FecAgent>(root_.path(), std::vector<Asic::UnitId>{kUnit},
                                        testing_support::simulatedHardware());
    replay_ = std::make_unique<Replayer>(*agent_, std::vector{kUnit}, false);
  }
  void stop() {
    replay_ = nullptr;
    agent_ = nullptr;
  }

  static void link(Snapshot& snapshot, const char* name, bool isUp) {
    snapshot.links.push_back({name, Wirex::IntfId::fromName(name), isUp});
  }
  static void nextHop(Snapshot& snapshot, std::uint32_t id, const char* dev,
                      std::uint32_t gateway = 0) {
    NextHop made;
    made.id = id;
    made.intf = Wirex::IntfId::fromName(dev);
    made.hasGateway = gateway != 0;
    made.gateway = gateway;
    snapshot.nextHops.push_back(made);
  }
  // eth1 and eth2 up, next hops 1 to 3.
  static Snapshot threeHops() {
    Snapshot snapshot;
    link(snapshot, "eth1", true);
    link(snapshot, "eth2", true);
    nextHop(snapshot, 1, "eth1", 0x0a000001);
    nextHop(snapshot, 2, "eth1", 0x0a000002);
    nextHop(snapshot, 3, "eth2");
    return snapshot;
  }

  testing_support::TemporaryRoot root_;
  std::unique_ptr<FecAgent> agent_;
  std::unique_ptr<Replayer> replay_;
};

TEST_F(ReplayTest, AFirstSnapshotIsProgrammedWhole) {
  Snapshot snapshot = threeHops();
  snapshot.skippedByKind["group"] = 4;
  const Report report = replay_->apply(snapshot, "first");
  EXPECT_EQ(report.nextHops, 3U);
  EXPECT_EQ(report.writes, 3U);
  EXPECT_EQ(report.programmed, 3U);
  EXPECT_EQ(report.failed + report.waiting + report.superseded, 0U);
  EXPECT_EQ(report.entries, 3U);
  EXPECT_EQ(report.logVersions, 3U);
  EXPECT_TRUE(report.hardwareEqual);
  EXPECT_EQ(report.skippedByKind.at("group"), 4U);
}

TEST_F(ReplayTest, ASecondSnapshotAsksOnlyForWhatIsDifferent) {
  replay_->apply(threeHops(), "first");
  Snapshot second = threeHops();
  second.nextHops.erase(second.nextHops.begin());
  second.nextHops[0].gateway += 1;
  nextHop(second, 4, "eth2");
  const Report report = replay_->apply(second, "second");
  EXPECT_EQ(report.unchanged, 1U);
  EXPECT_EQ(report.writes, 2U);
  EXPECT_EQ(report.removes, 1U);
  EXPECT_EQ(report.programmed, 3U);
  EXPECT_EQ(report.entries, 3U);
  EXPECT_TRUE(report.hardwareEqual);
  EXPECT_FALSE(agent_->fec().swTable(kUnit)->entryHas(LoamFec::FecTableDataModelEntryKey(1)));
}

TEST_F(ReplayTest, NextHopsOnDownAndUnknownLinksWaitAndAreReportedSo) {
  Snapshot snapshot = threeHops();
  link(snapshot, "eth3", false);
  nextHop(snapshot, 4, "eth3");
  nextHop(snapshot, 5, "eth99");
  nextHop(snapshot, 6, "eth99");
  const Report report = replay_->apply(snapshot, "first");
  EXPECT_EQ(report.programmed, 3U);
  EXPECT_EQ(report.waiting, 3U);
  EXPECT_EQ(report.waitingFor.at("eth3 is down"), 1U);
  EXPECT_EQ(report.waitingFor.at("eth99 is not among the links"), 2U);
  EXPECT_TRUE(report.hardwareEqual);
}

TEST_F(ReplayTest, AWaitingNextHopIsProgrammedWhenItsLinkComesUp) {
  Snapshot snapshot = threeHops();
  link(snapshot, "eth3", false);
  nextHop(snapshot, 4, "eth3");
  replay_->apply(snapshot, "down");
  snapshot.links.back().isUp = true;
  const Report report = replay_->apply(snapshot, "up");
  EXPECT_EQ(report.asked(), 0U);
  EXPECT_EQ(report.unchanged, 4U);
  EXPECT_EQ(report.programmed, 1U);
  EXPECT_EQ(report.waiting, 0U);
  EXPECT_EQ(report.entries, 4U);
}

TEST_F(ReplayTest, AWaitingNextHopThatVanishesIsRemovedOnceItCouldBeWritten) {
  Snapshot snapshot = threeHops();
  link(snapshot, "eth3", false);
  nextHop(snapshot, 4, "eth3");
  replay_->apply(snapshot, "down");
  snapshot.nextHops.pop_back();
  EXPECT_EQ(replay_->apply(snapshot, "vanished").waiting, 2U);
  snapshot.links.back().isUp = true;
  const Report report = replay_->apply(snapshot, "up");
  EXPECT_EQ(report.waiting, 0U);
  EXPECT_EQ(report.entries, 3U);
  EXPECT_TRUE(report.hardwareEqual);
}

TEST_F(ReplayTest, AnAgentThatStartsAgainFindsEverythingUnchanged) {
  replay_->apply(threeHops(), "first");
  stop();
  start();
  const Report report = replay_->apply(threeHops(), "again");
  EXPECT_EQ(report.unchanged, 3U);
  EXPECT_EQ(report.asked(), 0U);
  EXPECT_EQ(report.logVersions, 0U);
  EXPECT_TRUE(report.hardwareEqual);
}

TEST_F(ReplayTest, AnAgentThatStartsAgainSweepsDeletionsNobodySpeaksFor) {
  replay_->apply(threeHops(), "first");
  auto& config = agent_->fec().entryLog()->tableConfigGlint(kUnit)->swTableEntries();
  const auto row = config.row(LoamFec::FecTableDataModelEntryKey(1));
  config.rowIs({row->logEntry(), row->rsrcKeys(), row->version(), true});
  stop();
  start();
  auto& remounted = agent_->fec().entryLog()->tableConfigGlint(kUnit)->swTableEntries();
  EXPECT_EQ(remounted.rowCount(), 2U);
}

TEST_F(ReplayTest, AnEmptySnapshotEmptiesTheTable) {
  replay_->apply(threeHops(), "first");
  const Report report = replay_->apply(Snapshot(), "empty");
  EXPECT_EQ(report.removes, 3U);
  EXPECT_EQ(report.programmed, 3U);
  EXPECT_EQ(report.entries, 0U);
  EXPECT_TRUE(report.hardwareEqual);
}

TEST_F(ReplayTest, LinksThatGoDownAndComeUpDriveTheirEntriesAgain) {
  replay_->apply(threeHops(), "first");
  const auto eth1 = std::vector{Wirex::IntfId::fromName("eth1")};
  const auto destinationOf = [this](std::uint32_t id) {
    return testing_support::heldEntry(agent_->hardware(), kUnit, id).value().resolvedDest.first;
  };
  const std::uint32_t first = destinationOf(1);
  const std::uint32_t ofTheOther = destinationOf(3);

  const Replay::Redrive down = replay_->takeDown(eth1);
  EXPECT_EQ(down.entries, 2U);
  EXPECT_EQ(down.logVersions, 2U);
  EXPECT_EQ(destinationOf(1), LoamFec::FecDestination::kNone);
  EXPECT_TRUE(replay_->hardwareEqual());

  const Replay::Redrive up = replay_->bringUp(eth1);
  EXPECT_EQ(up.entries, 2U);
  EXPECT_EQ(up.logVersions, 2U);
  EXPECT_EQ(destinationOf(1), destinationOf(2));
  EXPECT_NE(destinationOf(1), LoamFec::FecDestination::kNone);
  EXPECT_NE(destinationOf(1), first) << "a new destination";
  EXPECT_NE(destinationOf(1), ofTheOther);
  EXPECT_EQ(destinationOf(3), ofTheOther);
  EXPECT_TRUE(replay_->hardwareEqual());
  EXPECT_EQ(replay_->apply(threeHops(), "again").asked(), 0U);
}

TEST_F(ReplayTest, EveryUnitGetsTheSameEntriesFromOneLog) {
  stop();
  const std::vector<Asic::UnitId> units = {Asic::UnitId(0), Asic::UnitId(1), Asic::UnitId(2)};
  agent_ = std::make_unique<FecAgent>(root_.path(), units, testing_support::simulatedHardware());
  replay_ = std::make_unique<Replayer>(*agent_, units, false);
  const Report report = replay_->apply(threeHops(), "first");
  EXPECT_EQ(report.nextHops, 3U);
  EXPECT_EQ(report.writes, 9U);
  EXPECT_EQ(report.programmed, 9U);
  EXPECT_EQ(report.logVersions, 9U);
  EXPECT_EQ(report.entries, 9U);
  EXPECT_TRUE(report.hardwareEqual);
  const Replay::Redrive down = replay_->takeDown({Wirex::IntfId::fromName("eth1")});
  EXPECT_EQ(down.entries, 6U);
  EXPECT_TRUE(replay_->hardwareEqual());
}

TEST_F(ReplayTest, ARequestIsObservedWhenItIsMadeAndWhenItIsCarriedOut) {
  using Moment = Replay::ObservedRequest::Moment;
  std::vector<Replay::ObservedRequest> seen;
  replay_->observerIs([&](const Replay::ObservedRequest& request) { seen.push_back(request); });
  replay_->apply(threeHops(), "first");
  Snapshot second = threeHops();
  second.nextHops.pop_back();
  replay_->apply(second, "second");
  ASSERT_EQ(seen.size(), 8U);
  EXPECT_EQ(seen[0].moment, Moment::asked);
  EXPECT_EQ(seen[0].version, Asic::LogVersion());
  EXPECT_EQ(seen[3].moment, Moment::carriedOut);
  EXPECT_EQ(seen[3].version, Asic::LogVersion(1));
  EXPECT_EQ(seen[3].unit, kUnit);
  ASSERT_TRUE(seen[3].entry.has_value());
  EXPECT_EQ(seen[3].entry->opaqueA, 0x0a000001U);
  EXPECT_EQ(seen[7].moment, Moment::carriedOut);
  EXPECT_EQ(seen[7].key, LoamFec::FecTableDataModelEntryKey(3));
  EXPECT_EQ(seen[7].version, Asic::LogVersion(4));
  EXPECT_FALSE(seen[7].entry.has_value()) << "a remove";
}

TEST_F(ReplayTest, TheTableNamesEveryFigureAndTheTotalAddsUp) {
  Snapshot snapshot = threeHops();
  snapshot.skippedByKind["group"] = 4;
  link(snapshot, "eth3", false);
  nextHop(snapshot, 9, "eth3");
  Replay::Outcome outcome;
  std::vector<Replay::LabelledReport>& reports = outcome.snapshots;
  reports.push_back({"dir/a.json", replay_->apply(snapshot, "a")});
  reports.push_back({"dir/b.json", replay_->apply(threeHops(), "b")});
  const std::string text = Replay::outcomeText(outcome);
  for (const char* word : {"a.json", "b.json", "total", "asked", "programmed", "failed", "waiting",
                           "eth3 is down", "skipped", "group", "log versions", "time (ms)",
                           "requests per second", "hardware equals table"}) {
    EXPECT_NE(text.find(word), std::string::npos) << word << " in\n" << text;
  }
  const Report sum = Replay::total(reports);
  EXPECT_EQ(sum.asked(), reports[0].report.asked() + reports[1].report.asked());
  EXPECT_EQ(sum.waiting, reports[1].report.waiting);
}

TEST_F(ReplayTest, TheJsonHasStableKeys) {
  Replay::Outcome outcome;
  outcome.snapshots.push_back({"a.json", replay_->apply(threeHops(), "a")});
  const std::string json = Replay::outcomeJson(outcome);
  EXPECT_EQ(json.find("restart"), std::string::npos) << "there was none";
  EXPECT_EQ(json.find("link_changes"), std::string::npos) << "there were none";
  for (const char* key :
       {"\"snapshots\"", "\"total\"", "\"next_hops\": 3", "\"asked\": 3", "\"programmed\": 3",
        "\"failed\": 0", "\"waiting\": 0", "\"log_versions\": 3", "\"hardware_equal\": true",
        "\"seconds\"", "\"requests_per_second\"", "\"skipped_by_kind\""}) {
    EXPECT_NE(json.find(key), std::string::npos) << key << " in\n" << json;
  }
}

}  // namespace
