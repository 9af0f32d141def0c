// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "testing/TableFile.h"

// The files of a state folder as bytes, for tests that damage, copy and compare them.

namespace testing_support {

// The contents of each file of the folder, by name. Holes are left out; the lock file is included.
std::map<std::string, std::string> stateContents(const std::string& folder);

// Copies every file of a folder that no agent uses to another one, which is made. Holes stay holes.
void copyState(const std::string& from, const std::string& to);

// What stands in one table file: its slots that hold a row, and its chains.
class TablePlaces : public Offsets {
 public:
  explicit TablePlaces(const std::string& path);

  // The first byte of the row that is live in the slot.
  std::uint64_t liveRow(std::uint32_t number) const { return row(number, seq(number).copy()); }
  Glint::Seq seq(std::uint32_t liveSlot) const { return seqs_.at(liveSlot); }

  // The slots that hold a row.
  const std::vector<std::uint32_t>& liveSlots() const { return liveSlots_; }
  // The buckets whose chain is not empty.
  const std::vector<std::uint32_t>& usedBuckets() const { return usedBuckets_; }

 private:
  std::map<std::uint32_t, Glint::Seq> seqs_;
  std::vector<std::uint32_t> liveSlots_;
  std::vector<std::uint32_t> usedBuckets_;
};

// Flips a bit in the key's row of a configuration table's file. Throws std::runtime_error when it
// has none.
void damageRowOf(const std::string& path, std::uint32_t fecId);

}  // namespace testing_support
