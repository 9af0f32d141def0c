// What may be mounted and what is refused: each refusal says why and changes and creates nothing.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>

#include "Glint/Verify.h"
#include "TableFile.h"
#include "TestTables.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"

namespace {

namespace fs = std::filesystem;
using glint_test::OddRow;
using glint_test::SmallRow;
using glint_test::smallRow;
using glint_test::State;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ZevGlint::MountException;
using ZevGlint::ZevGlintType;

constexpr std::uint32_t kCapacity = 8;
constexpr uid_t kNobody = 65534;

// The text of the exception that `mount` ends with; empty if it does not.
std::string refusal(const std::function<void()>& mount) {
  try {
    mount();
  } catch (const MountException& error) {
    return error.what();
  }
  return {};
}

class MountTest : public testing_support::LeakCheckedTest {
 protected:
  const std::string& root() const { return root_.path(); }
  std::string file() const { return root() + "/t.table"; }

  void makeTable() {
    State state(root());
    state.mount<SmallRow>("t", kCapacity)->rows().rowIs(smallRow(1, 2));
  }

  template <typename Row = SmallRow>
  std::string refusalOf(ZevGlintType type, std::uint32_t capacity = kCapacity) {
    return refusal([&] { State(root()).mount<Row>("t", capacity, type); });
  }

  // Both kinds of mount refuse the file with a text that has its path and `why` in it, and leave
  // everything as it was.
  void expectRefused(const std::string& why) {
    const auto before = glint_test::filesOf(root());
    for (const ZevGlintType type : {ZevGlintType::writer, ZevGlintType::reader}) {
      EXPECT_THAT(refusalOf(type), AllOf(HasSubstr("t.table"), HasSubstr(why)));
    }
    EXPECT_EQ(glint_test::filesOf(root()), before);
  }

 private:
  testing_support::TemporaryRoot root_;
};

TEST_F(MountTest, AWrongMagicIsRefused) {
  makeTable();
  glint_test::wordAtIs<char>(file(), 0, 'X');
  expectRefused("it is not a shared table (wrong magic)");
}

TEST_F(MountTest, AnotherFormatVersionIsRefusedAndBothAreNamed) {
  makeTable();
  glint_test::wordAtIs<std::uint32_t>(file(), 8, 2);
  expectRefused("it has format version 2, this program knows version 1");
}

TEST_F(MountTest, ADamagedSealedHeaderIsRefused) {
  makeTable();
  glint_test::flipBit(file(), 8 * 40);
  expectRefused("its header is damaged (checksum)");
}

TEST_F(MountTest, AnotherRowTypeIsRefusedAndBothAreNamed) {
  State(root()).mount<OddRow>("t", kCapacity);
  expectRefused("it holds rows of glint_test::OddRow, not of glint_test::SmallRow");
}

TEST_F(MountTest, AnotherTablesFileUnderTheNameIsRefused) {
  makeTable();
  {
    State state(root());
    ZevSharedMem::entityTypeIs("other", [](const ZevGlint::MountSite& site) {
      return Zev::makeObject<glint_test::TestEntity<SmallRow>>(site);
    });
    state.manager().doMount("other", "other",
                            glint_test::mountInfo(ZevGlintType::writer, kCapacity, "otherRows"));
  }
  fs::copy_file(root() + "/other.table", file(), fs::copy_options::overwrite_existing);
  expectRefused("it holds the collection otherRows, not rows");
}

// The same name and sizes, laid out differently by another release.
struct OtherSmallRow {
  std::uint64_t key;
  std::uint64_t value;
};

}  // namespace

template <>
struct Glint::RowTraits<OtherSmallRow> : glint_test::TraitsOf<OtherSmallRow> {
  static constexpr const char* kTypeName = "glint_test::SmallRow";
  static constexpr bool kRisingKeys = false;
  static constexpr std::uint32_t kLayoutVersion = 2;
};

namespace {

TEST_F(MountTest, AnotherLayoutOfTheSameRowTypeIsRefused) {
  State(root()).mount<OtherSmallRow>("t", kCapacity);
  expectRefused("its rows of glint_test::SmallRow are laid out differently");
}

TEST_F(MountTest, AnotherCapacityIsRefusedAndBothAreNamed) {
  makeTable();
  EXPECT_THAT(refusalOf(ZevGlintType::writer, kCapacity + 1),
              HasSubstr("it was made for 8 rows in 16 slots, not for 9 in 18"));
}

TEST_F(MountTest, ATruncatedFileIsRefused) {
  makeTable();
  const glint_test::Bytes good = glint_test::readFile(file());
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, std::size_t{295},
                                  std::size_t{296}, std::size_t{4096}, good.size() - 1}) {
    glint_test::writeFile(file(),
                          {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(bytes)});
    expectRefused(bytes < 296 ? "it is too short for a shared table" : "its header says");
  }
}

TEST_F(MountTest, AnExtendedFileIsRefused) {
  makeTable();
  fs::resize_file(file(), fs::file_size(file()) + 1);
  expectRefused("its header says");
}

TEST_F(MountTest, AZeroedPageIsRefusedByAWriterAndNeverReadAsAnEmptyTable) {
  makeTable();
  const glint_test::Bytes good = glint_test::readFile(file());
  for (std::size_t page = 0; page < good.size() / 4096; ++page) {
    glint_test::Bytes bytes = good;
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(4096 * page), 4096, '\0');
    glint_test::writeFile(file(), bytes);
    EXPECT_NE(refusalOf(ZevGlintType::writer), "") << "page " << page;
    EXPECT_EQ(glint_test::readFile(file()), bytes) << "page " << page;
    EXPECT_FALSE(Glint::verifyTable(file()).clean()) << "page " << page;
  }
}

TEST_F(MountTest, AFolderInPlaceOfTheFileIsRefused) {
  fs::create_directory(file());
  expectRefused("it is a folder, not a table file");
}

TEST_F(MountTest, ASymbolicLinkIsRefusedEvenToAGoodTable) {
  makeTable();
  fs::rename(file(), root() + "/elsewhere");
  fs::create_symlink("elsewhere", file());
  expectRefused("it is a symbolic link");
}

TEST_F(MountTest, ASymbolicLinkInPlaceOfTheStateFolderIsRefused) {
  makeTable();
  const std::string link = root() + "-link";
  fs::create_symlink(root(), link);
  for (const ZevGlintType type : {ZevGlintType::writer, ZevGlintType::reader}) {
    EXPECT_THAT(refusal([&] { State(link).mount<SmallRow>("t", kCapacity, type); }),
                HasSubstr("no folder or a symbolic link"));
  }
  fs::remove(link);
}

TEST_F(MountTest, ASpecialFileIsRefused) {
  ASSERT_EQ(::mkfifo(file().c_str(), 0640), 0);
  expectRefused("it is not a regular file");
}

TEST_F(MountTest, AReaderOfAMissingTableOrFolderIsToldToStartTheWriter) {
  EXPECT_THAT(refusalOf(ZevGlintType::reader),
              HasSubstr("there is no such table; start its writer"));
  EXPECT_THAT(refusal([&] { State(root() + "/none").mountReader<SmallRow>("t"); }),
              HasSubstr("there is no such state folder; start its writer"));
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountTest, AnUnknownEntityTypeIsRefusedBeforeAnythingIsCreated) {
  EXPECT_THAT(refusal([&] {
                State(root()).manager().doMount("t", "NoSuchType",
                                                glint_test::mountInfo(ZevGlintType::writer, 1));
              }),
              HasSubstr("there is no entity type NoSuchType"));
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountTest, AMountNamesExactlyOneCollection) {
  State(root()).mount<SmallRow>("t", kCapacity);  // registers the type
  fs::remove_all(root());
  ZevGlint::MountInfo none(ZevGlintType::writer);
  ZevGlint::MountInfo two = glint_test::mountInfo(ZevGlintType::writer, 1);
  two.collectionInfoIs({"more", 1});
  for (const ZevGlint::MountInfo& info : {none, two}) {
    EXPECT_THAT(
        refusal([&] { State(root()).manager().doMount("t", "glint_test::SmallRow", info); }),
        HasSubstr("an entity has one collection"));
  }
  EXPECT_FALSE(fs::exists(root()));
}

TEST_F(MountTest, ACapacityOfNothingOrOfMoreThanLinksCanNameIsRefused) {
  EXPECT_THAT(refusalOf(ZevGlintType::writer, 0), HasSubstr("a capacity of 0 rows"));
  EXPECT_THAT(refusalOf(ZevGlintType::writer, Glint::Link::kMaxSlots / 2 + 1),
              HasSubstr("16777216 slots cannot be"));
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountTest, PathsCannotLeaveTheRootFolder) {
  for (const std::string path : {"", "/", "..", "../t", "a/../t", "a//t", "a/", ".hidden", "a/.b",
                                 "a b", "a\n", "a~b", "a\\b", "//a"}) {
    EXPECT_THAT(refusal([&] { State(root()).mount<SmallRow>(path, kCapacity); }),
                HasSubstr("entity path"))
        << path;
  }
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountTest, PathsHaveUpTo200Bytes) {
  EXPECT_EQ(refusal([&] { State(root()).mount<SmallRow>(std::string(200, 'a'), kCapacity); }), "");
  EXPECT_THAT(refusal([&] { State(root()).mount<SmallRow>(std::string(201, 'a'), kCapacity); }),
              HasSubstr("longer than 200 bytes"));
}

TEST_F(MountTest, DistinctPathsHaveDistinctFiles) {
  State state(root());
  for (const std::string path : {"a/b", "a.b", "a_b", "a:b", "ab"}) {
    state.mount<SmallRow>(path, kCapacity);
  }
  EXPECT_EQ(glint_test::filesOf(root()).size(), 5U);
}

// ---- modes and owners

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
  EXPECT_TRUE(glint_test::filesOf(root()).empty());
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
  EXPECT_TRUE(glint_test::filesOf(root()).empty());
}

using MountAsRootDeathTest = MountAsRootTest;

TEST_F(MountAsRootDeathTest, AFileSystemThatFillsUpLaterStopsTheProcessWithAClearText) {
  const SmallFileSystem small(root(), "256k");
  if (!small.mounted()) {
    GTEST_SKIP() << "may not mount a file system here";
  }
  {
    State state(root());
    auto entity = state.mount<SmallRow>("t", 4096);
    EXPECT_DEATH(
        {
          for (std::uint64_t key = 0; key < 8192; ++key) {
            entity->rows().rowIs(smallRow(key, key));
          }
        },
        "the file system has room for the row: .*t.table: cannot reserve room for more than [0-9]+ "
        "rows: No space left on device");
  }
  EXPECT_TRUE(Glint::verifyTable(file()).clean());
}

// ---- one writer

TEST_F(MountTest, ASecondWriterIsRefusedAndToldWhoHoldsTheFolder) {
  State first(root());
  first.mount<SmallRow>("t", kCapacity);
  const auto before = glint_test::filesOf(root());
  const std::string text = refusal([&] { State(root()).mount<SmallRow>("other", kCapacity); });
  EXPECT_THAT(text, AllOf(HasSubstr("in use by another writer"),
                          HasSubstr("process " + std::to_string(::getpid())),
                          HasSubstr(std::string("(") + ::program_invocation_short_name + ")")));
  EXPECT_EQ(glint_test::filesOf(root()), before);
}

TEST_F(MountTest, OneProcessMountsManyEntitiesUnderOneLock) {
  State state(root());
  for (const std::string path : {"a", "b", "c"}) {
    state.mount<SmallRow>(path, kCapacity)->rows().rowIs(smallRow(1, 1));
  }
  EXPECT_EQ(glint_test::filesOf(root()).size(), 3U);
}

TEST_F(MountTest, TheLockGoesWithTheLastTableOfItsWriter) {
  std::optional<State> first(root());
  auto entity = first->mount<SmallRow>("t", kCapacity);
  first.reset();
  EXPECT_THAT(refusalOf(ZevGlintType::writer), HasSubstr("in use by another writer"));
  entity->rows().rowIs(smallRow(5, 5));  // who holds the entity can go on using it
  entity = nullptr;
  EXPECT_EQ(refusalOf(ZevGlintType::writer), "");
}

TEST_F(MountTest, TheLockGoesWithAKilledWriter) {
  const pid_t child = ::fork();
  if (child == 0) {
    State state(root());
    state.mount<SmallRow>("t", kCapacity)->rows().rowIs(smallRow(1, 1));
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  State state(root());
  EXPECT_EQ(state.mount<SmallRow>("t", kCapacity)->rows().row(1), smallRow(1, 1));
}

TEST_F(MountTest, ALockIsNotInheritedByAProgramThatIsStarted) {
  State state(root());
  state.mount<SmallRow>("t", kCapacity);
  int found = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (fs::read_symlink(entry.path(), gone).string().starts_with(root())) {
      const int fd = std::stoi(entry.path().filename());
      EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << entry.path();
      ++found;
    }
  }
  EXPECT_GE(found, 2);  // the lock and the table at least
}

TEST_F(MountTest, ReadersNeedNoLock) {
  State writer(root());
  writer.mount<SmallRow>("t", kCapacity);
  State one(root());
  State two(root());
  EXPECT_NE(one.mountReader<SmallRow>("t"), nullptr);
  EXPECT_NE(two.mountReader<SmallRow>("t"), nullptr);
}

TEST_F(MountTest, AReMountWithOtherFiguresIsRefusedAndTheEntityStays) {
  State state(root());
  auto entity = state.mount<SmallRow>("t", kCapacity);
  EXPECT_THAT(refusal([&] { state.mount<SmallRow>("t", kCapacity + 1); }),
              HasSubstr("mount it as it was mounted before"));
  EXPECT_EQ(state.manager().getEntity("t"), entity);
}

TEST_F(MountTest, WhatAKilledCreationLeftIsReplaced) {
  makeTable();
  fs::rename(file(), root() + "/.new.t.table");
  makeTable();
  EXPECT_EQ(glint_test::filesOf(root()).size(), 1U);
  EXPECT_TRUE(Glint::verifyTable(file()).clean());
}

}  // namespace
