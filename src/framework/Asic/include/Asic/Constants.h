// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/String.h"

namespace Asic {

// Names that every part of the framework derives the same way. Paths are names below the state
// folder.
class Constants {
 public:
  // Key of a group in the ordered-table interface.
  static Pell::String canonicalizeGroupName(const Pell::String& agent, const Pell::String& group);
  static Pell::String tableEntryLogGlintPath(const Pell::String& group,
                                             const Pell::String& subgroup,
                                             const Pell::String& table);
  // Rows of the group's log, and the applied version of each of its tables.
  static Pell::String groupLogGlintPath(const Pell::String& agent, const Pell::String& group);
  static Pell::String groupVersionsGlintPath(const Pell::String& agent, const Pell::String& group);
};

}  // namespace Asic
