// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <ctime>
#include <span>
#include <vector>

#include "records/FecRecords.h"

namespace bench {

// How much the benchmarks do: the full figures, or with LOAMFEC_BENCH_TINY in the environment just
// enough to test them.
struct Scale {
  std::uint32_t residentKeys;
  std::uint32_t batch;  // entries a timed batch; divides residentKeys, far below the log's capacity
  std::uint32_t logRows;  // of a full log
};
Scale scale();

// The endless sequence of writes that every contender is given: all resident keys in an order that
// is random but the same in every run, again and again, each write with a new mark.
//
// Kind: object.
// Invariants: the n-th batches of two workloads are equal.
class Workload {
 public:
  static constexpr std::uint64_t kSeed = 0x10A3FEC5;
  static constexpr std::uint32_t kInterfaces = 64;

  Workload();

  // Every key once, in the order of the keys, with its first mark.
  std::vector<LoamFec::FecTableDataModelEntry> everyEntry() const;
  // The next writes; valid until the next call.
  std::span<const LoamFec::FecTableDataModelEntry> nextBatch();

  // Writes handed out by nextBatch().
  std::uint64_t written() const { return written_; }
  // The mark (opaqueA) that the key carries when all of them are done. Keys are 1 to residentKeys.
  std::uint32_t markOf(std::uint32_t fecId) const { return marks_[fecId - 1]; }

  // The interface that the key's entry leaves through: one of kInterfaces, always the same.
  static Wirex::IntfId interfaceOf(std::uint32_t fecId);

 private:
  LoamFec::FecTableDataModelEntry entryOf(std::uint32_t fecId) const;

  std::vector<std::uint32_t> order_;
  std::vector<std::uint32_t> marks_;
  std::vector<LoamFec::FecTableDataModelEntry> batch_;
  std::uint64_t written_ = 0;
};

// Processor time of this thread, in seconds. Nothing that is measured waits, so on an idle machine
// this is the time that passes; on a busy one it leaves out what other processes take.
inline double processorSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// What the work takes of it.
template <typename Work>
double timed(Work&& work) {
  const double begin = processorSeconds();
  work();
  return processorSeconds() - begin;
}

}  // namespace bench
