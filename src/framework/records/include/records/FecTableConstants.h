// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "Asic/Constants.h"
#include "Asic/Versions.h"
#include "Pell/String.h"

namespace LoamFec {

// Names, capacities and thresholds of the FEC table.
struct FecTableConstants {
  static constexpr Asic::SwTableId kTableId{0x03010805};
  static constexpr const char* kTableName = "FecTable";
  static constexpr const char* kGroupName = "LoamAdj";
  static constexpr const char* kAgentName = "LoamAdj";

  // Rows of the entry log at which no request resolves any more.
  static constexpr std::uint32_t kEntryLogCapacity = 100000;
  // Rows of one unit's configuration table.
  static constexpr std::uint32_t kConfigCapacity = Asic::Constants::kUnitCapacity;
  // Units of one agent.
  static constexpr std::uint32_t kMaxUnits = Asic::Constants::kMaxUnits;

  // Clients are suspended while the resolver's queue is longer than the first, until it is no
  // longer than the second.
  static constexpr std::uint32_t kSuspendAbove = 9999;
  static constexpr std::uint32_t kResumeAtOrBelow = 7999;

  // Names below the state folder: of the entry log, of a unit's configuration table, of the group's
  // log, and of the applied version of each table of the group.
  static Pell::String entryLogGlintPath();
  static Pell::String configGlintPath(Asic::UnitId unitId);
  static Pell::String groupLogGlintPath();
  static Pell::String groupVersionsGlintPath();
};

}  // namespace LoamFec
