// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/Versions.h"
#include "Zev/NotifyingObject.h"

namespace Asic {

// Status of one software table, shared by the tables of all its units, the hardware side and the
// table's clients.
//
// Threads: the event loop's.
// Invariants: an observer hears of a flag when it has its new value. Observers may drop the last
// reference to the status. An exception of an observer goes to the caller that set the flag, and
// later observers do not hear of the change.
class OrderedSwTableStatus : public Zev::Typed<OrderedSwTableStatus, Zev::NotifyingObject> {
 public:
  static constexpr const char* kTypeName = "Asic::OrderedSwTableStatus";
  // Published when the flag has changed.
  static constexpr short kPendingHwWritesAttribute = 2;
  // Published when the flag has changed.
  static constexpr short kSuspendAttribute = 3;
  // An event, published by every pendingHwWritesIs(true), even when the flag is up already: a
  // hardware write was requested, and the requester waits for the next report.
  static constexpr short kHwWriteAskedAttribute = 4;

  explicit OrderedSwTableStatus(SwTableId tableId) : tableId_(tableId) {}

  static Zev::TypeRecord typeRecord();

  SwTableId tableId() const { return tableId_; }

  // True while logged operations wait for the hardware.
  bool pendingHwWrites() const { return pendingHwWrites_; }
  // Publishes the flag, if it changes, and then the event, if it is true. The event comes also
  // when an observer of the flag throws.
  void pendingHwWritesIs(bool pending);

  // True while clients should hold requests back. Advisory: no request is refused.
  bool suspend() const { return suspend_; }
  void suspendIs(bool suspend);

 private:
  SwTableId tableId_;
  bool pendingHwWrites_ = false;
  bool suspend_ = false;
};

}  // namespace Asic
