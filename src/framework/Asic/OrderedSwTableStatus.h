#pragma once

#include "Asic/Versions.h"
#include "Zev/NotifyingObject.h"

namespace Asic {

// Status of one software table, shared by the tables of all its units, the hardware side and the
// table's clients.
//
// Threads: the event loop's.
class OrderedSwTableStatus : public Zev::NotifyingObject {
 public:
  static constexpr const char* kTypeName = "Asic::OrderedSwTableStatus";
  static constexpr short kPendingHwWritesAttribute = 2;
  static constexpr short kSuspendAttribute = 3;

  explicit OrderedSwTableStatus(SwTableId tableId) : tableId_(tableId) {}

  const Zev::TypeRecord& fwkType() const override;

  SwTableId tableId() const { return tableId_; }

  // True while logged operations wait for the hardware.
  bool pendingHwWrites() const { return pendingHwWrites_; }
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
