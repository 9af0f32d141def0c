// SPDX-License-Identifier: Apache-2.0

// LogDrivenHardware says up to which version, and applies the operations behind it.
//
// Rows decide before the log is asked, because what a row decides is settled when it is looked at:
// the writer may change the row afterwards, and its change then comes from the log. Asked first,
// the log would leave out a key whose row was still to decide, and by its turn the row might be
// above the limit.
//
// A row above the limit belongs to a change that the log will announce, with one exception. A
// writer that was killed between configuration row and log row leaves a row whose version was never
// given to it for good: the next change takes the same version. No log row will announce such a
// leftover, and so it decides as soon as nothing before it is blocked. While damage hides which
// versions have been given, no row is taken for a leftover.
//
// A full ASIC gets no addition before all removals are done. If the additions kept their place
// among the rows, a refused addition would hold back for good the removals that make room for it.

#include "Resynchroniser.h"

#include <algorithm>
#include <utility>

#include "Zev/Trace.h"

namespace Hardware {

namespace {

constexpr const char* kClass = "Resynchroniser";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

// Free slots that a walk may pass at a time, when more of the budget is left.
constexpr std::uint64_t kSlotsAtATime = 1024;

bool isAbout(const LogRow& row, Asic::UnitId unitId, const FecKey& key) {
  return row.unitId() == unitId && ((row.operation() & LogRow::kTableDeleted) != 0 ||
                                    row.logEntry().key.fecId() == key.fecId());
}

}  // namespace

// The log cannot hold rows further below the limit than it has slots: its versions are consecutive.
Resynchroniser::Resynchroniser(const ConfigTables& units, LogMap& log, FecAsic& asic,
                               ResynchronisationRange range)
    : units_(&units),
      log_(&log),
      asic_(&asic),
      range_(range),
      looked_(units.begin()),
      cleared_(units.begin()),
      owed_(range.owed) {
  const std::uint64_t limit = range.limit.value();
  const std::uint64_t slots = log.slotCount();
  asked_ = std::max(range.applied.value(), limit > slots ? limit - slots : 0);
}

bool Resynchroniser::step(StepBudget& budget) {
  const bool isDone =
      lookAtRows(budget) && askTheLog(budget) && removeTheUnseen(budget) && addTheRest(budget);
  return !asic_->refused() && asic_->flush() && isDone;
}

// For one change more. False: the ASIC takes no more.
bool Resynchroniser::makeRoom() { return asic_->hasRoom() || asic_->flush(); }

// Configuration rows.

bool Resynchroniser::lookAtRows(StepBudget& budget) {
  for (; looked_ != units_->end(); ++looked_) {
    if (!lookAtRowsOf(looked_->first, looked_->second->swTableEntries(), budget)) {
      return false;
    }
    at_.reset();
  }
  return true;
}

bool Resynchroniser::lookAtRowsOf(Asic::UnitId unitId, ConfigMap& rows, StepBudget& budget) {
  Sighting& sighting = sightings_[unitId];
  if (!at_) {
    at_ = rows.beforeFirst();
    sighting.held = asic_->entries(unitId);
  }
  while (!budget.spent() && makeRoom()) {
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
      lookAt(unitId, at_->row());
    } else if (!paused) {
      return true;
    }
  }
  return false;
}

// A row that has gone and come back in another slot is met twice: the first look counts.
void Resynchroniser::lookAt(Asic::UnitId unitId, const ConfigRow& row) {
  Decided& decided = sightings_[unitId].decided;
  if (decided.has(row.key())) {
    return;
  }
  const bool decides = this->decides(unitId, row);
  decided.insertOrAssign(row.key(), decides);
  ZEV_TRACE(trace, 9, kClass, "unitId: {} key: {} version: {} decides: {}", unitId, row.key(),
            row.version(), decides);
  if (decides) {
    makeEqual(unitId, row);
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

void Resynchroniser::makeEqual(Asic::UnitId unitId, const ConfigRow& row) {
  const std::optional<FecEntry> held = asic_->entry(unitId, row.key());
  if (row.isDeleted()) {
    if (held) {
      ++found_.removed;
      --sightings_[unitId].held;
      asic_->remove(unitId, row.key(), row.version());
    }
    return;
  }
  if (!held) {
    ++found_.added;
    add(unitId, row);
    return;
  }
  if (FecEntry::isEq(*held, row.logEntry())) {
    ++found_.unchanged;
    return;
  }
  ++found_.changed;
  asic_->write(unitId, row.logEntry(), row.version());
}

// An entry for which a full ASIC has no room waits until everything that must go has gone.
void Resynchroniser::add(Asic::UnitId unitId, const ConfigRow& row) {
  Sighting& sighting = sightings_[unitId];
  if (sighting.held < asic_->capacity()) {
    ++sighting.held;
    asic_->write(unitId, row.logEntry(), row.version());
  } else {
    additions_.push_back({unitId, row.logEntry(), row.version()});
  }
}

// The log.

// Without a key that is not decided it has nothing to say.
bool Resynchroniser::askTheLog(StepBudget& budget) {
  const bool damage = std::any_of(sightings_.begin(), sightings_.end(),
                                  [](const auto& sighting) { return !sighting.second.sawAll; });
  if (!undecidedKeys_ && !damage) {
    return true;
  }
  for (; asked_ < range_.limit.value(); ++asked_) {
    if (budget.spent() || !makeRoom()) {
      return false;
    }
    const auto row = Glint::guardedRow(*log_, Asic::LogVersion(asked_ + 1));
    if (row && units_->contains(row->unitId()) && !applyToTheUndecided(*row, budget)) {
      return false;
    }
  }
  return true;
}

// False: the ASIC takes no more, the row is to be taken again.
bool Resynchroniser::applyToTheUndecided(const LogRow& row, StepBudget& budget) {
  if ((row.operation() & LogRow::kTableDeleted) != 0) {
    return removeTheUndecided(row.unitId(), budget);
  }
  if (isDecided(row.unitId(), row.logEntry().key)) {
    return true;
  }
  if ((row.operation() & LogRow::kEntryDeleted) != 0) {
    asic_->remove(row.unitId(), row.logEntry().key, row.version());
  } else {
    asic_->write(row.unitId(), row.logEntry(), row.version());
  }
  return true;
}

// What waits is looked for in the ASIC, so it must have arrived there.
bool Resynchroniser::removeTheUndecided(Asic::UnitId unitId, StepBudget& budget) {
  if (!asic_->flush()) {
    return false;
  }
  budget.charge(asic_->entries(unitId));
  AsicDriver::Cursor at = 0;
  for (;;) {
    const std::vector<FecKey>& keys = asic_->keys(unitId, at);
    if (keys.empty()) {
      return true;
    }
    for (const FecKey& key : keys) {
      if (isDecided(unitId, key)) {
        continue;
      }
      if (!makeRoom()) {
        return false;
      }
      asic_->remove(unitId, key, range_.limit);
    }
  }
}

bool Resynchroniser::isDecided(Asic::UnitId unitId, const FecKey& key) const {
  const auto sighting = sightings_.find(unitId);
  const bool* decided = sighting == sightings_.end() ? nullptr : sighting->second.decided.find(key);
  return decided != nullptr && *decided;
}

// What nobody has committed.

// Taken off key by key, so that a budget or the ASIC may end it anywhere; a key that has been taken
// off is not met again.
bool Resynchroniser::removeTheUnseen(StepBudget& budget) {
  for (; cleared_ != units_->end(); ++cleared_, next_ = 0) {
    const Asic::UnitId unitId = cleared_->first;
    const Sighting& sighting = sightings_[unitId];
    if (!sighting.sawAll) {
      continue;
    }
    for (;;) {
      if (budget.spent() || !asic_->flush()) {
        return false;
      }
      const std::vector<FecKey>& keys = asic_->keys(unitId, next_, budget.left());
      if (keys.empty()) {
        break;
      }
      budget.charge(keys.size());
      for (const FecKey& key : keys) {
        if (!sighting.decided.has(key)) {
          asic_->remove(unitId, key, range_.limit);
          ++found_.removed;
        }
      }
    }
  }
  return true;
}

bool Resynchroniser::addTheRest(StepBudget& budget) {
  for (; !additions_.empty(); additions_.pop_front()) {
    if (budget.spent() || !makeRoom()) {
      return false;
    }
    budget.charge(1);
    const Addition& addition = additions_.front();
    asic_->write(addition.unitId, addition.entry, addition.version);
  }
  return true;
}

}  // namespace Hardware
