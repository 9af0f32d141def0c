// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "FecRows.h"
#include "hardware/AsicDriver.h"

namespace Hardware {

// The FEC table of an ASIC: what it holds, and the changes on their way to it, in batches.
//
// Kind: object with identity.
// Ownership: refers to the driver, which outlives it.
// Invariants: changes reach the driver in the order in which they were added. At most kBatch
// changes wait here; reads do not show them.
class FecAsic {
 public:
  // The most changes that go to the driver in one call.
  static constexpr std::size_t kBatch = 256;

  explicit FecAsic(AsicDriver& driver);
  FecAsic(const FecAsic&) = delete;
  FecAsic& operator=(const FecAsic&) = delete;

  // Adds a change, which belongs to that version. There must be room.
  void write(Asic::UnitId unitId, const FecEntry& entry, Asic::LogVersion version);
  void remove(Asic::UnitId unitId, const FecKey& key, Asic::LogVersion version);
  void removeAll(Asic::UnitId unitId, Asic::LogVersion version);
  bool hasRoom() const { return waiting_.size() < kBatch; }

  // Hands the waiting changes to the driver. False if the driver has not taken all of them; the
  // rest go on waiting. If nothing waits, false while refused().
  bool flush();
  // The version of the first waiting change; nothing if none waits.
  std::optional<Asic::LogVersion> firstWaiting() const;
  // Drops the waiting changes.
  void forget() { waiting_.clear(); }

  // True after a flush() of which the driver has not taken every change, until it takes every
  // change of a later one, or until tryAgain().
  bool refused() const { return refused_; }
  void tryAgain() { refused_ = false; }
  Pell::String fault() const { return refused_ ? driver_->fault() : Pell::String(); }

  // What the ASIC holds.
  std::optional<FecEntry> entry(Asic::UnitId unitId, const FecKey& key) const;
  std::uint32_t entries(Asic::UnitId unitId) const;
  // Entries that a unit can hold.
  std::uint32_t capacity() const;
  // The next keys of a walk, as AsicDriver::keys() gives them: at most `atMost` (at least 1) and at
  // most kKeysAtATime; none at the end. They are good until the next call.
  static constexpr std::size_t kKeysAtATime = 64;
  const std::vector<FecKey>& keys(Asic::UnitId unitId, AsicDriver::Cursor& at,
                                  std::uint64_t atMost = kKeysAtATime);

 private:
  struct Waiting {
    AsicDriver::Change::Kind kind;
    Asic::UnitId unitId;
    FecEntry entry;  // of a remove only its key
    Asic::LogVersion version;
  };

  AsicDriver* driver_;
  std::vector<Waiting> waiting_;
  std::vector<AsicDriver::Change> changes_;  // kept for its memory
  std::vector<FecKey> keys_;                 // the same
  bool refused_ = false;
};

}  // namespace Hardware
