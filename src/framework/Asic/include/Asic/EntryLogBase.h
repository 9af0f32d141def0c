// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/GroupLogInterface.h"
#include "Vanta/EntityManager.h"

namespace Asic {

// Base of a table's entry log: what it belongs to, and the versions it hands out.
//
// Threads: the event loop's.
class EntryLogBase : public Zev::PtrInterface {
 public:
  SwTableId tableId() const { return tableId_; }
  const Pell::Ptr<Vanta::EntityManager>& entityManager() const { return entityManager_; }
  const Pell::Ptr<GroupLogInterface>& groupLogInterface() const { return groupLogInterface_; }

  // The last version handed out; 0 for a new log.
  LogVersion tableVersion() const { return tableVersion_; }

 protected:
  EntryLogBase(SwTableId tableId, const Pell::Ptr<Vanta::EntityManager>& entityManager,
               const Pell::Ptr<GroupLogInterface>& groupLogInterface);

  void tableVersionIs(LogVersion version) { tableVersion_ = version; }
  // Raises tableVersion by the increment and returns the new value.
  LogVersion tableVersionInc(LogVersion increment);

 private:
  SwTableId tableId_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<GroupLogInterface> groupLogInterface_;
  LogVersion tableVersion_;
};

}  // namespace Asic
