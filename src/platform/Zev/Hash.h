#pragma once

#include <cstddef>
#include <cstdint>

namespace Zev {

class HashHelper {
 public:
  // The process-wide seed of every hash map, constant while the process lives.
  static std::uint32_t hashSeed32();
};

// Hash of one attribute under a seed; every bit of the value and of the seed reaches every bit of
// the result.
std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint16_t value);
std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint32_t value);
std::uint32_t hashSingleAttr(std::uint32_t seed, std::uint64_t value);

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
