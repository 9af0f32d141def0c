// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>

#include "Asic/GroupInterface.h"
#include "Pell/Publisher.h"
#include "Zev/EventLoop.h"
#include "hardware/SimulatedAsic.h"

namespace SimAsic {

// Runs a simulated ASIC on the agent's event loop: one turn applies, another reports.
//
// A turn that applies does the work of kRowsPerTurn rows. A turn that reports tells of every table,
// of each at most kVersionsPerReport versions more than it was told of before, and leaves the rest
// to the next turn: so the rows that a report cleans up, and the requests that it answers, are
// bounded as well. One deletion of a whole table, and the clean-up behind it, is one turn each
// however many rows the unit has: a report ends at the first one. The first report of a table of
// which the agent has nothing on record goes all the way in one turn; the log is then cleaned up by
// one walk over it, whatever the version.
//
// Kind: object with identity.
// Ownership: refers to the ASIC and the loop, which outlive it; holds the group and the status.
// Threads: the event loop's.
// Invariants: nothing is applied inside the call that logs an operation, and nothing is reported
// inside the turn that applies. What is applied is reported to every unit's table. Whenever a
// hardware write is asked for, a report follows, of the last versions if there is nothing to apply:
// it answers what needs no version.
// Errors: what a handler throws out of a report reaches the loop when every table has been told; of
// several exceptions the first. A handler may do anything but end the hardware side.
class HardwareSide {
 public:
  // About the work of one turn that applies, in rows; see SimulatedAsic::step().
  static constexpr std::uint32_t kRowsPerTurn = 8192;
  // Versions of one table that one turn reports: as many as have a clean-up of that work, if each
  // is a deletion, and are looked at before.
  static constexpr std::uint64_t kVersionsPerReport =
      kRowsPerTurn / (1 + SimulatedAsic::kRowsOfACleanup + SimulatedAsic::kRowsOfADeletion);

  HardwareSide(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupInterface>& group,
               const Pell::Ptr<Asic::OrderedSwTableStatus>& status, SimulatedAsic& asic);
  HardwareSide(const HardwareSide&) = delete;
  HardwareSide& operator=(const HardwareSide&) = delete;
  ~HardwareSide();

  // Takes up what is there, in turns of its own: applies what waits, and reports what the ASIC
  // holds. For a start on existing state.
  void resume() { apply_.mark(); }

 private:
  void applySome();
  void reportApplied();
  Asic::LogVersion nextToReport(Asic::TableVersion applied) const;

  Pell::Ptr<Asic::GroupInterface> group_;
  Pell::Ptr<Asic::OrderedSwTableStatus> status_;
  SimulatedAsic& asic_;
  std::map<Asic::SwTableId, Asic::LogVersion> reported_;  // by this object
  Zev::DeferredTurn apply_;
  Zev::DeferredTurn report_;
  Pell::Subscriber groupLogSubscriber_;
  Pell::Subscriber statusSubscriber_;
};

}  // namespace SimAsic
