#pragma once

#include <cstdint>
#include <vector>

#include "Pell/String.h"

namespace Glint {

// What the verifier found in one table file.
//
// Kind: value type.
struct Verification {
  std::vector<Pell::String> findings;  // one text each; none: the file is as a writer left it
  // What the file holds; meaningless if its sealed header is damaged.
  std::uint32_t liveRows = 0;
  std::uint32_t freeSlots = 0;
  std::uint32_t retiredSlots = 0;
  std::uint32_t slotsInUse = 0;
  std::uint64_t scratchpad = 0;
  std::uint64_t corruptionCount = 0;
  // The writer was killed within a change; the next mount finishes or undoes it. No finding.
  bool changeInFlight = false;

  bool clean() const { return findings.empty(); }
};

// Checks every slot, row, chain and counter of a table file, of whatever row type, without changing
// it. No writer may be working on it (a dead one is fine). A file that cannot be read is a finding.
Verification verifyTable(const Pell::String& filePath);

}  // namespace Glint
