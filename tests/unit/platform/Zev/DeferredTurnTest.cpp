// SPDX-License-Identifier: Apache-2.0

#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Zev/EventLoop.h"
#include "testing/ManualEventLoop.h"

namespace {

using testing_support::ManualEventLoop;
using Zev::DeferredTurn;

TEST(DeferredTurn, DoesNothingInsideMarkAndItsWorkInATurnOfItsOwn) {
  ManualEventLoop loop;
  int done = 0;
  DeferredTurn turn(loop, [&done] { ++done; });
  EXPECT_FALSE(turn.marked());
  EXPECT_EQ(loop.pending(), 0U);
  turn.mark();
  EXPECT_TRUE(turn.marked());
  EXPECT_EQ(done, 0);
  EXPECT_TRUE(loop.runOne());
  EXPECT_EQ(done, 1);
  EXPECT_FALSE(turn.marked());
}

TEST(DeferredTurn, ManyMarksMakeOneTurn) {
  ManualEventLoop loop;
  int done = 0;
  DeferredTurn turn(loop, [&done] { ++done; });
  for (int i = 0; i < 1000; ++i) {
    turn.mark();
  }
  EXPECT_EQ(loop.pending(), 1U);
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(done, 1);
  turn.mark();
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(done, 2);
}

// Cannot post while it is full.
class FullLoop : public ManualEventLoop {
 public:
  void post(Task task) override {
    if (full) {
      throw std::bad_alloc();
    }
    ManualEventLoop::post(std::move(task));
  }
  bool full = true;
};

TEST(DeferredTurn, ATurnThatCouldNotBePostedCanBeAskedForAgain) {
  FullLoop loop;
  int done = 0;
  DeferredTurn turn(loop, [&done] { ++done; });
  EXPECT_THROW(turn.mark(), std::bad_alloc);
  EXPECT_FALSE(turn.marked());
  loop.full = false;
  turn.mark();
  EXPECT_TRUE(turn.marked());
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(done, 1);
}

TEST(DeferredTurn, AMarkWithinTheTurnMakesAnotherOne) {
  ManualEventLoop loop;
  int done = 0;
  std::optional<DeferredTurn> turn;
  turn.emplace(loop, [&] {
    if (++done == 1) {
      EXPECT_FALSE(turn->marked());
      turn->mark();
      turn->mark();
    }
  });
  turn->mark();
  EXPECT_TRUE(loop.runOne());
  EXPECT_EQ(done, 1);
  EXPECT_EQ(loop.pending(), 1U);
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(done, 2);
}

TEST(DeferredTurn, ATurnWhoseOwnerHasGoneDoesNothing) {
  ManualEventLoop loop;
  int done = 0;
  {
    DeferredTurn turn(loop, [&done] { ++done; });
    turn.mark();
  }
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(done, 0);
}

TEST(DeferredTurn, TheWorkMayEndItsOwner) {
  ManualEventLoop loop;
  std::unique_ptr<DeferredTurn> turn;
  std::string after;
  const std::string captured(100, 'x');  // in the work, which its owner's end must not pull away
  turn = std::make_unique<DeferredTurn>(loop, [&turn, &after, captured] {
    turn.reset();
    after = captured;
  });
  turn->mark();
  EXPECT_EQ(loop.runUntilIdle(), 1U);
  EXPECT_EQ(after, captured);
}

TEST(DeferredTurn, TheLoopMayEndBeforeTheOwner) {
  auto loop = std::make_unique<ManualEventLoop>();
  int done = 0;
  DeferredTurn turn(*loop, [&done] { ++done; });
  turn.mark();
  loop.reset();
  EXPECT_EQ(done, 0);
  EXPECT_TRUE(turn.marked());
}

TEST(DeferredTurn, TurnsOfDifferentOwnersRunInTheOrderOfTheirMarks) {
  ManualEventLoop loop;
  std::string order;
  DeferredTurn a(loop, [&order] { order += 'a'; });
  DeferredTurn b(loop, [&order] { order += 'b'; });
  b.mark();
  a.mark();
  b.mark();
  loop.runUntilIdle();
  EXPECT_EQ(order, "ba");
}

}  // namespace
