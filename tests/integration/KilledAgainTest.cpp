// fecd killed by SIGKILL again and again at random moments, each life going on from what the last
// one left, with readers in other processes all the time.
//
// LOAMFEC_KILLS says how many lives; without it as many as fit a daily run. LOAMFEC_SEED repeats
// one.

#include <sched.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Glint/Verify.h"
#include "Program.h"
#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"
#include "testing/TemporaryRoot.h"
#include "tests/crash/ChildProcess.h"
#include "tests/crash/LongForm.h"

namespace {

using LoamFec::FecTableConstants;
using Config = LoamFec::FecTableDataModelConfigGlint;
using Log = LoamFec::FecTableDataModelEntryLogGlint;
using std::chrono::microseconds;

constexpr std::array<const char*, 3> kMoments = {"a-before", "b-four-links-down", "c-links-back"};
constexpr std::array<std::uint16_t, 2> kUnits = {0, 1};
constexpr std::size_t kReaders = 2;
constexpr unsigned kDailyKills = 25;
constexpr unsigned kLivesBetweenComparisons = 25;

std::string capture(const char* what, const char* moment) {
  return std::string(EXAMPLES_DIR) + "/frr-nexthops/" + what + "-" + moment + ".json";
}

// What the readers tell the test.
struct Board {
  std::array<std::atomic<std::uint64_t>, kReaders> passes{};
  std::array<std::array<char, 160>, kReaders> complaint{};
  std::atomic<bool> over{false};
};

// Follows the tables from a process of its own: every row is whole, no version goes back.
class Follower {
 public:
  Follower(const std::string& state, Board& board, std::size_t number)
      : entityManager_(Zev::makeObject<Vanta::EntityManager>(state)),
        board_(board),
        number_(number) {
    const Pell::String logPath = Asic::Constants::tableEntryLogGlintPath(
        FecTableConstants::kGroupName, FecTableConstants::kAgentName,
        FecTableConstants::kTableName);
    log_ =
        ZevSharedMem::mountEntity<Log>(entityManager_, logPath, ZevGlint::ZevGlintType::reader, 0);
    for (const std::uint16_t unit : kUnits) {
      configs_.push_back(ZevSharedMem::mountEntity<Config>(
          entityManager_, FecTableConstants::configGlintPath(Asic::UnitId(unit)),
          ZevGlint::ZevGlintType::reader, 0));
    }
  }

  // 0, or 1 with a complaint on the board.
  int run() {
    while (!board_.over) {
      if (!versionsRise() || !rowsAreWhole()) {
        return 1;
      }
      ++board_.passes[number_];
    }
    return 0;
  }

 private:
  bool versionsRise() {
    const std::uint64_t version = log_->entryLogConfig().control().scratchpad();
    if (version < version_) {
      return complain("the log's version went back", version_, version);
    }
    version_ = version;
    return true;
  }
  bool rowsAreWhole() {
    for (const auto& config : configs_) {
      auto& rows = config->swTableEntries();
      bool good = true;
      Glint::forEachRow(rows, [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
        good = good && (row.logEntry().key == row.key());
      });
      if (!good || rows.corruptionCount() != 0) {
        return complain("a row was damaged or torn", rows.corruptionCount(), 0);
      }
    }
    return true;
  }
  bool complain(const char* what, std::uint64_t a, std::uint64_t b) {
    auto& text = board_.complaint[number_];
    std::snprintf(text.data(), text.size(), "%s (%llu, %llu)", what,
                  static_cast<unsigned long long>(a), static_cast<unsigned long long>(b));
    return false;
  }

  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Log> log_;
  std::vector<Pell::Ptr<Config>> configs_;
  Board& board_;
  std::size_t number_;
  std::uint64_t version_ = 0;
};

class KilledAgainTest : public ::testing::Test {
 protected:
  std::vector<std::string> replay(const char* moment) const {
    return {FECD,
            "replay",
            "--state",
            state_,
            "--json",
            "--units",
            "0,1",
            "--links",
            capture("links", moment),
            "--nexthops",
            capture("nexthops", moment)};
  }
  const char* anyMoment() { return kMoments[random_() % kMoments.size()]; }

  // Killed at a random moment of its run, if it still runs then.
  bool liveAndDie(microseconds wholeRun) {
    integration::Program fecd(replay(anyMoment()), files_.path());
    std::this_thread::sleep_for(microseconds(random_() % static_cast<unsigned>(wholeRun.count())));
    const bool killed = fecd.running();
    fecd.kill();
    return killed;
  }

  void expectTablesVerify() const {
    for (const auto& file : std::filesystem::directory_iterator(state_)) {
      if (file.path().extension() == ".table") {
        const Glint::Verification found = Glint::verifyTable(file.path().string());
        EXPECT_TRUE(found.clean()) << file.path() << ": " << found.findings.front();
      }
    }
  }

  // Returns how long it took.
  microseconds expectAWholeRunEndsEqual(const char* moment) const {
    const auto started = std::chrono::steady_clock::now();
    const auto outcome = integration::run(replay(moment), files_.path());
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    for (const std::uint16_t unit : kUnits) {
      const auto compared = integration::run(
          {FECCTL, "show", "fec", "--state", state_, "--unit", std::to_string(unit), "--limit", "1",
           "--compare-links", capture("links", moment), "--compare-nexthops",
           capture("nexthops", moment)},
          files_.path());
      EXPECT_EQ(compared.exitCode, 0) << compared.out;
    }
    return std::chrono::duration_cast<microseconds>(took);
  }

  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
  unsigned seed_ = crash_test::times("LOAMFEC_SEED", 20261121);
  std::mt19937 random_{seed_};
};

TEST_F(KilledAgainTest, EveryLifeGoesOnFromWhatTheLastOneLeftAndReadersSeeNothingOfIt) {
  const unsigned lives = crash_test::times("LOAMFEC_KILLS", kDailyKills);
  RecordProperty("seed", static_cast<int>(seed_));
  const microseconds wholeRun = expectAWholeRunEndsEqual(kMoments[0]);
  const crash_test::Shared<Board> board;
  std::array<std::optional<crash_test::Child>, kReaders> readers;
  for (std::size_t number = 0; number < kReaders; ++number) {
    readers[number].emplace([&, number] { return Follower(state_, *board, number).run(); });
  }
  unsigned kills = 0;
  for (unsigned life = 1; kills < lives && !HasFailure(); ++life) {
    SCOPED_TRACE("life " + std::to_string(life));
    kills += liveAndDie(wholeRun) ? 1U : 0U;
    expectTablesVerify();
    if (life % kLivesBetweenComparisons == 0) {
      expectAWholeRunEndsEqual(anyMoment());
    }
    ASSERT_LT(life, 20 * lives) << "fecd ends before it can be killed";
  }
  expectAWholeRunEndsEqual(kMoments[2]);
  board->over = true;
  for (std::size_t number = 0; number < kReaders; ++number) {
    EXPECT_EQ(readers[number]->wait(), 0) << board->complaint[number].data();
    EXPECT_GT(board->passes[number], 0U);
  }
  std::printf("seed %u: %u kills, %llu and %llu passes of the readers\n", seed_, kills,
              static_cast<unsigned long long>(board->passes[0]),
              static_cast<unsigned long long>(board->passes[1]));
}

}  // namespace
