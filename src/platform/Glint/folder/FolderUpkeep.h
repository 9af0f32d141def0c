// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string_view>

#include "Pell/String.h"

// Operations on the files of a state folder as files. Tools use them, tables do not.

namespace Glint {

// The process that holds the writer lock, in the words that it left in the lock file; nothing if no
// process holds it, or if the lock cannot be seen. Changes nothing.
std::optional<Pell::String> currentWriter(const Pell::String& folder);

// How the name of an unfinished file begins. A killed process was making it: a table, or a kept
// copy.
inline constexpr std::string_view kUnfinishedPrefix = ".new.";

// What follows the file's name in the name of a kept copy, before a number.
inline constexpr std::string_view kKeptInfix = ".damaged-";

// Makes a copy beside the file, under the first free name of that kind, and returns the name. Holes
// stay holes. The caller holds the writer lock, and a kill leaves no copy that is not whole. Throws
// ZevGlint::MountException; then there is no copy.
Pell::String keepCopy(const Pell::String& folder, const Pell::String& fileName);

// Renames the file, whatever it is, to a free name of that kind, and returns the name. Conditions
// and errors are those of keepCopy().
Pell::String setAside(const Pell::String& folder, const Pell::String& fileName);

}  // namespace Glint
