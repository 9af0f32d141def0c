// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "Asic/Versions.h"
#include "Pell/String.h"

namespace Asic {

// Where the tables' writer runs. A writer on this thread is at rest whenever the hardware looks; a
// writer in another process may be between any two of its stores.
enum class Writer : std::uint8_t { onThisThread, elsewhere };

// What a comparison of the hardware with the tables found and mended, in entries of all units.
struct Resynchronisation {
  std::uint64_t unchanged = 0;
  std::uint64_t added = 0;
  std::uint64_t changed = 0;
  std::uint64_t removed = 0;
};

// The hardware of one group of tables, as the agent sees it.
//
// It takes the operations of the group's tables in group order. An operation is applied when every
// version that it needs and every earlier operation of its own table have been applied. So the
// order of the announcements is always an order in which the operations may be applied. When the
// logs do not tell enough, the hardware is compared with the configuration rows, as far as
// operations may be applied.
//
// Kind: interface; the agent holds one for the group, or another process does.
// Threads: one.
// Invariants: applied versions only rise, and what they name is in the hardware. A step is bounded
// by the rows that it touches.
// Errors: none is thrown. Hardware that takes no change keeps its applied version where it is and
// says why (fault()); the same change is tried again by the next step. Until it is taken,
// later operations of other tables may wait too.
class HardwareSide {
 public:
  // Rows that the clean-up of a reported write touches: its log row twice, its group row.
  static constexpr std::uint64_t kRowsOfACleanup = 3;
  // Further rows that the clean-up of a reported deletion touches: its configuration row twice.
  static constexpr std::uint64_t kRowsOfADeletion = 2;
  // Rows that a write counts in a step: its group row, its log row, and its clean-up.
  static constexpr std::uint64_t kRowsOfAWrite = 2 + kRowsOfACleanup;

  HardwareSide() = default;
  HardwareSide(const HardwareSide&) = delete;
  HardwareSide& operator=(const HardwareSide&) = delete;
  virtual ~HardwareSide() = default;

  // Continues a resynchronisation that has begun, then takes and applies new operations. Stops when
  // nothing is left, when the hardware takes no more, or after the work of `rows` rows (at least
  // 1): rows touched here, and rows that the clean-up after the report will touch. As long as any
  // of that work is left, one more operation or row is begun, and then finished. True when the rows
  // were used up.
  virtual bool step(std::uint32_t rows) = 0;

  // Takes what has been announced, and then compares every configuration row that may be applied by
  // now with what the hardware holds and repairs the difference, in this call. For the start of the
  // agent whose hardware this is from then on: the writer is on this thread. When the hardware does
  // not take all, zeros are returned, and the steps that follow do the rest.
  virtual Resynchronisation resynchronise() = 0;

  // The version up to which each table has been applied.
  virtual const std::map<SwTableId, LogVersion>& appliedVersions() const = 0;
  // 0 for a table of which nothing has been applied.
  LogVersion appliedVersion(SwTableId tableId) const;
  // The version of the first deletion of a whole table after `from`, or `to` if there is none up to
  // `to`. A report ends there, so that the clean-up takes one turn. Costs a look at each version.
  virtual LogVersion upToTableDeletion(TableVersion from, LogVersion to) const = 0;

  // Verification: what the hardware holds of a unit's table. Entries are the bytes of the log rows'
  // entries; keys are their numbers.

  // Copies the entry of that key; `bytes` is as long as the entry. False: the hardware holds none.
  virtual bool entry(SwTableId tableId, UnitId unitId, std::uint64_t key,
                     std::span<std::byte> bytes) const = 0;
  using VisitEntry = std::function<void(std::uint64_t key, std::span<const std::byte> bytes)>;
  // Visits every entry once; visit may not change the hardware.
  virtual void forEachEntry(SwTableId tableId, UnitId unitId, const VisitEntry& visit) const = 0;
  // 0 for a unit or a table that it does not have.
  virtual std::uint32_t entries(SwTableId tableId, UnitId unitId) const = 0;
  // Entries that a unit's table can hold.
  virtual std::uint32_t capacity(SwTableId tableId) const = 0;

  // Why the hardware has taken no change when it was asked last; empty if it did.
  virtual Pell::String fault() const = 0;
};

// Makes the hardware side of an agent. By then the tables of the units are in the state folder.
// Throws ZevGlint::MountException when one is missing.
using HardwareMaker = std::function<std::unique_ptr<HardwareSide>(
    const Pell::String& stateFolder, const std::vector<UnitId>& unitIds, Writer writer)>;

}  // namespace Asic
