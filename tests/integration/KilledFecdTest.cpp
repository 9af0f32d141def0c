// SPDX-License-Identifier: Apache-2.0

// SIGKILL in the middle of a replay: the state it leaves checks clean, and the next replay ends
// equal to the capture and checks clean again.

#include <sched.h>

#include <gtest/gtest.h>

#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"
#include "testing/ChildProcess.h"
#include "testing/TemporaryRoot.h"
#include "tools/StateCheck.h"

namespace {

const std::string kCaptures = std::string(EXAMPLES_DIR) + "/frr-nexthops/";

std::vector<std::string> replayOfTheThreeCaptures(const std::string& state) {
  std::vector<std::string> arguments = {FECD, "replay", "--state", state, "--json"};
  for (const char* moment : {"a-before", "b-four-links-down", "c-links-back"}) {
    arguments.insert(arguments.end(), {"--links", kCaptures + "links-" + moment + ".json",
                                       "--nexthops", kCaptures + "nexthops-" + moment + ".json"});
  }
  return arguments;
}

// The last log version that another process can see; 0 while there is no log.
std::uint64_t visibleLogVersion(const std::string& state) {
  using Log = LoamFec::FecTableDataModelEntryLogGlint;
  Pell::Ptr<Log> log;
  try {
    log = ZevSharedMem::mountForReading<Log>(Zev::makeObject<Vanta::EntityManager>(state),
                                             LoamFec::FecTableConstants::entryLogGlintPath());
  } catch (const ZevGlint::MountException&) {
    return 0;
  }
  return log->entryLogConfig().control().scratchpad();
}

class KilledFecdTest : public ::testing::TestWithParam<std::uint64_t> {
 protected:
  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
};

TEST_P(KilledFecdTest, LeavesTablesThatVerifyAndTheNextReplayEndsEqual) {
  const std::uint64_t killAt = GetParam();
  {
    testing_support::Program victim(replayOfTheThreeCaptures(state_), files_.path());
    while (victim.running() && visibleLogVersion(state_) < killAt) {
      ::sched_yield();
    }
    victim.kill();
  }
  const std::uint64_t left = visibleLogVersion(state_);
  EXPECT_GE(left, killAt);
  const Tools::StateReport found = Tools::checkState(state_);
  EXPECT_TRUE(found.clean()) << Tools::reportText(found, 0);
  EXPECT_GE(found.tables.size(), 3U);
  EXPECT_EQ(found.writer, std::nullopt) << "the lock went with fecd";
  const auto again = testing_support::runProgram(replayOfTheThreeCaptures(state_), files_.path());
  ASSERT_EQ(again.exitCode, 0) << again.out << again.err;
  EXPECT_GE(visibleLogVersion(state_), left);
  const auto compared =
      testing_support::runProgram({FECCTL, "show", "fec", "--state", state_, "--limit", "1",
                                   "--compare-links", kCaptures + "links-c-links-back.json",
                                   "--compare-nexthops", kCaptures + "nexthops-c-links-back.json"},
                                  files_.path());
  EXPECT_EQ(compared.exitCode, 0) << compared.out;
  EXPECT_NE(compared.out.find("4225 equal, 0 different"), std::string::npos) << compared.out;
  const Tools::StateReport after = Tools::checkState(state_);
  EXPECT_TRUE(after.clean()) << Tools::reportText(after, 0);
}

INSTANTIATE_TEST_SUITE_P(AtLogVersions, KilledFecdTest,
                         ::testing::Values(1, 2, 777, 2000, 3333, 4225, 4300));

}  // namespace
