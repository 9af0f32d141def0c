// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/FecAgent.h"
#include "replay/Replayer.h"

namespace Replay {

// The findings of an agent that was started on the state folder of a killed one.
struct RestartReport {
  std::uint64_t answered = 0;         // requests that the killed agent had answered
  std::uint64_t lost = 0;             // keys whose last answer does not hold any more
  std::uint64_t versionAnswered = 0;  // highest log version among them
  std::uint64_t versionFound = 0;     // at which the new agent's log goes on
  std::uint64_t entries = 0;          // restored, over all units
  std::chrono::nanoseconds time{0};   // from the start of the new agent until it has nothing to do
  Asic::Resynchronisation hardware;   // how the hardware's content differed from the tables
  bool hardwareEqual = false;         // and that it does not any more

  bool nothingLost() const { return lost == 0 && versionFound >= versionAnswered && hardwareEqual; }
};

// An agent in a child process that is going to kill itself, seen from the process that will take
// its place.
//
// The parent hears of every request and answer through a pipe. Its hardware follows the state
// folder, and outlives the agent with the content that it has at the kill.
struct KilledAgent {
  std::vector<ObservedRequest> observed;  // in their order
  std::size_t stage = 0;                  // that the last of them belongs to
  std::unique_ptr<Asic::HardwareSide> hardware;
};

// The work of the child. It passes each request and answer to `tell`, with the present stage of the
// work; `tell` does not return from the answer at which the child is killed.
using ChildWork =
    std::function<void(const std::function<void(std::size_t stage, const ObservedRequest&)>& tell)>;

// Runs `work` in a child process, which SIGKILL ends at the answer of that number. Nothing may be
// mounted for writing in this process meanwhile. An exception of the work is thrown here, as
// ZevGlint::MountException or std::runtime_error. If the work ends before that answer,
// std::runtime_error is thrown.
KilledAgent runUntilKilled(const std::string& stateFolder, const std::vector<Asic::UnitId>& units,
                           std::uint64_t answers, const Asic::HardwareMaker& makeHardware,
                           const ChildWork& work);

// Starts an agent on what the killed one left, with its hardware, and compares. Hardware is made if
// the killed one had none.
std::unique_ptr<Agent::FecAgent> restart(const std::string& stateFolder,
                                         const std::vector<Asic::UnitId>& units,
                                         const Asic::HardwareMaker& makeHardware,
                                         KilledAgent killed, RestartReport& report);

}  // namespace Replay
