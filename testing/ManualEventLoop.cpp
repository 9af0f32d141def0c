// SPDX-License-Identifier: Apache-2.0

// A task is taken off the queue before it runs or is dropped: running it, and releasing what it
// holds, may post more.

#include "testing/ManualEventLoop.h"

#include <string>
#include <utility>

#include "Pell/Assert.h"

namespace testing_support {

ManualEventLoop::~ManualEventLoop() {
  while (!tasks_.empty()) {
    takeOldest();
  }
}

void ManualEventLoop::post(Task task) { tasks_.push_back(std::move(task)); }

bool ManualEventLoop::runOne() {
  PELL_ASSERT(!running_, "turns do not nest");
  if (tasks_.empty()) {
    return false;
  }
  struct Turn {
    explicit Turn(bool& flag) : running(flag) { running = true; }
    ~Turn() { running = false; }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool& running;
  };
  const Turn turn(running_);
  takeOldest()();
  return true;
}

std::size_t ManualEventLoop::runUntilIdle(std::size_t maxTurns) {
  std::size_t turns = 0;
  while (!tasks_.empty()) {
    PELL_ASSERT_MESSAGE(turns < maxTurns, "the loop becomes idle",
                        "still busy after " + std::to_string(maxTurns) + " turns");
    runOne();
    ++turns;
  }
  return turns;
}

ManualEventLoop::Task ManualEventLoop::takeOldest() {
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

}  // namespace testing_support
