// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/DependencyEntryHandle.h"
#include "Zev/Entity.h"

namespace Asic {

// Base of every software table.
class SwTableBase : public Zev::Entity {
 public:
  using EntryState = Asic::EntryState;
  // The state of an operation that has succeeded.
  static constexpr EntryState success() { return EntryState::done; }

  // Handle of one operation of this table, as the table itself sees it.
  class EntryHandle : public DependencyEntryHandle {
   public:
    // Sets the state and has the operations that depend on this one looked at again, in a turn of
    // their own.
    void entryStateIs(EntryState state) { entryStateSet(state); }
  };

  Pell::String nameString() const override;
  // The first requests the hardware table, the second says that it exists; both do nothing by
  // default.
  virtual void doCreateHwTable();
  virtual void doCreateHwTableResponse();

 protected:
  using Zev::Entity::Entity;
};

}  // namespace Asic
