// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>

#include "Pell/String.h"

namespace Zev {

// A mutator was given a null object for an attribute that must not be null.
class MutatorArgNullPointerException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Throws MutatorArgNullPointerException naming the class and the attribute.
[[noreturn]] void throwMutatorArgNullPointerException(const Pell::String& className,
                                                      const Pell::String& attributeName);

}  // namespace Zev
