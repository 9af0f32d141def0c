// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Zev/Count.h"

namespace Zev {

// Counts the live objects of one type, so that a test can show that none is left.
//
// Kind: object with static lifetime, one per type, made on first use through trackerOf<T>().
// Threads: as the counts of the objects: one, in thread-safe-pointer mode any number. A type is
// first used on the loop's thread.
class AllocationTracker {
 public:
  explicit AllocationTracker(std::string_view typeName);
  AllocationTracker(const AllocationTracker&) = delete;
  AllocationTracker& operator=(const AllocationTracker&) = delete;

  void allocated() { made_.raise(); }
  void released() { gone_.raise(); }

  std::string_view typeName() const { return typeName_; }
  // Objects that exist now.
  std::int64_t live() const { return made_.value() - gone_.value(); }
  // Objects ever made.
  std::int64_t total() const { return made_.value(); }

  // Every tracker that exists, in the order in which the types were first used.
  static const std::vector<const AllocationTracker*>& all();
  // Live objects of all types together.
  static std::int64_t liveOfAllTypes();

 private:
  std::string_view typeName_;
  Count<std::int64_t> made_{0};
  Count<std::int64_t> gone_{0};
};

}  // namespace Zev
