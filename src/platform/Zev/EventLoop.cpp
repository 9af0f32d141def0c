// SPDX-License-Identifier: Apache-2.0

#include "Zev/EventLoop.h"

#include <utility>

namespace Zev {

EventLoop::~EventLoop() = default;

DeferredTurn::DeferredTurn(EventLoop& loop, EventLoop::Task work)
    : loop_(loop), state_(std::make_shared<State>(State{std::move(work)})) {}

DeferredTurn::~DeferredTurn() { state_->alive = false; }

void DeferredTurn::mark() {
  if (state_->marked) {
    return;
  }
  loop_.post([state = state_] {
    state->marked = false;
    if (state->alive) {
      state->work();
    }
  });
  state_->marked = true;  // a turn that could not be posted can be asked for again
}

}  // namespace Zev
