// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/AgentRestart.h"
#include "replay/Replayer.h"
#include "replay/ReportText.h"

namespace Replay {

// The plan of one `fecd replay`.
struct Plan {
  struct LabelledSnapshot {
    std::string label;
    Captures::Snapshot snapshot;
  };

  std::string stateFolder;
  std::vector<Asic::UnitId> units;
  Asic::HardwareMaker makeHardware;  // what the agents drive
  bool reset = false;                // begin with empty tables
  std::vector<LabelledSnapshot> snapshots;
  // Links to take down and up again after each snapshot but the last, as far as they are up then.
  std::vector<Wirex::IntfId> flaps;
  // Kill the agent after that many answers, and start it again.
  std::optional<std::uint64_t> killAfter;
  bool showProgress = false;
};

// Carries the plan out. With killAfter the first agent is a child process; `snapshots` of the
// outcome then begin with the one in which it was killed. Throws ZevGlint::MountException, and
// std::runtime_error if the plan ends before that many answers.
Outcome carryOut(const Plan& plan);

}  // namespace Replay
