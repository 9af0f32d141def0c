// Each key has a record: the handle that clients see, the target that the owner wants it to show,
// and who uses it. Whatever may let a handle move on (a new target, an acknowledgement, a release,
// an applied version) only puts its key on the review list; one turn then goes through the list. A
// key whose last update is not settled stays on it until the next such event.

#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"

#include <algorithm>
#include <span>
#include <utility>

#include "Pell/Exceptions.h"

namespace LoamAdjLib {

using ResourceTable = IntfIdToDestIdResourceTableResourceTable;

namespace {

// Null needs what an empty set needs: nothing.
std::span<const Asic::TableVersion> versionsOf(const Pell::Ptr<Asic::NeededEntry const>& needed) {
  return needed ? needed->tableVersions() : std::span<const Asic::TableVersion>();
}

}  // namespace

ResourceTable::ResourceHandle::~ResourceHandle() { hasNotificationActiveIs(false); }

const Zev::TypeRecord& ResourceTable::ResourceHandle::fwkType() const {
  static const Zev::TypeRecord record{kTypeName, {{"change", kChangeAttribute}}};
  return record;
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

ResourceTable::ClientInstance::~ClientInstance() {
  hasNotificationActiveIs(false);
  if (resourceTable_) {
    resourceTable_->clientGone(this);
  }
}

const Zev::TypeRecord& ResourceTable::ClientInstance::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

Pell::Ptr<ResourceTable::ResourceHandle const> ResourceTable::ClientInstance::request(
    const Key& key, const Dependency& /*dependency*/) {
  return resourceTable_->record(key).handle;
}

void ResourceTable::ClientInstance::ackUpdate(const Pell::Ptr<ResourceHandle const>& handle,
                                              std::uint32_t updateNumber,
                                              const Dependency& dependency) {
  Record& record = resourceTable_->record(handle->key());
  const auto use = std::find_if(record.uses.begin(), record.uses.end(),
                                [this](const Use& held) { return held.client == this; });
  if (use == record.uses.end()) {
    record.uses.push_back({this, updateNumber});
  } else if (updateNumber == handle->updateNumber()) {
    use->acknowledged = updateNumber;
  }
  if (dependency) {
    record.operations.push_back(dependency);
  }
  resourceTable_->reviewLater(record);
}

void ResourceTable::ClientInstance::release(const Pell::Ptr<ResourceHandle const>& handle,
                                            const Dependency& dependency) {
  Record& record = resourceTable_->record(handle->key());
  std::erase_if(record.uses, [this](const Use& use) { return use.client == this; });
  if (dependency) {
    record.operations.push_back(dependency);
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
            if (attributeId == Asic::GroupLog::kAppliedVersionsAttribute && !review_.empty()) {
              turn_.mark();
            }
          }) {
  groupLog_->publisher().subscriberAdd(appliedSubscriber_);
}

ResourceTable::~IntfIdToDestIdResourceTableResourceTable() {
  hasNotificationActiveIs(false);
  groupLog_->publisher().subscriberRemove(appliedSubscriber_);
}

const Zev::TypeRecord& ResourceTable::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
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

std::uint32_t ResourceTable::waitingUpdates() const {
  return static_cast<std::uint32_t>(std::ranges::count_if(
      review_, [this](const Key& key) { return !showsTarget(*records_.find(key)); }));
}

ResourceTable::Record& ResourceTable::record(const Key& key) {
  if (Record* held = records_.find(key); held != nullptr) {
    return *held;
  }
  Record& made = records_[key];
  made.handle = Zev::makeObject<ResourceHandle>(key);
  return made;
}

void ResourceTable::targetIs(Wirex::IntfId intfId, Target target) {
  Record& held = record(Key(intfId));
  const DestId replaced = std::exchange(held.target, std::move(target)).destId;
  std::erase(held.retired, held.target.destId);
  if (replaced != DestId() && replaced != held.target.destId) {
    held.retired.push_back(replaced);
  }
  reviewLater(held);
}

void ResourceTable::reviewLater(Record& record) {
  if (!std::exchange(record.queued, true)) {
    review_.push_back(record.handle->key());
  }
  turn_.mark();
}

void ResourceTable::review() {
  // A subscriber may drop the last other reference to this table.
  const Pell::Ptr<ResourceTable> self(this);
  for (const Key& key : std::exchange(review_, {})) {
    records_.find(key)->queued = false;
    reviewRecord(key);
  }
}

// Frees what the last update replaced and publishes the next one, or puts the key back on the list
// while the last update is not settled.
void ResourceTable::reviewRecord(const Key& key) {
  Record& held = *records_.find(key);
  if (!settled(held)) {
    held.queued = true;
    review_.push_back(key);
    return;
  }
  freeRetired(held);
  publishTarget(held);
}

// Every user has acknowledged the current update, and what carries it (or ends a former use) has
// been applied.
bool ResourceTable::settled(Record& record) const {
  takeVersions(record);
  std::erase_if(record.awaited,
                [this](const Asic::TableVersion& wanted) { return applied(wanted); });
  const std::uint32_t current = record.handle->updateNumber();
  return record.awaited.empty() && std::ranges::all_of(record.uses, [current](const Use& use) {
           return use.acknowledged == current;
         });
}

// An operation that has no log version by now is no constraint: it was answered without a log row,
// or it will be driven again.
void ResourceTable::takeVersions(Record& record) {
  for (const Dependency& operation : std::exchange(record.operations, {})) {
    const Asic::TableVersion wanted = operation->entryTableVersion();
    if (wanted.logVersion() == Asic::LogVersion()) {
      continue;
    }
    const auto held = std::ranges::find(record.awaited, wanted.tableId(),
                                        [](const auto& version) { return version.tableId(); });
    if (held == record.awaited.end()) {
      record.awaited.push_back(wanted);
    } else if (held->logVersion() < wanted.logVersion()) {
      *held = wanted;
    }
  }
}

bool ResourceTable::applied(const Asic::TableVersion& wanted) const {
  try {
    return groupLog_->tableVersion(wanted.tableId()) >= wanted.logVersion();
  } catch (const Pell::CorruptionDetectedException& corruption) {
    groupLog_->versionsMap().doCorruptionDetected(corruption.message());
    return false;
  }
}

// Called when the current update is settled: then entries use what the handle shows, or, while it
// shows no destination yet, still the one before. The handler may set targets, and so change the
// list that is being worked off.
void ResourceTable::freeRetired(Record& record) {
  if (!record.uses.empty() && record.handle->entryState() == Asic::EntryState::notResolved) {
    return;
  }
  const DestId shown = record.handle->destId();
  for (std::size_t left = record.retired.size(); left > 0; --left) {
    const auto found = std::ranges::find_if(
        record.retired, [&shown](const DestId& destination) { return destination != shown; });
    if (found == record.retired.end()) {
      return;
    }
    const DestId freed = *found;
    record.retired.erase(found);
    if (const FreedHandler handler = freedHandler_) {
      handler(record.handle->key().intfId(), freed);
    }
  }
}

bool ResourceTable::showsTarget(const Record& record) {
  const ResourceHandle& handle = *record.handle;
  return handle.entryState() == record.target.state && handle.destId() == record.target.destId &&
         std::ranges::is_permutation(versionsOf(handle.neededEntry()),
                                     versionsOf(record.target.neededEntry));
}

void ResourceTable::publishTarget(Record& record) {
  if (showsTarget(record)) {
    return;
  }
  const Pell::Ptr<ResourceHandle> handle = record.handle;
  handle->contentsIs(record.target.state, record.target.destId, record.target.neededEntry);
  handle->publisher().attributeChange(ResourceHandle::kChangeAttribute);
  groupResolver_->updateGenId();
  reviewLater(record);
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
