// SPDX-License-Identifier: Apache-2.0

#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "testing/ChildProcess.h"
#include "testing/TemporaryRoot.h"

namespace {

using testing_support::Ending;
using testing_support::ForkedChild;
using testing_support::Shared;
using testing_support::sweepTemporaryRoots;
using testing_support::TemporaryRoot;
namespace fs = std::filesystem;

// Where a child's folder is.
struct Told {
  std::array<char, 64> path{};
  std::atomic<bool> made = false;

  void is(const TemporaryRoot& root) {
    std::ranges::copy(root.path(), path.begin());
    made = true;
  }
};

[[noreturn]] int hang() {
  ::alarm(600);  // whatever becomes of its parent
  for (;;) {
    ::pause();
  }
}

class TemporaryRootTest : public ::testing::Test {
 protected:
  // A child that makes a folder with a file in it, and ends without removing it.
  static std::string leftBehind(const std::string& parent) {
    const Shared<Told> told;
    ForkedChild child([&] {
      const TemporaryRoot root(parent);
      std::ofstream(root.path() + "/file") << "left";
      told->is(root);
      return ::raise(SIGKILL);
    });
    EXPECT_EQ(child.wait(), Ending::killedBy(SIGKILL));
    return told->path.data();
  }
  std::size_t sweep() const { return sweepTemporaryRoots(parent_.path(), ::geteuid()); }

  // Other processes of tests sweep what is left in shared memory itself.
  TemporaryRoot parent_;
};

TEST_F(TemporaryRootTest, AFolderGoesWithItsObject) {
  std::string path;
  {
    const TemporaryRoot root;
    path = root.path();
    std::ofstream(path + "/file") << "text";
    EXPECT_TRUE(fs::exists(path + "/file"));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(TemporaryRootTest, WhatAKilledProcessLeftIsSwept) {
  const std::string left = leftBehind(parent_.path());
  ASSERT_TRUE(fs::exists(left + "/file"));
  EXPECT_EQ(sweep(), 1U);
  EXPECT_FALSE(fs::exists(left));
}

TEST_F(TemporaryRootTest, AProcessSweepsSharedMemoryWhenItMakesItsFirstFolder) {
  const std::string left = leftBehind(TemporaryRoot::kSharedMemory);
  const testing_support::Outcome outcome = testing_support::runProgram(
      {"/proc/self/exe", "--gtest_filter=TemporaryRootTest.AFolderGoesWithItsObject"},
      parent_.path());
  ASSERT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
  EXPECT_FALSE(fs::exists(left));
}

TEST_F(TemporaryRootTest, WhatALivingProcessHasIsNotSwept) {
  const Shared<Told> told;
  const TemporaryRoot own(parent_.path());
  ForkedChild child([&]() -> int {
    const TemporaryRoot root(parent_.path());
    told->is(root);
    hang();
  });
  ASSERT_TRUE(child.waitUntil([&] { return told->made.load(); }));
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(told->path.data()));
  EXPECT_TRUE(fs::exists(own.path()));
  child.kill();
  EXPECT_EQ(sweep(), 1U);
  EXPECT_FALSE(fs::exists(told->path.data()));
  EXPECT_TRUE(fs::exists(own.path()));
}

TEST_F(TemporaryRootTest, AFolderStaysAsLongAsAChildOfItsProcessLives) {
  const Shared<Told> told;
  const Shared<std::atomic<pid_t>> grandchild;
  ForkedChild child([&] {
    const TemporaryRoot root(parent_.path());
    const pid_t forked = ::fork();  // that of forkChild() ends with its parent
    if (forked == 0) {
      hang();
    }
    *grandchild = forked;
    told->is(root);
    return ::raise(SIGKILL);
  });
  EXPECT_EQ(child.wait(), Ending::killedBy(SIGKILL));
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(told->path.data()));
  EXPECT_EQ(::kill(*grandchild, SIGKILL), 0);
}

TEST_F(TemporaryRootTest, AForeignUsersFolderIsNotTouched) {
  const std::string left = leftBehind(parent_.path());
  EXPECT_EQ(sweepTemporaryRoots(parent_.path(), ::geteuid() + 1), 0U);
  EXPECT_TRUE(fs::exists(left + "/file"));
}

TEST_F(TemporaryRootTest, AFolderThatATestHasMadeAnewIsNotTouched) {
  const TemporaryRoot root(parent_.path());
  fs::remove_all(root.path());
  EXPECT_EQ(sweep(), 0U);
  fs::create_directory(root.path());
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(root.path()));
}

TEST_F(TemporaryRootTest, AFolderThatSomethingIsMountedOnIsNotTouched) {
  const TemporaryRoot root(parent_.path());
  if (::mount("none", root.path().c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "may not mount a file system here";
  }
  const std::string file = root.path() + "/file";
  std::ofstream(file) << "kept";
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(::umount(root.path().c_str()), 0);
}

TEST_F(TemporaryRootTest, WhatHasAnotherNameOrIsALinkIsNotSwept) {
  const std::string other = parent_.path() + "/other.lock";
  const std::string link = parent_.path() + "/loamfec-root.linked.lock";
  const std::string linked = parent_.path() + "/loamfec-root.linked";
  std::ofstream(other) << "text";
  fs::create_symlink(other, link);
  fs::create_directory(linked);
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(other));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(fs::exists(linked));
}

// "loamfec-root.lock" begins and ends as a lock file's name does, with one dot for both.
TEST_F(TemporaryRootTest, OnlyANameWithSixLettersInItsMiddleIsSwept) {
  const auto madeByHand = [&](const std::string& name) {
    std::string folder = parent_.path() + "/" + name;
    fs::create_directory(folder);
    std::ofstream(folder + ".lock") << "text";
    return folder;
  };
  const std::string six = madeByHand("loamfec-root.abcdef");
  for (const char* name :
       {"loamfec-root", "loamfec-root.", "loamfec-root.abcde", "loamfec-root.abcdefg"}) {
    madeByHand(name);
  }
  EXPECT_EQ(sweep(), 1U);
  EXPECT_FALSE(fs::exists(six));
  for (const char* name :
       {"loamfec-root", "loamfec-root.", "loamfec-root.abcde", "loamfec-root.abcdefg"}) {
    EXPECT_TRUE(fs::exists(parent_.path() + "/" + name)) << name;
    EXPECT_TRUE(fs::exists(parent_.path() + "/" + name + ".lock")) << name;
  }
}

TEST_F(TemporaryRootTest, AFolderThatCannotBeRemovedYetIsLeftToALaterSweep) {
  const std::string left = leftBehind(parent_.path());
  const std::string inside = left + "/inside";
  fs::create_directory(inside);
  if (::mount("none", inside.c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "may not mount a file system here";
  }
  EXPECT_EQ(sweep(), 0U);
  EXPECT_TRUE(fs::exists(left));
  ASSERT_EQ(::umount(inside.c_str()), 0);
  EXPECT_EQ(sweep(), 1U);
  EXPECT_FALSE(fs::exists(left));
}

TEST_F(TemporaryRootTest, ThereIsNoFolderWhereNoneCanBeMade) {
  EXPECT_THROW(TemporaryRoot(parent_.path() + "/none"), std::runtime_error);
}

// A sweeper meets folders between their making and their locking.
TEST_F(TemporaryRootTest, AFolderThatIsBeingMadeIsNotLostToASweep) {
  const Shared<std::atomic<bool>> done;
  ForkedChild sweeper([&] {
    while (!*done) {
      sweep();
    }
    return 0;
  });
  constexpr int kFolders = 10'000;
  int lost = 0;
  for (int made = 0; made < kFolders; ++made) {
    const TemporaryRoot root(parent_.path());
    std::ofstream file(root.path() + "/file");
    lost += file.is_open() ? 0 : 1;
  }
  *done = true;
  EXPECT_EQ(sweeper.wait(), Ending::exited(0));
  EXPECT_EQ(lost, 0);
}

}  // namespace
