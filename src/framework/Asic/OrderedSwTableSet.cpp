// SPDX-License-Identifier: Apache-2.0

#include "Asic/OrderedSwTableSet.h"

#include "Zev/FirstException.h"
#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "OrderedSwTableSet";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

void OrderedSwTableSet::swTableIs(Pell::Ptr<OrderedSwTable> const& table) {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} unitId: {}", tableId_, table->unitId());
  tables_.insertOrAssign(table->unitId(), table);
}

void OrderedSwTableSet::swTableDel(UnitId unitId) {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} unitId: {}", tableId_, unitId);
  tables_.erase(unitId);
}

Pell::Ptr<OrderedSwTable> OrderedSwTableSet::swTable(UnitId unitId) const {
  const auto* held = tables_.find(unitId);
  return held == nullptr ? nullptr : *held;
}

void OrderedSwTableSet::tableStatusVersion(LogVersion version) const {
  ZEV_TRACE(trace, 8, kClass, "tableId: {} version: {}", tableId_, version);
  const Pell::Ptr<OrderedSwTableSet const> self(this);
  Zev::FirstException first;
  tables_.forEach([&](UnitId, const Pell::Ptr<OrderedSwTable>& held) {
    const Pell::Ptr<OrderedSwTable> table = held;
    first.from([&] { table->tableStatusVersion(version); });
  });
  first.rethrow();
}

bool OrderedSwTableSet::pendingHwWrites() const {
  bool pending = false;
  tables_.forEach([&pending](UnitId, const Pell::Ptr<OrderedSwTable>& table) {
    pending = pending || table->status()->pendingHwWrites();
  });
  return pending;
}

}  // namespace Asic
