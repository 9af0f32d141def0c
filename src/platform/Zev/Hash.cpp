#include "Zev/Hash.h"

namespace Zev {

namespace {

// Fixed rather than random: the order of a map must not change from run to run.
constexpr std::uint32_t kHashSeed = 0x9e3779b9;

// The 128 bits of the product of two words, its halves folded onto each other.
std::uint64_t foldedProduct(std::uint64_t a, std::uint64_t b) {
  __extension__ using Product = unsigned __int128;
  const Product product = Product{a} * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

}  // namespace

std::uint32_t HashHelper::hashSeed32() { return kHashSeed; }

std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint16_t value) {
  return hashSingleAttr(seed, static_cast<std::uint64_t>(value));
}

std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint32_t value) {
  return hashSingleAttr(seed, static_cast<std::uint64_t>(value));
}

std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint64_t value) {
  constexpr std::uint64_t kValueMask = 0xa0761d6478bd642fULL;
  constexpr std::uint64_t kSeedMask = 0xe7037ed1a0b428dbULL;
  const std::uint64_t seedTwice = std::uint64_t{seed} << 32 | seed;
  // One product leaves patterns of the seed in the high bits of keys in a row; two do not.
  const std::uint64_t once = foldedProduct(value ^ kValueMask, seedTwice ^ kSeedMask);
  const std::uint64_t twice = foldedProduct(once ^ kValueMask, kSeedMask);
  return static_cast<std::uint32_t>(twice ^ twice >> 32);
}

}  // namespace Zev
