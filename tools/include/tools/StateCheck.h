// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace Tools {

class StateImage;

// One finding or note of a check, about one file.
struct Remark {
  std::string kind;  // stable, for machines
  std::string file;
  std::string text;
};

// The figures of one table of a state folder.
struct TableFigures {
  std::string file;
  std::uint32_t rows = 0;
  std::uint32_t capacity = 0;  // nominal
  std::uint32_t slotsInUse = 0;
  std::uint32_t freeSlots = 0;
  std::uint32_t retiredSlots = 0;
  std::uint64_t scratchpad = 0;
  std::uint64_t corruptions = 0;  // counted since the file was made
};

// What a check found.
//
// Kind: value type.
struct StateReport {
  std::string folder;
  // Why something could not be checked; empty if everything was seen.
  std::string cannotTell;
  std::optional<std::string> writer;  // who holds the writer lock
  int looks = 0;
  std::vector<TableFigures> tables;  // those that can be looked into
  // States that no kill of an agent leaves.
  std::vector<Remark> findings;
  // States that a kill may leave and that the next start or report deals with; nothing is wrong.
  std::vector<Remark> notes;

  bool clean() const { return findings.empty() && cannotTell.empty(); }
};

// Verifies every table of a state folder, each for itself (structure, checksums, counts) and
// against the others (see StateRules.h), whether the agent runs or is dead. Changes nothing. Never
// throws because of the contents of the folder.
StateReport checkState(const std::string& folder);

// The same for an image that was taken already.
StateReport checkState(const StateImage& image);

// One line per finding and per note, at most `limit` of each (0: all), then the tables and a
// summary.
std::string reportText(const StateReport& report, std::size_t limit);
// One JSON object with stable keys, everything in it.
std::string reportJson(const StateReport& report);

// "1 finding", "2 findings".
std::string counted(std::size_t count, const char* what);
// The JSON as it is printed: bytes of names that are not UTF-8 are replaced, because JSON cannot
// hold them.
std::string jsonText(const nlohmann::ordered_json& json);

}  // namespace Tools
