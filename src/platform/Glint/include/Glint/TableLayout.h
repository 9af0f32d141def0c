// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

namespace Glint {

// How keys spread over buckets.
enum class KeyHash : std::uint32_t {
  mixing = 0,
  identity = 1,  // keys that rise by one fill the buckets evenly as they are
};

// What a table file holds; part of its header.
struct TableLayout {
  std::string_view rowTypeName;
  std::uint32_t layoutVersion = 0;  // of the row's fields; part of the digest
  std::string_view collectionName;
  std::uint32_t rowBytes = 0;
  std::uint32_t keyBytes = 0;
  KeyHash keyHash = KeyHash::mixing;
  std::uint32_t nominalCapacity = 0;
  std::uint32_t slotCount = 0;

  // Buckets follow the nominal capacity: on average at most one row per bucket up to there.
  constexpr std::uint32_t bucketCount() const { return std::bit_ceil(nominalCapacity); }
};

}  // namespace Glint
