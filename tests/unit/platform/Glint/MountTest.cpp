// SPDX-License-Identifier: Apache-2.0

// What may be mounted and what is refused: each refusal says why and changes and creates nothing.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MountFixture.h"
#include "format/SharedWord.h"
#include "offline/Verify.h"
#include "testing/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using glint_test::kCapacity;
using glint_test::MountTest;
using glint_test::OddRow;
using glint_test::refusal;
using glint_test::SmallRow;
using glint_test::smallRow;
using glint_test::State;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ZevGlint::ZevGlintType;

TEST_F(MountTest, AWrongMagicIsRefused) {
  makeTable();
  testing_support::wordIs<char>(file(), 0, 'X');
  expectRefused("it is not a shared table (wrong magic)");
}

TEST_F(MountTest, AnotherFormatVersionIsRefusedAndBothAreNamed) {
  makeTable();
  testing_support::wordIs<std::uint32_t>(file(), 8, 2);
  expectRefused("it has format version 2, but this program knows version 1");
}

TEST_F(MountTest, ADamagedSealedHeaderIsRefused) {
  makeTable();
  testing_support::flipBit(file(), 8 * 40);
  expectRefused("its header is damaged (checksum)");
}

TEST_F(MountTest, AnotherRowTypeIsRefusedAndBothAreNamed) {
  State(root()).mount<OddRow>("t", kCapacity);
  expectRefused("it holds rows of glint_test::OddRow, not of glint_test::SmallRow");
}

TEST_F(MountTest, TheFileOfATableOfTheSameKindUnderTheNameIsRefused) {
  makeTable();
  fs::rename(file(), root() + "/kept");
  State(root()).mount<SmallRow>("u", kCapacity);
  fs::rename(root() + "/u.table", file());
  expectRefused("it was made for another table (renamed, or a copy of that one)");
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

// As no writer makes it: the digest is that of the rows, the sizes are not.
TEST_F(MountTest, SizesThatAreNotThoseOfTheRowsAreRefusedUnderAGoodSeal) {
  makeTable();
  auto sealed = testing_support::wordAt<Glint::FixedHeader>(file(), 0);
  ASSERT_EQ(sealed.rowBytes, 16U);
  sealed.rowBytes = 15;
  sealed.checksum = XXH3_64bits(&sealed, offsetof(Glint::FixedHeader, checksum));
  testing_support::wordIs(file(), 0, sealed);
  expectRefused("its rows of glint_test::SmallRow are laid out differently");
}

TEST_F(MountTest, AnotherCapacityIsRefusedAndBothAreNamed) {
  makeTable();
  EXPECT_THAT(refusalOf(ZevGlintType::writer, kCapacity + 1),
              HasSubstr("it was made for 8 rows in 16 slots, not for 9 in 18"));
}

TEST_F(MountTest, ATruncatedFileIsRefused) {
  makeTable();
  const testing_support::Bytes good = testing_support::readFile(file());
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, std::size_t{295},
                                  std::size_t{296}, std::size_t{4096}, good.size() - 1}) {
    testing_support::writeFile(file(),
                               {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(bytes)});
    expectRefused(bytes < 296 ? "it is too short for a shared table" : "its header says");
  }
}

using MountDeathTest = MountTest;

TEST_F(MountDeathTest, AFileThatIsCutShortWhileItIsMappedEndsTheProcessAndIsRefusedFromThenOn) {
  makeTable();
  EXPECT_EXIT(
      {
        std::signal(SIGBUS, SIG_DFL);  // not what a sanitizer makes of it
        State state(root());
        auto entity = state.mount<SmallRow>("t", kCapacity);
        fs::resize_file(file(), 4096);
        entity->rows().rowIs(smallRow(1, 3));
      },
      ::testing::KilledBySignal(SIGBUS), "");
  expectRefused("its header says");
}

// What this process has mapped of a file: the lines of /proc/self/maps.
struct MappedFile {
  explicit MappedFile(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      if (line.ends_with(" " + path)) {
        ++count;
        begin = std::stoull(line, nullptr, 16);
        permissions = line.substr(line.find(' ') + 1, 4);
      }
    }
  }
  void* base() const { return std::bit_cast<void*>(begin); }

  int count = 0;
  std::uintptr_t begin = 0;  // of the last one
  std::string permissions;
};

TEST_F(MountDeathTest, AReadersMappingCannotBeWrittenNorMadeWritable) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "the thread sanitizer hangs on a fault's signal";
#endif
#endif
  makeTable();
  const testing_support::Bytes before = testing_support::readFile(file());
  State state(root());
  auto entity = state.mountReader<SmallRow>("t");
  const MappedFile mapped(file());
  EXPECT_EQ(mapped.count, 1);
  EXPECT_EQ(mapped.permissions, "r--s");
  // The file itself is open for reading only, so not even the kernel's word can be changed.
  EXPECT_EQ(::mprotect(mapped.base(), 4096, PROT_READ | PROT_WRITE), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EXIT(
      {
        std::signal(SIGSEGV, SIG_DFL);  // not what a sanitizer makes of it
        *static_cast<volatile char*>(mapped.base()) = 'X';
      },
      ::testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EQ(testing_support::readFile(file()), before);
  EXPECT_EQ(entity->rows().row(1), smallRow(1, 2));
}

TEST_F(MountTest, AnExtendedFileIsRefused) {
  makeTable();
  fs::resize_file(file(), fs::file_size(file()) + 1);
  expectRefused("its header says");
}

// What was said on the way to a row, or to the end of a walk; empty if the answer stands.
std::string reportOf(const std::function<void()>& look) {
  try {
    look();
  } catch (const Pell::CorruptionDetectedException& damage) {
    return damage.what();
  }
  return {};
}

class ZeroedPage : public MountTest {
 protected:
  // Two rows in two buckets.
  ZeroedPage() {
    State state(root());
    auto entity = state.mount<SmallRow>("t", kCapacity);
    for (const std::uint64_t key : kKeys) {
      entity->rows().rowIs(smallRow(key, 10 * key));
    }
  }
  static std::uint32_t bucket(std::uint64_t key) {
    return Glint::bucketOf(key, Glint::KeyHash::mixing, kCapacity);
  }
  std::string at(const std::string& text) const { return file() + ": " + text; }

  void zeroPage(std::ptrdiff_t page) const {
    testing_support::Bytes bytes = testing_support::readFile(file());
    std::fill_n(bytes.begin() + 4096 * page, 4096, '\0');
    testing_support::writeFile(file(), bytes);
  }
  // The writer's refusal; nothing is changed, and the verifier sees it too.
  void expectWriterRefused(const std::string& why) const {
    const auto before = testing_support::filesOf(root());
    EXPECT_EQ(refusalOf(ZevGlintType::writer), at(why));
    EXPECT_EQ(testing_support::filesOf(root()), before);
    EXPECT_THAT(Glint::verifyTable(file()).findings, Not(IsEmpty()));
  }
  static std::string structureDamaged(int findings, const std::string& first) {
    return "its structure is damaged (" + std::to_string(findings) +
           " findings, the first: " + first +
           "); nothing has been changed: keep a copy for inspection, then repair it, or remove it "
           "to begin with an empty table";
  }
  // What a reader is told by the lookup of a key; its row, if the answer stands, is whole.
  std::string lookupReport(glint_test::TestEntity<SmallRow>& entity, std::uint64_t key) const {
    return reportOf([&] { EXPECT_EQ(entity.rows().row(key), smallRow(key, 10 * key)) << key; });
  }

  static constexpr std::uint64_t kKeys[] = {1, 2};
};

TEST_F(ZeroedPage, OfTheHeaderIsRefusedByAll) {
  ASSERT_NE(bucket(kKeys[0]), bucket(kKeys[1]));
  zeroPage(0);
  const std::string why =
      "it is not a shared table (wrong magic); remove the file to begin with an empty table, or "
      "choose another state folder";
  expectWriterRefused(why);
  EXPECT_EQ(refusalOf(ZevGlintType::reader, 0), at(why));
}

TEST_F(ZeroedPage, OfTheHeadsIsReportedByEveryLookup) {
  zeroPage(1);
  expectWriterRefused(structureDamaged(10, "bucket 0: link 0x00000000 leads nowhere"));
  State state(root());
  auto entity = state.mountReader<SmallRow>("t");
  for (const std::uint64_t key : {1U, 2U, 3U, 4U}) {
    EXPECT_EQ(reportOf([&] { entity->rows().has(key); }),
              at("bucket " + std::to_string(bucket(key)) + ": a link on its chain leads nowhere"));
  }
  EXPECT_EQ(glint_test::walk(entity->rows()).steps, 2U);  // the slots are whole
}

TEST_F(ZeroedPage, OfTheLinksIsReportedWhereTheyAreFollowed) {
  zeroPage(2);
  expectWriterRefused(
      structureDamaged(2, "bucket " + std::to_string(std::min(bucket(kKeys[0]), bucket(kKeys[1]))) +
                              ": link 0x00000000 leads nowhere"));
  State state(root());
  auto entity = state.mountReader<SmallRow>("t");
  for (const std::uint64_t key : kKeys) {
    EXPECT_EQ(lookupReport(*entity, key), "");  // the heads lead to them
  }
  std::uint64_t absent = 3;
  while (bucket(absent) != bucket(kKeys[0])) {
    ++absent;
  }
  EXPECT_EQ(reportOf([&] { entity->rows().has(absent); }),
            at("bucket " + std::to_string(bucket(absent)) + ": a link on its chain leads nowhere"));
  EXPECT_EQ(glint_test::walk(entity->rows()).steps, 2U);
}

TEST_F(ZeroedPage, OfTheSlotsIsReportedByEveryLookupAndWalk) {
  zeroPage(3);
  expectWriterRefused(structureDamaged(16, "slot 0: impossible seq 0x0000000000000000"));
  State state(root());
  auto entity = state.mountReader<SmallRow>("t");
  for (const std::uint64_t key : kKeys) {
    EXPECT_EQ(lookupReport(*entity, key),
              at("slot " + std::to_string(key - 1) + ": its seq is impossible"));
  }
  EXPECT_EQ(reportOf([&] { glint_test::walk(entity->rows()); }),
            at("slot 0: its seq is impossible"));
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
                HasSubstr("a symbolic link or not a folder"));
  }
  fs::remove(link);
}

TEST_F(MountTest, ASymbolicLinkInPlaceOfTheLockFileIsRefusedAndNotFollowed) {
  makeTable();
  testing_support::writeFile(root() + "/elsewhere", {'o', 'l', 'd'});
  fs::remove(root() + "/.writer");
  fs::create_symlink("elsewhere", root() + "/.writer");
  const auto before = testing_support::filesOf(root());
  EXPECT_THAT(refusalOf(ZevGlintType::writer),
              AllOf(HasSubstr("/.writer: "), HasSubstr("it is a symbolic link; remove it")));
  EXPECT_EQ(testing_support::filesOf(root()), before);
  EXPECT_TRUE(fs::is_symlink(root() + "/.writer"));
  EXPECT_EQ(refusalOf(ZevGlintType::reader), "");  // readers have nothing to do with it
}

TEST_F(MountTest, ASymbolicLinkWhereATableIsMadeIsReplacedAndNotFollowed) {
  testing_support::writeFile(root() + "/elsewhere", {'o', 'l', 'd'});
  fs::create_symlink("elsewhere", root() + "/.new.t.table");
  makeTable();
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file())));
  EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
  EXPECT_EQ(testing_support::readFile(root() + "/elsewhere"),
            (testing_support::Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(testing_support::filesOf(root()).size(), 2U);
}

TEST_F(MountTest, AFolderOrASpecialFileInPlaceOfTheLockFileIsRefused) {
  const std::string lock = root() + "/.writer";
  fs::create_directory(lock);
  EXPECT_EQ(refusalOf(ZevGlintType::writer), lock + ": it is a folder, not a lock file; remove it");
  fs::remove(lock);
  ASSERT_EQ(::mkfifo(lock.c_str(), 0640), 0);
  EXPECT_EQ(refusalOf(ZevGlintType::writer), lock + ": it is not a regular file; remove it");
  EXPECT_THAT(testing_support::filesOf(root()), IsEmpty());
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
        HasSubstr("collections; name exactly one"));
  }
  EXPECT_FALSE(fs::exists(root()));
}

TEST_F(MountTest, ACapacityOfNothingOrOfMoreThanLinksCanNameIsRefused) {
  EXPECT_THAT(refusalOf(ZevGlintType::writer, 0), HasSubstr("a capacity of 0 rows"));
  EXPECT_THAT(refusalOf(ZevGlintType::writer, Glint::Link::kMaxSlots / 2 + 1),
              HasSubstr("16777216 slots is not possible"));
  EXPECT_TRUE(fs::is_empty(root()));
}

TEST_F(MountTest, NamesOfCollectionsHaveUpTo55Bytes) {
  State state(root());
  state.mount<SmallRow>("t", kCapacity);
  const auto refusalOfName = [&](std::size_t bytes) {
    return refusal([&] {
      state.manager().doMount(
          "of" + std::to_string(bytes), glint_test::TestEntity<SmallRow>::kTypeName,
          glint_test::mountInfo(ZevGlintType::writer, kCapacity, Pell::String(bytes, 'n')));
    });
  };
  for (const std::size_t bytes : {1U, 54U, 55U}) {
    EXPECT_EQ(refusalOfName(bytes), "") << bytes;
  }
  for (const std::size_t bytes : {0U, 56U}) {
    EXPECT_THAT(refusalOfName(bytes), HasSubstr("collections of 1 to 55")) << bytes;
  }
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
  EXPECT_EQ(testing_support::filesOf(root()).size(), 5U);
}

// ---- one writer

TEST_F(MountTest, ASecondWriterIsRefusedAndToldWhoHoldsTheFolder) {
  State first(root());
  first.mount<SmallRow>("t", kCapacity);
  const auto before = testing_support::filesOf(root());
  const std::string text = refusal([&] { State(root()).mount<SmallRow>("other", kCapacity); });
  EXPECT_THAT(text, AllOf(HasSubstr("in use by another writer"),
                          HasSubstr("process " + std::to_string(::getpid())),
                          HasSubstr(std::string("(") + ::program_invocation_short_name + ")")));
  EXPECT_EQ(testing_support::filesOf(root()), before);
}

TEST_F(MountTest, OneProcessMountsManyEntitiesUnderOneLock) {
  State state(root());
  for (const std::string path : {"a", "b", "c"}) {
    state.mount<SmallRow>(path, kCapacity)->rows().rowIs(smallRow(1, 1));
  }
  EXPECT_EQ(testing_support::filesOf(root()).size(), 3U);
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
  testing_support::ForkedChild writer([&] {
    State state(root());
    state.mount<SmallRow>("t", kCapacity)->rows().rowIs(smallRow(1, 1));
    return ::raise(SIGKILL);
  });
  ASSERT_EQ(writer.wait(), testing_support::Ending::killedBy(SIGKILL));
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
  EXPECT_EQ(testing_support::filesOf(root()).size(), 1U);
  EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
}

}  // namespace
