// SPDX-License-Identifier: Apache-2.0

// Between the FEC table's rows and a driver that knows keys as numbers and entries as bytes.

#include "FecAsic.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <span>

#include "Pell/Assert.h"
#include "Zev/Trace.h"
#include "records/FecTableConstants.h"

namespace Hardware {

namespace {

constexpr const char* kClass = "FecAsic";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

constexpr Asic::SwTableId kFecTable = LoamFec::FecTableConstants::kTableId;

}  // namespace

FecAsic::FecAsic(AsicDriver& driver) : driver_(&driver) {
  waiting_.reserve(kBatch);
  changes_.reserve(kBatch);
}

void FecAsic::write(Asic::UnitId unitId, const FecEntry& entry, Asic::LogVersion version) {
  PELL_ASSERT(hasRoom(), "hasRoom()");
  waiting_.push_back({AsicDriver::Change::Kind::write, unitId, entry, version});
}

void FecAsic::remove(Asic::UnitId unitId, const FecKey& key, Asic::LogVersion version) {
  PELL_ASSERT(hasRoom(), "hasRoom()");
  FecEntry entry;
  entry.key = key;
  waiting_.push_back({AsicDriver::Change::Kind::remove, unitId, entry, version});
}

void FecAsic::removeAll(Asic::UnitId unitId, Asic::LogVersion version) {
  PELL_ASSERT(hasRoom(), "hasRoom()");
  waiting_.push_back({AsicDriver::Change::Kind::removeAll, unitId, {}, version});
}

bool FecAsic::flush() {
  if (waiting_.empty()) {
    return !refused_;
  }
  changes_.clear();
  for (const Waiting& change : waiting_) {
    changes_.push_back({.kind = change.kind,
                        .tableId = kFecTable,
                        .unitId = change.unitId,
                        .key = change.entry.key.fecId(),
                        .entry = std::as_bytes(std::span(&change.entry, 1))});
  }
  const std::size_t done = std::min(driver_->apply(changes_), waiting_.size());
  refused_ = done < waiting_.size();
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(done));
  if (refused_) {
    ZEV_TRACE(trace, 1, kClass, "version: {} is not taken: {}", waiting_.front().version,
              driver_->fault());
  }
  return !refused_;
}

std::optional<Asic::LogVersion> FecAsic::firstWaiting() const {
  return waiting_.empty() ? std::nullopt : std::optional(waiting_.front().version);
}

std::optional<FecEntry> FecAsic::entry(Asic::UnitId unitId, const FecKey& key) const {
  FecEntry entry;
  const bool isThere =
      driver_->read(kFecTable, unitId, key.fecId(), std::as_writable_bytes(std::span(&entry, 1)));
  return isThere ? std::optional(entry) : std::nullopt;
}

std::uint32_t FecAsic::entries(Asic::UnitId unitId) const {
  return driver_->entries(kFecTable, unitId);
}

std::uint32_t FecAsic::capacity() const { return driver_->capacity(kFecTable); }

const std::vector<FecKey>& FecAsic::keys(Asic::UnitId unitId, AsicDriver::Cursor& at,
                                         std::uint64_t atMost) {
  std::array<std::uint64_t, kKeysAtATime> numbers{};
  const std::size_t room = std::min<std::uint64_t>(atMost, numbers.size());
  const std::size_t count = driver_->keys(kFecTable, unitId, at, std::span(numbers).first(room));
  keys_.clear();
  std::transform(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(count),
                 std::back_inserter(keys_),
                 [](std::uint64_t number) { return FecKey(static_cast<std::uint32_t>(number)); });
  return keys_;
}

}  // namespace Hardware
