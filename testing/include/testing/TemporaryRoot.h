// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstddef>

#include "Pell/String.h"

namespace testing_support {

// A fresh folder in shared memory, for the state of one test. A test may remove it and make it
// anew.
//
// Kind: scope guard: the folder and all that is in it go with it. What a process leaves that is
// killed goes at the first use by a later process of the same user.
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

// Removes the folders of that user's ended processes from `parent`; how many there were. A folder
// stays whose process lives, or a child that it forked since the folder was made.
std::size_t sweepTemporaryRoots(const Pell::String& parent, uid_t owner);

}  // namespace testing_support
