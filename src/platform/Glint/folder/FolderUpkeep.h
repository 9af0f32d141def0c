// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string_view>

#include "Pell/String.h"

// What is done to the files of a state folder as files: by tools, not by tables.

namespace Glint {

// The process that holds the writer lock, in the words that it left in the lock file; nothing if
// none does, or if that cannot be seen. Changes nothing.
std::optional<Pell::String> currentWriter(const Pell::String& folder);

// What the name of a file begins with that a killed process was making: a table, or a kept copy.
inline constexpr std::string_view kUnfinishedPrefix = ".new.";

// What the name of a kept copy has behind the name of its file, before a number.
inline constexpr std::string_view kKeptInfix = ".damaged-";

// A copy of the file beside it, under the first name of that kind that is free, which is returned.
// Holes stay holes. The caller holds the writer lock, and a kill leaves no copy that is not whole.
// Throws ZevGlint::MountException; then there is no copy.
Pell::String keepCopy(const Pell::String& folder, const Pell::String& fileName);

// Renames the file, whatever it is, to such a name, which is returned. As keepCopy().
Pell::String setAside(const Pell::String& folder, const Pell::String& fileName);

}  // namespace Glint
