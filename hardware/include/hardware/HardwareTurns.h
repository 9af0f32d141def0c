// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>

#include "Asic/GroupInterface.h"
#include "Asic/HardwareSide.h"
#include "Pell/Publisher.h"
#include "Zev/EventLoop.h"

namespace Hardware {

// Runs a hardware side on the agent's event loop: one turn applies, another reports.
//
// A turn that applies does the work of kRowsPerTurn rows. A turn that reports covers every table.
// For each it reports at most kVersionsPerReport versions more than before, and leaves the rest to
// the next turn. So the rows that a report cleans up, and the requests that it answers, are bounded
// as well. The deletion of a whole table takes one turn, and so does the clean-up behind it,
// however many rows the unit has: a report ends at the first such deletion. The first report of a
// table for which the agent has nothing on record is made in one turn; one walk then cleans up the
// log, whatever the version.
//
// Kind: object with identity.
// Ownership: refers to the hardware side and the loop, which outlive it; holds the group and the
// status.
// Threads: the event loop's.
// Invariants: nothing is applied inside the call that logs an operation, and nothing is reported
// inside the turn that applies. What is applied is reported to every unit's table. Whenever a
// hardware write is asked for, a report follows, of the last versions if there is nothing to apply:
// it answers what needs no version.
// Errors: what a handler throws out of a report reaches the loop when every table has been told; of
// several exceptions the first. A handler may do anything but end the hardware side.
class HardwareTurns {
 public:
  // About the work of one turn that applies, in rows; see Asic::HardwareSide::step().
  static constexpr std::uint32_t kRowsPerTurn = 8192;
  // Versions of one table that one turn reports. If all of them are deletions, looking at them and
  // cleaning them up is as much work.
  static constexpr std::uint64_t kVersionsPerReport =
      kRowsPerTurn /
      (1 + Asic::HardwareSide::kRowsOfACleanup + Asic::HardwareSide::kRowsOfADeletion);

  HardwareTurns(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
                const Pell::Ptr<Asic::OrderedSwTableStatus>& status, Asic::HardwareSide& hardware);
  HardwareTurns(const HardwareTurns&) = delete;
  HardwareTurns& operator=(const HardwareTurns&) = delete;
  ~HardwareTurns();

  // Takes up what is there, in turns of its own: applies what waits, and reports what the hardware
  // holds. For a start on existing state, and for whoever learns that hardware that took no change
  // would take one now: until then that is tried again when something else is asked of it.
  void resume() { apply_.mark(); }

 private:
  void applySome();
  void reportApplied();
  Asic::LogVersion nextToReport(Asic::TableVersion applied) const;

  Pell::Ptr<Asic::GroupInterface> group_;
  Pell::Ptr<Asic::OrderedSwTableStatus> status_;
  Asic::HardwareSide& hardware_;
  std::map<Asic::SwTableId, Asic::LogVersion> reported_;  // by this object
  Zev::DeferredTurn apply_;
  Zev::DeferredTurn report_;
  Pell::Subscriber groupLogSubscriber_;
  Pell::Subscriber statusSubscriber_;
};

}  // namespace Hardware
