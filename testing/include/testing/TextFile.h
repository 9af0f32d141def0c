// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace testing_support {

// The contents of a file. Throws std::runtime_error when it cannot be read.
inline std::string textOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return text;
}

}  // namespace testing_support
