#include "Asic/OrderedSwTableSet.h"

namespace Asic {

const Zev::TypeRecord& OrderedSwTableSet::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

void OrderedSwTableSet::swTableIs(Pell::Ptr<OrderedSwTable> const& table) {
  tables_.insertOrAssign(table->unitId(), table);
}

Pell::Ptr<OrderedSwTable> OrderedSwTableSet::swTable(UnitId unitId) const {
  const auto* held = tables_.find(unitId);
  return held == nullptr ? nullptr : *held;
}

void OrderedSwTableSet::tableStatusVersion(LogVersion version) const {
  tables_.forEach([version](UnitId, const Pell::Ptr<OrderedSwTable>& held) {
    const Pell::Ptr<OrderedSwTable> table = held;
    table->tableStatusVersion(version);
  });
}

bool OrderedSwTableSet::pendingHwWrites() const {
  bool pending = false;
  tables_.forEach([&pending](UnitId, const Pell::Ptr<OrderedSwTable>& table) {
    pending = pending || table->status()->pendingHwWrites();
  });
  return pending;
}

}  // namespace Asic
