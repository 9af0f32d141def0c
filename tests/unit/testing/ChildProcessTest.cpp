// SPDX-License-Identifier: Apache-2.0

#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/ChildProcess.h"
#include "testing/TemporaryRoot.h"

namespace {

using namespace testing_support;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

constexpr milliseconds kNoTime{0};

[[noreturn]] int hang() {
  for (;;) {
    ::pause();
  }
}

TEST(ChildProcessTest, AForkedChildEndsWithWhatItsFunctionReturns) {
  EXPECT_EQ(ForkedChild([] { return 0; }).wait(), Ending::exited(0));
  EXPECT_EQ(ForkedChild([] { return 7; }).wait(), Ending::exited(7));
}

TEST(ChildProcessTest, AChildThatThrowsEndsWithACodeOfItsOwn) {
  ForkedChild child([]() -> int { throw std::runtime_error("as the test wants it"); });
  EXPECT_EQ(child.wait(), Ending::exited(kUncaught));
}

TEST(ChildProcessTest, ASignalIsToldFromAnExitCode) {
  ForkedChild child([] { return ::raise(SIGKILL); });
  EXPECT_EQ(child.wait(), Ending::killedBy(SIGKILL));
  EXPECT_NE(child.wait(), Ending::exited(SIGKILL));
}

TEST(ChildProcessTest, AChildThatHangsIsKilledAfterTheLimit) {
  ForkedChild child(hang);
  EXPECT_EQ(child.wait(kNoTime), Ending::overdue(kNoTime));
  EXPECT_FALSE(child.running());
  EXPECT_EQ(::kill(child.pid(), 0), -1) << "it is collected";
}

TEST(ChildProcessTest, WhatEndsWithItsOwnerIsKilled) {
  pid_t pid = 0;
  {
    const ForkedChild child(hang);
    pid = child.pid();
  }
  EXPECT_EQ(::kill(pid, 0), -1);
}

// The end of the pipe is there when the last process that can write into it has ended.
TEST(ChildProcessTest, AForkedChildEndsWithItsParentHoweverThatEnds) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const Shared<std::atomic<pid_t>> grandchild;
  ForkedChild child([&] {
    *grandchild = forkChild(hang);
    return ::raise(SIGKILL);
  });
  ::close(pipe[1]);
  EXPECT_EQ(child.wait(), Ending::killedBy(SIGKILL));
  constexpr int kSeconds = 10;
  pollfd polled{pipe[0], 0, 0};
  const bool ended = ::poll(&polled, 1, kSeconds * 1000) == 1;
  EXPECT_TRUE(ended) << "process " << *grandchild;
  if (!ended) {
    ::kill(*grandchild, SIGKILL);
  }
  ::close(pipe[0]);
}

TEST(ChildProcessTest, WaitUntilSeesTheConditionOrTheChildsEnd) {
  const Shared<std::atomic<std::uint32_t>> told;
  ForkedChild hanging([&]() -> int {
    *told = 1;
    hang();
  });
  EXPECT_TRUE(hanging.waitUntil([&] { return *told == 1; }));
  EXPECT_TRUE(hanging.running());
  ForkedChild ending([] { return 0; });
  EXPECT_FALSE(ending.waitUntil([] { return false; }));
}

TEST(ChildProcessTest, APausedChildGoesOnWhenItIsResumed) {
  const Shared<std::atomic<std::uint32_t>> count;
  ForkedChild child([&]() -> int {
    for (;;) {
      ++*count;
    }
  });
  EXPECT_TRUE(child.waitUntil([&] { return *count > 0; }));
  child.pause();
  const std::uint32_t paused = *count;
  EXPECT_EQ(*count, paused);
  EXPECT_TRUE(child.running());
  child.resume();
  EXPECT_TRUE(child.waitUntil([&] { return *count != paused; }));
}

TEST(ChildProcessTest, AProgramLeavesItsCodeAndBothItsOutputs) {
  const TemporaryRoot files;
  const Outcome outcome =
      runProgram({"/bin/sh", "-c", "echo out; echo err >&2; exit 3"}, files.path());
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(outcome.err, "err\n");
}

TEST(ChildProcessTest, AProgramThatIsKilledSaysByWhichSignal) {
  const TemporaryRoot files;
  const Outcome outcome = runProgram({"/bin/sh", "-c", "kill -TERM $$"}, files.path());
  EXPECT_EQ(outcome.exitCode, -1);
  EXPECT_THAT(outcome.err, HasSubstr("signal 15 (Terminated)"));
}

TEST(ChildProcessTest, AProgramThatIsNotThereCannotBeStarted) {
  const TemporaryRoot files;
  EXPECT_THROW(runProgram({files.path() + "/none"}, files.path()), std::runtime_error);
}

TEST(ChildProcessTest, AnEndingIsPrintedInWords) {
  const auto printed = [](const Ending& ending) {
    std::ostringstream out;
    out << ending;
    return out.str();
  };
  EXPECT_EQ(printed(Ending::exited(3)), "exit code 3");
  EXPECT_EQ(printed(Ending::killedBy(SIGKILL)), "signal 9 (Killed)");
  EXPECT_EQ(printed(Ending::overdue(milliseconds(250))),
            "killed, for it did not end within 250 ms");
}

}  // namespace
