#pragma once

#include <cstddef>
#include <cstring>

namespace testing_support {

// Place of a virtual member function in its class's table of virtual functions, from 0. The
// Itanium C++ ABI writes it into the member function pointer, as 1 plus the offset in bytes; a
// destructor takes two places.
template <typename MemberFunction>
std::size_t virtualSlot(MemberFunction function) {
  std::size_t word = 0;
  static_assert(sizeof function == 2 * sizeof word);
  std::memcpy(&word, &function, sizeof word);
  return (word - 1) / sizeof(void*);
}

}  // namespace testing_support
