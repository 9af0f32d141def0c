// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

namespace Zev {

class HashHelper {
 public:
  // The process-wide seed of every hash map. Fixed rather than random: the order of a map must not
  // change from run to run.
  static constexpr std::uint32_t hashSeed32() { return 0x9e3779b9; }
};

namespace Detail {

// The 128 bits of the product of two words, its halves folded onto each other.
constexpr std::uint64_t foldedProduct(std::uint64_t a, std::uint64_t b) {
  __extension__ using Product = unsigned __int128;
  const Product product = Product{a} * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

}  // namespace Detail

// Hash of one attribute under a seed; every bit of the value and of the seed reaches every bit of
// the result.
constexpr std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint64_t value) {
  constexpr std::uint64_t kValueMask = 0xa0761d6478bd642fULL;
  constexpr std::uint64_t kSeedMask = 0xe7037ed1a0b428dbULL;
  const std::uint64_t seedTwice = std::uint64_t{seed} << 32 | seed;
  // One product leaves patterns of the seed in the high bits of keys in a row; two do not.
  const std::uint64_t once = Detail::foldedProduct(value ^ kValueMask, seedTwice ^ kSeedMask);
  const std::uint64_t twice = Detail::foldedProduct(once ^ kValueMask, kSeedMask);
  return static_cast<std::uint32_t>(twice ^ twice >> 32);
}
constexpr std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint32_t value) {
  return hashSingleAttr(seed, std::uint64_t{value});
}
constexpr std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint16_t value) {
  return hashSingleAttr(seed, std::uint64_t{value});
}

// Hash functor of one map type: the process seed mixed with the map's own salt, so that one key
// lands in different places of different maps. Bits is a function object that turns the key into
// the unsigned integer that is its one attribute.
template <std::uint32_t kSalt, typename Bits>
struct SaltedHash {
  template <typename Key>
  std::size_t operator()(const Key& key) const {
    return hashSingleAttr(HashHelper::hashSeed32() ^ kSalt, Bits()(key));
  }
};

}  // namespace Zev
