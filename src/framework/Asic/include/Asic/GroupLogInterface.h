// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/NeededEntry.h"
#include "Zev/NotifyingObject.h"

namespace Asic {

// Where an entry log announces its versions to its group.
class GroupLogInterface : public Zev::NotifyingObject {
 public:
  // The table's operation at that log version needs the given table versions applied first; null:
  // none. Marks work for the hardware side; nothing is applied inside the call.
  virtual void addGroupLogEntry(SwTableId tableId, LogVersion version,
                                const Pell::Ptr<NeededEntry const>& neededEntry) = 0;
  // Whether tables may go on committing requests: an operation that needs many table versions takes
  // more room here than in its table's own log. When it may again, the resolver looks again.
  virtual bool requestsFit() const { return true; }
  // Whether one more operation that needs these versions (null: none) can be announced.
  virtual bool hasRoomFor(const Pell::Ptr<NeededEntry const>& /*neededEntry*/) const {
    return true;
  }
};

}  // namespace Asic
