// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/OrderedSwTable.h"
#include "Pell/HashMap.h"

namespace Asic {

// The software tables of all units of one table id.
//
// Ownership: holds a reference to each table.
class OrderedSwTableSet : public Zev::Typed<OrderedSwTableSet> {
 public:
  static constexpr const char* kTypeName = "Asic::OrderedSwTableSet";

  explicit OrderedSwTableSet(SwTableId tableId) : tableId_(tableId) {}

  SwTableId tableId() const { return tableId_; }

  // Adds the table under its unit, replacing the one that is there.
  void swTableIs(Pell::Ptr<OrderedSwTable> const& table);
  // Null when the unit has none.
  Pell::Ptr<OrderedSwTable> swTable(UnitId unitId) const;
  void swTableDel(UnitId unitId);

  // Reports the version to the table of every unit, in any order. Each table is held during its
  // call, so handlers may drop, replace and add tables (an added one may hear of this report or
  // not), report again, and drop the set. If tables throw, the first exception reaches the caller
  // when every table has been told.
  void tableStatusVersion(LogVersion version) const;
  // True while any table's status waits for the hardware.
  bool pendingHwWrites() const;

 private:
  static constexpr std::uint32_t kSalt = 0x2f6b41c9;

  SwTableId tableId_;
  Pell::HashMap<UnitId, Pell::Ptr<OrderedSwTable>, UnitIdHash<kSalt>> tables_;
};

}  // namespace Asic
