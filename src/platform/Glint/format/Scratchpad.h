// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>

#include "format/Format.h"
#include "format/SharedWord.h"

// How the scratchpad of a table is read and written: a slot with a row of one word.

namespace Glint {

// Whether the scratchpad's copy that `seq` names is what was published under exactly `seq`; then
// `value` is its value.
inline bool scratchpadChecksOut(const ScratchpadSlot& pad, Seq seq, std::uint64_t& value) {
  SealedRow<1> row{};
  const bool isGood = checksOut(&pad.copies[seq.copy()].checksum, seq.word(), std::span(row.words));
  value = row.words[0];
  return isGood;
}

// Reads the value that `seq`, as read from the scratchpad, publishes; as readCopy().
inline CopyState readScratchpad(const ScratchpadSlot& pad, Seq seq, std::uint64_t& value) {
  SealedRow<1> row{};
  const CopyState state = readCopy(&pad.copies[seq.copy()].checksum, pad.seq, seq.word(), row);
  value = row.words[0];
  return state;
}

// Stores the value, in the place of the one that `seq` publishes: fills the idle copy, then sets
// the seq to it.
inline void publishScratchpad(ScratchpadSlot& pad, Seq seq, std::uint64_t value) {
  const Seq next = seq.published();
  SealedRow<1> row{{value, 0}};
  fillCopy(&pad.copies[next.copy()].checksum, row, next.word());
  storeRelease(pad.seq, next.word());
}

}  // namespace Glint
