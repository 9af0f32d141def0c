// SPDX-License-Identifier: Apache-2.0

// A step takes the operations of the group log one by one, and after each applies what waits, table
// by table, as far as needs allow, until nothing moves. What the FEC table's log tells is given to
// the ASIC in batches (FecAsic); given_ is how far, and what the ASIC has taken counts as applied.
//
// The writer stores a change's configuration row first, then its log row, the log's scratchpad and
// its group row, and the group log's scratchpad last. A resynchronisation reads both scratchpads
// before any row, so whatever happens later is either in the rows that it reads or still ahead of
// it in the group log. It reads the log's first: an operation up to that version has been announced
// by the time the other one is read, the newest perhaps excepted. So no operation is taken for one
// whose announcement is lost, and applied without what it needs, only because it was logged between
// the two looks. Resynchroniser has the rest of it.

#include "hardware/LogDrivenHardware.h"

#include <algorithm>
#include <array>
#include <utility>

#include "FecAsic.h"
#include "FecRows.h"
#include "Glint/SharedMemEntityManager.h"
#include "Resynchroniser.h"
#include "StepBudget.h"
#include "Zev/Trace.h"
#include "records/FecTableConstants.h"

namespace Hardware {

namespace {

using LoamFec::FecTableConstants;
using ZevSharedMem::mountForReading;

constexpr const char* kClass = "LogDrivenHardware";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

constexpr Asic::SwTableId kFecTable = FecTableConstants::kTableId;

}  // namespace

LogDrivenHardware::LogDrivenHardware(const Pell::String& stateFolder,
                                     const std::vector<Asic::UnitId>& unitIds,
                                     std::unique_ptr<AsicDriver> asic, Asic::Writer writer)
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(stateFolder)),
      groupLog_(mountForReading<Asic::GroupLogGlint>(entityManager_,
                                                     FecTableConstants::groupLogGlintPath())),
      recorded_(mountForReading<Asic::GroupVersionsGlint>(
          entityManager_, FecTableConstants::groupVersionsGlintPath())),
      log_(mountForReading<LoamFec::FecTableDataModelEntryLogGlint>(
          entityManager_, FecTableConstants::entryLogGlintPath())),
      follower_(groupLog_),
      writer_(writer),
      driver_(std::move(asic)),
      asic_(std::make_unique<FecAsic>(*driver_)) {
  for (const Asic::UnitId unitId : unitIds) {
    units_[unitId] = mountForReading<LoamFec::FecTableDataModelConfigGlint>(
        entityManager_, FecTableConstants::configGlintPath(unitId));
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

LogDrivenHardware::~LogDrivenHardware() = default;

// Resynchronisation.

Asic::Resynchronisation LogDrivenHardware::resynchronise() {
  writer_ = Asic::Writer::onThisThread;
  asic_->tryAgain();
  beginResynchronisation();
  StepBudget unlimited(StepBudget::kUnlimited);
  return goOnResynchronising(unlimited).value_or(Asic::Resynchronisation());
}

void LogDrivenHardware::beginResynchronisation() {
  resynchroniser_ = nullptr;
  takeBackWhatIsGiven();
  // A damaged one promises nothing.
  const Asic::LogVersion version(guardedScratchpad(log_->entryLogConfig()).value_or(0));
  catchingUp_ = Target{version, guardedScratchpad(groupLog_->groupLog()).value_or(0)};
  ZEV_TRACE(trace, 2, kClass, "resynchronises, logged: {} lastSequence: {}", catchingUp_->version,
            catchingUp_->sequence);
}

void LogDrivenHardware::repair(std::string_view why) {
  flush();
  ZEV_TRACE(trace, 3, kClass, "{}: the log does not tell enough", why);
  ++repairs_;
  beginResynchronisation();
}

// Nothing: the budget is spent before the end, or the ASIC takes no more.
std::optional<Asic::Resynchronisation> LogDrivenHardware::goOnResynchronising(StepBudget& budget) {
  if (!catchUp(budget) || !resynchroniser_->step(budget)) {
    return std::nullopt;
  }
  applied_[kFecTable] = resynchroniser_->limit();
  given_ = resynchroniser_->limit();
  owed_ = resynchroniser_->owed();
  const Asic::Resynchronisation found = resynchroniser_->found();
  ZEV_TRACE(trace, 2, kClass,
            "resynchronised up to: {} unchanged: {} added: {} changed: {} removed: {}",
            resynchroniser_->limit(), found.unchanged, found.added, found.changed, found.removed);
  resynchroniser_ = nullptr;
  return found;
}

// Takes what had been announced when the resynchronisation began. False: the budget is spent before
// the end.
bool LogDrivenHardware::catchUp(StepBudget& budget) {
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
  resynchroniser_ = std::make_unique<Resynchroniser>(units_, log_->entryLogConfig(), *asic_,
                                                     range(catchingUp_->version));
  catchingUp_.reset();
  return true;
}

// A version that the agent has on record was reported by the hardware, this one or another, and its
// rows have gone.
void LogDrivenHardware::takeRecordedVersions() {
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
ResynchronisationRange LogDrivenHardware::range(Asic::LogVersion newest) const {
  ResynchronisationRange range;
  range.applied = std::max(appliedVersion(kFecTable), recordedApplied_);
  range.limit = range.applied;
  range.writerAtRest = writer_ == Asic::Writer::onThisThread;
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

bool LogDrivenHardware::step(std::uint32_t rows) {
  StepBudget budget(rows);
  asic_->tryAgain();
  const bool isSpent = goOn(budget);
  if (!resynchronising() && !asic_->refused()) {
    flush();
  }
  if (!isSpent && !asic_->refused()) {
    traceWaiting();
  }
  return isSpent && !asic_->refused();
}

// Until the budget is spent: true; or nothing is left to do, or the ASIC takes no more.
bool LogDrivenHardware::goOn(StepBudget& budget) {
  while (!budget.spent() && !asic_->refused()) {
    if (resynchronising()) {
      goOnResynchronising(budget);
    } else if (owed_ && given_ >= *owed_) {
      repair("a row may be taken that no log row tells of");
    } else if (!applyWaiting(budget) && !takeOrRepair()) {
      return false;
    }
  }
  return budget.spent();
}

// Rows stay until what they announce has been reported applied: one that is missing was damaged.
// False: there was nothing.
bool LogDrivenHardware::takeOrRepair() {
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

Asic::GroupLogFollower::Found LogDrivenHardware::takeNext() {
  Asic::Announcement next;
  const Asic::GroupLogFollower::Found found = follower_.next(next);
  if (found == Asic::GroupLogFollower::Found::announcement) {
    waiting_[next.tableVersion.tableId()].push_back(std::move(next));
  } else if (found == Asic::GroupLogFollower::Found::gap) {
    ++missedGroupRows_;
  }
  return found;
}

bool LogDrivenHardware::needsAreApplied(const Asic::Announcement& announcement,
                                        Asic::LogVersion ofFecTable) const {
  return std::all_of(announcement.needed.begin(), announcement.needed.end(),
                     [&](const Asic::TableVersion& needed) {
                       const Asic::LogVersion applied = needed.tableId() == kFecTable
                                                            ? ofFecTable
                                                            : appliedVersion(needed.tableId());
                       return applied >= needed.logVersion();
                     });
}

void LogDrivenHardware::traceBlocked(Asic::LogVersion limit,
                                     const Asic::Announcement& announcement) const {
  ZEV_TRACE_AS(trace, 3, kClass, "range", "resynchronises up to: {}, because {} waits for{}", limit,
               announcement.tableVersion, unappliedNeeds(announcement, limit));
}

// What is left when nothing moves is blocked.
void LogDrivenHardware::traceWaiting() const {
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

Pell::String LogDrivenHardware::unappliedNeeds(const Asic::Announcement& announcement,
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
bool LogDrivenHardware::applyWaiting(StepBudget& budget) {
  bool moved = false;
  for (auto& [tableId, waiting] : waiting_) {
    const bool here = tableId == kFecTable ? applyFecTable(waiting, budget)
                                           : applyOther(tableId, waiting, budget);
    moved = here || moved;
    if (resynchronising()) {
      return true;
    }
  }
  return moved;
}

bool LogDrivenHardware::applyOther(Asic::SwTableId tableId, Announcements& waiting,
                                   StepBudget& budget) {
  bool moved = false;
  for (; !waiting.empty() && !budget.spent(); waiting.pop_front(), moved = true) {
    const Asic::TableVersion target = waiting.front().tableVersion;
    if (target.logVersion() <= appliedVersion(tableId)) {
      continue;
    }
    // What only the batch under way keeps from it is asked of the ASIC at once.
    if (!needsAreApplied(waiting.front(), given_) ||
        (!needsAreApplied(waiting.front(), appliedVersion(kFecTable)) && !flush())) {
      break;
    }
    budget.charge(1);  // its group row, when it is cleaned up
    applied_[tableId] = target.logVersion();
    ++operationsApplied_;
    ZEV_TRACE(trace, 8, kClass, "applied: {}", target);
  }
  return moved;
}

// Changes that have been given to the ASIC count as applied for later ones: the ASIC keeps the
// order.
bool LogDrivenHardware::applyFecTable(const Announcements& waiting, StepBudget& budget) {
  const Asic::LogVersion before = given_;
  bool moved = false;
  while (announcementsGiven_ < waiting.size() && !budget.spent() && !asic_->refused()) {
    const Asic::Announcement& next = waiting[announcementsGiven_];
    const Asic::LogVersion target = next.tableVersion.logVersion();
    if (target > given_) {
      if (!needsAreApplied(next, given_) || !giveUpTo(target, budget) || target > given_) {
        break;
      }
    }
    ++announcementsGiven_;
    moved = true;
  }
  return moved || given_ > before;
}

// A version that was never announced is applied with the next one that was. False: a log row is
// missing and a resynchronisation has begun. True: the target is reached, the budget is spent, or
// the ASIC takes no more.
bool LogDrivenHardware::giveUpTo(Asic::LogVersion target, StepBudget& budget) {
  while (given_ < target && !budget.spent()) {
    if (!asic_->hasRoom() && !flush()) {
      return true;
    }
    const Asic::LogVersion next(given_.value() + 1);
    const auto row = Glint::guardedRow(log_->entryLogConfig(), next);
    if (!row) {
      repair("a row of the entry log is missing or damaged");
      return false;
    }
    // What a table's deletion costs is asked of the ASIC: it must have all that comes before.
    if ((row->operation() & LogRow::kTableDeleted) != 0 && !flush()) {
      return true;
    }
    giveToAsic(*row, budget);
    given_ = next;
  }
  return true;
}

// The clean-up of a table deletion looks at every configuration row of the unit, and takes those
// away that were there.
void LogDrivenHardware::giveToAsic(const LogRow& row, StepBudget& budget) {
  ZEV_TRACE(trace, 9, kClass, "version: {} operation: {} unitId: {} key: {}", row.version(),
            row.operation(), row.unitId(), row.logEntry().key);
  budget.charge(kRowsOfACleanup);
  const auto unit = units_.find(row.unitId());
  if (unit == units_.end()) {
    ZEV_TRACE(trace, 3, kClass, "version: {} is of unitId: {}, which this hardware does not have",
              row.version(), row.unitId());
    return;
  }
  if ((row.operation() & LogRow::kTableDeleted) != 0) {
    budget.charge(asic_->entries(row.unitId()) +
                  kRowsOfADeletion * unit->second->swTableEntries().rowCount());
    asic_->removeAll(row.unitId(), row.version());
  } else if ((row.operation() & LogRow::kEntryDeleted) != 0) {
    budget.charge(kRowsOfADeletion);
    asic_->remove(row.unitId(), row.logEntry().key, row.version());
  } else {
    asic_->write(row.unitId(), row.logEntry(), row.version());
  }
}

// Has the ASIC take what has been given. What it does not take is given again from the log. False:
// it has not taken all.
bool LogDrivenHardware::flush() {
  const bool isTaken = asic_->flush();
  const auto refused = asic_->firstWaiting();
  const Asic::LogVersion taken = refused ? Asic::LogVersion(refused->value() - 1) : given_;
  Asic::LogVersion& applied = applied_[kFecTable];
  while (applied < taken) {
    applied = Asic::LogVersion(applied.value() + 1);
    ++operationsApplied_;
    ZEV_TRACE(trace, 8, kClass, "applied: {}", Asic::TableVersion(kFecTable, applied));
  }
  Announcements& waiting = waiting_[kFecTable];
  while (!waiting.empty() && waiting.front().tableVersion.logVersion() <= applied) {
    waiting.pop_front();
  }
  takeBackWhatIsGiven();
  return isTaken;
}

void LogDrivenHardware::takeBackWhatIsGiven() {
  asic_->forget();
  given_ = appliedVersion(kFecTable);
  announcementsGiven_ = 0;
}

// What is asked of it.

Asic::LogVersion LogDrivenHardware::upToTableDeletion(Asic::TableVersion from,
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

bool LogDrivenHardware::entry(Asic::SwTableId tableId, Asic::UnitId unitId, std::uint64_t key,
                              std::span<std::byte> bytes) const {
  return driver_->read(tableId, unitId, key, bytes);
}

void LogDrivenHardware::forEachEntry(Asic::SwTableId tableId, Asic::UnitId unitId,
                                     const VisitEntry& visit) const {
  std::array<std::uint64_t, FecAsic::kKeysAtATime> keys{};
  FecEntry entry;
  const auto bytes = std::as_writable_bytes(std::span(&entry, 1));
  AsicDriver::Cursor at = 0;
  if (tableId != kFecTable) {
    return;
  }
  while (const std::size_t count = driver_->keys(tableId, unitId, at, keys)) {
    for (std::size_t i = 0; i < count; ++i) {
      if (driver_->read(tableId, unitId, keys.at(i), bytes)) {
        visit(keys.at(i), bytes);
      }
    }
  }
}

std::uint32_t LogDrivenHardware::entries(Asic::SwTableId tableId, Asic::UnitId unitId) const {
  return driver_->entries(tableId, unitId);
}

std::uint32_t LogDrivenHardware::capacity(Asic::SwTableId tableId) const {
  return driver_->capacity(tableId);
}

Pell::String LogDrivenHardware::fault() const { return asic_->fault(); }

Asic::HardwareMaker drivenByTheLog(DriverMaker makeDriver) {
  return [makeDriver = std::move(makeDriver)](const Pell::String& stateFolder,
                                              const std::vector<Asic::UnitId>& unitIds,
                                              Asic::Writer writer) {
    return std::make_unique<LogDrivenHardware>(stateFolder, unitIds, makeDriver(), writer);
  };
}

}  // namespace Hardware
