// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fec_model {

// What a run is meant to meet. The model counts them, because it knows why something happened.
enum class Situation : std::uint8_t {
  sameKeyChain,            // a third request of a key while two of it are pending
  overtaken,               // a newer request of a key committed before an older one
  failedDependency,        // a commit refused because of what it depends on
  waitingDependency,       // a request looked at while its dependency was not resolved
  failedResource,          // a write refused because of its resource
  failedResourceLogged,    // a write logged all the same, as its helper asked
  unresolvedResource,      // a write looked at while its resource was not resolved
  logFull,                 // a request looked at while the log had no room
  suspendOn,               // the suspend sign went up
  suspendOff,              // and down
  splitWalk,               // a resolver walk that took more than one turn
  cursorMovedBack,         // a report below the cleanup's cursor
  reportRepeated,          // a report of the version that was reported last
  reportBehind,            // a report that left handles waiting
  reportRefused,           // a report of a version that was never logged
  ignoredDelete,           // a remove of a key without a row
  deletedAgain,            // a remove of a key whose row is marked deleted already
  restartWithPending,      // a restart while requests waited in the resolver
  restartWithUnapplied,    // a restart while logged operations waited for the hardware
  restartWithChanged,      // a restart that logged entries again
  orphanedDeletion,        // a deletion's log row cleaned while its unit had no table
  ringQueueGrown,          // more handles in the log than the queue's first array holds
  tableDelete,             // a remove-all committed
  tableDeleteThenWrite,    // a key written between a remove-all's log version and its cleanup
  failedRemoveAll,         // a remove-all refused: committed entries stay hidden
  hiddenByRemoveAll,       // a committed entry that a read by key finds and a count does not
  reset,                   // a table cleared with its resources kept
  clearedReleasing,        // a table cleared with its resources released
  staleUsage,              // a resource change for a key that is not committed any more
  redriven,                // an entry logged again because its resource changed
  redrivenUnchanged,       // an entry not logged again because nothing changed
  redrivenUnresolved,      // an entry not logged again because its resource is unresolved
  coalescedChange,         // a resource change that replaced one nobody had heard of
  liveChange,              // a change that the resource table published in its own time
  liveChangeHeldBack,      // a wish of the owner that the resource table held back
  destinationFreed,        // a replaced destination that the resource table let go
  severalUnitsRedriven,    // one change that reached tables of several units
  lastUserReleased,        // a resource released by its last user
  handlerRequested,        // a request made by a response handler
  handlerRequestedInWalk,  // the same inside a commit
  nestedReport,            // a report made by a response handler
  hookRequested,           // a request made by a helper hook
  walkAcrossTurns,         // an iteration that was open while something was committed
  walkMovedToCommitted,    // an iteration owed a pending entry that was committed meanwhile
  count
};

// How often each was met.
//
// Kind: value type.
class Situations {
 public:
  static constexpr std::size_t kCount = static_cast<std::size_t>(Situation::count);

  void met(Situation situation) { ++counts_[static_cast<std::size_t>(situation)]; }
  std::uint64_t times(Situation situation) const {
    return counts_[static_cast<std::size_t>(situation)];
  }
  void add(const Situations& other);

  static const char* name(Situation situation);
  // The names of those that were never met.
  std::vector<std::string> missing() const;
  // One line each, in the order of the enumeration.
  std::string report() const;

 private:
  std::array<std::uint64_t, kCount> counts_{};
};

}  // namespace fec_model
