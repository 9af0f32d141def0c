// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "Asic/Versions.h"
#include "Glint/Guarded.h"
#include "records/FecSharedTables.h"

// The FEC table's rows, as the hardware side reads them.

namespace Hardware {

using LogRow = LoamFec::FecTableDataModelLogGlintEntry;
using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using LogMap = Glint::GlintMap<LogRow>;
using ConfigMap = Glint::GlintMap<ConfigRow>;
using FecKey = LoamFec::FecTableDataModelEntryKey;
using FecEntry = LoamFec::FecTableDataModelLogEntry;

// What the agent has committed for each unit; the mounts are held.
using ConfigTables = std::map<Asic::UnitId, Pell::Ptr<LoamFec::FecTableDataModelConfigGlint>>;

// Nothing when it is damaged; the writer's next change repairs it.
template <typename Map>
std::optional<std::uint64_t> guardedScratchpad(Map& map) {
  std::optional<std::uint64_t> value;
  Glint::guarded(map, [&] { value = map.control().scratchpad(); });
  return value;
}

}  // namespace Hardware
