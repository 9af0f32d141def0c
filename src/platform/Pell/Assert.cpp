// SPDX-License-Identifier: Apache-2.0

#include "Pell/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Pell {

void assertionFailed(const char* file, int line, const char* text, const String& message) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s%s%s\n", file, line, text,
               message.empty() ? "" : ": ", message.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace Pell
