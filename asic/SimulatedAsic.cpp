// A step first takes the group rows that are new, table by table, then applies each table's rows as
// far as their needs allow, round and round until nothing moves or the budget is spent.
//
// The writer stores a change's configuration row first and its group row last, and raises the
// scratchpads in between. A resynchronisation therefore reads them backwards: group sequence,
// log version, configuration rows. Whatever happens meanwhile is either in the rows that it read or
// still ahead of it in the group log, and applying an operation twice changes nothing.

#include "asic/SimulatedAsic.h"

#include <utility>

#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "records/FecTableConstants.h"

namespace SimAsic {

namespace {

using LoamFec::FecTableConstants;
using LogRow = LoamFec::FecTableDataModelLogGlintEntry;
using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;

template <typename Entity>
Pell::Ptr<Entity> mountForReading(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                                  const Pell::String& path, std::uint32_t capacity) {
  return ZevSharedMem::mountEntity<Entity>(entityManager, path, ZevGlint::ZevGlintType::reader,
                                           capacity);
}

// 0, which promises nothing, when it is damaged.
template <typename Map>
std::uint64_t guardedScratchpad(Map& map) {
  std::uint64_t value = 0;
  Glint::guarded(map, [&] { value = map.control().scratchpad(); });
  return value;
}

}  // namespace

SimulatedAsic::SimulatedAsic(const Pell::String& stateFolder,
                             const std::vector<Asic::UnitId>& unitIds)
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(stateFolder)),
      groupLog_(mountForReading<Asic::GroupLogGlint>(
          entityManager_,
          Asic::Constants::groupLogGlintPath(FecTableConstants::kAgentName,
                                             FecTableConstants::kGroupName),
          Asic::GroupLogGlint::kCapacity)),
      log_(mountForReading<LoamFec::FecTableDataModelEntryLogGlint>(
          entityManager_,
          Asic::Constants::tableEntryLogGlintPath(FecTableConstants::kGroupName,
                                                  FecTableConstants::kAgentName,
                                                  FecTableConstants::kTableName),
          FecTableConstants::kEntryLogCapacity)) {
  for (const Asic::UnitId unitId : unitIds) {
    units_[unitId].config = mountForReading<LoamFec::FecTableDataModelConfigGlint>(
        entityManager_, FecTableConstants::configGlintPath(unitId),
        FecTableConstants::kConfigCapacity);
  }
  resynchronise();
}

Resynchronisation SimulatedAsic::resynchronise() {
  lastTaken_ = guardedScratchpad(groupLog_->groupLog());
  const Asic::LogVersion version(guardedScratchpad(log_->entryLogConfig()));
  for (auto& [tableId, rows] : waiting_) {
    rows.clear();
  }
  Resynchronisation result;
  for (auto& [unitId, unit] : units_) {
    resynchroniseUnit(unit, result);
  }
  Asic::LogVersion& applied = applied_[FecTableConstants::kTableId];
  applied = std::max(applied, version);
  return result;
}

void SimulatedAsic::resynchroniseUnit(Unit& unit, Resynchronisation& result) {
  HardwareTable wanted;
  (void)Glint::walkOverDamage(unit.config->swTableEntries(), [&](const ConfigRow& row) {
    if (!row.isDeleted()) {
      wanted.insertOrAssign(row.key(), row.logEntry());
    }
  });
  unit.table.forEach([&](const LoamFec::FecTableDataModelEntryKey& key, const auto&) {
    if (!wanted.has(key)) {
      const auto gone = key;
      unit.table.erase(gone);
      ++result.removed;
    }
  });
  wanted.forEach([&](const LoamFec::FecTableDataModelEntryKey& key,
                     const LoamFec::FecTableDataModelLogEntry& entry) {
    const auto* held = unit.table.find(key);
    if (held == nullptr) {
      ++result.added;
    } else if (LoamFec::FecTableDataModelLogEntry::isEq(*held, entry)) {
      ++result.unchanged;
      return;
    } else {
      ++result.changed;
    }
    unit.table.insertOrAssign(key, entry);
  });
}

bool SimulatedAsic::step(std::uint32_t budget) {
  takeGroupRows();
  bool moved = true;
  while (moved && budget > 0) {
    moved = false;
    for (auto& [tableId, rows] : waiting_) {
      moved = applyTable(rows, budget) || moved;
    }
  }
  return budget == 0;
}

// Rows stay until what they announce has been reported applied: one that is missing was damaged.
void SimulatedAsic::takeGroupRows() {
  const std::uint64_t last = guardedScratchpad(groupLog_->groupLog());
  while (lastTaken_ < last) {
    const auto row = Glint::guardedRow(groupLog_->groupLog(), lastTaken_ + 1);
    if (!row) {
      ++repairs_;
      resynchronise();
      return;
    }
    ++lastTaken_;
    waiting_[row->tableVersion().tableId()].push_back(*row);
  }
}

bool SimulatedAsic::needsAreApplied(const Asic::GroupLogRow& row) const {
  for (std::uint32_t i = 0; i < row.neededCount(); ++i) {
    const Asic::TableVersion needed = row.needed(i);
    if (appliedVersion(needed.tableId()) < needed.logVersion()) {
      return false;
    }
  }
  return true;
}

// True when at least one row of the table was applied.
bool SimulatedAsic::applyTable(Rows& rows, std::uint32_t& budget) {
  bool moved = false;
  while (!rows.empty() && budget > 0 && needsAreApplied(rows.front())) {
    const Asic::TableVersion target = rows.front().tableVersion();
    if (!applyUpTo(target, budget)) {
      return moved;
    }
    moved = true;
    if (!rows.empty() && rows.front().tableVersion() == target) {
      rows.pop_front();
    }
  }
  return moved;
}

// A version that was never announced is applied with the next one that was. False: the budget is
// spent before the target is reached.
bool SimulatedAsic::applyUpTo(Asic::TableVersion target, std::uint32_t& budget) {
  Asic::LogVersion& applied = applied_[target.tableId()];
  while (applied < target.logVersion()) {
    if (budget == 0) {
      return false;
    }
    --budget;
    const Asic::LogVersion next(applied.value() + 1);
    if (target.tableId() == FecTableConstants::kTableId && !applyVersion(next)) {
      ++repairs_;
      resynchronise();
      return true;
    }
    applied = next;
    ++operationsApplied_;
  }
  return true;
}

bool SimulatedAsic::applyVersion(Asic::LogVersion version) {
  const auto row = Glint::guardedRow(log_->entryLogConfig(), version);
  if (row) {
    applyRow(*row);
  }
  return row.has_value();
}

void SimulatedAsic::applyRow(const LogRow& row) {
  const auto unit = units_.find(row.unitId());
  if (unit == units_.end()) {
    return;
  }
  HardwareTable& table = unit->second.table;
  if ((row.operation() & LogRow::kTableDeleted) != 0) {
    table.clear();
  } else if ((row.operation() & LogRow::kEntryDeleted) != 0) {
    table.erase(row.logEntry().key);
  } else {
    table.insertOrAssign(row.logEntry().key, row.logEntry());
  }
}

Asic::LogVersion SimulatedAsic::appliedVersion(Asic::SwTableId tableId) const {
  const auto found = applied_.find(tableId);
  return found == applied_.end() ? Asic::LogVersion() : found->second;
}

const SimulatedAsic::HardwareTable* SimulatedAsic::hardwareTable(Asic::UnitId unitId) const {
  const auto found = units_.find(unitId);
  return found == units_.end() ? nullptr : &found->second.table;
}

}  // namespace SimAsic
