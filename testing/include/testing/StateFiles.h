// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "format/Format.h"

// The files of a state folder as bytes, for tests that damage, copy and compare them.

namespace testing_support {

// The contents of each file of the folder, by name. Holes are left out; the lock file is included.
std::map<std::string, std::string> stateContents(const std::string& folder);

// Copies every file of a folder that no agent uses to another one, which is made. Holes stay holes.
void copyState(const std::string& from, const std::string& to);

void flipBit(const std::string& path, std::uint64_t bit);
std::uint64_t wordAt(const std::string& path, std::uint64_t offset);
void wordIs(const std::string& path, std::uint64_t offset, std::uint64_t word);

// Where the parts of one table file are, in bytes from its beginning.
class TablePlaces {
 public:
  explicit TablePlaces(const std::string& path);

  std::uint64_t head(std::uint32_t bucket) const { return geometry_.headsAt + 4 * bucket; }
  std::uint64_t link(std::uint32_t slot) const { return geometry_.linksAt + 4 * slot; }
  std::uint64_t slot(std::uint32_t number) const {
    return geometry_.slotsAt + std::uint64_t{header_.fixed.slotBytes} * number;
  }
  // The first byte of the row that is live in the slot.
  std::uint64_t liveRow(std::uint32_t number) const;
  Glint::Seq seq(std::uint32_t liveSlot) const { return seqs_.at(liveSlot); }
  std::uint32_t slotBytes() const { return header_.fixed.slotBytes; }

  // The slots that hold a row.
  const std::vector<std::uint32_t>& liveSlots() const { return liveSlots_; }
  // The buckets whose chain is not empty.
  const std::vector<std::uint32_t>& usedBuckets() const { return usedBuckets_; }

 private:
  Glint::Header header_{};
  Glint::Geometry geometry_;
  std::map<std::uint32_t, Glint::Seq> seqs_;
  std::vector<std::uint32_t> liveSlots_;
  std::vector<std::uint32_t> usedBuckets_;
};

}  // namespace testing_support
