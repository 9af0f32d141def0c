// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdlib>

namespace testing_support {

// How often a test does something at random: as often as the environment variable says, its long
// form, or else as fits a daily run.
inline unsigned times(const char* variable, unsigned daily) {
  const char* text = std::getenv(variable);
  return text == nullptr ? daily : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

}  // namespace testing_support
