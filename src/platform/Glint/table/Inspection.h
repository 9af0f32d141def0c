// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Pell/String.h"
#include "format/TableView.h"

namespace Glint {

// The result of a look at every slot and every chain of a table. A mount and the verifier use it.
//
// Kind: value type.
struct Inspection {
  struct DamagedRow {
    std::uint32_t slot;
    Pell::String finding;
  };
  // The one change that a killed writer may have left between its stores.
  struct InFlight {
    std::uint32_t slot;
    std::uint32_t* link;  // the word that still leads to the slot
  };

  struct DamagedSeq {
    std::uint32_t slot;
    std::size_t finding;  // its index in `structure`
  };

  // Findings that no kill of a writer explains: a link, a seq, a counter, reachability.
  std::vector<Pell::String> structure;
  // Counters in the header whose word is damaged; a mount counts anew.
  std::vector<Pell::String> counters;
  // Slots whose seq is impossible, as far as `structure` lists them.
  std::vector<DamagedSeq> damagedSeqs;
  // Live slots whose row is not the one that was published.
  std::vector<DamagedRow> damagedRows;
  // Slots that a writer may reuse: dead, unreachable, not retired; rising.
  std::vector<std::uint32_t> freeSlots;
  std::vector<InFlight> inFlight;  // at most one, or structure says so
  std::uint32_t slotsInUse = 0;
  std::uint32_t liveSlots = 0;  // damaged ones included
  std::uint32_t retiredSlots = 0;
  std::uint64_t scratchpad = 0;
  bool scratchpadGood = false;
  // The index was being rebuilt when its writer was killed: the chains mean nothing, and the slots
  // say everything.
  bool indexUnfinished = false;

  bool changeInFlight() const { return !inFlight.empty() || indexUnfinished; }
  // Slots in flight that are neither free nor retired yet.
  std::uint32_t deadInFlight = 0;

  bool clean() const { return structure.empty() && counters.empty() && damagedRows.empty(); }
};

// No writer may change the table meanwhile. Structural findings beyond kMaxFindings are counted,
// not listed; the work is one pass over the slots in use and one over the chains.
inline constexpr std::size_t kMaxFindings = 100;
Inspection inspect(const TableView& view);

// Says what is wrong with a file's sealed header (magic, version, checksum, sizes); the text is
// empty if nothing is. `fileBytes` is the file's length; at least sizeof(Header) bytes are
// readable.
Pell::String sealedHeaderFinding(const FixedHeader& header, std::uint64_t fileBytes);

// Reads the sealed header of an open file of that length, and says what is wrong with it. A file
// that is too short for a header, or that cannot be read, is a finding as well.
Pell::String readSealedHeader(int fd, std::uint64_t fileBytes, FixedHeader& header);

// Says how a file differs from the one that a mount of `fileName` with `layout` needs; the text is
// empty if it does not. A nominal capacity of 0 accepts the capacity of the file.
Pell::String layoutDifference(const FixedHeader& header, const TableLayout& layout,
                              std::string_view fileName);

}  // namespace Glint
