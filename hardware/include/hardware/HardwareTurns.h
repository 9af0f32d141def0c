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
// inside the turn that applies. What is applied is reported to every unit's table. Every request
// for a hardware write is followed by a report. If there is nothing to apply, the report repeats
// the last versions, and answers the requests that need no version.
// Errors: the first exception that handlers throw out of a report reaches the loop when every table
// has been told. A handler may do anything but end the hardware side.
class HardwareTurns {
 public:
  // The approximate work of one turn that applies, in rows; see Asic::HardwareSide::step().
  static constexpr std::uint32_t kRowsPerTurn = 8192;
  // Versions of one table that one turn reports. If all of them are deletions, looking at them and
  // cleaning them up is the work of kRowsPerTurn rows.
  static constexpr std::uint64_t kVersionsPerReport =
      kRowsPerTurn /
      (1 + Asic::HardwareSide::kRowsOfACleanup + Asic::HardwareSide::kRowsOfADeletion);

  HardwareTurns(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
                const Pell::Ptr<Asic::OrderedSwTableStatus>& status, Asic::HardwareSide& hardware);
  HardwareTurns(const HardwareTurns&) = delete;
  HardwareTurns& operator=(const HardwareTurns&) = delete;
  ~HardwareTurns();

  // Makes turns that apply what waits, and that report what the hardware holds. Call it at a start
  // on existing state, and when hardware that refused a change can take it again. Without the call,
  // the change is tried again when something else is asked of the hardware.
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
