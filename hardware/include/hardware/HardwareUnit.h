// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "Asic/Versions.h"
#include "Glint/Guarded.h"
#include "Pell/HashMap.h"
#include "records/FecSharedTables.h"

namespace SimAsic {

using LogRow = LoamFec::FecTableDataModelLogGlintEntry;
using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using LogMap = Glint::GlintMap<LogRow>;
using ConfigMap = Glint::GlintMap<ConfigRow>;

// One unit: its hardware table, and what the agent has committed for it.
//
// Ownership: holds its reader mount.
struct HardwareUnit {
  static constexpr std::uint32_t kSalt = 0x5b1e92d7;
  using Key = LoamFec::FecTableDataModelEntryKey;
  using Entry = LoamFec::FecTableDataModelLogEntry;
  using Table = Pell::HashMap<Key, Entry, LoamFec::FecKeyHash<kSalt>>;

  ConfigMap& rows() const { return config->swTableEntries(); }

  Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config;
  Table table;
};

using HardwareUnits = std::map<Asic::UnitId, HardwareUnit>;

// Nothing when it is damaged; the writer's next change makes it whole.
template <typename Map>
std::optional<std::uint64_t> guardedScratchpad(Map& map) {
  std::optional<std::uint64_t> value;
  Glint::guarded(map, [&] { value = map.control().scratchpad(); });
  return value;
}

}  // namespace SimAsic
