#pragma once

#include <cstdint>

#include "Asic/GroupInterface.h"
#include "Pell/Publisher.h"
#include "Zev/EventLoop.h"
#include "asic/SimulatedAsic.h"

namespace SimAsic {

// Runs a simulated ASIC on the agent's event loop: one turn applies, another reports.
//
// Kind: object with identity.
// Ownership: refers to the ASIC and the loop, which outlive it; holds the group and the status.
// Threads: the event loop's.
// Invariants: nothing is applied inside the call that logs an operation, and nothing is reported
// inside the turn that applies. What is applied is reported to every unit's table; when there is
// nothing to apply while operations wait for the hardware, the last versions are reported again.
class HardwareSide {
 public:
  // Operations applied in one turn.
  static constexpr std::uint32_t kOperationsPerTurn = 1024;

  HardwareSide(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
               const Pell::Ptr<Asic::OrderedSwTableStatus>& status, SimulatedAsic& asic);
  HardwareSide(const HardwareSide&) = delete;
  HardwareSide& operator=(const HardwareSide&) = delete;
  ~HardwareSide();

  // Reports what the ASIC holds, in a turn of its own: after a start on existing state.
  void reportAgain() { report_.mark(); }

 private:
  void applySome();
  void reportApplied();

  Pell::Ptr<Asic::GroupInterface> group_;
  Pell::Ptr<Asic::OrderedSwTableStatus> status_;
  SimulatedAsic& asic_;
  Zev::DeferredTurn apply_;
  Zev::DeferredTurn report_;
  Pell::Subscriber groupLogSubscriber_;
  Pell::Subscriber statusSubscriber_;
};

}  // namespace SimAsic
