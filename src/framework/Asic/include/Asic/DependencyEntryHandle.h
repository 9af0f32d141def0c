// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/Versions.h"
#include "Zev/NotifyingObject.h"

namespace Asic {

// Handle of one operation, as another operation that depends on it sees it.
//
// Kind: object with identity.
// Ownership: held by the requester and by every operation that depends on it.
// Threads: the event loop's.
class DependencyEntryHandle : public Zev::NotifyingObject {
 public:
  // Published when the state has changed.
  static constexpr short kEntryStateAttribute = 1;

  EntryState entryState() const { return entryState_; }
  // The table version under which the operation was logged; version 0 until it is.
  virtual TableVersion entryTableVersion() const = 0;

 protected:
  // An equal state publishes nothing. Observers hear of the state once it is set; they only mark
  // work, and nothing reacts inside the call. An exception of an observer goes to the caller, and
  // the observers after it do not hear of the change.
  void entryStateSet(EntryState state);

 private:
  EntryState entryState_ = EntryState::notResolved;
};

}  // namespace Asic
