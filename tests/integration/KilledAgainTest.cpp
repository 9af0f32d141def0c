// SPDX-License-Identifier: Apache-2.0

// fecd killed by SIGKILL again and again at random moments, each life going on from what the last
// one left, with readers in other processes all the time. A life that ends by itself has to end
// well; some lives kill themselves and compare what they had answered with what they find.
//
// LOAMFEC_KILLS says how many lives; without it as many as fit a daily run. LOAMFEC_SEED repeats
// one.

#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"
#include "testing/ChildProcess.h"
#include "testing/LongForm.h"
#include "testing/TemporaryRoot.h"
#include "tools/StateCheck.h"

namespace {

using LoamFec::FecTableConstants;
using Config = LoamFec::FecTableDataModelConfigGlint;
using Log = LoamFec::FecTableDataModelEntryLogGlint;
using LogRow = LoamFec::FecTableDataModelLogGlintEntry;
using std::chrono::microseconds;

constexpr std::array<const char*, 3> kMoments = {"a-before", "b-four-links-down", "c-links-back"};
constexpr std::array<std::uint16_t, 2> kUnits = {0, 1};
constexpr std::size_t kReaders = 2;
constexpr unsigned kDailyKills = 6;
constexpr unsigned kLivesBetweenComparisons = 25;  // at most
constexpr unsigned kLivesBetweenAnswers = 20;      // at most

std::string capture(const char* what, const char* moment) {
  return std::string(EXAMPLES_DIR) + "/frr-nexthops/" + what + "-" + moment + ".json";
}

// What the readers tell the test.
struct Board {
  std::array<std::atomic<std::uint64_t>, kReaders> passes{};
  std::array<std::atomic<std::uint64_t>, kReaders> logRows{};  // that were seen, each once
  std::array<std::array<char, 160>, kReaders> complaint{};
  std::atomic<bool> over{false};
};

// Follows the tables from a process of its own: every row is whole, no version goes back, and the
// row of a version that has been handed out stays what it is until it goes for good.
class Follower {
 public:
  Follower(const std::string& state, Board& board, std::size_t number)
      : entityManager_(Zev::makeObject<Vanta::EntityManager>(state)),
        board_(board),
        number_(number) {
    log_ =
        ZevSharedMem::mountForReading<Log>(entityManager_, FecTableConstants::entryLogGlintPath());
    for (const std::uint16_t unit : kUnits) {
      configs_.push_back(ZevSharedMem::mountForReading<Config>(
          entityManager_, FecTableConstants::configGlintPath(Asic::UnitId(unit))));
    }
  }

  // 0, or 1 with a complaint on the board.
  int run() {
    while (!board_.over) {
      if (!logIsFollowed() || !logRowsStayWhatTheyAre() || !rowsAreWhole()) {
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

  // Looks up each version as soon as it is handed out, for a while.
  bool logIsFollowed() {
    for (int look = 0; look < kLooksAPass; ++look) {
      if (!versionsRise() || !newVersionsAreWhole()) {
        return false;
      }
    }
    return true;
  }
  bool newVersionsAreWhole() {
    while (followed_ < version_) {
      const Asic::LogVersion next(++followed_);
      const auto row = Glint::guardedRow(log_->entryLogConfig(), next);
      if (row && (row->version() != next || !isWhole(*row))) {
        return complain("a log row and its configuration row differ", followed_,
                        row->version().value());
      }
      if (row) {
        held_.emplace(followed_, *row);
        ++board_.logRows[number_];
      }
    }
    return true;
  }

  // Rows above version_ may not have been handed out; a life to come may replace them. One that was
  // not there when it was looked up, or not in a walk since, has gone and does not come again.
  bool logRowsStayWhatTheyAre() {
    auto& log = log_->entryLogConfig();
    std::set<std::uint64_t> met;
    std::uint64_t wrong = 0;
    const bool sawAll = Glint::walkOverDamage(log, [&](const LogRow& row) {
      const std::uint64_t version = row.version().value();
      if (version > version_) {
        return;
      }
      const auto held = held_.find(version);
      const bool same = held != held_.end() && isSame(held->second, row);
      if (!same || !met.insert(version).second) {
        wrong = version;
      }
    });
    if (wrong != 0) {
      return complain("a walk met a version that had gone, was another, or was met", wrong, 0);
    }
    std::erase_if(held_, [&](const auto& item) { return !met.contains(item.first); });
    return sawAll || complain("the log looks damaged", 0, 0);
  }

  // The configuration row is there before the log row and until after it; one of the same version
  // is of the same change.
  bool isWhole(const LogRow& row) {
    if (row.operation() > LogRow::kTableDeleted || row.unitId().value() >= kUnits.size()) {
      return false;
    }
    if (row.operation() == LogRow::kTableDeleted) {
      return isEq(row.logEntry(), {});
    }
    auto& rows = configs_[row.unitId().value()]->swTableEntries();
    const auto config = Glint::guardedRow(rows, row.logEntry().key);
    if (!config) {
      return !Glint::guardedRow(log_->entryLogConfig(), row.version());
    }
    return config->version() > row.version() ||
           (config->version() == row.version() && isEq(config->logEntry(), row.logEntry()) &&
            config->isDeleted() == (row.operation() == LogRow::kEntryDeleted));
  }
  static bool isSame(const LogRow& one, const LogRow& other) {
    return one.operation() == other.operation() && one.unitId() == other.unitId() &&
           isEq(one.logEntry(), other.logEntry());
  }
  static bool isEq(const LoamFec::FecTableDataModelLogEntry& one,
                   const LoamFec::FecTableDataModelLogEntry& other) {
    return LoamFec::FecTableDataModelLogEntry::isEq(one, other);
  }

  bool rowsAreWhole() {
    for (const auto& config : configs_) {
      auto& rows = config->swTableEntries();
      bool good = true;
      const auto check = [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
        good = good && (row.logEntry().key == row.key());
      };
      if (!Glint::walkOverDamage(rows, check) || !good || rows.corruptionCount() != 0) {
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

  static constexpr int kLooksAPass = 1000;

  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Log> log_;
  std::vector<Pell::Ptr<Config>> configs_;
  Board& board_;
  std::size_t number_;
  std::uint64_t version_ = 0;
  std::uint64_t followed_ = 0;
  std::unordered_map<std::uint64_t, LogRow> held_;  // handed out, and there at the last look
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

  // Killed at a random moment within the time, if it still runs then; else it has ended well.
  bool liveAndDie(microseconds longest) {
    testing_support::Program fecd(replay(anyMoment()), files_.path());
    std::this_thread::sleep_for(microseconds(random_() % static_cast<unsigned>(longest.count())));
    const bool killed = fecd.running();
    fecd.kill();
    const testing_support::Outcome outcome = fecd.wait();
    if (!killed) {
      EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }
    return killed;
  }

  // A life that takes the tables through two captures, and is killed and started again in the
  // midst: whatever they hold to begin with, there is more to do than that many requests.
  void liveAndCompareAnswers(bool reset) {
    const auto answers = 1 + random_() % (reset ? 3000 : 200);
    std::vector<std::string> arguments = replay(kMoments[1]);
    arguments.insert(arguments.end(),
                     {"--links", capture("links", kMoments[2]), "--nexthops",
                      capture("nexthops", kMoments[2]), "--kill-after", std::to_string(answers)});
    if (reset) {
      arguments.emplace_back("--reset");
    }
    const auto outcome = testing_support::runProgram(arguments, files_.path());
    ASSERT_EQ(outcome.exitCode, 0) << answers << " answers: " << outcome.out << outcome.err;
    const auto report = nlohmann::json::parse(outcome.out)["restart"];
    EXPECT_EQ(report["answered"], answers);
    EXPECT_EQ(report["lost"], 0) << report.dump(2);
    EXPECT_EQ(report["hardware_equal"], true) << report.dump(2);
    EXPECT_GE(report["log_version_found"], report["log_version_answered"]);
  }

  void expectStateIsClean() const {
    const Tools::StateReport found = Tools::checkState(state_);
    EXPECT_TRUE(found.clean()) << Tools::reportText(found, 0);
    EXPECT_EQ(found.writer, std::nullopt) << "the lock went with fecd";
  }

  // Returns how long it took.
  microseconds expectAWholeRunEndsEqual(const char* moment) const {
    const auto started = std::chrono::steady_clock::now();
    const auto outcome = testing_support::runProgram(replay(moment), files_.path());
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    for (const std::uint16_t unit : kUnits) {
      const auto compared = testing_support::runProgram(
          {FECCTL, "show", "fec", "--state", state_, "--unit", std::to_string(unit), "--limit", "1",
           "--compare-links", capture("links", moment), "--compare-nexthops",
           capture("nexthops", moment)},
          files_.path());
      EXPECT_EQ(compared.exitCode, 0) << compared.out;
    }
    return std::chrono::duration_cast<microseconds>(took);
  }

  void startReaders() {
    for (std::size_t number = 0; number < kReaders; ++number) {
      readers_[number].emplace([this, number] { return Follower(state_, *board_, number).run(); });
    }
  }
  // Each has been through all tables since, however little of the processor it gets.
  void waitForReaders() {
    for (std::size_t number = 0; number < kReaders; ++number) {
      const std::uint64_t passes = board_->passes[number] + 2;
      EXPECT_TRUE(readers_[number]->waitUntil([&] { return board_->passes[number] >= passes; }))
          << board_->complaint[number].data();
    }
  }
  bool everyReaderHasSeenTheLog() const {
    return std::ranges::all_of(board_->logRows, [](const auto& rows) { return rows > 0; });
  }
  void endReaders() {
    board_->over = true;
    for (std::size_t number = 0; number < kReaders; ++number) {
      EXPECT_EQ(readers_[number]->wait(), testing_support::Ending::exited(0))
          << board_->complaint[number].data();
    }
  }

  testing_support::Shared<Board> board_;
  std::array<std::optional<testing_support::ForkedChild>, kReaders> readers_;
  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
  unsigned seed_ = testing_support::times("LOAMFEC_SEED", 20261121);
  std::mt19937 random_{seed_};
};

TEST_F(KilledAgainTest, EveryLifeGoesOnFromWhatTheLastOneLeftAndReadersSeeNothingOfIt) {
  const unsigned lives = testing_support::times("LOAMFEC_KILLS", kDailyKills);
  const unsigned betweenComparisons = std::clamp(lives, 1U, kLivesBetweenComparisons);
  const unsigned betweenAnswers = std::clamp(lives / 2, 1U, kLivesBetweenAnswers);
  RecordProperty("seed", static_cast<int>(seed_));
  // Some get more time than they need. One that has ended shows that the machine has become faster.
  microseconds longest = expectAWholeRunEndsEqual(kMoments[0]) * 3 / 2;
  startReaders();
  unsigned kills = 0;
  unsigned ended = 0;
  for (unsigned life = 1; (kills < lives || !everyReaderHasSeenTheLog()) && !HasFailure(); ++life) {
    SCOPED_TRACE("life " + std::to_string(life));
    const bool killed = liveAndDie(longest);
    kills += killed ? 1U : 0U;
    ended += killed ? 0U : 1U;
    longest = killed ? longest : std::max(longest * 3 / 4, microseconds(1));
    waitForReaders();
    expectStateIsClean();
    if (life % betweenAnswers == 0) {
      liveAndCompareAnswers(life % (2 * betweenAnswers) == 0);
      expectStateIsClean();
    }
    if (life % betweenComparisons == betweenComparisons / 2) {
      expectAWholeRunEndsEqual(anyMoment());
    }
  }
  expectAWholeRunEndsEqual(kMoments[2]);
  endReaders();
  std::printf(
      "seed %u: %u kills, %u ends, %llu and %llu passes of the readers, %llu and %llu log rows\n",
      seed_, kills, ended, static_cast<unsigned long long>(board_->passes[0]),
      static_cast<unsigned long long>(board_->passes[1]),
      static_cast<unsigned long long>(board_->logRows[0]),
      static_cast<unsigned long long>(board_->logRows[1]));
}

}  // namespace
