// SPDX-License-Identifier: Apache-2.0

#include "PlainContenders.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <random>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "records/FecTableConstants.h"

namespace bench {

namespace {

constexpr Asic::TableVersion kNeeded{Asic::SwTableId(0x03010806), Asic::LogVersion(1)};

// Copies a row as bytes, and makes the compiler believe that somebody reads it.
template <typename Row>
void copyRow(Row& to, const Row& from) {
  std::memcpy(static_cast<void*>(&to), &from, sizeof from);
  benchmark::DoNotOptimize(to);
}

}  // namespace

std::vector<Rows> rowsOf(std::span<const LoamFec::FecTableDataModelEntry> entries,
                         std::uint64_t version) {
  const std::array needed{kNeeded};
  std::vector<Rows> rows;
  for (const LoamFec::FecTableDataModelEntry& entry : entries) {
    const Asic::LogVersion logged(version);
    rows.push_back({{entry.logEntry(), entry.resourceKeys(), logged, false},
                    {logged, LoamFec::FecTableDataModelLogGlintEntry::kEntryWritten,
                     Asic::UnitId(0), entry.logEntry()},
                    {version, {LoamFec::FecTableConstants::kTableId, logged}, needed}});
    ++version;
  }
  return rows;
}

RowCopies::RowCopies(const Workload& workload)
    : config_(scale().residentKeys), log_(scale().batch), group_(scale().batch) {
  for (const Rows& rows : rowsOf(workload.everyEntry(), 1)) {
    config_[rows.config.key().fecId() - 1] = rows.config;
  }
}

void RowCopies::prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) {
  batch_ = rowsOf(batch, version_ + 1);
}

void RowCopies::write() {
  for (std::size_t i = 0; i < batch_.size(); ++i) {
    const Rows& rows = batch_[i];
    copyRow(config_[rows.config.key().fecId() - 1], rows.config);
    copyRow(log_[i], rows.log);
    copyRow(group_[i], rows.group);
  }
}

Pell::String RowCopies::finding(const Workload& workload) const {
  for (const auto& row : config_) {
    if (row.logEntry().opaqueA != workload.markOf(row.key().fecId())) {
      return fmt::format("the row of {} is wrong", row.key());
    }
  }
  const bool logged = log_.back().version().value() == workload.written() &&
                      group_.back().sequence() == workload.written();
  return logged ? "" : "the last log rows are wrong";
}

OneMiss::OneMiss(const Workload& /*workload*/)
    : order_(scale().residentKeys), places_(scale().residentKeys) {
  std::iota(order_.begin(), order_.end(), 0U);
  std::mt19937_64 random(Workload::kSeed);
  std::shuffle(order_.begin(), order_.end(), random);
  for (std::size_t i = 0; i < order_.size(); ++i) {
    places_[order_[i]].next = order_[(i + 1) % order_.size()];
  }
  at_ = order_.front();
}

void OneMiss::write() {
  for (std::size_t look = 0; look < looks_; ++look) {
    at_ = places_[at_].next;
  }
  benchmark::DoNotOptimize(at_);
}

Pell::String OneMiss::finding(const Workload& workload) const {
  return at_ == order_[workload.written() % order_.size()] ? "" : "the way led elsewhere";
}

HeapRoad::HeapRoad(const Workload& workload) {
  for (const LoamFec::FecTableDataModelEntry& entry : workload.everyEntry()) {
    entries_.emplace(entry.key.fecId(), entry);
  }
}

void HeapRoad::write() {
  const Handler handler = [this](std::uint64_t) { ++answered_; };
  for (const LoamFec::FecTableDataModelEntry& entry : batch_) {
    requests_.push_back({entry, handler});
  }
  for (; !requests_.empty(); requests_.pop_front()) {
    Request& request = requests_.front();
    entries_[request.entry.key.fecId()] = request.entry;
    log_.push_back({++version_, request.entry, std::move(request.handler)});
  }
}

void HeapRoad::finish() {
  for (; !log_.empty(); log_.pop_front()) {
    log_.front().handler(log_.front().version);
  }
}

Pell::String HeapRoad::finding(const Workload& workload) const {
  if (answered_ != workload.written() || version_ != workload.written()) {
    return fmt::format("{} answers, version {} after {} writes", answered_, version_,
                       workload.written());
  }
  if (entries_.size() != scale().residentKeys) {
    return fmt::format("{} entries, {} there should be", entries_.size(), scale().residentKeys);
  }
  for (const auto& [fecId, entry] : entries_) {
    if (entry.opaqueA != workload.markOf(fecId)) {
      return fmt::format("the entry of {} is wrong", fecId);
    }
  }
  return {};
}

}  // namespace bench
