// SPDX-License-Identifier: Apache-2.0

// SimulatedAsic says up to where, and applies what comes behind.
//
// Rows decide before the log is asked, because what a row decides is settled when it is looked at:
// the writer may change the row afterwards, and its change then comes from the log. Asked first,
// the log would leave out a key whose row was still to decide, and by its turn the row might be
// above the limit.
//
// A row above the limit belongs to a change that the log will tell of, with one exception. A writer
// that was killed between configuration row and log row leaves a row whose version was never given
// to it for good: the next change takes the same version. Such a row is left over, nobody will
// speak for it, and so it decides as soon as nothing before it is blocked. While damage hides which
// versions have been given, no row is taken for one that is left over.

#include "hardware/Resynchroniser.h"

#include <algorithm>
#include <utility>

#include "Zev/Trace.h"

namespace SimAsic {

namespace {

constexpr const char* kClass = "Resynchroniser";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

// Free slots that a walk may pass at a time, when more of the budget is left.
constexpr std::uint64_t kSlotsAtATime = 1024;

bool isAbout(const LogRow& row, Asic::UnitId unitId, const HardwareUnit::Key& key) {
  return row.unitId() == unitId && ((row.operation() & LogRow::kTableDeleted) != 0 ||
                                    row.logEntry().key.fecId() == key.fecId());
}

}  // namespace

// The log cannot hold rows further below the limit than it has slots: its versions are consecutive.
Resynchroniser::Resynchroniser(HardwareUnits& units, LogMap& log, ResynchronisationRange range)
    : units_(&units),
      log_(&log),
      range_(range),
      looked_(units.begin()),
      cleared_(units.begin()),
      owed_(range.owed) {
  const std::uint64_t limit = range.limit.value();
  const std::uint64_t slots = log.slotCount();
  asked_ = std::max(range.applied.value(), limit > slots ? limit - slots : 0);
}

bool Resynchroniser::step(StepBudget& budget) {
  return lookAtRows(budget) && askTheLog(budget) && removeTheUnseen(budget);
}

// Configuration rows.

bool Resynchroniser::lookAtRows(StepBudget& budget) {
  for (; looked_ != units_->end(); ++looked_) {
    if (!lookAtRowsOf(looked_->first, looked_->second, budget)) {
      return false;
    }
    at_.reset();
  }
  return true;
}

bool Resynchroniser::lookAtRowsOf(Asic::UnitId unitId, HardwareUnit& unit, StepBudget& budget) {
  ConfigMap& rows = unit.rows();
  if (!at_) {
    at_ = rows.beforeFirst();
  }
  Sighting& sighting = sightings_[unitId];
  while (!budget.spent()) {
    const auto slots = static_cast<std::uint32_t>(std::min(budget.left(), kSlotsAtATime));
    bool paused = false;
    if (!Glint::guarded(rows, [&] { paused = !at_->advanceWithin(slots); })) {
      sighting.sawAll = false;
      ZEV_TRACE(trace, 3, kClass,
                "unitId: {} has damaged rows: no key is taken off for want of one", unitId);
      if (!at_->canGoOn()) {
        return true;
      }
    } else if (at_->valid()) {
      lookAt(unitId, unit, at_->row());
    } else if (!paused) {
      return true;
    }
  }
  return false;
}

// A row that has gone and come back in another slot is met twice: the first look counts.
void Resynchroniser::lookAt(Asic::UnitId unitId, HardwareUnit& unit, const ConfigRow& row) {
  Decided& decided = sightings_[unitId].decided;
  if (decided.has(row.key())) {
    return;
  }
  const bool decides = this->decides(unitId, row);
  decided.insertOrAssign(row.key(), decides);
  ZEV_TRACE(trace, 9, kClass, "unitId: {} key: {} version: {} decides: {}", unitId, row.key(),
            row.version(), decides);
  if (decides) {
    makeEqual(unit, row);
  } else {
    undecidedKeys_ = true;
  }
}

bool Resynchroniser::decides(Asic::UnitId unitId, const ConfigRow& row) {
  if (row.version() <= range_.limit) {
    return true;
  }
  if (!range_.writerAtRest) {
    return false;
  }
  const std::optional<std::uint64_t> handedOut = guardedScratchpad(*log_);
  if (!handedOut) {
    owe(Asic::LogVersion());
    return false;
  }
  if (!isLeftOver(unitId, row, Asic::LogVersion(*handedOut))) {
    return false;
  }
  if (range_.blocked) {
    owe(std::min(row.version(), Asic::LogVersion(*handedOut)));
  }
  return !range_.blocked;
}

// Not before something beyond the limit has been applied.
void Resynchroniser::owe(Asic::LogVersion version) {
  owed_ = std::max(
      {owed_.value_or(Asic::LogVersion()), version, Asic::LogVersion(range_.limit.value() + 1)});
  ZEV_TRACE(trace, 3, kClass, "another resynchronisation follows when version: {} is applied",
            *owed_);
}

bool Resynchroniser::isLeftOver(Asic::UnitId unitId, const ConfigRow& row,
                                Asic::LogVersion handedOut) const {
  if (row.version() > handedOut) {
    return true;
  }
  const auto logRow = Glint::guardedRow(*log_, row.version());
  return logRow && !isAbout(*logRow, unitId, row.key());
}

void Resynchroniser::makeEqual(HardwareUnit& unit, const ConfigRow& row) {
  if (row.isDeleted()) {
    found_.removed += unit.table.erase(row.key()) ? 1U : 0U;
    return;
  }
  const HardwareUnit::Entry* held = unit.table.find(row.key());
  if (held == nullptr) {
    ++found_.added;
  } else if (HardwareUnit::Entry::isEq(*held, row.logEntry())) {
    ++found_.unchanged;
    return;
  } else {
    ++found_.changed;
  }
  unit.table.insertOrAssign(row.key(), row.logEntry());
}

// The log.

// Without a key that is not decided it has nothing to say.
bool Resynchroniser::askTheLog(StepBudget& budget) {
  const bool damage = std::any_of(sightings_.begin(), sightings_.end(),
                                  [](const auto& sighting) { return !sighting.second.sawAll; });
  if (!undecidedKeys_ && !damage) {
    return true;
  }
  while (asked_ < range_.limit.value()) {
    if (budget.spent()) {
      return false;
    }
    if (const auto row = Glint::guardedRow(*log_, Asic::LogVersion(++asked_))) {
      applyToTheUndecided(*row, budget);
    }
  }
  return true;
}

void Resynchroniser::applyToTheUndecided(const LogRow& row, StepBudget& budget) {
  const auto unit = units_->find(row.unitId());
  if (unit == units_->end()) {
    return;
  }
  HardwareUnit::Table& table = unit->second.table;
  if ((row.operation() & LogRow::kTableDeleted) != 0) {
    budget.charge(table.size());
    table.forEach([&](const HardwareUnit::Key& held, const HardwareUnit::Entry&) {
      if (const HardwareUnit::Key key = held; !isDecided(row.unitId(), key)) {
        table.erase(key);
      }
    });
  } else if (isDecided(row.unitId(), row.logEntry().key)) {
    return;
  } else if ((row.operation() & LogRow::kEntryDeleted) != 0) {
    table.erase(row.logEntry().key);
  } else {
    table.insertOrAssign(row.logEntry().key, row.logEntry());
  }
}

bool Resynchroniser::isDecided(Asic::UnitId unitId, const HardwareUnit::Key& key) const {
  const auto sighting = sightings_.find(unitId);
  const bool* decided = sighting == sightings_.end() ? nullptr : sighting->second.decided.find(key);
  return decided != nullptr && *decided;
}

// What nobody has committed.

bool Resynchroniser::removeTheUnseen(StepBudget& budget) {
  for (; cleared_ != units_->end(); ++cleared_, next_ = 0) {
    const Sighting& sighting = sightings_[cleared_->first];
    HardwareUnit::Table& table = cleared_->second.table;
    for (; sighting.sawAll && table.within(next_); ++next_) {
      if (budget.spent()) {
        return false;
      }
      budget.charge(1);
      const auto* element = table.elementAt(next_);
      if (element != nullptr && !sighting.decided.has(element->key)) {
        const HardwareUnit::Key key = element->key;
        table.erase(key);
        ++found_.removed;
      }
    }
  }
  return true;
}

}  // namespace SimAsic
