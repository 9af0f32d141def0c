// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <deque>

#include "Zev/EventLoop.h"

namespace testing_support {

// Event loop whose turns a test runs by hand, so that what happens between two turns can be seen.
//
// Kind: object with identity.
// Ownership: owns the tasks posted to it; tasks that have not run when it ends are dropped.
// Threads: one.
// Invariants: tasks run in the order in which they were posted, and turns do not nest.
class ManualEventLoop : public Zev::EventLoop {
 public:
  // The bound of runUntilIdle() when the caller names none: far more turns than any test needs.
  static constexpr std::size_t kDefaultMaxTurns = 100'000;

  ManualEventLoop() = default;
  ~ManualEventLoop() override;

  void post(Task task) override;

  // Runs the oldest task; false when there was none.
  bool runOne();
  // Runs turns until nothing is posted, and returns how many. Asserts "the loop becomes idle" when
  // work remains after maxTurns turns: something posts itself for ever.
  std::size_t runUntilIdle(std::size_t maxTurns = kDefaultMaxTurns);

  // Tasks that are posted and have not begun.
  std::size_t pending() const { return tasks_.size(); }

 private:
  Task takeOldest();

  std::deque<Task> tasks_;
  bool running_ = false;
};

}  // namespace testing_support
