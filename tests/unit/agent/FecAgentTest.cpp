// The agent's start: on what another one left, with its hardware, or with empty tables.

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Glint/Guarded.h"
#include "agent/FecAgent.h"
#include "agent/FecClient.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"

namespace {

using Agent::AgentStart;
using Agent::FecAgent;
using Agent::FecClient;

const std::vector<Asic::UnitId> kUnits = {Asic::UnitId(0), Asic::UnitId(3)};

class FecAgentTest : public testing_support::LeakCheckedTest {
 protected:
  FecAgentTest() { start(); }

  void start(AgentStart how = {}) {
    agent_ = std::make_unique<FecAgent>(root_.path(), kUnits, std::move(how));
    agent_->loop().runUntilIdle();
  }
  void stop() { agent_ = nullptr; }

  // A write of each key to each unit, up to the answer.
  void write(const std::vector<std::uint32_t>& fecIds, std::uint32_t mark) {
    agent_->resourceTable().destinationIs(Wirex::IntfId::fromName("eth1"), {7, 0, 0});
    for (const Asic::UnitId unit : kUnits) {
      FecClient client(agent_->loop(), agent_->fec().swTable(unit));
      for (const std::uint32_t fecId : fecIds) {
        FecClient::Entry entry;
        entry.intfId = Wirex::IntfId::fromName("eth1");
        entry.opaqueA = mark;
        ASSERT_TRUE(client.write(FecClient::Key(fecId), entry, [](auto&&...) {}));
      }
      agent_->loop().runUntilIdle();
      ASSERT_EQ(client.unanswered(), 0U);
    }
  }
  std::uint32_t entries(Asic::UnitId unit) const { return agent_->fec().entryLog()->entrys(unit); }
  bool hardwareEqual() const {
    return agent_->hardwareEqualsTable(kUnits[0]) && agent_->hardwareEqualsTable(kUnits[1]);
  }
  // A simulated ASIC beside the agent's, which sees what is logged and outlives the agent.
  std::unique_ptr<SimAsic::SimulatedAsic> hardware() const {
    return std::make_unique<SimAsic::SimulatedAsic>(root_.path(), kUnits);
  }

  testing_support::TemporaryRoot root_;
  std::unique_ptr<FecAgent> agent_;
};

TEST_F(FecAgentTest, AStartOnExistingStateRestoresEveryUnit) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  stop();
  start();
  EXPECT_EQ(entries(kUnits[0]), 3U);
  EXPECT_EQ(entries(kUnits[1]), 3U);
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion(), version);
  EXPECT_TRUE(hardwareEqual());
}

TEST_F(FecAgentTest, AStartWithResetBeginsWithEmptyTablesUnderNewVersions) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  auto kept = hardware();
  stop();
  start({.reset = true, .hardware = std::move(kept)});
  EXPECT_EQ(entries(kUnits[0]) + entries(kUnits[1]), 0U);
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion().value(), version.value() + 2)
      << "a deletion a unit";
  EXPECT_TRUE(hardwareEqual());
  EXPECT_EQ(agent_->hardware().hardwareTable(kUnits[0])->size(), 0U);
  for (const Asic::UnitId unit : kUnits) {
    auto& rows = agent_->fec().entryLog()->tableConfigGlint(unit)->swTableEntries();
    EXPECT_EQ(rows.rowCount(), 0U) << "the deletions are applied and cleaned up";
  }
}

TEST_F(FecAgentTest, HardwareThatWasKeptIsBroughtInLineWithTheTables) {
  write({1, 2, 3}, 10);
  auto kept = hardware();  // has 1, 2 and 3, and hears nothing of what follows
  write({2, 4}, 20);
  agent_->fec().swTable(kUnits[1])->entryRemove(FecClient::Key(3), nullptr);
  agent_->loop().runUntilIdle();
  stop();
  start({.reset = false, .hardware = std::move(kept)});
  const SimAsic::Resynchronisation& difference = agent_->resynchronisation();
  EXPECT_EQ(difference.unchanged, 3U) << "1 in both units, 3 in one";
  EXPECT_EQ(difference.changed, 2U) << "2 in both units";
  EXPECT_EQ(difference.added, 2U) << "4 in both units";
  EXPECT_EQ(difference.removed, 1U);
  EXPECT_TRUE(hardwareEqual());
}

TEST_F(FecAgentTest, HardwareThatWasKeptHearsWhatIsLoggedAfterwards) {
  write({1}, 10);
  auto kept = hardware();
  stop();
  start({.reset = false, .hardware = std::move(kept)});
  write({1, 2}, 20);
  EXPECT_TRUE(hardwareEqual());
  EXPECT_EQ(agent_->hardware().hardwareTable(kUnits[0])->size(), 2U);
  EXPECT_EQ(agent_->hardware().repairs(), 0U) << "from the log alone";
}

TEST_F(FecAgentTest, FreshHardwareHasNothingToCompare) {
  write({1, 2}, 10);
  stop();
  start();
  EXPECT_EQ(agent_->resynchronisation().unchanged + agent_->resynchronisation().added, 0U);
  EXPECT_TRUE(hardwareEqual());
}

}  // namespace
