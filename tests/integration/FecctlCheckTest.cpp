// SPDX-License-Identifier: Apache-2.0

// The real fecctl checks and repairs what the real fecd leaves: as it is, damaged, and in use.

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
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

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing_support::Outcome;
using testing_support::TablePlaces;
using Tools::TableRole;

const std::string kCaptures = std::string(EXAMPLES_DIR) + "/frr-nexthops/";
const std::string kConfig = Tools::fileNameOf(TableRole::config);
const std::string kLog = Tools::fileNameOf(TableRole::log);
const std::string kGroupLog = Tools::fileNameOf(TableRole::groupLog);

constexpr int kClean = 0;
constexpr int kFindings = 1;
constexpr int kToDo = 1;
constexpr int kCannot = 2;

// The state that one replay has left, made once; each test works on a copy.
class FecctlCheckTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    left_ = new testing_support::TemporaryRoot;
    const testing_support::TemporaryRoot files;
    ASSERT_EQ(
        testing_support::runProgram(replayOf(left_->path() + "/state", {"a-before"}), files.path())
            .exitCode,
        0);
  }
  static void TearDownTestSuite() {
    delete left_;
    left_ = nullptr;
  }

  FecctlCheckTest() { testing_support::copyState(left_->path() + "/state", state_); }

  static std::vector<std::string> replayOf(const std::string& state,
                                           const std::vector<std::string>& moments) {
    std::vector<std::string> arguments = {FECD, "replay", "--state", state, "--json"};
    for (const std::string& moment : moments) {
      const auto capture = [&moment](const char* what) {
        return fmt::format("{}{}-{}.json", kCaptures, what, moment);
      };
      arguments.insert(arguments.end(),
                       {"--links", capture("links"), "--nexthops", capture("nexthops")});
    }
    return arguments;
  }

  Outcome fecctl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), FECCTL);
    return testing_support::runProgram(arguments, files_.path());
  }
  Outcome check(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"check", "--state", state_});
    return fecctl(options);
  }
  Outcome repair(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"repair", "--state", state_});
    return fecctl(options);
  }
  nlohmann::json checkJson() const { return nlohmann::json::parse(check({"--json"}).out); }

  std::string file(const std::string& name) const { return state_ + "/" + name; }

  // The check finds something, the repair shows what it would do and changes nothing, does it, and
  // then the check is clean.
  nlohmann::json expectFoundAndRepaired() const {
    const Outcome found = check();
    EXPECT_EQ(found.exitCode, kFindings) << found.out << found.err;
    const auto damaged = testing_support::stateContents(state_);
    EXPECT_EQ(repair().exitCode, kToDo);
    EXPECT_EQ(testing_support::stateContents(state_), damaged) << "it only shows";
    const Outcome repaired = repair({"--yes", "--json"});
    EXPECT_EQ(repaired.exitCode, 0) << repaired.out << repaired.err;
    auto report = nlohmann::json::parse(repaired.out);
    EXPECT_EQ(report["outcome"], "done");
    for (const auto& kept : report["kept"]) {
      const std::string name = kept;
      EXPECT_EQ(testing_support::stateContents(state_).at(name),
                damaged.at(name.substr(0, name.rfind(".damaged-"))));
    }
    const Outcome after = check();
    EXPECT_EQ(after.exitCode, kClean) << after.out;
    EXPECT_EQ(repair().exitCode, 0) << "nothing is left to do";
    return report;
  }

  // fecd starts on it, makes it equal to a capture, and hardware and table are equal.
  void expectFecdGoesOn() const {
    const Outcome again =
        testing_support::runProgram(replayOf(state_, {"c-links-back"}), files_.path());
    ASSERT_EQ(again.exitCode, 0) << again.out << again.err;
    EXPECT_EQ(nlohmann::json::parse(again.out)["snapshots"][0]["hardware_equal"], true);
    const Outcome compared =
        fecctl({"show", "fec", "--state", state_, "--limit", "1", "--compare-links",
                kCaptures + "links-c-links-back.json", "--compare-nexthops",
                kCaptures + "nexthops-c-links-back.json"});
    EXPECT_EQ(compared.exitCode, 0) << compared.out;
    EXPECT_THAT(compared.out, HasSubstr("4225 equal, 0 different"));
    EXPECT_EQ(check().exitCode, kClean);
  }

  static testing_support::TemporaryRoot* left_;
  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
};

testing_support::TemporaryRoot* FecctlCheckTest::left_ = nullptr;

TEST_F(FecctlCheckTest, WhatFecdLeavesIsClean) {
  const auto before = testing_support::stateContents(state_);
  const Outcome outcome = check();
  EXPECT_EQ(outcome.exitCode, kClean) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("4 tables, 0 findings, 0 notes; no agent uses it\n"));
  EXPECT_EQ(testing_support::stateContents(state_), before);
  EXPECT_EQ(repair().exitCode, 0);
  EXPECT_EQ(testing_support::stateContents(state_), before);
  const auto json = checkJson();
  EXPECT_EQ(json["verdict"], "clean");
  EXPECT_EQ(json["tables"][0]["rows"], 4225);
}

TEST_F(FecctlCheckTest, AFlippedBitInARowCostsThatRowUntilItsClientWritesItAgain) {
  const TablePlaces places(file(kConfig));
  testing_support::flipBit(file(kConfig), 8 * (places.liveRow(places.liveSlots()[777]) + 24));
  const auto finding = checkJson()["findings"][0];
  EXPECT_EQ(finding["kind"], "damaged_row");
  EXPECT_THAT(finding["text"].get<std::string>(), HasSubstr("FEC "));
  const auto report = expectFoundAndRepaired();
  EXPECT_EQ(report["steps"].size(), 1U);
  EXPECT_EQ(report["kept"][0], kConfig + ".damaged-1");
  EXPECT_EQ(checkJson()["tables"][0]["rows"], 4224);
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, AFlippedBitInALinkCostsNothing) {
  const TablePlaces places(file(kConfig));
  testing_support::flipBit(file(kConfig), 8 * places.head(places.usedBuckets()[100]) + 3);
  expectFoundAndRepaired();
  EXPECT_EQ(checkJson()["tables"][0]["rows"], 4225);
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, AFlippedBitInACounterCostsNothing) {
  for (const std::uint64_t counter :
       {offsetof(Glint::Header, rowCount), offsetof(Glint::Header, slotsInUse),
        offsetof(Glint::Header, corruptionCount)}) {
    testing_support::flipBit(file(kConfig), 8 * counter + 1);
  }
  expectFoundAndRepaired();
  EXPECT_EQ(checkJson()["tables"][0]["rows"], 4225);
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, AFlippedBitInAHeaderCostsTheTableAndThatIsSaid) {
  testing_support::flipBit(file(kConfig), 8 * 45);
  EXPECT_THAT(repair().out, HasSubstr("ALL ITS ROWS ARE LOST"));
  expectFoundAndRepaired();
  EXPECT_EQ(checkJson()["tables"][0]["rows"], 0);
  EXPECT_TRUE(fs::exists(file(kConfig + ".damaged-1")));
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, ATruncatedLogIsReplacedAndVersionsGoOn) {
  fs::resize_file(file(kLog), 8192);
  expectFoundAndRepaired();
  const auto tables = checkJson()["tables"];
  EXPECT_EQ(tables[1]["file"], kLog);
  EXPECT_EQ(tables[1]["scratchpad"], 4225);
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, AMissingGroupLogIsFoundAndReplaced) {
  fs::remove(file(kGroupLog));
  const Outcome found = check();
  EXPECT_EQ(found.exitCode, kFindings);
  EXPECT_THAT(found.out, HasSubstr("finding  " + kGroupLog + ": it is missing"));
  expectFoundAndRepaired();
  expectFecdGoesOn();
}

TEST_F(FecctlCheckTest, ShowSaysThatARowIsDamagedAndShowsNoPartOfTheTable) {
  const TablePlaces places(file(kConfig));
  testing_support::flipBit(file(kConfig), 8 * (places.liveRow(places.liveSlots()[777]) + 24));
  const Outcome shown = fecctl({"show", "fec", "--state", state_});
  EXPECT_EQ(shown.exitCode, 3);
  EXPECT_THAT(shown.err, HasSubstr("the checksum of the row of key"));
  EXPECT_EQ(shown.out, "");
}

class FecdBesideTest : public FecctlCheckTest {
 protected:
  // Runs a fecd over several captures, stopped wherever it is, a few times in its life. True if it
  // was at work on the tables in at least one of them.
  bool wasCheckedAtWork() {
    fs::remove_all(state_);
    testing_support::Program fecd(
        replayOf(state_, {"a-before", "b-four-links-down", "c-links-back", "a-before"}),
        parent_.path());
    bool atWork = false;
    while (fecd.running()) {
      fecd.pause();
      const auto report = nlohmann::json::parse(check({"--json"}).out);
      EXPECT_THAT(report["findings"], IsEmpty()) << report.dump(2);
      if (fecd.running() && report["writer"].is_string()) {
        atWork = true;
        EXPECT_EQ(report["verdict"], "clean");
        EXPECT_THAT(report["writer"].get<std::string>(), HasSubstr("(fecd)"));
        expectNotRepaired();
      }
      fecd.resume();
      const Outcome beside = check();
      EXPECT_NE(beside.exitCode, kFindings) << beside.out;
    }
    EXPECT_EQ(fecd.wait().exitCode, 0);
    EXPECT_EQ(check().exitCode, kClean);
    return atWork;
  }

 private:
  void expectNotRepaired() {
    const auto before = testing_support::stateContents(state_);
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{}, std::vector<std::string>{"--yes"}}) {
      const Outcome refused = repair(options);
      EXPECT_EQ(refused.exitCode, kCannot);
      EXPECT_THAT(refused.out, AllOf(HasSubstr("in use by"), HasSubstr("(fecd)")));
    }
    EXPECT_EQ(testing_support::stateContents(state_), before);
  }
};

// A fecd may be through with everything before it is stopped; then the next one is.
TEST_F(FecdBesideTest, AFecdThatRunsIsCheckedAndNotRepaired) {
  while (!wasCheckedAtWork() && !HasFailure()) {
  }
}

TEST_F(FecctlCheckTest, AStateThatCannotBeJudgedExitsWithTwo) {
  for (const char* command : {"check", "repair"}) {
    const Outcome none = fecctl({command, "--state", parent_.path() + "/none"});
    EXPECT_EQ(none.exitCode, kCannot) << command;
    EXPECT_THAT(none.out, HasSubstr("/none")) << command;
    EXPECT_EQ(fecctl({command, "--no-such-option"}).exitCode, 2) << command;
  }
  EXPECT_FALSE(fs::exists(parent_.path() + "/none"));
}

TEST_F(FecctlCheckTest, AnUnknownWordIsNamed) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"frobnicate"}, {"show", "frobnicate"}, {"check", "frobnicate"}}) {
    const Outcome unknown = fecctl(words);
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_THAT(unknown.err, HasSubstr("not expected: frobnicate")) << words.front();
  }
  EXPECT_THAT(fecctl({}).err, HasSubstr("subcommand is required"));
  const Outcome fecd = testing_support::runProgram({FECD, "frobnicate"}, files_.path());
  EXPECT_EQ(fecd.exitCode, 2);
  EXPECT_THAT(fecd.err, HasSubstr("not expected: frobnicate"));
}

TEST_F(FecctlCheckTest, OutputThatIsLostIsNoSuccess) {
  const Outcome full = testing_support::runProgram(
      {"/bin/sh", "-c", R"("$0" check --state "$1" > /dev/full)", FECCTL, state_}, files_.path());
  EXPECT_EQ(full.exitCode, kCannot);
  EXPECT_THAT(full.err, HasSubstr("the output cannot be written"));
}

TEST_F(FecctlCheckTest, HelpTeaches) {
  for (const char* command : {"check", "repair"}) {
    const Outcome help = fecctl({command, "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:\n  0  ")));
  }
}

}  // namespace
