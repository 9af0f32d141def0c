// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/GroupLogRows.h"
#include "StateImage.h"
#include "offline/Verify.h"
#include "records/FecSharedRows.h"

namespace Tools {

using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using LogRow = LoamFec::FecTableDataModelLogGlintEntry;

// The rows of a state folder that have a good checksum. A table that cannot be read, or whose slots
// in use are not known, has no value here.
//
// Kind: value type.
struct StateRows {
  using ConfigRows = std::unordered_map<std::uint32_t, ConfigRow>;  // by FEC identifier

  bool hasUnit(std::uint16_t unit) const { return units.contains(unit); }

  std::map<std::uint16_t, std::optional<ConfigRows>> units;         // of every configuration file
  std::optional<std::map<std::uint64_t, LogRow>> log;               // by version
  std::optional<std::map<std::uint64_t, Asic::GroupLogRow>> group;  // by sequence
  std::optional<std::map<std::uint32_t, std::uint64_t>> applied;    // version of each table
  // Last version handed out, and last group sequence; nothing if damaged.
  std::optional<std::uint64_t> logScratchpad;
  std::optional<std::uint64_t> groupScratchpad;
};

StateRows readRows(const StateImage& image);

// One finding of the verifier in a table.
struct TableFinding {
  const char* kind;  // damaged_row, damaged_structure or damaged_counter
  std::string text;  // of a slot with key and version of its row, as far as they can be read
};
std::vector<TableFinding> findingsOf(const TableFile& file, const Glint::Verification& found);

// The table id as it is written everywhere: aa:gg:tttt.
std::string tableIdText(std::uint32_t tableId);

}  // namespace Tools
