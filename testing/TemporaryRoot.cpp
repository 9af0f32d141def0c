// SPDX-License-Identifier: Apache-2.0

#include "testing/TemporaryRoot.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace testing_support {

TemporaryRoot::TemporaryRoot() : path_("/dev/shm/loamfec-test-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("no temporary folder in /dev/shm");
  }
}

TemporaryRoot::~TemporaryRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace testing_support
