// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Asic/Versions.h"
#include "Pell/String.h"

namespace Hardware {

// The interface that the driver of a real ASIC implements: the tables of the ASIC's units, written
// in batches and read back. LogDrivenHardware does the rest: it decides which change is due, in
// which order, and what to repair after a restart.
//
// Kind: interface. Keys are numbers and entries are bytes, in the form that the table gives them
// (for the FEC table see FecTableDataModelLogEntry). All entries of one table have the same length.
// Ownership: LogDrivenHardware holds the driver.
// Threads: one. No call may wait for the tables' writer.
// Errors: no call throws. apply() tells which changes the ASIC has not taken.
class AsicDriver {
 public:
  struct Change {
    enum class Kind : std::uint8_t {
      write,      // adds the entry, or replaces the one of that key
      remove,     // a key that is not there is no error
      removeAll,  // every entry of the unit's table; key and entry are not used
    };

    Kind kind = Kind::write;
    Asic::SwTableId tableId;
    Asic::UnitId unitId;
    std::uint64_t key = 0;
    std::span<const std::byte> entry;  // of a write; good until apply() returns
  };

  // Where a walk over a unit's keys stands; 0 is its beginning.
  using Cursor = std::uint64_t;

  AsicDriver() = default;
  AsicDriver(const AsicDriver&) = delete;
  AsicDriver& operator=(const AsicDriver&) = delete;
  virtual ~AsicDriver() = default;

  // Carries out the changes, one after the other, and returns the number of changes that are done:
  // all of them, or those before the first change that the ASIC does not take. fault() then says
  // why. A change that is not done has changed nothing; it comes again.
  virtual std::size_t apply(std::span<const Change> changes) = 0;
  // Why the last apply() left changes undone; empty if it did not.
  virtual Pell::String fault() const = 0;

  // Copies the entry of that key; its length is the table's. False: there is none.
  virtual bool read(Asic::SwTableId tableId, Asic::UnitId unitId, std::uint64_t key,
                    std::span<std::byte> entry) const = 0;
  // Fills in the next keys of a walk, as many as there is room for (at least 1), and moves the
  // cursor behind them; returns how many, 0 at the end. A key that stays during the whole walk
  // comes once, whatever is changed meanwhile.
  virtual std::size_t keys(Asic::SwTableId tableId, Asic::UnitId unitId, Cursor& at,
                           std::span<std::uint64_t> keys) const = 0;
  // 0 for a unit or a table that it does not have.
  virtual std::uint32_t entries(Asic::SwTableId tableId, Asic::UnitId unitId) const = 0;
  // Entries that a unit's table can hold.
  virtual std::uint32_t capacity(Asic::SwTableId tableId) const = 0;
};

}  // namespace Hardware
