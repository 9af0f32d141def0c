// SPDX-License-Identifier: Apache-2.0

// The one place that maps and unmaps memory. Tables, images of tables and the verifier hold what it
// gives; what the bytes mean is theirs.

#include "folder/Mapping.h"

#include <sys/mman.h>

namespace Glint {

Mapping::Mapping(void* base, std::size_t bytes) {
  if (base != MAP_FAILED) {
    base_ = static_cast<std::byte*>(base);
    bytes_ = bytes;
  }
}

Mapping::~Mapping() {
  if (base_ != nullptr) {
    ::munmap(base_, bytes_);
  }
}

Mapping Mapping::ofFile(int fd, std::size_t bytes, Access access) {
  const int protection = access == Access::write ? PROT_READ | PROT_WRITE : PROT_READ;
  return {::mmap(nullptr, bytes, protection, MAP_SHARED, fd, 0), bytes};
}

Mapping Mapping::ofOwnMemory(std::size_t bytes) {
  constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
  return {::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, kFlags, -1, 0), bytes};
}

}  // namespace Glint
