// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <utility>

namespace Glint {

// Owner of one mapping of memory.
//
// Kind: move-only value; a null one owns nothing.
class Mapping {
 public:
  enum class Access { read, write };

  Mapping() = default;
  Mapping(Mapping&& other) noexcept
      : base_(std::exchange(other.base_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
  Mapping& operator=(Mapping&& other) noexcept {
    std::swap(base_, other.base_);
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~Mapping();

  // The file's first bytes, shared with every process that maps it; the descriptor may be closed
  // afterwards. Null on failure; errno says why.
  static Mapping ofFile(int fd, std::size_t bytes, Access access);
  // Zeroed memory of this process alone, which costs something only where it is written. Null on
  // failure; errno says why.
  static Mapping ofOwnMemory(std::size_t bytes);

  explicit operator bool() const { return base_ != nullptr; }
  std::byte* base() const { return base_; }
  std::size_t bytes() const { return bytes_; }

 private:
  Mapping(void* base, std::size_t bytes);

  std::byte* base_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace Glint
