// SPDX-License-Identifier: Apache-2.0

// Every block comes from operator new, with its size rounded up to its class, so one that is not
// kept can go back there.

#include "Zev/ObjectMemory.h"

#include <array>
#include <new>

#include "Zev/Count.h"

namespace Zev {

namespace {

constexpr std::size_t kGrain = 16;

// The first word of a block while it is kept.
struct Kept {
  Kept* next;
};

struct Shelf {
  Kept* top = nullptr;
  std::size_t count = 0;
};

constinit std::array<Shelf, ObjectMemory::kLargestKept / kGrain> shelves;

std::size_t rounded(std::size_t bytes) { return (bytes + kGrain - 1) / kGrain * kGrain; }

// Blocks of 1 to kLargestKept bytes have a shelf.
Shelf& shelfOf(std::size_t bytes) { return shelves[(bytes - 1) / kGrain]; }

bool recycled(std::size_t bytes) {
  return ObjectMemory::kKeeps && bytes - 1 < ObjectMemory::kLargestKept && !threadSafePtrMode();
}

}  // namespace

void* ObjectMemory::take(std::size_t bytes) {
  if (recycled(bytes)) {
    Shelf& shelf = shelfOf(bytes);
    if (Kept* block = shelf.top; block != nullptr) {
      shelf.top = block->next;
      --shelf.count;
      return block;
    }
  }
  return ::operator new(rounded(bytes));
}

void ObjectMemory::give(void* block, std::size_t bytes) noexcept {
  if (recycled(bytes)) {
    Shelf& shelf = shelfOf(bytes);
    if (shelf.count < kMostKept) {
      shelf.top = new (block) Kept{shelf.top};
      ++shelf.count;
      return;
    }
  }
  ::operator delete(block);
}

std::size_t ObjectMemory::kept(std::size_t bytes) { return shelfOf(bytes).count; }

}  // namespace Zev
