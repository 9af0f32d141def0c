// SPDX-License-Identifier: Apache-2.0

#include "Asic/OrderedSwTable.h"

#include <utility>

namespace Asic {

OrderedSwTable::OrderedSwTable(Pell::Ptr<CanonicalTableName const> tableName, SwTableId tableId,
                               UnitId unitId, Pell::Ptr<OrderedSwTableStatus> status)
    : SwTableBase(fmt::format("{} unit {}", tableId, unitId)),
      tableName_(std::move(tableName)),
      tableId_(tableId),
      unitId_(unitId),
      status_(std::move(status)) {}

}  // namespace Asic
