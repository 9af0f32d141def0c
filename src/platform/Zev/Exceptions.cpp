// SPDX-License-Identifier: Apache-2.0

#include "Zev/Exceptions.h"

#include <fmt/format.h>

namespace Zev {

void throwMutatorArgNullPointerException(const Pell::String& className,
                                         const Pell::String& attributeName) {
  throw MutatorArgNullPointerException(
      fmt::format("{}::{}Is: the argument must not be null", className, attributeName));
}

}  // namespace Zev
