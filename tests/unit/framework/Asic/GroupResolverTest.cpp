// SPDX-License-Identifier: Apache-2.0

// The resolver's promises: order, one commit right after its answer, turns of their own with a
// bound, and a queue that stays in order whatever entries do to it while they are asked, committed
// and released.

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/GroupResolver.h"
#include "Zev/WorkMeter.h"
#include "testing/LeakCheck.h"
#include "testing/ManualEventLoop.h"
#include "testing/RecordingResources.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::GroupResolver;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::FakeDependency;

// Entry that writes down what is done to it: "a?" asked, "a!" committed, "a~" destroyed.
class ProbeEntry : public Zev::Typed<ProbeEntry, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "ProbeEntry";

  ProbeEntry(std::vector<std::string>& journal, std::string name,
             const Pell::Ptr<Asic::DependencyEntryHandle const>& dependency = nullptr)
      : Typed(dependency, Asic::EntryFlags::write()), journal_(journal), name_(std::move(name)) {}
  ~ProbeEntry() override {
    journal_.push_back(name_ + "~");
    if (onDestroy) {
      onDestroy();
    }
  }
  bool isResolved() override {
    journal_.push_back(name_ + "?");
    if (onAsk) {
      onAsk();
    }
    return resolved;
  }
  void commitEntry(const Pell::Ptr<Asic::ResolverEntry>& resolverEntry) override {
    EXPECT_EQ(resolverEntry.get(), this);
    journal_.push_back(name_ + "!");
    if (onCommit) {
      onCommit();
    }
  }

  const std::string& name() const { return name_; }

  bool resolved = true;
  std::function<void()> onAsk;
  std::function<void()> onCommit;
  std::function<void()> onDestroy;

 private:
  std::vector<std::string>& journal_;
  std::string name_;
};

class GroupResolverTest : public testing_support::LeakCheckedTest {
 protected:
  Pell::Ptr<ProbeEntry> enq(const std::string& name,
                            const Pell::Ptr<Asic::DependencyEntryHandle const>& dependency = {}) {
    auto entry = Zev::makeObject<ProbeEntry>(journal_, name, dependency);
    resolver_->resolverQueueEnq(entry);
    return entry;
  }
  void enqMany(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      enq(std::to_string(i));
    }
  }
  // Starts a generation and runs it to its end.
  void walk() {
    resolver_->updateGenId();
    loop_.runUntilIdle();
  }
  void drop(const std::string& name) {
    resolver_->resolverQueueDelIf([&name](const Asic::ResolverEntry& entry) {
      return dynamic_cast<const ProbeEntry&>(entry).name() == name;
    });
  }
  void dropAll() {
    resolver_->resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
  }
  std::uint32_t length() const { return resolver_->resolverQueueLength(); }
  std::vector<std::string> taken() { return std::exchange(journal_, {}); }

  std::vector<std::string> journal_;
  testing_support::ManualEventLoop loop_;
  Pell::Ptr<GroupResolver> resolver_ = Zev::makeObject<GroupResolver>(loop_);
};

TEST_F(GroupResolverTest, EachResolvedEntryIsCommittedRightAfterItsAnswerInQueueOrder) {
  enq("a");
  enq("b");
  enq("c");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b!", "b~", "c?", "c!", "c~"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(GroupResolverTest, NothingHappensInsideACallAndNothingWithoutAGeneration) {
  enq("a");
  EXPECT_EQ(loop_.pending(), 0U);
  resolver_->updateGenId();
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_EQ(loop_.pending(), 1U);
  loop_.runOne();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~"));
}

TEST_F(GroupResolverTest, UnresolvedEntriesAreSkippedAndKeepTheirPlace) {
  enq("a")->resolved = false;
  enq("b");
  const auto c = enq("c");
  c->resolved = false;
  enq("d");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "b?", "b!", "b~", "c?", "d?", "d!", "d~"));
  EXPECT_EQ(length(), 2U);
  c->resolved = true;
  enq("e");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "c?", "c!", "e?", "e!", "e~"));
  EXPECT_EQ(length(), 1U);
}

TEST_F(GroupResolverTest, ManyGenerationsBeforeTheTurnMakeOneWalk) {
  enq("a")->resolved = false;
  for (int i = 0; i < 100; ++i) {
    resolver_->updateGenId();
  }
  EXPECT_EQ(loop_.runUntilIdle(), 1U);
  EXPECT_THAT(taken(), ElementsAre("a?"));
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?"));
}

TEST_F(GroupResolverTest, AWalkOverAnEmptyQueueEndsAndTheNextOneWorks) {
  walk();
  EXPECT_THAT(journal_, IsEmpty());
  enq("a");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~"));
}

TEST_F(GroupResolverTest, EntriesThatArriveDuringAWalkWaitForTheNextOne) {
  enq("a")->onCommit = [this] { enq("late"); };
  enq("b");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b!", "b~"));
  EXPECT_EQ(length(), 1U);
  walk();
  EXPECT_THAT(taken(), ElementsAre("late?", "late!", "late~"));
}

TEST_F(GroupResolverTest, GenerationsStartedInsideAWalkMakeOneMoreWalkAfterIt) {
  enq("a")->onCommit = [this] {
    enq("late");
    resolver_->updateGenId();
    resolver_->updateGenId();
  };
  enq("b")->onCommit = [this] { resolver_->updateGenId(); };
  resolver_->updateGenId();
  EXPECT_EQ(loop_.runUntilIdle(), 2U);
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b!", "b~", "late?", "late!", "late~"));
}

TEST_F(GroupResolverTest, AGenerationStartedByAnAnswerIsNotLost) {
  const auto a = enq("a");
  a->resolved = false;
  a->onAsk = [this, entry = a.get()] {
    entry->onAsk = nullptr;
    resolver_->updateGenId();
  };
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a?"));
}

TEST_F(GroupResolverTest, TheLengthCountsTheEntryThatIsBeingCommitted) {
  std::vector<std::uint32_t> lengths;
  const auto look = [&] { lengths.push_back(length()); };
  for (const char* name : {"a", "b"}) {
    const auto entry = enq(name);
    entry->onAsk = look;
    entry->onCommit = look;
  }
  EXPECT_EQ(length(), 2U);
  walk();
  EXPECT_THAT(lengths, ElementsAre(2U, 2U, 1U, 1U));
  EXPECT_EQ(length(), 0U);
}

// The bound of one turn, and one to each side.

class TurnBudgetTest : public GroupResolverTest,
                       public ::testing::WithParamInterface<std::pair<std::uint32_t, std::size_t>> {
};

TEST_P(TurnBudgetTest, AWalkTakesAsManyTurnsAsItsEntriesNeed) {
  const auto [entries, turns] = GetParam();
  enqMany(entries);
  resolver_->updateGenId();
  EXPECT_EQ(loop_.runUntilIdle(), turns);
  EXPECT_EQ(journal_.size(), 3U * entries);
  EXPECT_EQ(length(), 0U);
}

TEST_P(TurnBudgetTest, EntriesThatAreOnlyAskedCountToo) {
  const auto [entries, turns] = GetParam();
  for (std::uint32_t i = 0; i < entries; ++i) {
    enq("x")->resolved = false;
  }
  resolver_->updateGenId();
  EXPECT_EQ(loop_.runUntilIdle(), turns);
  EXPECT_EQ(journal_.size(), entries);
  EXPECT_EQ(length(), entries);
}

INSTANTIATE_TEST_SUITE_P(
    AtTheBound, TurnBudgetTest,
    ::testing::Values(std::pair{GroupResolver::kEntriesPerTurn - 1, std::size_t{1}},
                      std::pair{GroupResolver::kEntriesPerTurn, std::size_t{1}},
                      std::pair{GroupResolver::kEntriesPerTurn + 1, std::size_t{2}},
                      std::pair{2 * GroupResolver::kEntriesPerTurn, std::size_t{2}},
                      std::pair{2 * GroupResolver::kEntriesPerTurn + 1, std::size_t{3}}));

TEST_F(GroupResolverTest, OneTurnLooksAt1024Entries) {
  static_assert(GroupResolver::kEntriesPerTurn == 1024);
  enqMany(1025);
  resolver_->updateGenId();
  loop_.runOne();
  EXPECT_EQ(length(), 1U);
}

// A turn is also bounded by what its entries do.

class TurnWorkTest : public GroupResolverTest {
 protected:
  static constexpr std::uint64_t kRows = GroupResolver::kRowsPerTurn;

  void enqWorking(const std::string& name, std::uint64_t rows) {
    enq(name)->onCommit = [rows] { Zev::WorkMeter::add(rows); };
  }
  // What the turns of one generation commit, a number a turn.
  std::vector<std::size_t> committedByTurn() {
    resolver_->updateGenId();
    std::vector<std::size_t> committed;
    while (loop_.pending() > 0) {
      const std::uint32_t before = length();
      loop_.runOne();
      committed.push_back(before - length());
    }
    return committed;
  }
};

TEST_F(TurnWorkTest, OneTurnTouches8192RowsAndWhatItsLastEntryTouches) {
  static_assert(kRows == 8192);
  for (int i = 0; i < 4; ++i) {
    enqWorking("x", kRows / 2);
  }
  EXPECT_THAT(committedByTurn(), ElementsAre(2U, 2U));
}

TEST_F(TurnWorkTest, ATurnBelowTheBoundGoesOn) {
  enqWorking("x", kRows - 1);
  enqWorking("x", 1);
  enqWorking("x", 0);
  EXPECT_THAT(committedByTurn(), ElementsAre(2U, 1U));
}

TEST_F(TurnWorkTest, AnEntryBeyondTheBoundIsTheTurnsOnlyOne) {
  for (int i = 0; i < 3; ++i) {
    enqWorking("x", 8 * kRows);
  }
  EXPECT_THAT(committedByTurn(), ElementsAre(1U, 1U, 1U));
}

TEST_F(TurnWorkTest, WorkOfOtherTurnsDoesNotCount) {
  enqWorking("x", kRows - 1);
  enqWorking("x", 1);
  Zev::WorkMeter::add(10 * kRows);
  EXPECT_THAT(committedByTurn(), ElementsAre(2U));
}

TEST_F(TurnWorkTest, AskingCountsToo) {
  for (int i = 0; i < 3; ++i) {
    const auto entry = enq("x");
    entry->resolved = false;
    entry->onAsk = [] { Zev::WorkMeter::add(kRows / 2); };
  }
  resolver_->updateGenId();
  EXPECT_EQ(loop_.runUntilIdle(), 2U);
}

// A walk that pauses between two of its turns.

class PausedWalkTest : public GroupResolverTest {
 protected:
  static constexpr std::uint32_t kBehind = 3;  // entries that the second turn has to look at

  PausedWalkTest() {
    enqMany(GroupResolver::kEntriesPerTurn + kBehind);
    resolver_->updateGenId();
    loop_.runOne();
    journal_.clear();
  }
};

TEST_F(PausedWalkTest, OtherTurnsRunBetweenTheTurnsOfAWalk) {
  loop_.post([this] { journal_.emplace_back("other"); });
  EXPECT_EQ(loop_.pending(), 2U);
  enqMany(GroupResolver::kEntriesPerTurn);
  resolver_->updateGenId();
  loop_.runUntilIdle();
  EXPECT_EQ(journal_[3 * kBehind], "other");
}

TEST_F(PausedWalkTest, WhatIsAppendedWaitsForTheNextWalk) {
  enq("late");
  loop_.runUntilIdle();
  EXPECT_EQ(journal_.size(), 3U * kBehind);
  EXPECT_EQ(length(), 1U);
  walk();
  EXPECT_EQ(length(), 0U);
}

TEST_F(PausedWalkTest, AGenerationStartedInThePauseMakesAnotherWalk) {
  enq("late");
  resolver_->updateGenId();
  EXPECT_EQ(loop_.pending(), 1U);
  EXPECT_EQ(loop_.runUntilIdle(), 2U);
  EXPECT_EQ(journal_.back(), "late~");
  EXPECT_EQ(length(), 0U);
}

TEST_F(PausedWalkTest, WhatIsDroppedIsNotAskedAndTheRestIs) {
  drop("1025");
  EXPECT_EQ(length(), kBehind - 1);
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("1025~", "1024?", "1024!", "1024~", "1026?", "1026!", "1026~"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(PausedWalkTest, WhenAllIsDroppedTheWalkStillEnds) {
  dropAll();
  enq("late");
  loop_.runUntilIdle();
  journal_.clear();
  walk();
  EXPECT_THAT(taken(), ElementsAre("late?", "late!", "late~"));
}

TEST_F(PausedWalkTest, AResolverThatGoesInThePauseDropsItsEntriesUnasked) {
  resolver_ = nullptr;
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("1024~", "1025~", "1026~"));
}

// Dependencies.

class DependencyWatchTest : public GroupResolverTest {
 protected:
  Pell::Ptr<FakeDependency> dependency_ = Zev::makeObject<FakeDependency>();
};

TEST_F(DependencyWatchTest, AChangeOfTheDependencysStateWakesTheQueue) {
  enq("a", dependency_);
  dependency_->stateIs(Asic::EntryState::hwWritePending);
  EXPECT_THAT(journal_, IsEmpty());
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~"));
}

TEST_F(DependencyWatchTest, WhatElseADependencyPublishesWakesNobody) {
  enq("a", dependency_);
  dependency_->publisher().attributeChange(Asic::DependencyEntryHandle::kEntryStateAttribute + 1);
  EXPECT_EQ(loop_.runUntilIdle(), 0U);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(DependencyWatchTest, EachFailureOfTheDependencyWakesTheQueue) {
  for (const auto state : {Asic::EntryState::dependencyFailed, Asic::EntryState::done,
                           Asic::EntryState::commitFailed, Asic::EntryState::resourceFailed}) {
    const auto dependency = Zev::makeObject<FakeDependency>();
    enq("a", dependency);
    dependency->stateIs(state);
    loop_.runUntilIdle();
    EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~"));
  }
}

TEST_F(DependencyWatchTest, TwoEntriesOnOneDependencyAreWokenInOneWalk) {
  enq("a", dependency_);
  enq("b", dependency_);
  dependency_->stateIs(Asic::EntryState::done);
  EXPECT_EQ(loop_.runUntilIdle(), 1U);
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b!", "b~"));
}

TEST_F(DependencyWatchTest, TheOtherEntryOfADependencyStillHearsOfItAfterOneIsDropped) {
  enq("a", dependency_);
  enq("b", dependency_);
  drop("a");
  dependency_->stateIs(Asic::EntryState::done);
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("a~", "b?", "b!", "b~"));
}

TEST_F(DependencyWatchTest, TheQueueKeepsTheDependencyAliveUntilItsEntryGoes) {
  enq("a", dependency_);
  auto& tracker = Zev::trackerOf<FakeDependency>();
  const auto live = tracker.live();
  dependency_ = nullptr;
  EXPECT_EQ(tracker.live(), live);
  dropAll();
  EXPECT_EQ(tracker.live(), live - 1);
}

TEST_F(DependencyWatchTest, ADependencyThatIsResolvedAlreadyIsNotWatched) {
  dependency_->stateIs(Asic::EntryState::hwWritePending);
  enq("a", dependency_);
  EXPECT_TRUE(dependency_->publisher().idle());
  dependency_->stateIs(Asic::EntryState::done);
  EXPECT_EQ(loop_.pending(), 0U);
}

TEST_F(DependencyWatchTest, NobodyListensAnyMoreOnceTheEntryHasGone) {
  enq("a", dependency_);
  EXPECT_FALSE(dependency_->publisher().idle());
  walk();
  EXPECT_TRUE(dependency_->publisher().idle());
  enq("b", dependency_);
  resolver_ = nullptr;
  EXPECT_TRUE(dependency_->publisher().idle());
  dependency_->stateIs(Asic::EntryState::done);
  EXPECT_EQ(loop_.pending(), 0U);
}

TEST_F(DependencyWatchTest, AnObserverOfTheDependencyMayDropTheEntryThatWaitsForIt) {
  Pell::Subscriber first([this](auto...) { dropAll(); });
  dependency_->publisher().subscriberAdd(first);
  enq("a", dependency_);
  dependency_->stateIs(Asic::EntryState::done);
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("a~"));
  dependency_->publisher().subscriberRemove(first);
}

TEST_F(DependencyWatchTest, ADependencyThatChangesInsideAWalkMakesAnotherWalk) {
  enq("a")->onCommit = [this] { dependency_->stateIs(Asic::EntryState::hwWritePending); };
  const auto b = enq("b", dependency_);
  b->resolved = false;
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b?"));
}

// Dropping entries.

TEST_F(GroupResolverTest, DroppedEntriesAreNeverCommittedAndTheOthersKeepTheirOrder) {
  enq("a");
  enq("b");
  enq("c");
  drop("b");
  EXPECT_EQ(length(), 2U);
  drop("no such entry");
  EXPECT_EQ(length(), 2U);
  walk();
  EXPECT_THAT(taken(), ElementsAre("b~", "a?", "a!", "a~", "c?", "c!", "c~"));
}

TEST_F(GroupResolverTest, ACommitMayDropTheEntriesBehindIt) {
  enq("a")->onCommit = [this] {
    drop("b");
    EXPECT_EQ(length(), 2U);
  };
  enq("b");
  enq("c");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "b~", "a~", "c?", "c!", "c~"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(GroupResolverTest, ACommitMayDropItsOwnEntryAndTheLengthStaysRight) {
  enq("a")->onCommit = [this] {
    drop("a");
    EXPECT_EQ(length(), 1U);
  };
  enq("b")->resolved = false;
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?"));
  EXPECT_EQ(length(), 1U);
}

TEST_F(GroupResolverTest, AnEntryThatItsCommitDropsGoesWhenTheCommitIsOver) {
  enq("a")->onCommit = [&] {
    resolver_->resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
    journal_.emplace_back("dropped");
  };
  walk();
  EXPECT_THAT(journal_, ElementsAre("a?", "a!", "dropped", "a~"));
}

TEST_F(GroupResolverTest, ACommitMayDropAllEntriesAndAppendNewOnes) {
  enq("a")->onCommit = [this] {
    dropAll();
    enq("new");
    resolver_->updateGenId();
  };
  enq("b");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "b~", "a~", "new?", "new!", "new~"));
}

TEST_F(GroupResolverTest, AnEntryThatIsDroppedWhileItIsAskedIsNotCommitted) {
  enq("a")->onAsk = [this] { dropAll(); };
  enq("b");
  walk();
  EXPECT_THAT(taken(), ElementsAre("a?", "b~", "a~"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(GroupResolverTest, WhatADroppedEntrySetsOffFindsTheQueueInOrder) {
  enq("a")->onDestroy = [this] {
    EXPECT_EQ(length(), 2U);
    drop("b");
    enq("new");
  };
  enq("b");
  enq("c");
  drop("a");
  EXPECT_EQ(length(), 2U);
  walk();
  EXPECT_THAT(taken(), ElementsAre("a~", "b~", "c?", "c!", "c~", "new?", "new!", "new~"));
}

TEST_F(GroupResolverTest, ADropInsideADropMissesNothing) {
  enq("x1")->onDestroy = [this] { drop("y"); };
  enq("y");
  enq("x2");
  enq("z");
  resolver_->resolverQueueDelIf([](const Asic::ResolverEntry& entry) {
    return dynamic_cast<const ProbeEntry&>(entry).name().front() == 'x';
  });
  EXPECT_EQ(length(), 1U);
  journal_.clear();
  walk();
  EXPECT_THAT(taken(), ElementsAre("z?", "z!", "z~"));
}

TEST_F(GroupResolverTest, ADroppedEntryMayHoldTheLastReferenceToItsResolver) {
  const auto keepResolver = [this](ProbeEntry& entry) {
    entry.onDestroy = [held = resolver_] { EXPECT_TRUE(held); };
  };
  keepResolver(*enq("a"));
  enq("b", Zev::makeObject<FakeDependency>());
  GroupResolver* resolver = std::exchange(resolver_, nullptr).get();
  resolver->resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
  EXPECT_THAT(taken(), ElementsAre("a~", "b~"));
  EXPECT_EQ(Zev::trackerOf<GroupResolver>().live(), 0);
}

TEST_F(GroupResolverTest, AResolverThatIsDroppedByACommitFinishesItsTurnAndGoes) {
  enq("a")->onCommit = [this] { resolver_ = nullptr; };
  enq("b");
  enq("c")->resolved = false;
  resolver_->updateGenId();
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?", "b!", "b~", "c?", "c~"));
  EXPECT_EQ(Zev::trackerOf<GroupResolver>().live(), 0);
}

TEST_F(GroupResolverTest, AResolverThatIsDroppedByACommitLeavesTheNextTurnsEntriesUnasked) {
  enqMany(GroupResolver::kEntriesPerTurn - 1);
  enq("last")->onCommit = [this] { resolver_ = nullptr; };
  enq("behind");
  resolver_->updateGenId();
  EXPECT_EQ(loop_.runUntilIdle(), 2U);
  EXPECT_EQ(journal_.back(), "behind~");
  EXPECT_THAT(journal_, ::testing::Not(::testing::Contains("behind?")));
}

TEST_F(GroupResolverTest, AResolverThatIsDroppedWithAGenerationMarkedNeverWalks) {
  enq("a");
  resolver_->updateGenId();
  resolver_ = nullptr;
  EXPECT_EQ(loop_.runUntilIdle(), 1U);
  EXPECT_THAT(taken(), ElementsAre("a~"));
}

// Exceptions.

struct Thrown : std::runtime_error {
  Thrown() : std::runtime_error("thrown by an entry") {}
};

TEST_F(GroupResolverTest, AnEntryThatThrowsWhenAskedWaitsOnAndTheWalkGoesOnBehindIt) {
  enq("a");
  const auto b = enq("b");
  b->onAsk = [] { throw Thrown(); };
  enq("c");
  resolver_->updateGenId();
  EXPECT_THROW(loop_.runOne(), Thrown);
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b?"));
  EXPECT_EQ(length(), 2U);
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("c?", "c!", "c~"));
  EXPECT_EQ(length(), 1U);
  b->onAsk = nullptr;
  walk();
  EXPECT_THAT(taken(), ElementsAre("b?", "b!"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(GroupResolverTest, AnEntryWhoseCommitThrowsIsNotCommittedASecondTime) {
  enq("a")->onCommit = [] { throw Thrown(); };
  enq("b");
  resolver_->updateGenId();
  EXPECT_THROW(loop_.runOne(), Thrown);
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~"));
  EXPECT_EQ(length(), 1U);
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("b?", "b!", "b~"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(GroupResolverTest, AfterTheLastEntryOfAWalkHasThrownGenerationsStillWalk) {
  const auto a = enq("a");
  a->onAsk = [this] {
    resolver_->updateGenId();
    throw Thrown();
  };
  resolver_->updateGenId();
  EXPECT_THROW(loop_.runOne(), Thrown);
  EXPECT_EQ(loop_.pending(), 1U);  // the generation that was started before it threw
  a->onAsk = nullptr;
  enq("b");
  loop_.runUntilIdle();
  EXPECT_THAT(taken(), ElementsAre("a?", "a?", "a!", "b?", "b!", "b~"));
}

TEST_F(GroupResolverTest, AnEntryThatDropsTheResolverAndThrowsEndsBoth) {
  enq("a")->onCommit = [this] {
    resolver_ = nullptr;
    throw Thrown();
  };
  enq("b");
  resolver_->updateGenId();
  EXPECT_THROW(loop_.runOne(), Thrown);
  EXPECT_THAT(taken(), ElementsAre("a?", "a!", "a~", "b~"));
  loop_.runUntilIdle();
  EXPECT_THAT(journal_, IsEmpty());
}

// The resolver's end.

TEST_F(GroupResolverTest, WhatItsEndReleasesFindsAnEmptyQueueAndAppendsInVain) {
  GroupResolver* ending = resolver_.get();
  std::vector<std::uint32_t> lengths;
  for (const char* name : {"a", "b", "c"}) {
    enq(name)->onDestroy = [&, ending] {
      lengths.push_back(ending->resolverQueueLength());
      ending->resolverQueueEnq(Zev::makeObject<ProbeEntry>(journal_, "late"));
      ending->updateGenId();
      ending->resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
    };
  }
  resolver_ = nullptr;
  loop_.runUntilIdle();
  EXPECT_THAT(lengths, ElementsAre(0U, 0U, 0U));
  EXPECT_THAT(taken(), ElementsAre("a~", "late~", "b~", "late~", "c~", "late~"));
}

// Traces.

TEST_F(GroupResolverTest, ItTracesWhatIsAskedOfIt) {
  const testing_support::TraceRecorder traces({"GroupResolver"});
  enq("a");
  resolver_->updateGenId();
  dropAll();
  std::vector<std::string> lines;
  for (const auto& record : traces.records()) {
    lines.push_back(std::to_string(record.level) + " " + record.file + " " + record.className +
                    " " + record.function + "|" + record.message + "|");
  }
  EXPECT_THAT(lines, ElementsAre("8 GroupResolver GroupResolver resolverQueueEnq|flags 0|",
                                 "8 GroupResolver GroupResolver updateGenId||",
                                 "8 GroupResolver GroupResolver resolverQueueDelIf||"));
}

class GroupResolverWalkTraceTest : public GroupResolverTest {
 protected:
  std::vector<std::string> traced() {
    std::vector<std::string> lines = traces_.lines();
    traces_.clear();
    return lines;
  }

  testing_support::TraceRecorder traces_{{"GroupResolverWalk"}};
};

TEST_F(GroupResolverWalkTraceTest, AWalkIsTracedWithWhatItCommitsAndWhatWaitsOn) {
  enq("a")->resolved = false;
  enq("b");
  enq("c")->onAsk = [this] { drop("c"); };
  walk();
  EXPECT_THAT(traced(),
              ElementsAre("8 GroupResolver::walk entries: 3",
                          "9 GroupResolver::walkEntry entry: 1 of 3 is not resolved and "
                          "waits on",
                          "8 GroupResolver::walkEntry entry: 2 of 3 is resolved and commits",
                          "8 GroupResolver::resolverQueueDelIf dropped: 1 waiting: 1",
                          "9 GroupResolver::walkEntry entry: 3 of 3 has gone",
                          "8 GroupResolver::endTurn walk is over, waiting: 1"));
}

TEST_F(GroupResolverWalkTraceTest, HowManyAreDroppedAndWaitOnIsTraced) {
  enq("a");
  enq("b");
  enq("c");
  drop("b");
  EXPECT_THAT(traced(), ElementsAre("8 GroupResolver::resolverQueueDelIf dropped: 1 waiting: 2"));
}

TEST_F(GroupResolverWalkTraceTest, AWalkThatTakesSeveralTurnsTellsWhereEachOneEnds) {
  enqMany(GroupResolver::kEntriesPerTurn + 1);
  Zev::traceHandle("GroupResolverWalk").levelsIs(1U << 8);
  resolver_->updateGenId();
  loop_.runOne();
  EXPECT_EQ(traced().back(),
            "8 GroupResolver::endTurn next turn goes on behind entry: 1024 of 1025");
  loop_.runOne();
  EXPECT_THAT(traced(),
              ElementsAre("8 GroupResolver::walkEntry entry: 1025 of 1025 is resolved and commits",
                          "8 GroupResolver::endTurn walk is over, waiting: 0"));
}

TEST_F(GroupResolverWalkTraceTest, TheDependencyThatStartsAWalkIsTraced) {
  const auto dependency = Zev::makeObject<FakeDependency>(
      Asic::TableVersion(Asic::SwTableId(0x03010806), Asic::LogVersion(7)));
  enq("a", dependency);
  dependency->stateIs(Asic::EntryState::hwWritePending);
  EXPECT_THAT(traced(),
              ElementsAre("8 GroupResolver::dependencyChanged 03:01:0806@7 is in state 1"));
}

TEST_F(GroupResolverTest, ItNamesItsType) {
  EXPECT_EQ(resolver_->fwkType().name, "Asic::GroupResolver");
}

}  // namespace
