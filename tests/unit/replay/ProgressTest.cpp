// SPDX-License-Identifier: Apache-2.0

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "Progress.h"

namespace Replay {
namespace {

using std::chrono::milliseconds;

// A stream to memory, and a clock that the test sets.
class ProgressTest : public ::testing::Test {
 protected:
  ProgressTest() : out_(open_memstream(&text_, &size_)) {}
  ~ProgressTest() override {
    std::fclose(out_);
    std::free(text_);
  }

  // What was written since the last call.
  std::string written() {
    std::fflush(out_);
    std::string all(text_, size_);
    std::string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }

  Progress::Clock clock() {
    return [this] { return std::chrono::steady_clock::time_point(time_); };
  }

  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t seen_ = 0;
  std::FILE* out_;
  milliseconds time_{1000};
};

TEST_F(ProgressTest, DrawsLabelBarShareAndCount) {
  Progress progress("nexthops-a.json", 4225, out_, true, clock());
  progress.update(0);
  EXPECT_EQ(written(), "\rnexthops-a.json [..............................]   0%    0/4225");
  time_ += Progress::kRedrawInterval;
  progress.update(2113);
  EXPECT_EQ(written(), "\rnexthops-a.json [###############...............]  50% 2113/4225");
  progress.update(4225);
  progress.finish();
  EXPECT_EQ(written(), "\rnexthops-a.json [##############################] 100% 4225/4225\n");
}

TEST_F(ProgressTest, WritesNothingWhereThereIsNoTerminal) {
  {
    Progress progress("x", 10, out_, false, clock());
    progress.update(5);
    progress.finish();
  }
  EXPECT_EQ(written(), "");
}

TEST_F(ProgressTest, FindsOutByItselfThatMemoryIsNoTerminal) {
  {
    Progress progress("x", 10, out_);
    progress.update(5);
  }
  EXPECT_EQ(written(), "");
}

TEST_F(ProgressTest, RedrawsAtTheIntervalAndNotOneMillisecondBefore) {
  Progress progress("x", 10, out_, true, clock());
  progress.update(1);
  EXPECT_NE(written(), "");
  time_ += Progress::kRedrawInterval - milliseconds(1);
  progress.update(2);
  EXPECT_EQ(written(), "");
  time_ += milliseconds(1);
  progress.update(3);
  EXPECT_NE(written(), "");
}

TEST_F(ProgressTest, FinishShowsTheLastUpdateThatWasTooEarlyToDraw) {
  Progress progress("x", 10, out_, true, clock());
  progress.update(1);
  progress.update(7);
  written();
  progress.finish();
  EXPECT_EQ(written(), "\rx [#####################.........]  70%  7/10\n");
}

TEST_F(ProgressTest, AfterFinishNothingIsWritten) {
  {
    Progress progress("x", 10, out_, true, clock());
    progress.update(10);
    progress.finish();
    written();
    time_ += milliseconds(1000);
    progress.update(10);
    progress.finish();
  }
  EXPECT_EQ(written(), "");
}

TEST_F(ProgressTest, DestructionEndsTheLine) {
  {
    Progress progress("x", 10, out_, true, clock());
    progress.update(4);
    written();
  }
  EXPECT_EQ(written(), "\rx [############..................]  40%  4/10\n");
}

TEST_F(ProgressTest, MoreThanTheTotalCountsAsTheTotal) {
  Progress progress("x", 10, out_, true, clock());
  progress.update(UINT64_MAX);
  EXPECT_EQ(written(), "\rx [##############################] 100% 10/10");
}

TEST_F(ProgressTest, AJobOfNoStepsIsDone) {
  Progress progress("x", 0, out_, true, clock());
  progress.finish();
  EXPECT_EQ(written(), "\rx [##############################] 100% 0/0\n");
}

}  // namespace
}  // namespace Replay
