// SPDX-License-Identifier: Apache-2.0

// The FEC table against its model, through random sequences of operations.
//
// The short form runs with all other tests. The long form, by name:
//   LOAMFEC_MODEL_STEPS=1000000 LOAMFEC_MODEL_SEED=7
//     FecTableModelTest --gtest_filter='*RandomSequences*'
// prints how often each situation was met. One sequence again, from the seed printed with it:
//   LOAMFEC_MODEL_EPISODE=0x700000012 FecTableModelTest --gtest_filter='*RandomSequences*'
// A disagreement is printed as a sequence made as short as possible, which can be pasted into a
// test of this file.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ModelRun.h"
#include "Operations.h"
#include "Shrink.h"
#include "testing/LeakCheck.h"

namespace fec_model {
namespace {

using ::testing::IsEmpty;

constexpr std::uint64_t kShortSteps = 12'000;
constexpr std::uint64_t kSeed = 1;
constexpr std::size_t kShrinkRuns = 3'000;

std::optional<std::uint64_t> number(const char* variable) {
  const char* text = std::getenv(variable);
  return text == nullptr ? std::nullopt : std::optional(std::strtoull(text, nullptr, 0));
}

// An assertion of the table ends the process: its sequence is named first.
volatile std::sig_atomic_t running = 0;
char runningSeed[64];

void nameSequence(int /*signal*/) {
  if (running != 0) {
    [[maybe_unused]] const ssize_t written =
        ::write(STDERR_FILENO, runningSeed, sizeof(runningSeed) - 1);
  }
}

Outcome runEpisode(const Episode& episode, WrongRule wrong = WrongRule::none) {
  std::snprintf(runningSeed, sizeof(runningSeed), "\nin the sequence of seed %#llx\n",
                static_cast<unsigned long long>(episode.seed));
  running = 1;
  Outcome outcome = runOperations(episode.start, episode.operations, wrong);
  running = 0;
  return outcome;
}

// As short as possible with the same start, or a simpler one.
Episode shrunk(Episode episode, WrongRule wrong) {
  const auto failsFrom = [wrong](const Start& start, const std::vector<Operation>& operations) {
    return !runOperations(start, operations, wrong).disagreement.empty();
  };
  const bool live = episode.start.liveResources;
  for (const Start& simplerStart :
       {Start{1, 0, false}, Start{1, 0, live}, Start{episode.start.units, 0, live}}) {
    if (failsFrom(simplerStart, episode.operations)) {
      episode.start = simplerStart;
      break;
    }
  }
  const auto fails = [&](const std::vector<Operation>& operations) {
    return failsFrom(episode.start, operations);
  };
  episode.operations = Shrinker(episode.operations, fails, simpler, kShrinkRuns).shrink();
  return episode;
}

std::string describe(const Episode& episode, WrongRule wrong = WrongRule::none) {
  return runEpisode(episode, wrong).disagreement + "\n" + print(episode);
}

class FecTableModel : public testing_support::LeakCheckedTest {
 protected:
  FecTableModel() : formerHandler_(std::signal(SIGABRT, nameSequence)) {}
  ~FecTableModel() override { std::signal(SIGABRT, formerHandler_); }

 private:
  void (*formerHandler_)(int);
};

TEST_F(FecTableModel, AgreesWithTheTableThroughRandomSequences) {
  const std::optional<std::uint64_t> longForm = number("LOAMFEC_MODEL_STEPS");
  const std::optional<std::uint64_t> single = number("LOAMFEC_MODEL_EPISODE");
  const std::uint64_t steps = single ? 1 : longForm.value_or(kShortSteps);
  const std::uint64_t firstSeed =
      single ? *single : number("LOAMFEC_MODEL_SEED").value_or(kSeed) << 32;
  RecordProperty("seed", std::to_string(firstSeed));
  Situations situations;
  std::uint64_t done = 0;
  std::uint64_t episodes = 0;
  for (; done < steps; ++episodes) {
    Episode episode = makeEpisode(firstSeed + episodes);
    const Outcome outcome = runEpisode(episode);
    if (!outcome.disagreement.empty()) {
      episode.operations.resize(outcome.steps);
      FAIL() << outcome.disagreement << "\nmade short:\n"
             << describe(shrunk(episode, WrongRule::none));
    }
    done += outcome.steps;
    situations.add(outcome.situations);
  }
  if (longForm || single) {
    std::cout << done << " steps in " << episodes << " sequences from seed " << std::hex
              << std::showbase << firstSeed << std::dec << "\n"
              << situations.report();
  }
  if (!single) {
    EXPECT_THAT(situations.missing(), IsEmpty());
  }
}

TEST_F(FecTableModel, SequenceFollowsFromItsSeedAlone) {
  EXPECT_EQ(makeEpisode(77).operations, makeEpisode(77).operations);
  EXPECT_NE(makeEpisode(77).operations, makeEpisode(78).operations);
}

TEST_F(FecTableModel, SequenceIsPrintedAsItsBuilders) {
  const Episode episode{
      0x12,
      {2, 5, true},
      {write(1, 3, 2, 7).after(2).then(Reaction::writeSame), resource(2, 5, 4, Notice::published),
       report(Report::again, 1), hooks(0, true, false, Reaction::removeSame), clear(1, true),
       restart(3, 1)}};
  EXPECT_EQ(print(episode),
            "// seed 0x12, 6 operations\n"
            "{.units = 2, .logRows = 5, .liveResources = true},\n"
            "{\n"
            "    write(1, 3, 2, 7).after(2).then(Reaction::writeSame),\n"
            "    resource(2, 5, 4, Notice::published),\n"
            "    report(Report::again, 1),\n"
            "    hooks(0, true, false, Reaction::removeSame),\n"
            "    clear(1, true),\n"
            "    restart(3, 1),\n"
            "}");
}

TEST_F(FecTableModel, ShrinkerKeepsOnlyWhatFails) {
  std::vector<int> items(200, 50);
  items[30] = 70;
  items[170] = 90;
  const auto fails = [](const std::vector<int>& tried) {
    bool seventy = false;
    for (const int item : tried) {
      if (seventy && item >= 20) {
        return true;
      }
      seventy = seventy || item >= 60;
    }
    return false;
  };
  const auto simplerNumbers = [](int item) {
    return item > 0 ? std::vector<int>{item / 2, item - 1} : std::vector<int>{};
  };
  const std::vector<int> shortest{60, 20};
  EXPECT_EQ(Shrinker(items, fails, simplerNumbers, 10'000).shrink(), shortest);
}

// Sequences that have shown a fault of the table once.

TEST_F(FecTableModel, PendingWriteCommittedDuringAWalkIsStillYielded) {
  const std::vector<Operation> operations{
      write(0, 0, 0, 1),
      openWalk(0, 0),
      turn(),
      stepWalk(0, 2),
  };
  EXPECT_EQ(runOperations({}, operations).disagreement, "");
}

TEST_F(FecTableModel, EntryThatComesBackDuringAWalkIsYieldedOnce) {
  const std::vector<Operation> operations{
      write(0, 1, 0, 1),     turn(), remove(0, 1).then(Reaction::writeOther),
      openWalkFrom(0, 0, 1), turn(), report(Report::behind, 0),
      write(0, 1, 0, 1),     turn(), stepWalk(0, 4),
  };
  EXPECT_EQ(runOperations({}, operations).disagreement, "");
}

// A rule that is wrong in the model is found, and the sequence that shows it is short.
class WrongRules : public FecTableModel, public ::testing::WithParamInterface<WrongRule> {};

TEST_P(WrongRules, AreFoundAndShownInAHandfulOfOperations) {
  constexpr std::uint64_t kSequences = 200;
  constexpr std::uint64_t kFirst = (kSeed << 32) + 3;  // behind those of the boundaries
  for (std::uint64_t seed = kFirst; seed < kFirst + kSequences; ++seed) {
    Episode episode = makeEpisode(seed);
    const Outcome outcome = runEpisode(episode, GetParam());
    if (!outcome.disagreement.empty()) {
      episode.operations.resize(outcome.steps);
      const Episode shortest = shrunk(episode, GetParam());
      EXPECT_LE(shortest.operations.size(), 6U) << describe(shortest, GetParam());
      EXPECT_EQ(runEpisode(shortest).disagreement, "");
      return;
    }
  }
  FAIL() << "no sequence shows the wrong rule";
}

INSTANTIATE_TEST_SUITE_P(EachOfThem, WrongRules,
                         ::testing::Values(WrongRule::removeStaysReadable,
                                           WrongRule::removeAllKeepsRequests,
                                           WrongRule::failureIsForgotten, WrongRule::cursorStays,
                                           WrongRule::staleVersionWins, WrongRule::releasesTwice));

}  // namespace
}  // namespace fec_model
