// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "Pell/String.h"

namespace Asic {

// Names that every part of the framework derives the same way, and how much an agent can hold.
// Paths are names below the state folder.
class Constants {
 public:
  // Units of one agent.
  static constexpr std::uint32_t kMaxUnits = 16;
  // Entries that one unit can have in one table.
  static constexpr std::uint32_t kUnitCapacity = 65536;
  // Rows that every log has room for beyond its nominal capacity. Requests stop at that one; a
  // re-drive does not, and may log every entry of every unit again.
  static constexpr std::uint32_t kRedriveRows = kMaxUnits * kUnitCapacity;

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
