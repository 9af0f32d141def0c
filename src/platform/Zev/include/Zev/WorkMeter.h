// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace Zev {

// Counts the rows of shared memory that this thread has touched: one for each row that is looked
// up, written or removed, and one for each slot that a walk passes. A turn compares two readings to
// keep its budget: unlike time, the count is the same on every machine.
//
// Kind: one counter per thread; it wraps at 2^64.
// Threads: each has its own.
class WorkMeter {
 public:
  static void add(std::uint64_t rows) { total_ += rows; }
  static std::uint64_t total() { return total_; }

 private:
  // The libraries that count are loaded with the program: no call to find the counter.
  [[gnu::tls_model("initial-exec")]] static inline constinit thread_local std::uint64_t total_ = 0;
};

// The work done since this was made, held against a budget.
//
// Kind: value type, used within one turn.
class WorkBudget {
 public:
  explicit WorkBudget(std::uint64_t rows) : start_(WorkMeter::total()), rows_(rows) {}

  std::uint64_t used() const { return WorkMeter::total() - start_; }
  bool spent() const { return used() >= rows_; }

 private:
  std::uint64_t start_;
  std::uint64_t rows_;
};

}  // namespace Zev
