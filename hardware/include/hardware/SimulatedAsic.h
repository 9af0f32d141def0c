// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <utility>

#include "Asic/Constants.h"
#include "Pell/HashMap.h"
#include "Zev/Hash.h"
#include "hardware/AsicDriver.h"

namespace Hardware {

// An ASIC in this process's memory: holds what it is told, of any table and unit.
//
// Kind: object with identity.
// Ownership: its content goes with it.
// Threads: one.
// Invariants: no unit's table holds more entries than the capacity. Entries have at most
// kMaxEntryBytes bytes (asserted).
class SimulatedAsic : public AsicDriver {
 public:
  static constexpr std::size_t kMaxEntryBytes = 64;
  // Entries of a unit's table: as many as its configuration table can hold rows, deleted ones
  // included.
  static constexpr std::uint32_t kCapacity = 2 * Asic::Constants::kUnitCapacity;

  explicit SimulatedAsic(std::uint32_t capacity = kCapacity) : capacity_(capacity) {}

  // Does not take a write of a new key when the table is full.
  std::size_t apply(std::span<const Change> changes) override;
  Pell::String fault() const override { return fault_; }
  bool read(Asic::SwTableId tableId, Asic::UnitId unitId, std::uint64_t key,
            std::span<std::byte> entry) const override;
  std::size_t keys(Asic::SwTableId tableId, Asic::UnitId unitId, Cursor& at,
                   std::span<std::uint64_t> keys) const override;
  std::uint32_t entries(Asic::SwTableId tableId, Asic::UnitId unitId) const override;
  std::uint32_t capacity(Asic::SwTableId) const override { return capacity_; }

 private:
  static constexpr std::uint32_t kSalt = 0x5b1e92d7;
  struct KeyBits {
    std::uint64_t operator()(std::uint64_t key) const { return key; }
  };
  using Entry = std::array<std::byte, kMaxEntryBytes>;
  using Table = Pell::HashMap<std::uint64_t, Entry, Zev::SaltedHash<kSalt, KeyBits>>;

  bool write(Table& table, const Change& change);
  const Table* table(Asic::SwTableId tableId, Asic::UnitId unitId) const;

  std::uint32_t capacity_;
  std::map<std::pair<Asic::SwTableId, Asic::UnitId>, Table> tables_;
  Pell::String fault_;
};

}  // namespace Hardware
