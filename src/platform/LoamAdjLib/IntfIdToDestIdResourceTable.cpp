// SPDX-License-Identifier: Apache-2.0

// Each key has a record: the handle that clients see, the target that the owner wants it to show,
// and who uses it. Whatever may let a handle move on (a new target, an acknowledgement, a release,
// the end of a publication) puts its record on the review list. What waits for the hardware is
// filed under the version that it waits for, and what waits for room under the rows that it needs:
// so a report finds what it settles without a look at the others. Turns work all that off in steps.
// The one publication that is under way comes first, because its rows have been counted in.

#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"

#include <algorithm>
#include <span>
#include <utility>

#include "Zev/FirstException.h"
#include "Zev/Trace.h"
#include "Zev/WorkMeter.h"

namespace LoamAdjLib {

using ResourceTable = IntfIdToDestIdResourceTableResourceTable;

namespace {

constexpr const char* kClass = "IntfIdToDestIdResourceTableResourceTable";
constexpr const char* kClientClass = "ClientInstance";

// One for both classes.
Zev::TraceHandle& trace = Zev::traceHandle(kClass);

Pell::String text(const DestId& destId) {
  return destId == DestId() ? "none"
                            : fmt::format("{}/{}/{}", destId.first, destId.second, destId.third);
}

// An operation that a client names, by the version that it has by now.
Pell::String text(const ResourceTable::Dependency& operation) {
  return operation ? fmt::format("{}", operation->entryTableVersion()) : "none";
}

// Null needs what an empty set needs: nothing.
std::span<const Asic::TableVersion> versionsOf(const Pell::Ptr<Asic::NeededEntry const>& needed) {
  return needed ? needed->tableVersions() : std::span<const Asic::TableVersion>();
}

auto findTable(std::vector<Asic::TableVersion>& versions, Asic::SwTableId tableId) {
  return std::ranges::find(versions, tableId, &Asic::TableVersion::tableId);
}

// Of two versions of one table the higher stays.
void raise(std::vector<Asic::TableVersion>& versions, const Asic::TableVersion& wanted) {
  const auto held = findTable(versions, wanted.tableId());
  if (held == versions.end()) {
    versions.push_back(wanted);
  } else if (held->logVersion() < wanted.logVersion()) {
    *held = wanted;
  }
}

void raise(std::vector<Asic::TableVersion>& versions,
           const std::vector<Asic::TableVersion>& wanted) {
  for (const Asic::TableVersion& version : wanted) {
    raise(versions, version);
  }
}

}  // namespace

Zev::TypeRecord ResourceTable::ResourceHandle::typeRecord() {
  return {kTypeName, {{"change", kChangeAttribute}}};
}

void ResourceTable::ResourceHandle::contentsIs(Asic::EntryState state, const DestId& destId,
                                               Pell::Ptr<Asic::NeededEntry const> neededEntry) {
  entryState_ = state;
  destId_ = destId;
  neededEntry_ = std::move(neededEntry);
  ++updateNumber_;
}

ResourceTable::ClientInstance::ClientInstance(const Pell::Ptr<ResourceTable>& resourceTable)
    : resourceTable_(resourceTable) {}

ResourceTable::ClientInstance::~ClientInstance() { end(); }

void ResourceTable::ClientInstance::end() {
  ZEV_TRACE(trace, 8, kClientClass, "");
  ended_ = true;
  usersHandler_ = nullptr;
  if (resourceTable_) {
    resourceTable_->clientGone(this);
  }
}

Pell::Ptr<ResourceTable::ResourceHandle const> ResourceTable::ClientInstance::request(
    const Key& key, const Dependency& /*dependency*/) {
  ZEV_TRACE(trace, 9, kClientClass, "interface: {}", key);
  return resourceTable_->record(key).handle;
}

void ResourceTable::ClientInstance::ackUpdate(const Pell::Ptr<ResourceHandle const>& handle,
                                              std::uint32_t updateNumber,
                                              const Dependency& dependency) {
  ZEV_TRACE(trace, 8, kClientClass, "interface: {} update: {} current: {} operation: {}",
            handle->key(), updateNumber, handle->updateNumber(), text(dependency));
  if (ended_) {
    return;
  }
  Record& record = resourceTable_->record(handle->key());
  const auto use = std::find_if(record.uses.begin(), record.uses.end(),
                                [this](const Use& held) { return held.client == this; });
  if (use == record.uses.end()) {
    record.uses.push_back({this, updateNumber});
  } else if (updateNumber == handle->updateNumber()) {
    use->acknowledged = updateNumber;
  }
  if (dependency) {
    const bool current = updateNumber == handle->updateNumber();
    (current ? record.acknowledged : record.released).operations.push_back(dependency);
  }
  resourceTable_->reviewLater(record);
}

void ResourceTable::ClientInstance::release(const Pell::Ptr<ResourceHandle const>& handle,
                                            const Dependency& dependency) {
  ZEV_TRACE(trace, 8, kClientClass, "interface: {} operation: {}", handle->key(), text(dependency));
  Record& record = resourceTable_->record(handle->key());
  std::erase_if(record.uses, [this](const Use& use) { return use.client == this; });
  if (dependency) {
    record.released.operations.push_back(dependency);
  }
  resourceTable_->reviewLater(record);
}

ResourceTable::IntfIdToDestIdResourceTableResourceTable(
    Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupResolver>& groupResolver,
    const Pell::Ptr<Asic::GroupLog>& groupLog)
    : groupResolver_(groupResolver),
      groupLog_(groupLog),
      turn_(loop, [this] { review(); }),
      appliedSubscriber_(
          [this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
            if (attributeId == Asic::GroupLog::kAppliedVersionsAttribute) {
              reviewRoomless();
              if (hasWork()) {
                turn_.mark();
              }
            }
          }) {
  groupLog_->publisher().subscriberAdd(appliedSubscriber_);
}

ResourceTable::~IntfIdToDestIdResourceTableResourceTable() {
  groupLog_->publisher().subscriberRemove(appliedSubscriber_);
}

Pell::Ptr<ResourceTable::ClientInstance> ResourceTable::makeClientInstance() {
  return Zev::makeObject<ClientInstance>(Pell::Ptr<ResourceTable>(this));
}

void ResourceTable::destinationIs(Wirex::IntfId intfId, const DestId& destination,
                                  const Pell::Ptr<Asic::NeededEntry const>& neededEntry) {
  targetIs(intfId, {Asic::EntryState::done, destination, neededEntry});
}

void ResourceTable::destinationFailed(Wirex::IntfId intfId) {
  targetIs(intfId, {Asic::EntryState::resourceFailed, DestId(), nullptr});
}

void ResourceTable::destinationDel(Wirex::IntfId intfId) { targetIs(intfId, Target()); }

ResourceTable::Record& ResourceTable::record(const Key& key) {
  if (Record* held = records_.find(key); held != nullptr) {
    return *held;
  }
  Record& made = records_[key];
  made.handle = Zev::makeObject<ResourceHandle>(key);
  return made;
}

void ResourceTable::targetIs(Wirex::IntfId intfId, Target target) {
  ZEV_TRACE(trace, 8, kClass, "interface: {} state: {} destination: {} neededEntry: {}", intfId,
            target.state, text(target.destId), target.neededEntry);
  Record& held = record(Key(intfId));
  const DestId replaced = std::exchange(held.target, std::move(target)).destId;
  if (replaced != held.handle->destId()) {
    retire(held, replaced);
  }
  noteWaiting(held);
  reviewLater(held);
}

// A destination that is retired already keeps its record: nothing has come to use it since.
void ResourceTable::retire(Record& record, const DestId& destId) {
  if (destId != DestId() &&
      std::ranges::find(record.retired, destId, &Retired::destId) == record.retired.end()) {
    record.retired.push_back({destId, false, {}});
  }
}

void ResourceTable::noteWaiting(Record& record) {
  const bool waits =
      !showsTarget(record) || (publication_.has_value() && publication_->record == &record);
  if (std::exchange(record.updateWaits, waits) != waits) {
    waitingUpdates_ += waits ? 1U : -1U;
  }
}

void ResourceTable::reviewLater(Record& record) {
  if (!std::exchange(record.queued, true)) {
    review_.push_back(&record);
  }
  turn_.mark();
}

void ResourceTable::review() {
  // A subscriber or the freed handler may drop the last other reference to this table.
  const Pell::Ptr<ResourceTable> self(this);
  Zev::FirstException first;
  const Zev::WorkBudget budget(kRowsPerTurn);
  for (std::uint32_t steps = 0; steps < kStepsPerTurn && !budget.spent() && hasWork(); ++steps) {
    first.from([this] { step(); });
  }
  if (hasWork()) {
    ZEV_TRACE(trace, 8, kClass, "next turn goes on, updates waiting: {}", waitingUpdates_);
    turn_.mark();
  }
  first.rethrow();
}

void ResourceTable::step() {
  if (publication_) {
    tellNext();
  } else if (Record* next = nextRecord()) {
    reviewRecord(*next);
  }
}

bool ResourceTable::hasWork() const {
  return publication_.has_value() || !review_.empty() || dueTable() < waits_.size() ||
         hasDueRoomWait();
}

// The place in waits_ of a table that has been applied up to a version that is waited for; the
// number of tables when there is none.
std::size_t ResourceTable::dueTable() const {
  const auto due = std::ranges::find_if(waits_, [this](const WaitsOfTable& table) {
    return !table.waits.empty() && applied({table.tableId, table.waits.top().version});
  });
  return static_cast<std::size_t>(due - waits_.begin());
}

bool ResourceTable::hasDueRoomWait() const {
  return !roomWaits_.empty() && roomWaits_.begin()->first <= groupLog_->redriveRoom();
}

// More rows than there can ever be room for: users that have gone since are seen by another look.
void ResourceTable::reviewRoomless() {
  for (auto wait = roomWaits_.upper_bound(groupLog_->redriveRoomAtMost()); wait != roomWaits_.end();
       ++wait) {
    reviewLater(*wait->second);
  }
}

// Takes the next record that something has happened to out of where it waits for that.
ResourceTable::Record* ResourceTable::nextRecord() {
  if (!review_.empty()) {
    Record* const next = review_.front();
    review_.pop_front();
    next->queued = false;
    return next;
  }
  if (const std::size_t due = dueTable(); due < waits_.size()) {
    WaitsOfTable& table = waits_[due];
    const Wait wait = table.waits.top();
    table.waits.pop();
    std::erase(wait.record->filed, Asic::TableVersion(table.tableId, wait.version));
    return wait.record;
  }
  return hasDueRoomWait() ? roomWaits_.begin()->second : nullptr;
}

// A subscriber that throws has been told.
void ResourceTable::tellNext() {
  if (publication_->delivery.tellNext()) {
    return;
  }
  Record& told = *publication_->record;
  ZEV_TRACE(trace, 8, kClass, "interface: {} update: {} told to all", told.handle->key(),
            told.handle->updateNumber());
  publication_.reset();
  noteWaiting(told);
  reviewLater(told);
}

// Frees one destination, or publishes what the handle is to show, or files what that waits for.
// Never while a publication is under way.
void ResourceTable::reviewRecord(Record& record) {
  if (const auto wait = std::exchange(record.roomWait, std::nullopt)) {
    roomWaits_.erase(*wait);
  }
  takeVersions(record.acknowledged);
  takeVersions(record.released);
  takeLeave(record);
  if (freeOne(record)) {
    return;
  }
  if (publicationIsDue(record)) {
    const std::uint64_t rows = rowsOfUpdate(record);
    if (rows <= groupLog_->redriveRoom()) {
      publishTarget(record);
    } else {
      record.roomWait = roomWaits_.emplace(rows, &record);
    }
  }
  fileWaits(record);
}

bool ResourceTable::acknowledgedByAll(const Record& record) {
  const std::uint32_t current = record.handle->updateNumber();
  return std::ranges::all_of(record.uses,
                             [current](const Use& use) { return use.acknowledged == current; });
}

// An operation that has no log version by now is no constraint: it was answered without a log row,
// or it will be driven again.
void ResourceTable::takeVersions(Awaited& awaited) {
  for (const Dependency& operation : std::exchange(awaited.operations, {})) {
    const Asic::TableVersion wanted = operation->entryTableVersion();
    if (wanted.logVersion() != Asic::LogVersion()) {
      raise(awaited.versions, wanted);
    }
  }
}

// Once every client has acknowledged what the handle shows, none logs a retired destination again.
// While it shows no destination yet, entries keep the one before.
void ResourceTable::takeLeave(Record& record) const {
  const bool keepsLast =
      !record.uses.empty() && record.handle->entryState() == Asic::EntryState::notResolved;
  if (keepsLast || !acknowledgedByAll(record)) {
    return;
  }
  for (Retired& retired : record.retired) {
    if (!std::exchange(retired.left, true)) {
      retired.awaited = record.acknowledged.versions;
      raise(retired.awaited, record.released.versions);
    }
  }
}

// The record goes back on the review list for what is left to do. The handler may set targets, and
// so change what is retired.
bool ResourceTable::freeOne(Record& record) {
  const auto found = std::ranges::find_if(record.retired, [&](const Retired& retired) {
    return retired.left && retired.destId != record.target.destId && allApplied(retired.awaited);
  });
  if (found == record.retired.end()) {
    return false;
  }
  const DestId freed = found->destId;
  ZEV_TRACE(trace, 2, kClass, "interface: {} destination: {} is free", record.handle->key(),
            text(freed));
  record.retired.erase(found);
  reviewLater(record);
  if (const FreedHandler handler = freedHandler_) {
    handler(record.handle->key().intfId(), freed);
  }
  return true;
}

bool ResourceTable::showsTarget(const Record& record) {
  const ResourceHandle& handle = *record.handle;
  return handle.entryState() == record.target.state && handle.destId() == record.target.destId &&
         std::ranges::is_permutation(versionsOf(handle.neededEntry()),
                                     versionsOf(record.target.neededEntry));
}

// Room apart.
bool ResourceTable::publicationIsDue(const Record& record) const {
  if (showsTarget(record)) {
    return false;
  }
  return record.handle->updateNumber() == 0 ||
         (acknowledgedByAll(record) && allApplied(record.acknowledged.versions));
}

// What the users of the handle may log for its next update, in rows of the group log.
std::uint64_t ResourceTable::rowsOfUpdate(const Record& record) const {
  std::uint64_t operations = 0;
  for (const Use& use : record.uses) {
    operations += use.client->users(record.handle->key());
  }
  return operations * Asic::GroupLogRow::rowsFor(versionsOf(record.target.neededEntry).size());
}

// Shows the target. The subscribers are told in the steps that follow; what waits in the resolver
// is looked at again even if there are none.
void ResourceTable::publishTarget(Record& record) {
  ResourceHandle& handle = *record.handle;
  const DestId replaced = handle.destId();
  handle.contentsIs(record.target.state, record.target.destId, record.target.neededEntry);
  ZEV_TRACE(trace, 2, kClass, "interface: {} update: {} state: {} destination: {} neededEntry: {}",
            handle.key(), handle.updateNumber(), handle.entryState(), text(handle.destId()),
            handle.neededEntry());
  std::erase_if(record.retired,
                [&](const Retired& retired) { return retired.destId == handle.destId(); });
  if (replaced != handle.destId()) {
    retire(record, replaced);
  }
  // The first update does not wait for what was acknowledged before it; freeing does.
  raise(record.released.versions, std::exchange(record.acknowledged.versions, {}));
  publication_.emplace(Publication{
      &record, handle.publisher().pacedAttributeChange(ResourceHandle::kChangeAttribute)});
  groupResolver_->updateGenId();
}

// For what else the record waits, an acknowledgement, a release or a new target puts it back on the
// review list.
void ResourceTable::fileWaits(Record& record) {
  if (!showsTarget(record)) {
    ZEV_TRACE(trace, 3, kClass, "interface: {} waits for{}", record.handle->key(),
              waitsFor(record));
    for (const Asic::TableVersion& wanted : record.acknowledged.versions) {
      fileWait(record, wanted);
    }
  }
  for (const Retired& retired : record.retired) {
    ZEV_TRACE(trace, 8, kClass, "interface: {} destination: {} is not free: {}",
              record.handle->key(), text(retired.destId),
              retired.left ? "not applied:" + unapplied(retired.awaited) : "users may log it");
    for (const Asic::TableVersion& wanted : retired.awaited) {
      fileWait(record, wanted);
    }
  }
}

void ResourceTable::fileWait(Record& record, const Asic::TableVersion& wanted) {
  if (applied(wanted)) {
    return;
  }
  const auto filed = findTable(record.filed, wanted.tableId());
  if (filed == record.filed.end()) {
    record.filed.push_back(wanted);
  } else if (wanted.logVersion() < filed->logVersion()) {
    *filed = wanted;
  } else {
    return;
  }
  auto table = std::ranges::find(waits_, wanted.tableId(), &WaitsOfTable::tableId);
  if (table == waits_.end()) {
    table = waits_.insert(table, WaitsOfTable{wanted.tableId(), {}});
  }
  table->waits.push({wanted.logVersion(), &record});
}

Pell::String ResourceTable::unapplied(const Versions& wanted) const {
  Pell::String text;
  for (const Asic::TableVersion& version : wanted) {
    if (!applied(version)) {
      text += fmt::format(" {}", version);
    }
  }
  return text;
}

// All that keeps the handle from showing its target.
Pell::String ResourceTable::waitsFor(const Record& record) const {
  Pell::String text;
  const std::uint32_t current = record.handle->updateNumber();
  const auto silent = std::ranges::count_if(
      record.uses, [current](const Use& use) { return use.acknowledged != current; });
  if (silent != 0) {
    text += fmt::format(" {} of {} clients to acknowledge update {};", silent, record.uses.size(),
                        current);
  }
  if (!allApplied(record.acknowledged.versions)) {
    text += " the hardware to apply" + unapplied(record.acknowledged.versions) + ";";
  }
  if (record.roomWait) {
    text += fmt::format(" room for {} rows in the group log, where {} are free;",
                        (*record.roomWait)->first, groupLog_->redriveRoom());
  }
  return text;
}

bool ResourceTable::applied(const Asic::TableVersion& wanted) const {
  return groupLog_->applied(wanted.tableId()) >= wanted.logVersion();
}

bool ResourceTable::allApplied(const Versions& wanted) const {
  return std::ranges::all_of(
      wanted, [this](const Asic::TableVersion& version) { return applied(version); });
}

void ResourceTable::clientGone(const ClientInstance* client) {
  records_.forEach([&](const Key& key, const Record&) {
    Record& held = *records_.find(key);
    if (std::erase_if(held.uses, [client](const Use& use) { return use.client == client; }) > 0) {
      reviewLater(held);
    }
  });
}

}  // namespace LoamAdjLib
