// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

#include <asio/io_context.hpp>

#include "Zev/EventLoop.h"

namespace Agent {

// The platform's event loop over Asio, so that sockets, signals and timers of the agent run on the
// one loop that everything runs on.
//
// Threads: run() on one thread; post() from that thread.
class AsioEventLoop : public Zev::EventLoop {
 public:
  void post(Task task) override;

  // Runs turns until none is posted, and returns how many it ran. May be called again.
  std::size_t runUntilIdle();
  // Runs the oldest turn; false when there was none.
  bool runOne();

  asio::io_context& context() { return context_; }

 private:
  asio::io_context context_{1};
};

}  // namespace Agent
