// SPDX-License-Identifier: Apache-2.0

// Who may mount what, with which modes things are made, and what happens where there is no room.

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>

#include "MountFixture.h"
#include "folder/FolderUpkeep.h"
#include "offline/Verify.h"
#include "testing/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using glint_test::MountTest;
using glint_test::SmallRow;
using glint_test::smallRow;
using glint_test::State;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ZevGlint::ZevGlintType;

constexpr uid_t kNobody = 65534;

class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : before_(::umask(mask)) {}
  ~UmaskGuard() { ::umask(before_); }

 private:
  mode_t before_;
};

fs::perms modeOf(const std::string& path) { return fs::status(path).permissions(); }

TEST_F(MountTest, ModesAreTheSameWhateverTheUmask) {
  for (const mode_t mask : {0U, 022U, 0777U}) {
    fs::remove_all(root());
    const UmaskGuard guard(mask);
    makeTable();
    EXPECT_EQ(modeOf(root()), fs::perms(0750)) << mask;
    EXPECT_EQ(modeOf(file()), fs::perms(0640)) << mask;
    EXPECT_EQ(modeOf(root() + "/.writer"), fs::perms(0640)) << mask;
  }
}

TEST_F(MountTest, ModesOfWhatARepairMakesAreTheSameWhateverTheUmask) {
  for (const mode_t mask : {0U, 022U, 0777U}) {
    fs::remove_all(root());
    const UmaskGuard guard(mask);
    makeTable();
    fs::permissions(file(), fs::perms(0666));  // somebody was careless
    const std::string copy = Glint::keepCopy(root(), "t.table");
    EXPECT_EQ(copy, "t.table.damaged-1");
    EXPECT_EQ(modeOf(root() + "/" + copy), fs::perms(0640)) << mask;
    EXPECT_EQ(testing_support::readFile(root() + "/" + copy), testing_support::readFile(file()));

    fs::permissions(file(), fs::perms(0600));
    const std::string aside = Glint::setAside(root(), "t.table");
    EXPECT_EQ(modeOf(root() + "/" + aside), fs::perms(0600)) << mask;  // the file itself
    makeTable();                                                       // in its place
    EXPECT_EQ(modeOf(file()), fs::perms(0640)) << mask;
    EXPECT_EQ(testing_support::filesOf(root()).size(), 3U);
  }
}

// Acts as another user, of no group that counts here; needs to be root to become one.
class NobodyGuard {
 public:
  NobodyGuard() : groups_(static_cast<std::size_t>(::getgroups(0, nullptr))) {
    if (::getgroups(static_cast<int>(groups_.size()), groups_.data()) < 0 ||
        ::setgroups(0, nullptr) != 0 || ::setegid(kNobody) != 0 || ::seteuid(kNobody) != 0) {
      throw std::runtime_error("cannot become another user");
    }
  }
  ~NobodyGuard() {
    EXPECT_EQ(::seteuid(0), 0);
    EXPECT_EQ(::setegid(0), 0);
    EXPECT_EQ(::setgroups(groups_.size(), groups_.data()), 0);
  }

 private:
  std::vector<gid_t> groups_;
};

class MountAsRootTest : public MountTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "needs root to play several users";
    }
  }
};

TEST_F(MountAsRootTest, AReaderWithoutPermissionIsToldWhatToDo) {
  makeTable();
  fs::permissions(root(), fs::perms(0755));
  const NobodyGuard guard;
  EXPECT_THAT(refusalOf(ZevGlintType::reader),
              AllOf(HasSubstr("no permission"), HasSubstr("member of its group")));
}

TEST_F(MountAsRootTest, AReaderThatMayNotEnterTheFolderIsToldWhatToDo) {
  makeTable();
  fs::permissions(root(), fs::perms(0750));  // as a writer makes it
  const auto before = testing_support::filesOf(root());
  {
    const NobodyGuard guard;
    EXPECT_EQ(refusalOf(ZevGlintType::reader),
              root() +
                  ": cannot open the state folder: no permission; run as the owner of the state "
                  "folder or as a member of its group");
  }
  EXPECT_EQ(testing_support::filesOf(root()), before);
}

// A folder of another user's own, for what that one may not do there.
class MountAsOwnerTest : public MountAsRootTest {
 protected:
  void SetUp() override {
    MountAsRootTest::SetUp();
    if (!IsSkipped()) {
      ASSERT_EQ(::chown(root().c_str(), kNobody, kNobody), 0);
      const NobodyGuard guard;
      makeTable();
    }
  }
  std::string lock() const { return root() + "/.writer"; }

  // Both kinds of mount, made by the owner, end so; an empty text stands for success. Nothing of
  // the folder is changed by a refusal, not even the lock file.
  void expectRefusals(const std::string& writers, const std::string& readers) const {
    const auto before = testing_support::filesOf(root());
    const testing_support::Bytes lockBefore = testing_support::readFile(lock());
    const std::string remedy =
        ": no permission; run as the owner of the state folder or as a member of its group";
    {
      const NobodyGuard guard;
      EXPECT_EQ(refusalOf(ZevGlintType::writer), writers + remedy);
      EXPECT_EQ(refusalOf(ZevGlintType::reader), readers.empty() ? "" : readers + remedy);
    }
    EXPECT_EQ(testing_support::filesOf(root()), before);
    EXPECT_EQ(testing_support::readFile(lock()), lockBefore);
  }
};

TEST_F(MountAsOwnerTest, AnOwnTableThatMayNotBeWrittenIsReadOnly) {
  fs::permissions(file(), fs::perms(0400));
  expectRefusals(file() + ": cannot open the table file", "");
}

TEST_F(MountAsOwnerTest, AnOwnTableWithoutAnyPermissionIsRefused) {
  fs::permissions(file(), fs::perms(0));
  expectRefusals(file() + ": cannot open the table file", file() + ": cannot open the table file");
}

TEST_F(MountAsOwnerTest, AnOwnLockFileThatMayNotBeWrittenKeepsWritersOut) {
  for (const unsigned mode : {0400U, 0U}) {
    fs::permissions(lock(), fs::perms(mode));
    expectRefusals(lock() + ": cannot open the lock file", "");
    EXPECT_EQ(modeOf(lock()), fs::perms(mode));
  }
}

TEST_F(MountAsOwnerTest, AnOwnFolderThatMayNotBeChangedMakesNoLockFile) {
  fs::remove(lock());
  fs::permissions(root(), fs::perms(0500));
  expectRefusals(lock() + ": cannot open the lock file", "");
  EXPECT_FALSE(fs::exists(lock()));
}

TEST_F(MountAsOwnerTest, AnOwnFolderWithoutAnyPermissionIsRefused) {
  fs::permissions(root(), fs::perms(0));
  expectRefusals(root() + ": cannot open the state folder",
                 root() + ": cannot open the state folder");
  EXPECT_EQ(modeOf(root()), fs::perms(0));
}

TEST_F(MountAsRootTest, AWriterInAFolderOfSomeoneElseIsRefused) {
  fs::permissions(root(), fs::perms(0777));
  const NobodyGuard guard;
  EXPECT_THAT(refusalOf(ZevGlintType::writer),
              HasSubstr("the state folder belongs to user 0, this process runs as user 65534"));
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountAsRootTest, AFileOfAForeignOwnerIsRefused) {
  makeTable();
  ASSERT_EQ(::chown(file().c_str(), kNobody, kNobody), 0);
  expectRefused("it belongs to user 65534, its folder to user 0");
}

TEST_F(MountAsRootTest, ALockFileOfAForeignOwnerIsRefusedAndNotRewritten) {
  makeTable();
  const std::string lock = root() + "/.writer";
  testing_support::writeFile(lock, {'h', 'i', 's'});
  fs::permissions(lock, fs::perms(0600));
  ASSERT_EQ(::chown(lock.c_str(), kNobody, kNobody), 0);
  const auto before = testing_support::filesOf(root());
  EXPECT_EQ(refusalOf(ZevGlintType::writer),
            lock + ": it belongs to user 65534, its folder to user 0; remove it");
  EXPECT_EQ(testing_support::filesOf(root()), before);
  EXPECT_EQ(testing_support::readFile(lock), (testing_support::Bytes{'h', 'i', 's'}));
  EXPECT_EQ(modeOf(lock), fs::perms(0600));
  EXPECT_EQ(refusalOf(ZevGlintType::reader), "");
}

// ---- room

// No file of this process may grow beyond a size.
class FileSizeGuard {
 public:
  explicit FileSizeGuard(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeGuard() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(MountTest, ATableThatCannotBeCreatedLeavesNothing) {
  const FileSizeGuard guard(8192);
  EXPECT_THAT(refusalOf(ZevGlintType::writer), HasSubstr("cannot create the table"));
  EXPECT_THAT(testing_support::filesOf(root()), IsEmpty());
}

// A tmpfs of a size, for as long as it lives.
class SmallFileSystem {
 public:
  SmallFileSystem(std::string path, const std::string& bytes) : path_(std::move(path)) {
    mounted_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, ("size=" + bytes).c_str()) == 0;
  }
  ~SmallFileSystem() {
    if (mounted_) {
      EXPECT_EQ(::umount(path_.c_str()), 0);
    }
  }
  bool mounted() const { return mounted_; }
  bool enlarged(const std::string& bytes) const {
    return ::mount("tmpfs", path_.c_str(), "tmpfs", MS_REMOUNT, ("size=" + bytes).c_str()) == 0;
  }

 private:
  std::string path_;
  bool mounted_;
};

TEST_F(MountAsRootTest, AFullFileSystemIsAClearErrorAndNothingIsLeft) {
  const SmallFileSystem small(root(), "32k");
  if (!small.mounted()) {
    GTEST_SKIP() << "may not mount a file system here";
  }
  EXPECT_THAT(refusalOf(ZevGlintType::writer, 4096),
              AllOf(HasSubstr("No space left on device"), HasSubstr("make room")));
  EXPECT_THAT(testing_support::filesOf(root()), IsEmpty());
}

using MountAsRootDeathTest = MountAsRootTest;

// The rows of keys 0 to count - 1 are there, each found, and nothing else.
void expectRows(glint_test::TestEntity<SmallRow>& entity, std::uint64_t count) {
  const auto found = glint_test::walk(entity.rows());
  EXPECT_EQ(found.steps, count);
  EXPECT_EQ(found.rows.size(), count);
  EXPECT_EQ(entity.rows().rowCount(), count);
  for (std::uint64_t key = 0; key < count; ++key) {
    ASSERT_EQ(entity.rows().row(key), smallRow(key, key));
  }
  EXPECT_FALSE(entity.rows().has(count));
}

TEST_F(MountAsRootDeathTest, AFileSystemThatFillsUpLaterStopsTheProcessAndKeepsEveryRow) {
  const SmallFileSystem small(root(), "256k");
  if (!small.mounted()) {
    GTEST_SKIP() << "may not mount a file system here";
  }
  const testing_support::Shared<std::atomic<std::uint64_t>> stored;  // by the child
  {
    State state(root());
    auto entity = state.mount<SmallRow>("t", 4096);
    EXPECT_DEATH(
        {
          for (std::uint64_t key = 0; key < 8192; ++key) {
            entity->rows().rowIs(smallRow(key, key));
            *stored = key + 1;
          }
        },
        "the file system has room for the row: .*t.table: cannot reserve room for more than [0-9]+ "
        "rows: No space left on device");
  }
  const std::uint64_t rows = *stored;
  EXPECT_EQ(rows % Glint::kChunkSlots, 0U);
  EXPECT_GT(rows, Glint::kChunkSlots);  // a reservation went well, so it grew before it was full
  EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
  {
    State reader(root());
    expectRows(*reader.mountReader<SmallRow>("t"), rows);
  }
  {
    State writer(root());  // the file system is as full as before
    expectRows(*writer.mount<SmallRow>("t", 4096), rows);
  }
  ASSERT_TRUE(small.enlarged("1m"));
  State state(root());
  auto entity = state.mount<SmallRow>("t", 4096);
  for (std::uint64_t key = rows; key < 8192; ++key) {
    entity->rows().rowIs(smallRow(key, key));
  }
  expectRows(*entity, 8192);
}

}  // namespace
