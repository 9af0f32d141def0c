// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/String.h"

namespace testing_support {

// A fresh folder in shared memory, for the state of one test.
//
// Kind: scope guard: the folder and all that is in it go with it.
class TemporaryRoot {
 public:
  TemporaryRoot();
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;
  ~TemporaryRoot();

  const Pell::String& path() const { return path_; }

 private:
  Pell::String path_;
};

}  // namespace testing_support
