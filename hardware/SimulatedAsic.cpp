// SPDX-License-Identifier: Apache-2.0

// A step takes the operations of the group log one by one, and after each applies what waits, table
// by table, as far as needs allow, until nothing moves.
//
// The writer stores a change's configuration row first, then its log row, the log's scratchpad and
// its group row, and the group log's scratchpad last. A resynchronisation reads both scratchpads
// before any row, so whatever happens later is either in the rows that it reads or still ahead of
// it in the group log. It reads the log's first: an operation up to that version has been announced
// by the time the other one is read, the newest perhaps excepted. So no operation is taken for one
// whose announcement is lost, and applied without what it needs, only because it was logged between
// the two looks. Resynchroniser has the rest of it.

#include "hardware/SimulatedAsic.h"

#include <algorithm>
#include <utility>

#include "Asic/Constants.h"
#include "Glint/SharedMemEntityManager.h"
#include "Zev/Trace.h"
#include "records/FecTableConstants.h"

namespace SimAsic {

namespace {

using LoamFec::FecTableConstants;

constexpr const char* kClass = "SimulatedAsic";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

constexpr Asic::SwTableId kFecTable = FecTableConstants::kTableId;

template <typename Entity>
Pell::Ptr<Entity> mountForReading(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                                  const Pell::String& path, std::uint32_t capacity) {
  return ZevSharedMem::mountEntity<Entity>(entityManager, path, ZevGlint::ZevGlintType::reader,
                                           capacity);
}

}  // namespace

SimulatedAsic::SimulatedAsic(const Pell::String& stateFolder,
                             const std::vector<Asic::UnitId>& unitIds, Writer writer)
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(stateFolder)),
      groupLog_(mountForReading<Asic::GroupLogGlint>(
          entityManager_,
          Asic::Constants::groupLogGlintPath(FecTableConstants::kAgentName,
                                             FecTableConstants::kGroupName),
          Asic::GroupLogGlint::kCapacity)),
      recorded_(mountForReading<Asic::GroupVersionsGlint>(
          entityManager_,
          Asic::Constants::groupVersionsGlintPath(FecTableConstants::kAgentName,
                                                  FecTableConstants::kGroupName),
          Asic::GroupVersionsGlint::kCapacity)),
      log_(mountForReading<LoamFec::FecTableDataModelEntryLogGlint>(
          entityManager_,
          Asic::Constants::tableEntryLogGlintPath(FecTableConstants::kGroupName,
                                                  FecTableConstants::kAgentName,
                                                  FecTableConstants::kTableName),
          FecTableConstants::kEntryLogCapacity)),
      follower_(groupLog_),
      writer_(writer) {
  for (const Asic::UnitId unitId : unitIds) {
    units_[unitId].config = mountForReading<LoamFec::FecTableDataModelConfigGlint>(
        entityManager_, FecTableConstants::configGlintPath(unitId),
        FecTableConstants::kConfigCapacity);
  }
  beginResynchronisation();
  std::vector<Asic::Announcement> standing;
  missedGroupRows_ += follower_.startOver(standing) ? 0U : 1U;
  for (Asic::Announcement& announcement : standing) {
    waiting_[announcement.tableVersion.tableId()].push_back(std::move(announcement));
  }
  StepBudget unlimited(StepBudget::kUnlimited);
  goOnResynchronising(unlimited);
}

// Resynchronisation.

Resynchronisation SimulatedAsic::resynchronise() {
  writer_ = Writer::onThisThread;
  beginResynchronisation();
  StepBudget unlimited(StepBudget::kUnlimited);
  return goOnResynchronising(unlimited).value_or(Resynchronisation());
}

void SimulatedAsic::beginResynchronisation() {
  // A damaged one promises nothing.
  const Asic::LogVersion version(guardedScratchpad(log_->entryLogConfig()).value_or(0));
  catchingUp_ = Target{version, guardedScratchpad(groupLog_->groupLog()).value_or(0)};
  ZEV_TRACE(trace, 2, kClass, "resynchronises, logged: {} lastSequence: {}", catchingUp_->version,
            catchingUp_->sequence);
}

void SimulatedAsic::repair(std::string_view why) {
  ZEV_TRACE(trace, 3, kClass, "{}: the log does not tell enough", why);
  ++repairs_;
  beginResynchronisation();
}

// Nothing: the budget is spent before the end.
std::optional<Resynchronisation> SimulatedAsic::goOnResynchronising(StepBudget& budget) {
  if (!catchUp(budget) || !resynchroniser_->step(budget)) {
    return std::nullopt;
  }
  applied_[kFecTable] = resynchroniser_->limit();
  owed_ = resynchroniser_->owed();
  const Resynchronisation found = resynchroniser_->found();
  ZEV_TRACE(trace, 2, kClass,
            "resynchronised up to: {} unchanged: {} added: {} changed: {} removed: {}",
            resynchroniser_->limit(), found.unchanged, found.added, found.changed, found.removed);
  resynchroniser_ = nullptr;
  return found;
}

// Takes what had been announced when the resynchronisation began. False: the budget is spent before
// the end.
bool SimulatedAsic::catchUp(StepBudget& budget) {
  if (!catchingUp_) {
    return true;
  }
  while (follower_.lastTaken() < catchingUp_->sequence) {
    if (budget.spent()) {
      return false;
    }
    if (takeNext() == Asic::GroupLogFollower::Found::nothingNew) {
      break;
    }
  }
  takeRecordedVersions();
  resynchroniser_ =
      std::make_unique<Resynchroniser>(units_, log_->entryLogConfig(), range(catchingUp_->version));
  catchingUp_.reset();
  return true;
}

// A version that the agent has on record was reported by the hardware, this one or another, and its
// rows have gone.
void SimulatedAsic::takeRecordedVersions() {
  const auto take = [this](const Asic::GroupVersionRow& row) {
    const Asic::TableVersion recorded = row.tableVersion();
    Asic::LogVersion& known =
        recorded.tableId() == kFecTable ? recordedApplied_ : applied_[recorded.tableId()];
    known = std::max(known, recorded.logVersion());
  };
  // What damage hides stays as it is known.
  (void)Glint::walkOverDamage(recorded_->appliedVersions(), take);
}

// The announcements of the table that are not blocked, in order, say how far it may go; one may
// need what goes before it. A version that none of them names goes with the next one that is named;
// behind the last one it was lost or never announced, and is waited for by nobody, unless its
// announcement is still to come. When the last one is blocked, it is to be asked for behind that.
ResynchronisationRange SimulatedAsic::range(Asic::LogVersion newest) const {
  ResynchronisationRange range;
  range.applied = std::max(appliedVersion(kFecTable), recordedApplied_);
  range.limit = range.applied;
  range.writerAtRest = writer_ == Writer::onThisThread;
  const Asic::LogVersion unannounced(newest.value() -
                                     (range.writerAtRest || newest.value() == 0 ? 0 : 1));
  if (const auto waiting = waiting_.find(kFecTable); waiting != waiting_.end()) {
    for (const Asic::Announcement& announcement : waiting->second) {
      if (announcement.tableVersion.logVersion() <= range.limit) {
        continue;
      }
      if (!needsAreApplied(announcement, range.limit)) {
        range.blocked = true;
        traceBlocked(range.limit, announcement);
        if (const auto last = waiting->second.back().tableVersion.logVersion();
            last < unannounced) {
          range.owed = last;
        }
        return range;
      }
      range.limit = announcement.tableVersion.logVersion();
    }
  }
  range.limit = std::max(range.limit, unannounced);
  return range;
}

// Following the log.

bool SimulatedAsic::step(std::uint32_t rows) {
  StepBudget budget(rows);
  while (!budget.spent()) {
    if (resynchronising()) {
      goOnResynchronising(budget);
    } else if (owed_ && appliedVersion(kFecTable) >= *owed_) {
      repair("a row may be taken that no log row tells of");
    } else if (!applyWaiting(budget) && !takeOrRepair()) {
      traceWaiting();
      return false;
    }
  }
  return true;
}

// Rows stay until what they announce has been reported applied: one that is missing was damaged.
// False: there was nothing.
bool SimulatedAsic::takeOrRepair() {
  switch (takeNext()) {
    case Asic::GroupLogFollower::Found::announcement:
      return true;
    case Asic::GroupLogFollower::Found::gap:
      repair("a row of the group log is missing or damaged");
      return true;
    case Asic::GroupLogFollower::Found::nothingNew:
      return false;
  }
  return false;
}

Asic::GroupLogFollower::Found SimulatedAsic::takeNext() {
  Asic::Announcement next;
  const Asic::GroupLogFollower::Found found = follower_.next(next);
  if (found == Asic::GroupLogFollower::Found::announcement) {
    waiting_[next.tableVersion.tableId()].push_back(std::move(next));
  } else if (found == Asic::GroupLogFollower::Found::gap) {
    ++missedGroupRows_;
  }
  return found;
}

bool SimulatedAsic::needsAreApplied(const Asic::Announcement& announcement) const {
  return needsAreApplied(announcement, appliedVersion(kFecTable));
}

bool SimulatedAsic::needsAreApplied(const Asic::Announcement& announcement,
                                    Asic::LogVersion ofFecTable) const {
  return std::all_of(announcement.needed.begin(), announcement.needed.end(),
                     [&](const Asic::TableVersion& needed) {
                       const Asic::LogVersion applied = needed.tableId() == kFecTable
                                                            ? ofFecTable
                                                            : appliedVersion(needed.tableId());
                       return applied >= needed.logVersion();
                     });
}

void SimulatedAsic::traceBlocked(Asic::LogVersion limit,
                                 const Asic::Announcement& announcement) const {
  ZEV_TRACE_AS(trace, 3, kClass, "range", "resynchronises up to: {}, because {} waits for{}", limit,
               announcement.tableVersion, unappliedNeeds(announcement, limit));
}

// What is left when nothing moves is blocked.
void SimulatedAsic::traceWaiting() const {
  if (!trace.enabled(3)) {
    return;
  }
  for (const auto& [tableId, waiting] : waiting_) {
    if (!waiting.empty()) {
      ZEV_TRACE_AS(trace, 3, kClass, "step", "{} waits for{} operations behind it: {}",
                   waiting.front().tableVersion,
                   unappliedNeeds(waiting.front(), appliedVersion(kFecTable)), waiting.size() - 1);
    }
  }
}

Pell::String SimulatedAsic::unappliedNeeds(const Asic::Announcement& announcement,
                                           Asic::LogVersion ofFecTable) const {
  Pell::String text;
  for (const Asic::TableVersion& needed : announcement.needed) {
    const Asic::LogVersion applied =
        needed.tableId() == kFecTable ? ofFecTable : appliedVersion(needed.tableId());
    if (applied < needed.logVersion()) {
      text += fmt::format(" {}, applied up to {};", needed, applied);
    }
  }
  return text;
}

// One round over all tables. True when at least one operation was applied, or a resynchronisation
// has begun.
bool SimulatedAsic::applyWaiting(StepBudget& budget) {
  bool moved = false;
  for (auto& [tableId, waiting] : waiting_) {
    moved = applyTable(tableId, waiting, budget) || moved;
    if (resynchronising()) {
      return true;
    }
  }
  return moved;
}

bool SimulatedAsic::applyTable(Asic::SwTableId tableId, Announcements& waiting,
                               StepBudget& budget) {
  bool moved = false;
  while (!waiting.empty() && !budget.spent()) {
    const Asic::TableVersion target = waiting.front().tableVersion;
    if (target.logVersion() > appliedVersion(tableId)) {
      if (!needsAreApplied(waiting.front())) {
        break;
      }
      if (!applyUpTo(target, budget)) {
        return true;
      }
    }
    waiting.pop_front();
    moved = true;
  }
  return moved;
}

// A version that was never announced is applied with the next one that was. False: the budget is
// spent before the target is reached, or a log row is missing and a resynchronisation has begun.
bool SimulatedAsic::applyUpTo(Asic::TableVersion target, StepBudget& budget) {
  Asic::LogVersion& applied = applied_[target.tableId()];
  if (target.tableId() != kFecTable) {
    budget.charge(1);  // its group row, when it is cleaned up
    applied = target.logVersion();
    ++operationsApplied_;
    ZEV_TRACE(trace, 8, kClass, "applied: {}", target);
    return true;
  }
  while (applied < target.logVersion()) {
    if (budget.spent()) {
      return false;
    }
    const Asic::LogVersion next(applied.value() + 1);
    if (!applyVersion(next, budget)) {
      repair("a row of the entry log is missing or damaged");
      return false;
    }
    applied = next;
    ++operationsApplied_;
    ZEV_TRACE(trace, 8, kClass, "applied: {}", Asic::TableVersion(target.tableId(), next));
  }
  return true;
}

bool SimulatedAsic::applyVersion(Asic::LogVersion version, StepBudget& budget) {
  const auto row = Glint::guardedRow(log_->entryLogConfig(), version);
  if (row) {
    budget.charge(kRowsOfACleanup);
    applyRow(*row, budget);
  }
  return row.has_value();
}

// The clean-up of a table deletion looks at every configuration row of the unit, and takes those
// away that were there.
void SimulatedAsic::applyRow(const LogRow& row, StepBudget& budget) {
  ZEV_TRACE(trace, 9, kClass, "version: {} operation: {} unitId: {} key: {}", row.version(),
            row.operation(), row.unitId(), row.logEntry().key);
  const auto unit = units_.find(row.unitId());
  if (unit == units_.end()) {
    ZEV_TRACE(trace, 3, kClass, "version: {} is of unitId: {}, which this hardware does not have",
              row.version(), row.unitId());
    return;
  }
  HardwareTable& table = unit->second.table;
  if ((row.operation() & LogRow::kTableDeleted) != 0) {
    budget.charge(table.size() + kRowsOfADeletion * unit->second.rows().rowCount());
    table.clear();
  } else if ((row.operation() & LogRow::kEntryDeleted) != 0) {
    budget.charge(kRowsOfADeletion);
    table.erase(row.logEntry().key);
  } else {
    table.insertOrAssign(row.logEntry().key, row.logEntry());
  }
}

// What is asked of it.

Asic::LogVersion SimulatedAsic::appliedVersion(Asic::SwTableId tableId) const {
  const auto found = applied_.find(tableId);
  return found == applied_.end() ? Asic::LogVersion() : found->second;
}

Asic::LogVersion SimulatedAsic::upToTableDeletion(Asic::TableVersion from,
                                                  Asic::LogVersion to) const {
  if (from.tableId() != kFecTable) {
    return to;
  }
  for (Asic::LogVersion version = from.logVersion(); version < to;) {
    version = Asic::LogVersion(version.value() + 1);
    const auto row = Glint::guardedRow(log_->entryLogConfig(), version);
    if (row && (row->operation() & LogRow::kTableDeleted) != 0) {
      return version;
    }
  }
  return to;
}

const SimulatedAsic::HardwareTable* SimulatedAsic::hardwareTable(Asic::UnitId unitId) const {
  const auto found = units_.find(unitId);
  return found == units_.end() ? nullptr : &found->second.table;
}

}  // namespace SimAsic
