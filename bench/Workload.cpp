// SPDX-License-Identifier: Apache-2.0

#include "Workload.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <random>

#include <fmt/format.h>

namespace bench {

Scale scale() {
  return std::getenv("LOAMFEC_BENCH_TINY") == nullptr ? Scale{65536, 1024, 100000}
                                                      : Scale{256, 64, 1000};
}

Workload::Workload() : order_(scale().residentKeys), marks_(scale().residentKeys, 0) {
  std::iota(order_.begin(), order_.end(), 1U);
  std::mt19937_64 random(kSeed);
  std::shuffle(order_.begin(), order_.end(), random);
}

std::vector<LoamFec::FecTableDataModelEntry> Workload::everyEntry() const {
  std::vector<LoamFec::FecTableDataModelEntry> entries;
  for (std::uint32_t fecId = 1; fecId <= order_.size(); ++fecId) {
    entries.push_back(entryOf(fecId));
  }
  return entries;
}

std::span<const LoamFec::FecTableDataModelEntry> Workload::nextBatch() {
  batch_.clear();
  for (std::uint32_t i = 0; i < scale().batch; ++i) {
    const std::uint32_t fecId = order_[written_++ % order_.size()];
    ++marks_[fecId - 1];
    batch_.push_back(entryOf(fecId));
  }
  return batch_;
}

Wirex::IntfId Workload::interfaceOf(std::uint32_t fecId) {
  return Wirex::IntfId::fromName(fmt::format("Ethernet{}", fecId % kInterfaces + 1));
}

LoamFec::FecTableDataModelEntry Workload::entryOf(std::uint32_t fecId) const {
  LoamFec::FecTableDataModelEntry entry;
  entry.key = LoamFec::FecTableDataModelEntryKey(fecId);
  entry.opaqueA = markOf(fecId);
  entry.opaqueB = fecId;
  entry.intfId = interfaceOf(fecId);
  return entry;
}

}  // namespace bench
