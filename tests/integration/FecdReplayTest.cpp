// SPDX-License-Identifier: Apache-2.0

// The real fecd and the real fecctl, as a user starts them, on captures of a real router.

#include <sched.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "testing/ChildProcess.h"
#include "testing/StateFiles.h"
#include "testing/TemporaryRoot.h"
#include "tools/TableRole.h"

namespace {

using testing_support::Outcome;

const std::string kCaptures = std::string(EXAMPLES_DIR) + "/frr-nexthops/";
const char* const kMoments[] = {"a-before", "b-four-links-down", "c-links-back"};

std::string linksFile(const std::string& moment) { return kCaptures + "links-" + moment + ".json"; }
std::string nextHopsFile(const std::string& moment) {
  return kCaptures + "nexthops-" + moment + ".json";
}

class FecdReplayTest : public ::testing::Test {
 protected:
  Outcome fecd(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), FECD);
    return testing_support::runProgram(arguments, files_.path());
  }
  Outcome fecctl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), FECCTL);
    return testing_support::runProgram(arguments, files_.path());
  }
  Outcome replay(const std::string& links, const std::string& nextHops) const {
    return fecd({"replay", "--state", state_, "--links", links, "--nexthops", nextHops, "--json"});
  }
  // The three captures, one after the other, as JSON.
  Outcome replayAll(const std::vector<std::string>& options) const {
    std::vector<std::string> arguments = {"replay", "--state", state_, "--json"};
    for (const char* moment : kMoments) {
      arguments.insert(arguments.end(),
                       {"--links", linksFile(moment), "--nexthops", nextHopsFile(moment)});
    }
    arguments.insert(arguments.end(), options.begin(), options.end());
    return fecd(arguments);
  }
  Outcome compare(const std::string& moment) const {
    return fecctl({"show", "fec", "--state", state_, "--limit", "1", "--compare-links",
                   linksFile(moment), "--compare-nexthops", nextHopsFile(moment)});
  }
  std::string write(const std::string& name, const std::string& text) const {
    std::string path = files_.path() + "/" + name;
    std::ofstream(path) << text;
    return path;
  }

  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
};

TEST_F(FecdReplayTest, TheThreeCapturesAddUpAndTheReadBackEqualsTheLast) {
  const Outcome outcome = replayAll({});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  const auto report = nlohmann::json::parse(outcome.out);
  const auto& snapshots = report["snapshots"];
  ASSERT_EQ(snapshots.size(), 3U);
  const int nextHops[] = {4225, 4093, 4225};
  const int groups[] = {194, 194, 200};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(snapshots[i]["next_hops"], nextHops[i]);
    EXPECT_EQ(snapshots[i]["entries"], nextHops[i]);
    EXPECT_EQ(snapshots[i]["skipped_by_kind"]["group"], groups[i]);
    EXPECT_EQ(snapshots[i]["asked"], snapshots[i]["programmed"]);
    EXPECT_EQ(snapshots[i]["log_versions"], snapshots[i]["asked"]);
    EXPECT_EQ(snapshots[i]["failed"], 0);
    EXPECT_EQ(snapshots[i]["waiting"], 0);
    EXPECT_EQ(snapshots[i]["hardware_equal"], true);
  }
  EXPECT_EQ(snapshots[0]["asked"], 4225);
  const Outcome readBack = compare("c-links-back");
  EXPECT_EQ(readBack.exitCode, 0) << readBack.out;
  EXPECT_NE(readBack.out.find("4225 equal, 0 different"), std::string::npos) << readBack.out;
  EXPECT_EQ(compare("b-four-links-down").exitCode, 1);
}

TEST_F(FecdReplayTest, TheHumanReportEndsWithTheFiguresAndNoProgressBarInAFile) {
  const Outcome outcome = fecd({"replay", "--state", state_, "--links", linksFile("a-before"),
                                "--nexthops", nextHopsFile("a-before")});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_NE(outcome.out.find("programmed"), std::string::npos);
  EXPECT_NE(outcome.out.find("4225"), std::string::npos);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(FecdReplayTest, AReplayOnExistingStateGoesOnFromThere) {
  ASSERT_EQ(replay(linksFile("a-before"), nextHopsFile("a-before")).exitCode, 0);
  const Outcome second = replay(linksFile("c-links-back"), nextHopsFile("c-links-back"));
  ASSERT_EQ(second.exitCode, 0);
  const auto report = nlohmann::json::parse(second.out)["total"];
  EXPECT_GT(report["unchanged"], 3000);
  EXPECT_LT(report["asked"], 1000);
  EXPECT_EQ(compare("c-links-back").exitCode, 0);
}

TEST_F(FecdReplayTest, ResetBeginsWithEmptyTables) {
  ASSERT_EQ(replay(linksFile("a-before"), nextHopsFile("a-before")).exitCode, 0);
  const Outcome outcome = replayAll({"--reset"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  const auto first = nlohmann::json::parse(outcome.out)["snapshots"][0];
  EXPECT_EQ(first["unchanged"], 0);
  EXPECT_EQ(first["asked"], 4225);
  EXPECT_EQ(compare("c-links-back").exitCode, 0);
}

TEST_F(FecdReplayTest, KilledInTheMiddleItStartsAgainAndNothingAnsweredIsLost) {
  const Outcome outcome = replayAll({"--kill-after", "2000", "--flap", "eth5,eth6,eth7,eth8"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  const auto report = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(report["restart"]["answered"], 2000);
  EXPECT_EQ(report["restart"]["lost"], 0);
  EXPECT_GE(report["restart"]["log_version_found"], report["restart"]["log_version_answered"]);
  EXPECT_EQ(report["restart"]["hardware_equal"], true);
  EXPECT_EQ(report["link_changes"].size(), 1U) << "the four are down in the second capture";
  for (const char* direction : {"down", "up"}) {
    EXPECT_EQ(report["link_changes"][0][direction]["entries"], 132);
    EXPECT_EQ(report["link_changes"][0][direction]["log_versions"], 132);
  }
  EXPECT_EQ(report["total"]["entries"], 4225);
  EXPECT_EQ(compare("c-links-back").exitCode, 0);
}

TEST_F(FecdReplayTest, EveryUnitReadsBackEqual) {
  const Outcome outcome = replayAll({"--units", "0,1,2", "--kill-after", "7000"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(nlohmann::json::parse(outcome.out)["total"]["entries"], 3 * 4225);
  for (const char* unit : {"0", "1", "2"}) {
    const Outcome readBack =
        fecctl({"show", "fec", "--state", state_, "--unit", unit, "--limit", "1", "--compare-links",
                linksFile("c-links-back"), "--compare-nexthops", nextHopsFile("c-links-back")});
    EXPECT_EQ(readBack.exitCode, 0) << readBack.out;
  }
}

TEST_F(FecdReplayTest, OptionsThatCannotBeMeantAreOneErrorAndNothingChanges) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--units", "0,1,0"}, "--units: 0 is given twice"},
      {{"--units", "0,one"}, "--units"},
      {{"--units", "65536"}, "--units"},
      {{"--units", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16"},
       "--units: 17 units; give at most 16"},
      {{"--flap", "eth5,eth1234"}, "--flap: eth1234 is not among the links"},
      {{"--kill-after", "0"}, "--kill-after"},
      {{"--kill-after", "-1"}, "--kill-after"},
  };
  for (const auto& [options, words] : cases) {
    const Outcome outcome = replayAll(options);
    EXPECT_EQ(outcome.exitCode, 2) << options[1];
    EXPECT_NE(outcome.err.find(words), std::string::npos) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(state_)) << options[1];
  }
}

TEST_F(FecdReplayTest, BadInputIsOneErrorWithPlaceAndNothingChanges) {
  const std::string links = write("links.json", R"([{"ifname":"eth1","operstate":"UP"}])");
  const std::pair<const char*, const char*> cases[] = {
      {"not JSON", "[{\"id\":1,"},
      {"empty", ""},
      {"wrong type", R"([{"id":"one","dev":"eth1"}])"},
      {"duplicate id", R"([{"id":1,"dev":"eth1"},{"id":1,"dev":"eth1"}])"},
      {"id over 32 bits", R"([{"id":4294967296,"dev":"eth1"}])"},
      {"no id", R"([{"dev":"eth1"}])"},
      {"no dev", R"([{"id":1}])"},
      {"not a list", R"({"id":1})"},
  };
  for (const auto& [what, text] : cases) {
    const std::string nextHops = write("bad.json", text);
    const Outcome outcome = replay(links, nextHops);
    EXPECT_EQ(outcome.exitCode, 2) << what;
    EXPECT_EQ(outcome.out, "") << what;
    EXPECT_NE(outcome.err.find(nextHops + ":1:"), std::string::npos) << what << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(state_)) << what;
  }
}

TEST_F(FecdReplayTest, ABadSecondSnapshotLeavesTheFirstUnapplied) {
  const std::string bad = write("bad.json", "[");
  const Outcome outcome =
      fecd({"replay", "--state", state_, "--links", linksFile("a-before"), "--nexthops",
            nextHopsFile("a-before"), "--links", linksFile("a-before"), "--nexthops", bad});
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_FALSE(std::filesystem::exists(state_));
}

TEST_F(FecdReplayTest, UsageErrorsExitWithTwo) {
  EXPECT_EQ(fecd({}).exitCode, 2);
  EXPECT_EQ(fecd({"replay"}).exitCode, 2);
  EXPECT_EQ(fecd({"replay", "--links", "a", "--links", "b", "--nexthops", "c"}).exitCode, 2);
  EXPECT_EQ(fecd({"replay", "--no-such-option"}).exitCode, 2);
  EXPECT_EQ(fecctl({"show"}).exitCode, 2);
  EXPECT_EQ(fecctl({"show", "fec", "--compare-links", "a"}).exitCode, 2);
}

TEST_F(FecdReplayTest, HelpTeachesAndVersionIsTold) {
  const Outcome help = fecd({"replay", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:"), std::string::npos);
  EXPECT_NE(help.out.find("Exit codes:"), std::string::npos);
  EXPECT_EQ(fecd({"--version"}).exitCode, 0);
  EXPECT_NE(fecctl({"show", "fec", "--help"}).out.find("Exit codes:"), std::string::npos);
}

TEST_F(FecdReplayTest, AStateFolderThatCannotBeUsedIsAClearErrorAndExitsWithThree) {
  state_ = write("file", "not a folder");
  const Outcome outcome = replay(linksFile("a-before"), nextHopsFile("a-before"));
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_NE(outcome.err.find(state_), std::string::npos) << outcome.err;
  EXPECT_EQ(fecctl({"show", "fec", "--state", parent_.path() + "/none"}).exitCode, 3);
}

// Whatever it is asked to do.
TEST_F(FecdReplayTest, ASecondFecdIsToldWhoRunsAndChangesNothing) {
  const testing_support::TemporaryRoot output;
  std::vector<std::string> arguments = {FECD, "replay", "--state", state_, "--json"};
  for (const char* moment : kMoments) {
    arguments.insert(arguments.end(),
                     {"--links", linksFile(moment), "--nexthops", nextHopsFile(moment)});
  }
  testing_support::Program first(arguments, output.path());
  const std::string log = state_ + "/" + Tools::fileNameOf(Tools::TableRole::log);
  while (first.running() && !std::filesystem::exists(log)) {
    ::sched_yield();
  }
  const std::string holder =
      "in use by another writer, process " + std::to_string(first.pid()) + " (fecd)";
  const std::vector<std::vector<std::string>> kinds = {{}, {"--reset"}, {"--kill-after", "3"}};
  first.pause();
  ASSERT_TRUE(first.running());
  const auto before = testing_support::stateContents(state_);
  for (const auto& options : kinds) {
    const Outcome second = replayAll(options);
    EXPECT_EQ(second.exitCode, 3);
    EXPECT_EQ(second.out, "");
    EXPECT_THAT(second.err, ::testing::HasSubstr(holder));
    EXPECT_EQ(std::count(second.err.begin(), second.err.end(), '\n'), 1) << second.err;
    EXPECT_EQ(testing_support::stateContents(state_), before);
  }
  first.resume();
  const Outcome whole = first.wait();
  EXPECT_EQ(whole.exitCode, 0) << whole.err;
  EXPECT_EQ(compare("c-links-back").exitCode, 0);
  EXPECT_EQ(replayAll({}).exitCode, 0) << "its turn now";
}

// A file that is opened while a standard stream is closed takes the stream's number.
TEST_F(FecdReplayTest, WhatIsSaidToAClosedStreamReachesNoFileOfTheState) {
  for (const char* closed : {"2>&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
    const Outcome outcome = testing_support::runProgram(
        {"/bin/sh", "-c",
         fmt::format("LOAM_TRACE='*=1-2' {} replay --state {} --links {} --nexthops {} {}", FECD,
                     state_, linksFile("a-before"), nextHopsFile("a-before"), closed)},
        files_.path());
    EXPECT_EQ(outcome.exitCode, 0) << closed;
    std::ifstream lock(state_ + "/.writer");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(lock), {}),
                ::testing::MatchesRegex("process [0-9]+ \\(fecd\\)\n"))
        << closed;
    EXPECT_EQ(fecctl({"check", "--state", state_}).exitCode, 0) << closed;
    std::filesystem::remove_all(state_);
  }
}

TEST_F(FecdReplayTest, TheTableReadsBackAsJsonRowByRow) {
  const std::string links = write("links.json", R"([{"ifname":"eth1","operstate":"UP"}])");
  const std::string nextHops =
      write("nexthops.json", R"([{"id":7,"gateway":"10.0.0.9","dev":"eth1"}])");
  ASSERT_EQ(replay(links, nextHops).exitCode, 0);
  const Outcome outcome = fecctl({"show", "fec", "--state", state_, "--json"});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  const auto table = nlohmann::json::parse(outcome.out);
  ASSERT_EQ(table["count"], 1);
  EXPECT_EQ(table["entries"][0]["fec"], 7);
  EXPECT_EQ(table["entries"][0]["interface"], "eth1");
  EXPECT_EQ(table["entries"][0]["gateway"], "10.0.0.9");
  EXPECT_EQ(table["entries"][0]["destination"], (nlohmann::json::array({1, 0, 0})));
  EXPECT_EQ(table["entries"][0]["version"], 1);
  EXPECT_EQ(table["log_version"], 1);
}

TEST_F(FecdReplayTest, DifferencesAreNamedOnePerLine) {
  const std::string links = write("links.json", R"([{"ifname":"eth1","operstate":"UP"}])");
  const std::string nextHops = write(
      "nexthops.json", R"([{"id":7,"gateway":"10.0.0.9","dev":"eth1"},{"id":8,"dev":"eth1"}])");
  ASSERT_EQ(replay(links, nextHops).exitCode, 0);
  const std::string other =
      write("other.json", R"([{"id":7,"gateway":"10.0.0.1","dev":"eth1"},{"id":9,"dev":"eth1"}])");
  const Outcome outcome = fecctl(
      {"show", "fec", "--state", state_, "--compare-links", links, "--compare-nexthops", other});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.out.find("7: is eth1 via 10.0.0.9, should be eth1 via 10.0.0.1"),
            std::string::npos);
  EXPECT_NE(outcome.out.find("9: missing, should be eth1 via -"), std::string::npos);
  EXPECT_NE(outcome.out.find("8: is eth1 via -, should not be there"), std::string::npos);
}

}  // namespace
