// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

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
  static constexpr std::uint32_t kConfigCapacity = 65536;
  // Units of one agent: the logs have room to drive every entry of so many units again on top of a
  // full log.
  static constexpr std::uint32_t kMaxUnits = 16;

  // Clients are suspended while the resolver's queue is longer than the first, until it is no
  // longer than the second.
  static constexpr std::uint32_t kSuspendAbove = 9999;
  static constexpr std::uint32_t kResumeAtOrBelow = 7999;

  // Name of the unit's configuration table below the state folder.
  static Pell::String configGlintPath(Asic::UnitId unitId);
};

}  // namespace LoamFec
