// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace Zev {

// Memory of the platform's objects. A request makes a few small objects that live until it is
// answered, so most blocks are needed again soon, in the same size. Freed blocks are therefore
// kept, by size, for the next object.
//
// Threads: one; in thread-safe-pointer mode any number, and then no block is kept or taken from the
// kept ones. Under a sanitizer no block is ever kept, so that it sees every use of a freed object.
class ObjectMemory {
 public:
  static constexpr std::size_t kLargestKept = 256;     // bytes; larger blocks are not kept
  static constexpr std::size_t kMostKept = 64 * 1024;  // blocks of one size
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  static constexpr bool kKeeps = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  static constexpr bool kKeeps = false;
#else
  static constexpr bool kKeeps = true;
#endif
#else
  static constexpr bool kKeeps = true;
#endif

  // Aligned as operator new aligns. Throws std::bad_alloc.
  static void* take(std::size_t bytes);
  // `bytes` as in take().
  static void give(void* block, std::size_t bytes) noexcept;

  // Number of blocks kept for objects of that many bytes.
  static std::size_t kept(std::size_t bytes);
};

}  // namespace Zev
