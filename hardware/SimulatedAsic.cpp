// SPDX-License-Identifier: Apache-2.0

#include "hardware/SimulatedAsic.h"

#include <algorithm>

#include <fmt/format.h>

#include "Pell/Assert.h"

namespace Hardware {

std::size_t SimulatedAsic::apply(std::span<const Change> changes) {
  fault_.clear();
  std::size_t done = 0;
  for (const Change& change : changes) {
    Table& table = tables_[{change.tableId, change.unitId}];
    switch (change.kind) {
      case Change::Kind::write:
        if (!write(table, change)) {
          return done;
        }
        break;
      case Change::Kind::remove:
        table.erase(change.key);
        break;
      case Change::Kind::removeAll:
        table.clear();
        break;
    }
    ++done;
  }
  return done;
}

bool SimulatedAsic::write(Table& table, const Change& change) {
  PELL_ASSERT(change.entry.size() <= kMaxEntryBytes, "change.entry.size() <= kMaxEntryBytes");
  if (table.size() >= capacity_ && !table.has(change.key)) {
    fault_ = fmt::format("unit {}: its table is full: {} of {} entries", change.unitId.value(),
                         table.size(), capacity_);
    return false;
  }
  Entry entry{};
  std::copy(change.entry.begin(), change.entry.end(), entry.begin());
  table.insertOrAssign(change.key, entry);
  return true;
}

bool SimulatedAsic::read(Asic::SwTableId tableId, Asic::UnitId unitId, std::uint64_t key,
                         std::span<std::byte> entry) const {
  PELL_ASSERT(entry.size() <= kMaxEntryBytes, "entry.size() <= kMaxEntryBytes");
  const Table* held = table(tableId, unitId);
  const Entry* found = held == nullptr ? nullptr : held->find(key);
  if (found == nullptr) {
    return false;
  }
  std::copy_n(found->begin(), entry.size(), entry.begin());
  return true;
}

std::size_t SimulatedAsic::keys(Asic::SwTableId tableId, Asic::UnitId unitId, Cursor& at,
                                std::span<std::uint64_t> keys) const {
  const Table* held = table(tableId, unitId);
  if (held == nullptr) {
    return 0;
  }
  std::size_t count = 0;
  auto slot = static_cast<Table::Cursor>(at);
  for (; count < keys.size() && held->within(slot); ++slot) {
    if (const Table::Element* element = held->elementAt(slot)) {
      keys[count++] = element->key;
    }
  }
  at = slot;
  return count;
}

std::uint32_t SimulatedAsic::entries(Asic::SwTableId tableId, Asic::UnitId unitId) const {
  const Table* held = table(tableId, unitId);
  return held == nullptr ? 0 : held->size();
}

const SimulatedAsic::Table* SimulatedAsic::table(Asic::SwTableId tableId,
                                                 Asic::UnitId unitId) const {
  const auto found = tables_.find({tableId, unitId});
  return found == tables_.end() ? nullptr : &found->second;
}

}  // namespace Hardware
