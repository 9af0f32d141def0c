// SPDX-License-Identifier: Apache-2.0

// The order of the steps within an operation is the table's: what a handler or a helper sees when
// it is called depends on it.

#include "Model.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace fec_model {

namespace {

constexpr std::size_t kLogCapacity = 100'000;
constexpr std::size_t kSuspendAbove = 9'999;
constexpr std::size_t kResumeAtOrBelow = 7'999;
constexpr std::size_t kFirstRing = 8;  // handles that the in-log queue holds before it grows

constexpr std::uint32_t kWritten = 0;
constexpr std::uint32_t kDeleted = 1;
constexpr std::uint32_t kTableDeleted = 2;

bool isFailure(int state) {
  return state == kDependencyFailed || state == kCommitFailed || state == kResourceFailed;
}

void add(Needed& needed, std::uint32_t table, Version version) {
  needed[table] = std::max(needed[table], version);
}

void addDependency(Needed& needed, const HandlePtr& dependency) {
  if (dependency) {
    add(needed, dependency->tableId, dependency->logVersion);
  }
}

// The items in the given order, if that is an order of exactly these items; otherwise the items as
// they are, and a comparison of the items finds the difference.
template <typename Item>
std::vector<Item> inOrder(const std::vector<Item>& items, const std::vector<Item>& order) {
  return std::ranges::is_permutation(items, order) ? order : items;
}

void respond(const HandlePtr& handle) {
  if (handle->handler) {
    const Handler handler = handle->handler;
    handler(handle);
  }
}

}  // namespace

Entry writtenEntry(Key key, Interface intf, std::uint32_t mark) {
  return {key, mark, 0, {mark + 100'000, 17, mark}, intf};
}

std::string print(const Entry& entry) {
  return fmt::format("{{key {} mark {} helper's mark {} destination {}/{}/{} interface {}}}",
                     entry.key, entry.mark, entry.hookMark, entry.resolved.first,
                     entry.resolved.second, entry.resolved.third, entry.intf);
}

// Start.

void Model::fillLog(std::uint32_t rows) {
  for (Version version = 1; version <= rows; ++version) {
    shared_.log[version] = LogRow();
  }
  shared_.scratchpad = rows;
}

// What only the last process knew is gone; the hardware's last report is in the group log.
void Model::start() {
  if (!queue_.empty()) {
    situations.met(Situation::restartWithPending);
  }
  if (pendingHwWrites_) {
    situations.met(Situation::restartWithUnapplied);
  }
  tables_.clear();
  tablesInOrder_.clear();
  for (auto& [intf, resource] : resources_) {
    resource.subscribers.clear();
  }
  queue_.clear();
  watched_.clear();
  walkAt_.reset();
  generationDue_ = turnDue_ = suspended_ = pendingHwWrites_ = false;
  cleanedTo_ = 0;
  lastReport_.reset();
  tableVersion_ = shared_.scratchpad;
  if (shared_.applied) {
    cleanup(*shared_.applied);
    pendingHwWrites_ = tableVersion_ > *shared_.applied;
  }
}

void Model::makeTable(Unit unit, bool reset, const Orders& orders) {
  tables_[unit];
  tablesInOrder_.push_back(unit);
  shared_.config[unit];
  if (reset) {
    deleteAll(unit, false, {});
  } else {
    restore(unit, orders);
  }
}

// Files the usage of every committed entry, then drives every resource once.
void Model::restore(Unit unit, const Orders& orders) {
  for (const auto& [key, row] : shared_.config[unit]) {
    if (!row.isDeleted) {
      addUsage(unit, row.entry.intf, key, false);
    }
  }
  const Version before = tableVersion_;
  std::vector<Interface> used;
  for (const auto& [intf, keys] : tables_.at(unit).usage) {
    used.push_back(intf);
  }
  for (const Interface intf : inOrder(used, orders.interfaces)) {
    redrive(unit, intf, orders);
  }
  if (tableVersion_ != before) {
    situations.met(Situation::restartWithChanged);
  }
}

// Requests.

HandlePtr Model::write(Unit unit, const Entry& entry, const HandlePtr& dependency,
                       Handler handler) {
  UnitTable& table = tables_.at(unit);
  if (waitingOf(unit, entry.key) >= 2) {
    situations.met(Situation::sameKeyChain);
  }
  const std::uint64_t version = nextEntryVersion(table, entry.key);
  auto request = std::make_shared<Request>();
  request->entry = entry;
  request->handle = std::make_shared<Handle>();
  request->handle->key = entry.key;
  request->handle->entryVersion = version;
  request->handle->handler = std::move(handler);
  if (wrong_ != WrongRule::removeStaysReadable) {
    table.pendingRemoves.erase(entry.key);
  }
  const auto earlier = table.pendingWrites.find(entry.key);
  request->placed = earlier == table.pendingWrites.end() ? ++placements_ : earlier->second->placed;
  table.pendingWrites[entry.key] = request;
  request->hasResource = entry.intf != 0;
  resources_[entry.intf];
  enqueue(unit, Purpose::write, request, dependency);
  return request->handle;
}

HandlePtr Model::remove(Unit unit, Key key, const HandlePtr& dependency, Handler handler) {
  UnitTable& table = tables_.at(unit);
  if (waitingOf(unit, key) >= 2) {
    situations.met(Situation::sameKeyChain);
  }
  const std::uint64_t version = nextEntryVersion(table, key);
  auto request = std::make_shared<Request>();
  request->entry.key = key;
  request->handle = std::make_shared<Handle>();
  request->handle->key = key;
  request->handle->entryVersion = version;
  request->handle->handler = std::move(handler);
  table.pendingWrites.erase(key);
  if (wrong_ != WrongRule::removeStaysReadable) {
    table.pendingRemoves[key] = request;
  }
  enqueue(unit, Purpose::remove, request, dependency);
  return request->handle;
}

HandlePtr Model::removeAll(Unit unit, const HandlePtr& dependency, Handler handler) {
  UnitTable& table = tables_.at(unit);
  auto request = std::make_shared<Request>();
  request->handle = std::make_shared<Handle>();
  request->handle->handler = std::move(handler);
  if (wrong_ != WrongRule::removeAllKeepsRequests) {
    table.pendingWrites.clear();
  }
  table.pendingRemoves.clear();
  table.removeAllVersion = table.removeAllVersion == kNoRemoveAll ? 0 : table.removeAllVersion + 1;
  enqueue(unit, Purpose::removeAll, request, dependency);
  return request->handle;
}

// Counts from 0 among the operations of the key that are pending at the same time.
std::uint64_t Model::nextEntryVersion(UnitTable& table, Key key) {
  const auto held = table.pendingVersions.find(key);
  const std::uint64_t version = held == table.pendingVersions.end() ? 0 : held->second + 1;
  table.pendingVersions[key] = version;
  return version;
}

void Model::noteOvertaking(const Queued& queued) {
  const Key key = queued.request->entry.key;
  if (queued.purpose == Purpose::removeAll || waitingOf(queued.unit, key) < 2) {
    return;
  }
  const auto oldest = std::ranges::find_if(queue_, [&](const Queued& other) {
    return other.unit == queued.unit && other.purpose != Purpose::removeAll &&
           other.request->entry.key == key;
  });
  if (oldest->request != queued.request) {
    situations.met(Situation::overtaken);
  }
}

// For the counts only, and not where a long queue makes it dear.
std::size_t Model::waitingOf(Unit unit, Key key) const {
  constexpr std::size_t kLongQueue = 100;
  if (queue_.size() > kLongQueue) {
    return 0;
  }
  return static_cast<std::size_t>(std::ranges::count_if(queue_, [&](const Queued& queued) {
    return queued.unit == unit && queued.purpose != Purpose::removeAll &&
           queued.request->entry.key == key;
  }));
}

void Model::enqueue(Unit unit, Purpose purpose, const RequestPtr& request,
                    const HandlePtr& dependency) {
  const bool watches = dependency && dependency->state == kNotResolved;
  if (watches) {
    watched_.insert(dependency);
  }
  queue_.push_back({unit, purpose, request, dependency, watches});
  markGeneration();
  updateSuspend();
}

void Model::updateSuspend() {
  if (suspended_ && queue_.size() <= kResumeAtOrBelow) {
    suspended_ = false;
    situations.met(Situation::suspendOff);
  } else if (!suspended_ && queue_.size() > kSuspendAbove) {
    suspended_ = true;
    situations.met(Situation::suspendOn);
  }
}

// Resolution.

void Model::markGeneration() {
  generationDue_ = true;
  if (!walkAt_) {
    turnDue_ = true;
  }
}

// A walk looks once at every request that was queued when it began.
bool Model::turn(std::size_t looksOfTurn) {
  if (!turnDue_) {
    return false;
  }
  turnDue_ = false;
  if (!walkAt_) {
    generationDue_ = false;
    walkAt_ = queue_.begin();
    walkLeft_ = queue_.size();
  }
  for (std::size_t looks = 0; looks < looksOfTurn && walkLeft_ > 0; ++looks, --walkLeft_) {
    const auto at = *walkAt_;
    const bool resolved = isResolved(*at);
    if (resolved) {
      committing_ = true;
      commit(*at);
      committing_ = false;
    }
    walkAt_ = std::next(at);
    if (resolved) {
      if (at->watches) {
        watched_.erase(watched_.find(at->dependency));
      }
      queue_.erase(at);
    }
  }
  if (walkLeft_ > 0) {
    situations.met(Situation::splitWalk);
    turnDue_ = true;
  } else {
    walkAt_.reset();
    turnDue_ = generationDue_;
  }
  return true;
}

bool Model::isResolved(const Queued& queued) {
  if (shared_.log.size() >= kLogCapacity) {
    situations.met(Situation::logFull);
    return false;
  }
  if (queued.dependency && queued.dependency->state == kNotResolved) {
    situations.met(Situation::waitingDependency);
    return false;
  }
  if (queued.purpose == Purpose::remove) {
    return true;
  }
  if (resolution(*queued.request) == kNotResolved) {
    situations.met(Situation::unresolvedResource);
    return false;
  }
  return true;
}

// A resource that is merely in the log is not in place yet.
int Model::resolution(const Request& request) const {
  if (!request.hasResource) {
    return kDone;
  }
  const int state = resources_.at(request.entry.intf).state;
  if (isFailure(state)) {
    return kResourceFailed;
  }
  return state == kDone ? kDone : kNotResolved;
}

Needed Model::neededOf(const Request& request) const {
  return request.hasResource ? resources_.at(request.entry.intf).needed : Needed();
}

// Commit.

void Model::commit(const Queued& queued) {
  noteOvertaking(queued);
  const bool dependencyFailed = queued.dependency && isFailure(queued.dependency->state);
  bool committed = false;
  if (dependencyFailed) {
    situations.met(Situation::failedDependency);
  } else if (queued.purpose == Purpose::write) {
    committed = commitWrite(queued);
  } else {
    queued.purpose == Purpose::remove ? commitRemove(queued) : commitRemoveAll(queued);
    committed = true;
  }
  if (committed) {
    pendingHwWrites_ = true;
  } else {
    fail(queued);
  }
  updateSuspend();
}

bool Model::commitWrite(const Queued& queued) {
  UnitTable& table = tables_.at(queued.unit);
  Request& request = *queued.request;
  if (!finalize(queued)) {
    return false;
  }
  Needed needed = neededOf(request);
  updateUsage(queued.unit, request, false);
  addDependency(needed, queued.dependency);
  clean(table, table.pendingWrites, request);
  inLog(table, request.handle, logWrite(queued.unit, request.entry, needed));
  return true;
}

// The helper has its say before anything is logged: it may mark the entry and make requests.
bool Model::finalize(const Queued& queued) {
  UnitTable& table = tables_.at(queued.unit);
  Request& request = *queued.request;
  if (resolution(request) == kResourceFailed) {
    situations.met(table.helperLogsFailures ? Situation::failedResourceLogged
                                            : Situation::failedResource);
    return table.helperLogsFailures;
  }
  request.entry.resolved =
      request.hasResource ? resources_.at(request.entry.intf).destination : Destination();
  if (table.helperMarks) {
    request.entry.hookMark = request.entry.mark + 1;
  }
  if (table.onNextSuccess) {
    const auto act = std::exchange(table.onNextSuccess, nullptr);
    act(request.entry.key);
  }
  return true;
}

void Model::commitRemove(const Queued& queued) {
  UnitTable& table = tables_.at(queued.unit);
  Request& request = *queued.request;
  updateUsage(queued.unit, request, true);
  Needed needed;
  addDependency(needed, queued.dependency);
  clean(table, table.pendingRemoves, request);
  inLog(table, request.handle, logRemove(queued.unit, request.entry.key, needed));
}

// Its own handle stays as it is: nobody is told.
void Model::commitRemoveAll(const Queued& queued) {
  UnitTable& table = tables_.at(queued.unit);
  situations.met(Situation::tableDelete);
  Needed needed;
  addDependency(needed, queued.dependency);
  deleteAll(queued.unit, true, needed);
  lastTableDelete_[queued.unit] = tableVersion_;
  --table.removeAllVersion;  // 0 becomes "none"
}

void Model::fail(const Queued& queued) {
  UnitTable& table = tables_.at(queued.unit);
  if (queued.purpose == Purpose::removeAll) {
    situations.met(Situation::failedRemoveAll);
  }
  if (wrong_ == WrongRule::failureIsForgotten) {
    clean(table, table.pendingWrites, *queued.request);
  }
  setState(queued.request->handle, kCommitFailed);
  respond(queued.request->handle);
}

// Only the newest request of a key stands in the maps; it leaves them when it is the one that is
// committed, which the versions tell.
void Model::clean(UnitTable& table, std::map<Key, RequestPtr>& side, const Request& request) {
  const auto held = side.find(request.entry.key);
  if (held == side.end()) {
    return;
  }
  if (held->second->handle->entryVersion != request.handle->entryVersion &&
      wrong_ != WrongRule::staleVersionWins) {
    return;
  }
  side.erase(held);
  table.pendingVersions.erase(request.entry.key);
}

void Model::inLog(UnitTable& table, const HandlePtr& handle, Version version) {
  handle->logVersion = version;
  setState(handle, kInLog);
  table.inLog.push_back(handle);
  if (table.inLog.size() == kFirstRing + 1) {
    situations.met(Situation::ringQueueGrown);
  }
}

void Model::handleState(const HandlePtr& handle, int state) { setState(handle, state); }

// Requests that were queued while the operation was unresolved are looked at again.
void Model::setState(const HandlePtr& handle, int state) {
  if (handle->state == state) {
    return;
  }
  handle->state = state;
  if (watched_.contains(handle)) {
    markGeneration();
  }
}

// Entry log.

Version Model::logChange(const LogRow& row, const Needed& needed) {
  shared_.log[tableVersion_] = row;
  shared_.log[tableVersion_].entry.intf = 0;
  unapplied_[tableVersion_] = shared_.log[tableVersion_];
  shared_.scratchpad = tableVersion_;
  shared_.groupLog.push_back({tableVersion_, needed});
  return tableVersion_;
}

Version Model::logWrite(Unit unit, const Entry& entry, const Needed& needed) {
  ++tableVersion_;
  const auto deleted = lastTableDelete_.find(unit);
  if (deleted != lastTableDelete_.end() && shared_.log.contains(deleted->second)) {
    situations.met(Situation::tableDeleteThenWrite);
  }
  std::map<Key, ConfigRow>& rows = shared_.config.at(unit);
  const auto held = rows.find(entry.key);
  const std::uint64_t placed = held == rows.end() ? ++placements_ : held->second.placed;
  rows[entry.key] = {entry, tableVersion_, false, placed};
  return logChange({kWritten, unit, entry}, needed);
}

// A key without a row: nothing is logged, and the version is 0.
Version Model::logRemove(Unit unit, Key key, const Needed& needed) {
  std::map<Key, ConfigRow>& rows = shared_.config.at(unit);
  const auto held = rows.find(key);
  if (held == rows.end()) {
    situations.met(Situation::ignoredDelete);
    return 0;
  }
  if (held->second.isDeleted) {
    situations.met(Situation::deletedAgain);
  }
  held->second.version = ++tableVersion_;
  held->second.isDeleted = true;
  return logChange({kDeleted, unit, held->second.entry}, needed);
}

void Model::clear(Unit unit, bool releaseResources) {
  situations.met(releaseResources ? Situation::clearedReleasing : Situation::reset);
  deleteAll(unit, releaseResources, {});
}

// Every row is marked, those that were marked before too, and one log row says so. The resources of
// the live entries go first, if they are to go.
void Model::deleteAll(Unit unit, bool releaseResources, const Needed& needed) {
  std::map<Key, ConfigRow>& rows = shared_.config.at(unit);
  if (releaseResources) {
    const std::size_t eventsBefore = resourceEvents_.size();
    for (const auto& [key, row] : rows) {
      if (!row.isDeleted) {
        dropUsage(unit, row.entry.intf, key, std::make_shared<Handle>());
      }
    }
    ++tableDeletes_;
    for (std::size_t at = eventsBefore; at < resourceEvents_.size(); ++at) {
      resourceEvents_[at].anyOrder = tableDeletes_;
    }
  }
  ++tableVersion_;
  for (auto& [key, row] : rows) {
    row.version = tableVersion_;
    row.isDeleted = true;
  }
  logChange({kTableDeleted, unit, Entry()}, needed);
}

// The cursor only remembers the last version it was given; 0 stands for a process that has not
// cleaned anything yet.
void Model::cleanup(Version version) {
  if (cleanedTo_ != 0 && version < cleanedTo_) {
    situations.met(Situation::cursorMovedBack);
    if (wrong_ != WrongRule::cursorStays) {
      cleanedTo_ = version;
    }
    return;
  }
  const Version from = cleanedTo_;
  cleanedTo_ = version;
  while (true) {
    const auto at = shared_.log.lower_bound(from);
    if (at == shared_.log.end() || at->first > version) {
      return;
    }
    const auto [removed, row] = *at;
    shared_.log.erase(at);
    cleanupRow(removed, row);
  }
}

// A deletion's rows go with it, unless they have changed since.
void Model::cleanupRow(Version version, const LogRow& row) {
  if (!tables_.contains(row.unit)) {
    if (row.operation != kWritten) {
      situations.met(Situation::orphanedDeletion);
    }
    return;
  }
  std::map<Key, ConfigRow>& rows = shared_.config.at(row.unit);
  if (row.operation == kTableDeleted) {
    std::erase_if(rows, [&](const auto& held) { return held.second.version == version; });
  } else if (row.operation == kDeleted) {
    const auto held = rows.find(row.entry.key);
    if (held != rows.end() && held->second.version == version) {
      rows.erase(held);
    }
  }
}

// Reports.

// Every unit's table hears every report; then the group log keeps it, unless it knows better. What
// was never logged cannot be applied: nobody hears of such a report.
void Model::report(Version version) {
  if (version > tableVersion_) {
    situations.met(Situation::reportRefused);
    return;
  }
  if (lastReport_ == version) {
    situations.met(Situation::reportRepeated);
  }
  lastReport_ = version;
  applyUpTo(version);
  const std::vector<Unit> units = tablesInOrder_;
  for (const Unit unit : units) {
    reportTo(unit, version);
  }
  if (shared_.applied && version < *shared_.applied) {
    return;
  }
  shared_.applied = version;
  while (!shared_.groupLog.empty() && shared_.groupLog.front().version <= version) {
    shared_.groupLog.pop_front();
  }
}

void Model::applyUpTo(Version version) {
  while (!unapplied_.empty() && unapplied_.begin()->first <= version) {
    const LogRow row = unapplied_.begin()->second;
    unapplied_.erase(unapplied_.begin());
    if (row.operation == kWritten) {
      hardware_[{row.unit, row.entry.key}] = row.entry;
    } else if (row.operation == kDeleted) {
      hardware_.erase({row.unit, row.entry.key});
    } else {
      std::erase_if(hardware_, [&](const auto& held) { return held.first.first == row.unit; });
    }
  }
}

void Model::reportTo(Unit unit, Version version) {
  UnitTable& table = tables_.at(unit);
  cleanup(version);
  markGeneration();
  while (!table.inLog.empty() && table.inLog.front()->logVersion <= version) {
    const HandlePtr handle = table.inLog.front();
    table.inLog.pop_front();
    setState(handle, kDone);
    respond(handle);
  }
  if (!table.inLog.empty()) {
    situations.met(Situation::reportBehind);
  }
  if (tableVersion_ == version) {
    pendingHwWrites_ = false;
  }
}

// Usage of resources. It follows what is committed: the interface that an entry leaves is the one
// of its row.

void Model::updateUsage(Unit unit, const Request& request, bool isRemove) {
  const Key key = request.entry.key;
  const ConfigRow* row = liveRow(unit, key);
  if (isRemove) {
    if (row != nullptr) {
      dropUsage(unit, row->entry.intf, key, request.handle);
    }
    return;
  }
  if (row == nullptr) {
    addUsage(unit, request.entry.intf, key, true);
  } else if (row->entry.intf != request.entry.intf || wrong_ == WrongRule::releasesTwice) {
    dropUsage(unit, row->entry.intf, key, request.handle);
    addUsage(unit, request.entry.intf, key, true);
  }
}

// Only the first user of a resource is acknowledged.
void Model::addUsage(Unit unit, Interface intf, Key key, bool acknowledge) {
  if (intf == 0) {
    return;
  }
  auto& usage = tables_.at(unit).usage;
  Resource& resource = resources_[intf];
  if (!usage.contains(intf)) {
    resource.subscribers.push_back(unit);
    if (acknowledge) {
      tell({false, unit, intf, resource.updateNumber, nullptr, 0});
    }
  }
  usage[intf].insert(key);
}

void Model::dropUsage(Unit unit, Interface intf, Key key, const HandlePtr& handle) {
  auto& usage = tables_.at(unit).usage;
  const auto held = usage.find(intf);
  if (held == usage.end()) {
    return;
  }
  held->second.erase(key);
  if (held->second.empty()) {
    situations.met(Situation::lastUserReleased);
    tell({true, unit, intf, 0, handle, 0});
    usage.erase(held);
    resources_[intf].subscribers.remove(unit);
  }
}

void Model::tell(const ResourceEvent& event) {
  resourceEvents_.push_back(event);
  Resource& resource = resources_[event.intf];
  if (event.dependency && !event.isRelease && event.updateNumber == resource.updateNumber) {
    resource.carriers.push_back(event.dependency);
  }
}

void Model::resourceIs(Interface intf, int state, const Destination& destination,
                       const Needed& needed) {
  Resource& resource = resources_[intf];
  if (!resource.heard && !resource.subscribers.empty()) {
    situations.met(Situation::coalescedChange);
  }
  resource.state = state;
  resource.destination = destination;
  resource.needed = needed;
  ++resource.updateNumber;
  resource.heard = false;
  resource.carriers.clear();
}

void Model::publish(Interface intf, const Orders& orders) {
  Resource& resource = resources_[intf];
  resource.heard = true;
  const std::list<Unit> subscribers = resource.subscribers;
  if (subscribers.size() > 1) {
    situations.met(Situation::severalUnitsRedriven);
  }
  for (const Unit unit : subscribers) {
    redrive(unit, intf, orders);
  }
}

// The acknowledgement names the last of the operations that carry the change.
void Model::redrive(Unit unit, Interface intf, const Orders& orders) {
  const std::set<Key>& users = tables_.at(unit).usage.at(intf);
  const auto held = orders.keys.find({unit, intf});
  const std::vector<Key> order = held == orders.keys.end() ? std::vector<Key>() : held->second;
  HandlePtr carrier;
  for (const Key key : inOrder(std::vector<Key>(users.begin(), users.end()), order)) {
    if (const HandlePtr handle = update(unit, key)) {
      carrier = handle;
    } else {
      situations.met(Situation::staleUsage);
    }
  }
  tell({false, unit, intf, resources_.at(intf).updateNumber, carrier, 0});
}

HandlePtr Model::update(Unit unit, Key key) {
  const ConfigRow* row = liveRow(unit, key);
  if (row == nullptr) {
    return nullptr;
  }
  Request request;
  request.entry = row->entry;
  request.hasResource = tables_.at(unit).usage.contains(row->entry.intf);
  request.entry.resolved =
      request.hasResource ? resources_.at(row->entry.intf).destination : Destination();
  auto handle = std::make_shared<Handle>();
  handle->key = key;
  handle->state = kInLog;
  const bool unresolved = resolution(request) == kNotResolved;
  if (request.entry != row->entry && !unresolved) {
    situations.met(Situation::redriven);
    handle->logVersion = logWrite(unit, request.entry, neededOf(request));
  } else {
    situations.met(unresolved ? Situation::redrivenUnresolved : Situation::redrivenUnchanged);
    handle->logVersion = tableVersion_;
  }
  return handle;
}

std::vector<ResourceEvent> Model::takeResourceEvents() {
  return std::exchange(resourceEvents_, {});
}

// Reads.

const ConfigRow* Model::liveRow(Unit unit, Key key) const {
  const auto rows = shared_.config.find(unit);
  if (rows == shared_.config.end()) {
    return nullptr;
  }
  const auto held = rows->second.find(key);
  return held == rows->second.end() || held->second.isDeleted ? nullptr : &held->second;
}

// A pending remove-all hides nothing from a read by key.
Entry Model::read(Unit unit, Key key) const {
  const UnitTable& table = tables_.at(unit);
  if (const auto pending = table.pendingWrites.find(key); pending != table.pendingWrites.end()) {
    return pending->second->entry;
  }
  const ConfigRow* row = liveRow(unit, key);
  return row == nullptr || table.pendingRemoves.contains(key) ? Entry() : row->entry;
}

bool Model::has(Unit unit, Key key) const {
  const UnitTable& table = tables_.at(unit);
  if (table.pendingWrites.contains(key)) {
    return true;
  }
  return !table.pendingRemoves.contains(key) && table.removeAllVersion == kNoRemoveAll &&
         liveRow(unit, key) != nullptr;
}

std::uint32_t Model::entrys(Unit unit) const {
  return static_cast<std::uint32_t>(iterated(unit).size());
}

std::map<Key, Entry> Model::iterated(Unit unit) const {
  const UnitTable& table = tables_.at(unit);
  std::map<Key, Entry> entries;
  for (const auto& [key, request] : table.pendingWrites) {
    entries[key] = request->entry;
  }
  for (const auto& [key, row] : shared_.config.at(unit)) {
    if (has(unit, key)) {
      entries.try_emplace(key, row.entry);
    }
  }
  return entries;
}

}  // namespace fec_model
