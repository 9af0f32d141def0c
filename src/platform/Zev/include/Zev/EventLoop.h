// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>

namespace Zev {

// The one event loop on which everything runs.
//
// Ownership: owned by the program; outlives what posts to it.
// Threads: post() from the loop's own thread only, unless an implementation says more.
class EventLoop {
 public:
  using Task = std::function<void()>;

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  virtual ~EventLoop();

  // Runs the task in a turn of its own, after those posted before it; never inside this call.
  virtual void post(Task task) = 0;

 protected:
  EventLoop() = default;
};

// Work that any number of calls may request and that one turn then does.
//
// Ownership: a member of the object whose work it is; refers to the loop. A turn still posted when
// it dies does nothing.
// Threads: those of the loop.
class DeferredTurn {
 public:
  DeferredTurn(EventLoop& loop, EventLoop::Task work);
  DeferredTurn(const DeferredTurn&) = delete;
  DeferredTurn& operator=(const DeferredTurn&) = delete;
  ~DeferredTurn();

  // Asks for a turn; many calls before it runs make one turn, a call during it makes another.
  void mark();
  bool marked() const { return state_->marked; }

 private:
  struct State {
    EventLoop::Task work;
    bool marked = false;
    bool alive = true;
  };

  EventLoop& loop_;
  std::shared_ptr<State> state_;
};

}  // namespace Zev
