// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "Pell/String.h"
#include "format/TableView.h"

namespace Glint {

// What the verifier found in one table file.
//
// Kind: value type.
struct Verification {
  struct DamagedSlot {
    std::size_t finding;  // its index in the findings
    std::uint32_t slot;
  };

  std::vector<Pell::String> findings;  // one text each; none: the file is as a writer left it
  // Slots whose seq is impossible or whose row's checksum does not match, by finding.
  std::vector<DamagedSlot> damagedSlots;
  // The number of findings, from the first on, for which a mount as writer refuses the file: its
  // slots or its index are damaged in a way that no kill explains.
  std::size_t structuralFindings = 0;
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

// The same for a table that is mapped or copied already and whose sealed header was checked.
Verification verifyTable(const TableView& view);

}  // namespace Glint
