// SPDX-License-Identifier: Apache-2.0

// What a map is like after an insertion that found no memory. This program's operator new fails on
// demand.

#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "Pell/HashMap.h"
#include "Zev/Hash.h"

namespace {

constexpr int kNever = -1;
int allocationsLeft = kNever;  // before the one that fails

void* allocate(std::size_t bytes) {
  if (allocationsLeft == 0) {
    allocationsLeft = kNever;
    return nullptr;
  }
  if (allocationsLeft > 0) {
    --allocationsLeft;
  }
  return std::malloc(bytes);  // NOLINT(cppcoreguidelines-no-malloc): this is the allocator
}

}  // namespace

void* operator new(std::size_t bytes) {
  if (void* block = allocate(bytes); block != nullptr) {
    return block;
  }
  throw std::bad_alloc();
}
// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is the allocator
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t /*bytes*/) noexcept { std::free(block); }
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

using Key = std::uint32_t;
struct KeyBits {
  std::uint32_t operator()(Key key) const { return key; }
};
using Map = Pell::HashMap<Key, std::uint32_t, Zev::SaltedHash<0x1badcafe, KeyBits>>;

constexpr Key kSpread = 0x01000193;  // keys over all 32 bits

void expectHolds(const Map& map, std::uint32_t elements) {
  ASSERT_EQ(map.size(), elements);
  std::uint32_t walked = 0;
  map.forEach([&](Key, std::uint32_t) { ++walked; });
  EXPECT_EQ(walked, elements);
  for (std::uint32_t at = 0; at < elements; ++at) {
    const std::uint32_t* held = map.find(at * kSpread);
    ASSERT_NE(held, nullptr) << at;
    EXPECT_EQ(*held, at);
  }
  EXPECT_EQ(map.find(elements * kSpread), nullptr);
}

// Fails each allocation of each insertion once, then has the insertion succeed.
template <typename Insert>
void insertWithoutMemory(Insert&& insert) {
  Map map;
  std::uint32_t failures = 0;
  for (std::uint32_t at = 0; at < 200; ++at) {
    for (int allocations = 0;; ++allocations) {
      allocationsLeft = allocations;
      bool failed = false;
      try {
        insert(map, at * kSpread, at);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      const bool wasReached = allocationsLeft == kNever;
      allocationsLeft = kNever;
      EXPECT_EQ(failed, wasReached);
      if (!failed) {
        break;
      }
      ++failures;
      expectHolds(map, at);
    }
    expectHolds(map, at + 1);
  }
  EXPECT_GT(failures, 10U);
}

TEST(HashMapMemoryTest, AnInsertionThatFindsNoMemoryLeavesTheMapAsItWas) {
  insertWithoutMemory(
      [](Map& map, Key key, std::uint32_t value) { map.insertOrAssign(key, value); });
}

TEST(HashMapMemoryTest, AnElementMadeByTheIndexOperatorWithoutMemoryIsNotThere) {
  insertWithoutMemory([](Map& map, Key key, std::uint32_t value) { map[key] = value; });
}

// Value whose moves throw on demand.
struct Stubborn {
  static inline bool throws = false;
  Stubborn() = default;
  Stubborn(Stubborn&& /*other*/) {  // NOLINT(performance-noexcept-move-constructor): its purpose
    if (throws) {
      throw std::bad_alloc();
    }
  }
  Stubborn& operator=(Stubborn&&) = default;
};

TEST(HashMapMemoryTest, AValueThatCannotBeMovedInIsNotThere) {
  Pell::HashMap<Key, Stubborn, Zev::SaltedHash<0x1badcafe, KeyBits>> map;
  map[1];
  Stubborn::throws = true;
  EXPECT_THROW(map[2], std::bad_alloc);
  Stubborn::throws = false;
  EXPECT_EQ(map.size(), 1U);
  EXPECT_EQ(map.find(2), nullptr);
  map[2];
  EXPECT_EQ(map.size(), 2U);
  EXPECT_NE(map.find(2), nullptr);
  EXPECT_NE(map.find(1), nullptr);
}

TEST(HashMapMemoryTest, ARemovalNeedsNoMemory) {
  Map map;
  for (std::uint32_t at = 0; at < 1000; ++at) {
    map.insertOrAssign(at * kSpread, at);
  }
  for (std::uint32_t at = 1000; at-- > 0;) {
    allocationsLeft = 0;
    const bool erased = map.erase(at * kSpread);
    const bool askedForMemory = allocationsLeft == kNever;
    allocationsLeft = kNever;
    ASSERT_TRUE(erased);
    ASSERT_FALSE(askedForMemory) << at;
  }
  EXPECT_TRUE(map.empty());
}

}  // namespace
