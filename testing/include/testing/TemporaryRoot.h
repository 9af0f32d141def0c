// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstddef>

#include "Pell/String.h"

namespace testing_support {

// A fresh folder in shared memory, for the state of one test. A test may remove it and make it
// anew.
//
// Kind: scope guard: its destructor removes the folder with everything in it. A killed process
// leaves its folder behind; the first use by a later process of the same user removes it.
class TemporaryRoot {
 public:
  static constexpr const char* kSharedMemory = "/dev/shm";

  explicit TemporaryRoot(const Pell::String& parent = kSharedMemory);
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;
  ~TemporaryRoot();

  const Pell::String& path() const { return path_; }

 private:
  bool make(const Pell::String& parent);

  Pell::String path_;
  int lock_ = -1;  // descriptor of the file beside the folder, locked
};

// Removes from `parent` the folders that ended processes of that user have left, and returns their
// number. A folder stays while its process lives, or a child that the process has forked since.
std::size_t sweepTemporaryRoots(const Pell::String& parent, uid_t owner);

}  // namespace testing_support
