// SPDX-License-Identifier: Apache-2.0

#include "agent/AsioEventLoop.h"

#include <utility>

#include <asio/post.hpp>

namespace Agent {

void AsioEventLoop::post(Task task) { asio::post(context_, std::move(task)); }

std::size_t AsioEventLoop::runUntilIdle() {
  context_.restart();
  return context_.run();
}

bool AsioEventLoop::runOne() {
  context_.restart();
  return context_.poll_one() > 0;
}

}  // namespace Agent
