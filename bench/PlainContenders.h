// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

#include "Asic/GroupLogRows.h"
#include "Workload.h"
#include "records/FecSharedRows.h"

namespace bench {

// The three rows of one commit.
struct Rows {
  LoamFec::FecTableDataModelConfigGlintEntry config;
  LoamFec::FecTableDataModelLogGlintEntry log;
  Asic::GroupLogRow group;
};
// Those of each entry, under versions that rise from `version` on.
std::vector<Rows> rowsOf(std::span<const LoamFec::FecTableDataModelEntry> entries,
                         std::uint64_t version);

// The floor of a commit: the three rows, made beforehand, copied to where they belong. No index, no
// checksum, no protocol.
class RowCopies {
 public:
  explicit RowCopies(const Workload& workload);

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch);
  void write();
  void finish() { version_ += batch_.size(); }
  Pell::String finding(const Workload& workload) const;

 private:
  std::vector<LoamFec::FecTableDataModelConfigGlintEntry> config_;
  std::vector<LoamFec::FecTableDataModelLogGlintEntry> log_;
  std::vector<Asic::GroupLogRow> group_;
  std::vector<Rows> batch_;
  std::uint64_t version_ = 0;
};

// What a commit waits for once, unless it knows its key beforehand: a look at a place that follows
// from the one before, somewhere in as much memory as the configuration table has.
class OneMiss {
 public:
  explicit OneMiss(const Workload& workload);

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) { looks_ = batch.size(); }
  void write();
  void finish() {}
  Pell::String finding(const Workload& workload) const;

 private:
  struct Place {
    std::uint32_t next = 0;
    std::array<std::byte, 156> rest = {};  // bytes per row: slot, link and bucket head
  };
  static_assert(sizeof(Place) == 160);

  std::vector<std::uint32_t> order_;
  std::vector<Place> places_;
  std::uint32_t at_ = 0;
  std::size_t looks_ = 0;
};

// What the road would cost without shared memory, ordering and objects: a queue of requests, a map
// of entries, a log and a queue of handlers, all on the heap.
class HeapRoad {
 public:
  explicit HeapRoad(const Workload& workload);

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) { batch_ = batch; }
  void write();
  void finish();
  Pell::String finding(const Workload& workload) const;

 private:
  using Handler = std::function<void(std::uint64_t version)>;
  struct Request {
    LoamFec::FecTableDataModelEntry entry;
    Handler handler;
  };
  struct Logged {
    std::uint64_t version;
    LoamFec::FecTableDataModelEntry entry;
    Handler handler;
  };

  std::span<const LoamFec::FecTableDataModelEntry> batch_;
  std::deque<Request> requests_;
  std::unordered_map<std::uint32_t, LoamFec::FecTableDataModelEntry> entries_;
  std::deque<Logged> log_;
  std::uint64_t version_ = 0;
  std::uint64_t answered_ = 0;
};

}  // namespace bench
