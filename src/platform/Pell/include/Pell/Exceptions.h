// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>

#include "Pell/String.h"

namespace Pell {

// Raised by a lookup or a walk of a shared-memory table that met bytes no writer can have left.
// what() says which table, which slot and what is wrong; callers pass it to the table's
// doCorruptionDetected() and go on as if the row were absent.
class CorruptionDetectedException : public std::runtime_error {
 public:
  explicit CorruptionDetectedException(const String& message) : std::runtime_error(message) {}
  String message() const { return what(); }
};

}  // namespace Pell
