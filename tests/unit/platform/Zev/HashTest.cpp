// SPDX-License-Identifier: Apache-2.0

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ios>
#include <iterator>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "Zev/Hash.h"

namespace {

using Zev::hashSingleAttr;

constexpr std::uint32_t kSalts[] = {0xaead84da, 0x1f3dfceb, 0x4554b525, 0x525a0dd4, 0x94914ce4};

struct Identity {
  std::uint32_t operator()(std::uint32_t key) const { return key; }
};

// The order of a map's elements follows from it, and does not change from run to run.
TEST(Hash, TheSeedIsTheSameInEveryProcess) {
  EXPECT_EQ(Zev::HashHelper::hashSeed32(), 0x9e3779b9U);
}

TEST(Hash, EqualValuesHashEqualAndWidthsAgree) {
  for (std::uint32_t value = 0; value < 0x10000; value += 97) {
    const auto narrow = static_cast<std::uint16_t>(value);
    ASSERT_EQ(hashSingleAttr(1, narrow), hashSingleAttr(1, narrow));
    ASSERT_EQ(hashSingleAttr(1, narrow), hashSingleAttr(1, value));
    ASSERT_EQ(hashSingleAttr(1, value), hashSingleAttr(1, std::uint64_t{value}));
  }
}

TEST(Hash, DifferentSaltsPlaceTheSameKeyDifferently) {
  std::set<std::size_t> placesOfOneKey;
  for (const std::uint32_t salt : kSalts) {
    placesOfOneKey.insert(hashSingleAttr(Zev::HashHelper::hashSeed32() ^ salt, 1234U));
  }
  EXPECT_EQ(placesOfOneKey.size(), std::size(kSalts));

  // Two maps of 1024 buckets agree on the bucket of a key as often as chance has it: 1 in 1024.
  const Zev::SaltedHash<0xaead84da, Identity> add;
  const Zev::SaltedHash<0x1f3dfceb, Identity> remove;
  int agreements = 0;
  for (std::uint32_t key = 0; key < 102'400; ++key) {
    agreements += add(key) % 1024 == remove(key) % 1024 ? 1 : 0;
  }
  EXPECT_GT(agreements, 50);  // 100 expected, standard deviation 10
  EXPECT_LT(agreements, 150);
}

TEST(Hash, TheFunctorHashesTheKeyUnderTheProcessSeedAndItsSalt) {
  const Zev::SaltedHash<0xaead84da, Identity> hash;
  EXPECT_EQ(hash(77U), hashSingleAttr(Zev::HashHelper::hashSeed32() ^ 0xaead84daU, 77U));
}

// Chi-square over 1024 buckets: its expectation is 1023 and its standard deviation 45, so 1300 is
// more than six deviations off.
double chiSquare(const std::vector<std::uint32_t>& hashes, unsigned shift) {
  std::array<std::uint32_t, 1024> buckets{};
  for (const std::uint32_t hash : hashes) {
    ++buckets[hash >> shift & 1023U];
  }
  const double expected = static_cast<double>(hashes.size()) / 1024.0;
  double sum = 0;
  for (const std::uint32_t count : buckets) {
    const double off = static_cast<double>(count) - expected;
    sum += off * off / expected;
  }
  return sum;
}

TEST(Hash, KeysInARowSpreadEvenlyInLowAndHighBits) {
  for (const std::uint32_t salt : kSalts) {
    std::vector<std::uint32_t> hashes;
    for (std::uint32_t key = 0; key < 65'536; ++key) {
      hashes.push_back(hashSingleAttr(Zev::HashHelper::hashSeed32() ^ salt, key));
    }
    EXPECT_LT(chiSquare(hashes, 0), 1300.0) << std::hex << salt;
    EXPECT_LT(chiSquare(hashes, 22), 1300.0) << std::hex << salt;
  }
}

TEST(Hash, KeysThatDifferInHighBitsOnlySpreadEvenly) {
  for (const std::uint32_t salt : kSalts) {
    std::vector<std::uint32_t> hashes;
    for (std::uint64_t key = 0; key < 65'536; ++key) {
      hashes.push_back(hashSingleAttr(Zev::HashHelper::hashSeed32() ^ salt, key << 48));
    }
    EXPECT_LT(chiSquare(hashes, 0), 1300.0) << std::hex << salt;
    EXPECT_LT(chiSquare(hashes, 22), 1300.0) << std::hex << salt;
  }
}

TEST(Hash, NoTwoOfTheFirstSixtyFiveThousandKeysCollideMoreThanChance) {
  std::set<std::uint32_t> hashes;
  for (std::uint32_t key = 0; key < 65'536; ++key) {
    hashes.insert(hashSingleAttr(Zev::HashHelper::hashSeed32() ^ kSalts[0], key));
  }
  // 65536^2 / 2 / 2^32 = 0.5 collisions expected.
  EXPECT_GE(hashes.size(), 65'536U - 5U);
}

// The share of result bits that change when one input bit does, over many values.
template <typename Flip>
double worstAvalanche(unsigned bits, Flip flip) {
  double worst = 0.5;
  for (unsigned bit = 0; bit < bits; ++bit) {
    int changed = 0;
    constexpr int kValues = 4096;
    for (std::uint64_t value = 0; value < kValues; ++value) {
      changed += std::popcount(flip(value * 0x9e3779b97f4a7c15ULL, bit));
    }
    const double share = changed / (32.0 * kValues);
    worst = std::abs(share - 0.5) > std::abs(worst - 0.5) ? share : worst;
  }
  return worst;
}

TEST(Hash, FlippingOneBitOfTheValueFlipsHalfOfTheResult) {
  const double worst = worstAvalanche(64, [](std::uint64_t value, unsigned bit) {
    return hashSingleAttr(99, value) ^ hashSingleAttr(99, value ^ std::uint64_t{1} << bit);
  });
  EXPECT_NEAR(worst, 0.5, 0.05);
}

TEST(Hash, FlippingOneBitOfTheSeedFlipsHalfOfTheResult) {
  const double worst = worstAvalanche(32, [](std::uint64_t value, unsigned bit) {
    return hashSingleAttr(99, value) ^ hashSingleAttr(99U ^ 1U << bit, value);
  });
  EXPECT_NEAR(worst, 0.5, 0.05);
}

}  // namespace
