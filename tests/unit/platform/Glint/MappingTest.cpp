// SPDX-License-Identifier: Apache-2.0

// The owner of mapped memory, and what the holder of a writer lock says about itself.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "folder/Mapping.h"
#include "folder/RootFolder.h"
#include "testing/TemporaryRoot.h"

namespace {

using Glint::Mapping;
using Glint::UniqueFd;

constexpr std::size_t kBytes = 4096;

bool isMapped(std::byte* base) { return ::msync(base, kBytes, MS_ASYNC) == 0; }

class MappingOfAFile : public testing::Test {
 protected:
  MappingOfAFile() { std::ofstream(path_) << std::string(kBytes, 'a'); }

  UniqueFd open(int flags) const { return UniqueFd(::open(path_.c_str(), flags | O_CLOEXEC)); }

  testing_support::TemporaryRoot root_;
  std::string path_ = root_.path() + "/file";
};

TEST_F(MappingOfAFile, SeesTheFileAndEndsWithItsOwner) {
  std::byte* base = nullptr;
  {
    const Mapping mapping = Mapping::ofFile(open(O_RDONLY).get(), kBytes, Mapping::Access::read);
    ASSERT_TRUE(mapping);
    EXPECT_EQ(mapping.bytes(), kBytes);
    base = mapping.base();
    EXPECT_EQ(base[kBytes - 1], std::byte{'a'});
    EXPECT_TRUE(isMapped(base));
  }
  EXPECT_FALSE(isMapped(base));
}

TEST_F(MappingOfAFile, WritesReachTheFileAndThoseWhoReadIt) {
  const Mapping writer = Mapping::ofFile(open(O_RDWR).get(), kBytes, Mapping::Access::write);
  const Mapping reader = Mapping::ofFile(open(O_RDONLY).get(), kBytes, Mapping::Access::read);
  ASSERT_TRUE(writer);
  ASSERT_TRUE(reader);
  writer.base()[7] = std::byte{'b'};
  EXPECT_EQ(reader.base()[7], std::byte{'b'});
}

TEST_F(MappingOfAFile, IsNullWhenItCannotBeAndErrnoSaysWhy) {
  errno = 0;
  const Mapping none = Mapping::ofFile(open(O_RDONLY).get(), kBytes, Mapping::Access::write);
  EXPECT_FALSE(none);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(none.base(), nullptr);
  EXPECT_EQ(none.bytes(), 0U);
  errno = 0;
  EXPECT_FALSE(Mapping::ofOwnMemory(0));
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(MappingOfAFile, AMoveLeavesOneOwner) {
  Mapping first = Mapping::ofOwnMemory(kBytes);
  std::byte* const base = first.base();
  ASSERT_NE(base, nullptr);
  base[0] = std::byte{1};
  {
    Mapping second = std::move(first);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what a move leaves is the matter
    EXPECT_EQ(first.bytes(), 0U);
    first = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
  }
  ASSERT_EQ(first.base(), base);
  EXPECT_TRUE(isMapped(base));
  EXPECT_EQ(base[0], std::byte{1});
  first = Mapping();
  EXPECT_FALSE(isMapped(base));
}

TEST_F(MappingOfAFile, OwnMemoryBeginsAsZeros) {
  const Mapping own = Mapping::ofOwnMemory(kBytes);
  ASSERT_TRUE(own);
  for (std::size_t at = 0; at < kBytes; ++at) {
    ASSERT_EQ(own.base()[at], std::byte{0}) << at;
  }
}

TEST_F(MappingOfAFile, AHolderOfTheLockIsWhatStandsInTheFirstLine) {
  for (const auto& [text, holder] :
       {std::pair<std::string, std::string>("process 5 (fecd)\n", "process 5 (fecd)"),
        {"process 5 (fecd)\nrest", "process 5 (fecd)"},
        {"process 5", "process 5"},
        {"", "a process that has only just started"},
        {"\nrest", "a process that has only just started"},
        {std::string(127, 'x') + "\n", std::string(127, 'x')},
        {std::string(128, 'x') + "\n", std::string(128, 'x')},
        {std::string(129, 'x') + "\n", std::string(128, 'x')}}) {
    std::ofstream(path_, std::ios::trunc) << text;
    EXPECT_EQ(Glint::writerLockHolder(open(O_RDONLY)), holder) << text;
  }
  EXPECT_EQ(Glint::writerLockHolder(UniqueFd()), "a process that has only just started");
}

}  // namespace
