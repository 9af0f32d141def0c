// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Zev/ObjectMemory.h"
#include "Zev/PtrInterface.h"

namespace {

using Zev::ObjectMemory;

// Blocks that a build keeps: none under a sanitizer.
std::size_t ifKept(std::size_t blocks) { return ObjectMemory::kKeeps ? blocks : 0; }

// No other test's objects have the sizes used here: each begins by emptying its shelf.
void emptyShelf(std::size_t bytes) {
  std::vector<void*> blocks;
  while (ObjectMemory::kept(bytes) > 0) {
    blocks.push_back(ObjectMemory::take(bytes));
  }
  Zev::threadSafePtrModeIs(true);
  for (void* block : blocks) {
    ObjectMemory::give(block, bytes);
  }
  Zev::threadSafePtrModeIs(false);
}

TEST(ObjectMemory, ABlockThatIsGivenBackIsTheNextOneOfItsSize) {
  emptyShelf(200);
  void* first = ObjectMemory::take(200);
  ObjectMemory::give(first, 200);
  EXPECT_EQ(ObjectMemory::kept(200), ifKept(1));
  void* second = ObjectMemory::take(200);
  if (ObjectMemory::kKeeps) {
    EXPECT_EQ(second, first);
  }
  EXPECT_EQ(ObjectMemory::kept(200), 0U);
  ObjectMemory::give(second, 200);
  emptyShelf(200);
}

TEST(ObjectMemory, SizesOfOneClassShareBlocksAndOthersDoNot) {
  emptyShelf(193);
  emptyShelf(209);
  ObjectMemory::give(ObjectMemory::take(193), 193);
  EXPECT_EQ(ObjectMemory::kept(208), ifKept(1));
  EXPECT_EQ(ObjectMemory::kept(192), ObjectMemory::kept(177));
  EXPECT_EQ(ObjectMemory::kept(209), 0U);
  // A block serves the largest size of its class.
  void* largest = ObjectMemory::take(208);
  std::memset(largest, 0x5A, 208);
  ObjectMemory::give(largest, 208);
  emptyShelf(193);
}

TEST(ObjectMemory, BlocksAreAlignedForAnyObject) {
  for (std::size_t bytes = 1; bytes <= ObjectMemory::kLargestKept + 1; ++bytes) {
    void* block = ObjectMemory::take(bytes);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0U) << bytes;
    ObjectMemory::give(block, bytes);
  }
}

TEST(ObjectMemory, KeepsUpToTheLargestSizeAndNoLargerOne) {
  emptyShelf(ObjectMemory::kLargestKept);
  for (const std::size_t bytes : {ObjectMemory::kLargestKept - 1, ObjectMemory::kLargestKept,
                                  ObjectMemory::kLargestKept + 1}) {
    ObjectMemory::give(ObjectMemory::take(bytes), bytes);
  }
  EXPECT_EQ(ObjectMemory::kept(ObjectMemory::kLargestKept), ifKept(1));
  emptyShelf(ObjectMemory::kLargestKept);
}

TEST(ObjectMemory, KeepsUpToTheMostBlocksOfASizeAndNotOneMore) {
  constexpr std::size_t kBytes = 240;
  emptyShelf(kBytes);
  std::vector<void*> blocks;
  for (std::size_t i = 0; i <= ObjectMemory::kMostKept; ++i) {
    blocks.push_back(ObjectMemory::take(kBytes));
  }
  const std::size_t most = ObjectMemory::kMostKept;
  for (std::size_t given = 1; given <= blocks.size(); ++given) {
    ObjectMemory::give(blocks[given - 1], kBytes);
    if (given + 1 >= most) {
      EXPECT_EQ(ObjectMemory::kept(kBytes), ifKept(std::min(given, most)));
    }
  }
  emptyShelf(kBytes);
}

TEST(ObjectMemory, InThreadSafeModeNothingIsKeptOrTakenFromWhatIs) {
  emptyShelf(224);
  ObjectMemory::give(ObjectMemory::take(224), 224);
  Zev::threadSafePtrModeIs(true);
  void* block = ObjectMemory::take(224);
  EXPECT_EQ(ObjectMemory::kept(224), ifKept(1));
  ObjectMemory::give(block, 224);
  EXPECT_EQ(ObjectMemory::kept(224), ifKept(1));
  Zev::threadSafePtrModeIs(false);
  emptyShelf(224);
}

class Small : public Zev::Typed<Small> {
 public:
  static constexpr const char* kTypeName = "Small";
};

class Large : public Small {
 public:
  static constexpr const char* kTypeName = "Large";
  std::uint64_t words[20] = {};
};

TEST(ObjectMemory, AnObjectEndedThroughItsBaseGoesBackUnderItsOwnSize) {
  emptyShelf(sizeof(Large));
  const std::size_t smallKept = ObjectMemory::kept(sizeof(Small));
  Pell::Ptr<Zev::PtrInterface> object = Zev::makeObject<Large>();
  object = nullptr;
  EXPECT_EQ(ObjectMemory::kept(sizeof(Large)), ifKept(1));
  EXPECT_EQ(ObjectMemory::kept(sizeof(Small)), smallKept);
  emptyShelf(sizeof(Large));
}

}  // namespace
