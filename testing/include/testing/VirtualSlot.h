// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstring>

namespace testing_support {

// Slot of a virtual operation in its class's table, counted from 0; the destructor takes two slots.
// Reads the Itanium ABI's pointer to member: the slot's offset, plus one on most processors.
template <typename Member>
std::ptrdiff_t virtualSlot(Member member) {
  std::ptrdiff_t words[2] = {};
  static_assert(sizeof member == sizeof words, "a pointer to member is two words");
  std::memcpy(words, &member, sizeof words);
  return words[0] / static_cast<std::ptrdiff_t>(sizeof(void*));
}

}  // namespace testing_support
