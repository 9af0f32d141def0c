// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/String.h"

// Assertions of broken invariants. They stay on in release builds. The text, and the message if
// there is one, are printed to stderr as
//   <file>:<line>: assertion failed: <text>: <message>
// and the process is aborted. `message` is evaluated only on failure.

namespace Pell {

[[noreturn]] void assertionFailed(const char* file, int line, const char* text,
                                  const String& message) noexcept;

}  // namespace Pell

// The text is printed as given, never the C++ condition.
#define PELL_ASSERT(condition, text) PELL_ASSERT_MESSAGE(condition, text, ::Pell::String())

#define PELL_ASSERT_MESSAGE(condition, text, message)             \
  do {                                                            \
    if (!(condition)) [[unlikely]] {                              \
      ::Pell::assertionFailed(__FILE__, __LINE__, text, message); \
    }                                                             \
  } while (false)
