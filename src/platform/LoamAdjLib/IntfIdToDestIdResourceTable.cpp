// Each key has a record: the handle that clients see, the target that the owner wants it to show,
// and who uses it. Whatever may let a handle move on (a new target, an acknowledgement, a release,
// an applied version) only puts its key on the review list; one turn then goes through the list. A
// key whose last update is not settled stays on it until the next such event.

#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"

#include <algorithm>
#include <utility>

#include "Pell/Exceptions.h"

namespace LoamAdjLib {

using ResourceTable = IntfIdToDestIdResourceTableResourceTable;

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
    record.uses.push_back({this, updateNumber, dependency});
  } else {
    *use = {this, updateNumber, dependency};
  }
  resourceTable_->reviewLater(record);
}

void ResourceTable::ClientInstance::release(const Pell::Ptr<ResourceHandle const>& handle,
                                            const Dependency& dependency) {
  Record& record = resourceTable_->record(handle->key());
  std::erase_if(record.uses, [this](const Use& use) { return use.client == this; });
  if (dependency) {
    record.releases.push_back(dependency);
  }
  resourceTable_->reviewLater(record);
}

ResourceTable::IntfIdToDestIdResourceTableResourceTable(
    Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupResolver>& groupResolver,
    const Pell::Ptr<Asic::GroupLog>& groupLog)
    : groupResolver_(groupResolver),
      groupLog_(groupLog),
      turn_(loop, [this] { review(); }),
      appliedSubscriber_([this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*,
                                const void*) {
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
  return static_cast<std::uint32_t>(review_.size());
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
  held.target = std::move(target);
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
  for (const DestId& destination : std::exchange(held.retired, {})) {
    if (freedHandler_) {
      freedHandler_(key.intfId(), destination);
    }
  }
  publishTarget(key);
}

void ResourceTable::publishTarget(const Key& key) {
  Record& held = *records_.find(key);
  const Pell::Ptr<ResourceHandle> handle = held.handle;
  const bool sameDestination = handle->destId_ == held.target.destId;
  if (handle->entryState_ == held.target.state && sameDestination &&
      handle->neededEntry_ == held.target.neededEntry) {
    return;
  }
  if (handle->destId_ != DestId() && !sameDestination) {
    held.retired.push_back(handle->destId_);
  }
  handle->contentsIs(held.target.state, held.target.destId, held.target.neededEntry);
  handle->publisher().attributeChange(ResourceHandle::kChangeAttribute);
  groupResolver_->updateGenId();
  reviewLater(*records_.find(key));
}

// Every user has acknowledged the current update, and what carries it (or ends a former use) has
// been applied.
bool ResourceTable::settled(Record& record) const {
  std::erase_if(record.releases,
                [this](const Dependency& operation) { return applied(*operation); });
  bool allAcknowledged = record.releases.empty();
  for (Use& use : record.uses) {
    if (use.dependency && applied(*use.dependency)) {
      use.dependency = nullptr;
    }
    allAcknowledged = allAcknowledged && !use.dependency &&
                      use.acknowledged == record.handle->updateNumber();
  }
  return allAcknowledged;
}

// An operation that has no log version by now is no constraint: it was answered without a log row,
// or it will be driven again.
bool ResourceTable::applied(const Asic::DependencyEntryHandle& operation) const {
  const Asic::TableVersion wanted = operation.entryTableVersion();
  if (wanted.logVersion() == Asic::LogVersion()) {
    return true;
  }
  try {
    return groupLog_->tableVersion(wanted.tableId()) >= wanted.logVersion();
  } catch (const Pell::CorruptionDetectedException& corruption) {
    groupLog_->versionsMap().doCorruptionDetected(corruption.message());
    return false;
  }
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
