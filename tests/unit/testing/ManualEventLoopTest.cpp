// SPDX-License-Identifier: Apache-2.0

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "testing/ManualEventLoop.h"

namespace {

using testing_support::ManualEventLoop;

TEST(ManualEventLoop, RunsTasksOneAtATimeInTheOrderPosted) {
  ManualEventLoop loop;
  std::string order;
  loop.post([&order] { order += 'a'; });
  loop.post([&order] { order += 'b'; });
  EXPECT_EQ(order, "") << "never inside post()";
  EXPECT_EQ(loop.pending(), 2U);
  EXPECT_TRUE(loop.runOne());
  EXPECT_EQ(order, "a");
  EXPECT_EQ(loop.pending(), 1U);
  EXPECT_TRUE(loop.runOne());
  EXPECT_FALSE(loop.runOne());
  EXPECT_EQ(order, "ab");
}

TEST(ManualEventLoop, RunUntilIdleRunsWhatTheTasksPostAndCountsTheTurns) {
  ManualEventLoop loop;
  int left = 5;
  std::function<void()> again = [&] {
    if (--left > 0) {
      loop.post(again);
    }
  };
  loop.post(again);
  EXPECT_EQ(loop.runUntilIdle(5), 5U) << "the bound itself is enough";
  EXPECT_EQ(loop.runUntilIdle(0), 0U);
}

TEST(ManualEventLoopDeathTest, RunUntilIdleStopsTheProcessWhenTheWorkNeverEnds) {
  ManualEventLoop loop;
  std::function<void()> forEver = [&] { loop.post(forEver); };
  loop.post(forEver);
  EXPECT_DEATH(loop.runUntilIdle(100), "the loop becomes idle: still busy after 100 turns");
}

TEST(ManualEventLoopDeathTest, OneTurnMoreThanTheBoundStopsTheProcess) {
  ManualEventLoop loop;
  for (int i = 0; i < 4; ++i) {
    loop.post([] {});
  }
  EXPECT_DEATH(loop.runUntilIdle(3), "still busy after 3 turns");
  EXPECT_EQ(loop.runUntilIdle(4), 4U);
}

TEST(ManualEventLoopDeathTest, ATurnInsideATurnStopsTheProcess) {
  ManualEventLoop loop;
  loop.post([&loop] { loop.runOne(); });
  EXPECT_DEATH(loop.runOne(), "turns do not nest");
}

// What a task holds, and what posts another task when the held thing goes.
std::shared_ptr<int> postsWhenDropped(ManualEventLoop& loop, int& dropped) {
  return {&dropped, [&loop](int* count) {
            ++*count;
            loop.post([] {});
          }};
}

TEST(ManualEventLoop, DropsWhatIsLeftEvenWhenDroppingPostsMore) {
  int run = 0;
  int dropped = 0;
  {
    ManualEventLoop loop;
    loop.post([held = postsWhenDropped(loop, dropped), &run] { ++run; });
    loop.post([held = postsWhenDropped(loop, dropped), &run] { ++run; });
  }
  EXPECT_EQ(dropped, 2);
  EXPECT_EQ(run, 0);
}

TEST(ManualEventLoop, GoesOnAfterATaskThatThrew) {
  ManualEventLoop loop;
  int done = 0;
  loop.post([] { throw std::string("refused"); });
  loop.post([&done] { ++done; });
  EXPECT_THROW(loop.runOne(), std::string);
  EXPECT_TRUE(loop.runOne());
  EXPECT_EQ(done, 1);
}

}  // namespace
