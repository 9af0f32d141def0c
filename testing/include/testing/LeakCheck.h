// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>

#include <gtest/gtest.h>

#include "Zev/AllocationTracker.h"

namespace testing_support {

// Fails the running test when more objects of a type are alive at its end than at its beginning,
// and names the types.
//
// Kind: scope guard.
// Threads: those of the allocation trackers.
class LeakCheck {
 public:
  LeakCheck() {
    for (const Zev::AllocationTracker* tracker : Zev::AllocationTracker::all()) {
      liveBefore_[tracker] = tracker->live();
    }
  }
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;
  ~LeakCheck() {
    for (const Zev::AllocationTracker* tracker : Zev::AllocationTracker::all()) {
      const auto known = liveBefore_.find(tracker);  // absent: first used since
      const std::int64_t before = known == liveBefore_.end() ? 0 : known->second;
      if (tracker->live() > before) {
        ADD_FAILURE() << "leaked " << tracker->live() - before << " of " << tracker->typeName();
      }
    }
  }

 private:
  std::map<const Zev::AllocationTracker*, std::int64_t> liveBefore_;
};

// Base of test fixtures. The check comes after the members of a derived fixture have gone, so
// whatever a fixture holds is released by then.
class LeakCheckedTest : public ::testing::Test {
 private:
  LeakCheck leaks_;
};

}  // namespace testing_support
