// SPDX-License-Identifier: Apache-2.0

// The real side goes first. Where the model cannot know an order (hash containers choose it), it is
// read from the real side and given to the model, which takes it only if it is an order of what the
// model itself expects.

#include "ModelRun.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

namespace fec_model {

namespace {

constexpr std::size_t kCompareAllEvery = 24;   // steps
constexpr std::size_t kComparedEachStep = 64;  // open handles; more are compared with everything
constexpr std::size_t kLongLog = 2'000;        // rows; compared whole at the end only
constexpr std::uint32_t kManyMark = 20'000;

std::string handleText(int state, Version version) {
  return fmt::format("state {} version {}", state, version);
}

// As far as requesters and the resource table see it.
std::string handleText(const HandlePtr& handle) {
  return handle ? handleText(handle->state, handle->logVersion) : "none";
}

std::string handleText(const RealTable::RealDependency& handle) {
  return handle ? handleText(static_cast<int>(handle->entryState()),
                             handle->entryTableVersion().logVersion().value())
                : "none";
}

std::string eventText(bool isRelease, Unit unit, Interface intf, std::uint32_t updateNumber,
                      const std::string& dependency) {
  return fmt::format("unit {} {} interface {} update {} by {}", unit,
                     isRelease ? "releases" : "acknowledges", intf, updateNumber, dependency);
}

bool isFinal(int state) { return state == kDone || state == kCommitFailed; }

template <typename Entries>
std::map<Key, Entry> byKey(const Entries& entries) {
  std::map<Key, Entry> sorted;
  for (const Entry& entry : entries) {
    sorted[entry.key] = entry;
  }
  return sorted;
}

std::map<Key, std::pair<Entry, std::uint64_t>> entriesOf(const std::map<Key, RequestPtr>& pending) {
  std::map<Key, std::pair<Entry, std::uint64_t>> entries;
  for (const auto& [key, request] : pending) {
    entries[key] = {request->entry, request->handle->entryVersion};
  }
  return entries;
}

std::map<Key, std::uint64_t> versionsOf(const std::map<Key, RequestPtr>& pending) {
  std::map<Key, std::uint64_t> versions;
  for (const auto& [key, request] : pending) {
    versions[key] = request->handle->entryVersion;
  }
  return versions;
}

std::map<Interface, std::vector<Key>> sorted(std::map<Interface, std::vector<Key>> usage) {
  for (auto& [intf, keys] : usage) {
    std::ranges::sort(keys);
  }
  return usage;
}

std::map<Interface, std::vector<Key>> listed(const std::map<Interface, std::set<Key>>& usage) {
  std::map<Interface, std::vector<Key>> lists;
  for (const auto& [intf, keys] : usage) {
    lists[intf].assign(keys.begin(), keys.end());
  }
  return lists;
}

}  // namespace

ModelRun::ModelRun(const Start& start, WrongRule wrong)
    : units_(start.units),
      live_(start.liveResources),
      real_(start.logRows, start.liveResources),
      model_(wrong) {
  if (start.logRows != 0) {
    model_.fillLog(start.logRows);
  }
  model_.start();
  comparedTo_ = start.logRows;
  for (Interface intf = 1; intf <= kInterfaces && !live_; ++intf) {
    real_.resourceIs(intf, kNotResolved, {}, {});
    model_.resourceIs(intf, kNotResolved, {}, {});
  }
  for (std::uint32_t slot = 1; slot <= kDependencies; ++slot) {
    newDependency(slot);
  }
  makeUnits((1U << units_) - 1, 0);
}

ModelRun::~ModelRun() = default;

// Whole tables.

void ModelRun::makeUnits(std::uint32_t units, std::uint32_t resets) {
  for (Unit unit = 0; unit < units_; ++unit) {
    if ((units >> unit & 1U) != 0) {
      makeUnit(unit, (resets >> unit & 1U) != 0);
    }
  }
}

void ModelRun::makeUnit(Unit unit, bool reset) {
  if (model_.hasTable(unit)) {
    return;
  }
  const std::size_t eventsBefore = real_.resourceEvents().size();
  real_.makeTable(unit, reset);
  Orders held = orders(unit);
  for (std::size_t at = eventsBefore; at < real_.resourceEvents().size(); ++at) {
    held.interfaces.push_back(real_.resourceEvents()[at].intf);
  }
  model_.makeTable(unit, reset, held);
}

// Unit 0 always has a table.
void ModelRun::restart(const Operation& operation) {
  walks_.clear();
  open_.clear();
  wereReset_.clear();
  startedAt_ = model_.tableVersion();
  real_.restart();
  model_.start();
  lastReport_ = model_.shared().applied.value_or(0);
  if (live_) {
    wishAgain();
  }
  makeUnits(operation.value | 1U, operation.count);
}

void ModelRun::clear(Unit unit, bool releaseResources) {
  model_.clear(unit, releaseResources);
  if (!releaseResources) {
    wereReset_.insert(unit);
  }
}

// The order in which a restore drives the interfaces shows in its acknowledgements.
Orders ModelRun::orders(Unit unit) {
  Orders orders;
  for (const auto& [intf, keys] : real_.usage(unit)) {
    orders.keys[{unit, intf}] = keys;
  }
  return orders;
}

Orders ModelRun::ordersOfAll() {
  Orders all;
  for (const auto& [unit, table] : model_.tables()) {
    all.keys.merge(orders(unit).keys);
  }
  return all;
}

// Operations.

std::string ModelRun::step(const Operation& operation) {
  constexpr std::size_t kLongestLiveQueue = 500;  // a walk is one turn
  const bool reachesATable =
      model_.hasTable(operation.unit) && (!live_ || model_.queueLength() < kLongestLiveQueue);
  if (reachesATable || operation.kind == Kind::makeUnit) {
    apply(operation);
  }
  for (auto& [slot, walk] : walks_) {
    walk.expected.follow(model_, model_.situations);
  }
  return compareTouched(operation);
}

void ModelRun::apply(const Operation& operation) {
  switch (operation.kind) {
    case Kind::write:
    case Kind::writeMany:
    case Kind::remove:
    case Kind::removeAll:
      return request(operation);
    case Kind::resource:
      return resource(operation);
    case Kind::dependency:
      slots_[operation.key].real->stateIs(static_cast<Asic::EntryState>(operation.value));
      return model_.handleState(slots_[operation.key].model, static_cast<int>(operation.value));
    case Kind::newDependency:
      return newDependency(operation.key);
    case Kind::generation:
      real_.markGeneration();
      return model_.markGeneration();
    case Kind::turn:
    case Kind::run:
      return turns(operation.kind == Kind::run);
    case Kind::report:
      return report(operation);
    case Kind::reset:
      real_.reset(operation.unit);
      return clear(operation.unit, false);
    case Kind::clear:
      real_.clear(operation.unit, operation.value != 0);
      return clear(operation.unit, operation.value != 0);
    case Kind::update:
      return update(operation);
    case Kind::hooks:
      return hooks(operation);
    case Kind::openWalk:
    case Kind::openWalkFrom:
      return openWalk(operation);
    case Kind::stepWalk:
      disagreement_ = stepWalk(operation);
      return;
    case Kind::makeUnit:
      return operation.unit < units_ ? makeUnit(operation.unit, false) : void();
    case Kind::restart:
      return restart(operation);
  }
}

// Requests.

void ModelRun::request(const Operation& operation) {
  const Dependency on = dependency(operation.dependsOn);
  if (operation.kind != Kind::writeMany) {
    requestReal(operation, on.real);
    requestModel(operation, on.model);
    return;
  }
  for (std::uint32_t made = 0; made < operation.count; ++made) {
    const Operation one =
        write(operation.unit, (operation.key + made) % kKeys, operation.intf, kManyMark + made)
            .then(made == 0 ? operation.reaction : Reaction::none);
    requestReal(one, on.real);
    requestModel(one, on.model);
  }
}

void ModelRun::requestReal(const Operation& operation,
                           const RealTable::RealDependency& dependency) {
  const std::size_t number = realHandles_.size();
  realHandles_.emplace_back();
  const RealTable::RealHandler handler = realHandler(operation);
  if (operation.kind == Kind::write) {
    const Entry entry = writtenEntry(operation.key, operation.intf, operation.value);
    realHandles_[number] = real_.write(operation.unit, entry, dependency, handler);
  } else if (operation.kind == Kind::remove) {
    realHandles_[number] = real_.remove(operation.unit, operation.key, dependency, handler);
  } else {
    real_.removeAll(operation.unit, dependency, handler);
  }
}

void ModelRun::requestModel(const Operation& operation, const HandlePtr& dependency) {
  open_.push_back(modelHandles_.size());
  const Handler handler = modelHandler(operation);
  if (operation.kind == Kind::write) {
    const Entry entry = writtenEntry(operation.key, operation.intf, operation.value);
    modelHandles_.push_back(model_.write(operation.unit, entry, dependency, handler));
  } else if (operation.kind == Kind::remove) {
    modelHandles_.push_back(model_.remove(operation.unit, operation.key, dependency, handler));
  } else {
    modelHandles_.push_back(model_.removeAll(operation.unit, dependency, handler));
  }
}

RealTable::RealHandler ModelRun::realHandler(const Operation& operation) {
  const std::size_t number = realHandles_.size() - 1;
  return [this, number, operation](const RealTable::RealHandle& handle) {
    const auto typed = Pell::dynamicPtrCast<LoamFec::FecTableSwTable::EntryHandle const>(handle);
    realAnswers_.push_back({number, keyOf(typed->key()), static_cast<int>(handle->entryState()),
                            handle->logVersion().value()});
    reactReal(followUp(operation.reaction, operation.unit, operation.key));
  };
}

Handler ModelRun::modelHandler(const Operation& operation) {
  const std::size_t number = modelHandles_.size();
  return [this, number, operation](const HandlePtr& handle) {
    modelAnswers_.push_back({number, handle->key, handle->state, handle->logVersion});
    const auto reaction = followUp(operation.reaction, operation.unit, operation.key);
    if (reaction) {
      model_.situations.met(reaction->kind == Kind::report ? Situation::nestedReport
                                                           : Situation::handlerRequested);
    }
    if (reaction && model_.committing()) {
      model_.situations.met(Situation::handlerRequestedInWalk);
    }
    reactModel(reaction);
  };
}

void ModelRun::reactReal(const std::optional<Operation>& what) {
  if (what && what->kind == Kind::report) {
    real_.report(real_.tableVersion());
  } else if (what) {
    requestReal(*what, nullptr);
  }
}

void ModelRun::reactModel(const std::optional<Operation>& what) {
  if (what && what->kind == Kind::report) {
    model_.report(model_.tableVersion());
  } else if (what) {
    requestModel(*what, nullptr);
  }
}

ModelRun::Dependency ModelRun::dependency(std::uint32_t which) const {
  if (which == 0) {
    return {};
  }
  if (which <= kDependencies) {
    const Slot& slot = slots_.at(which);
    return {slot.real, slot.model};
  }
  const std::size_t ago = which - kDependencies;
  if (ago > realHandles_.size() || !realHandles_[realHandles_.size() - ago]) {
    return {};
  }
  return {realHandles_[realHandles_.size() - ago], modelHandles_[modelHandles_.size() - ago]};
}

// What requests wait for.

void ModelRun::newDependency(std::uint32_t slot) {
  ++dependencyVersions_;
  auto model = std::make_shared<Handle>();
  model->tableId = kOtherTable;
  model->logVersion = dependencyVersions_;
  slots_[slot] = {Zev::makeObject<testing_support::FakeDependency>(Asic::TableVersion(
                      Asic::SwTableId(kOtherTable), Asic::LogVersion(dependencyVersions_))),
                  model};
}

// Every other destination waits for a version of another table.
void ModelRun::resource(const Operation& operation) {
  const std::uint32_t number = operation.count;
  if (live_) {
    return wish(operation.intf, static_cast<int>(operation.value), number);
  }
  const Destination destination{number, number + 1, number + 2};
  const Needed needed = number % 2 == 0 ? Needed{{kDestinationTable, number}} : Needed{};
  const auto notice = static_cast<Notice>(operation.mode);
  const int state = static_cast<int>(operation.value);
  real_.resourceIs(operation.intf, state, destination, needed);
  model_.resourceIs(operation.intf, state, destination, needed);
  if (notice == Notice::silent) {
    return;
  }
  real_.publish(operation.intf, notice == Notice::published);
  real_.markGeneration();
  if (notice == Notice::published) {
    model_.publish(operation.intf, ordersOfAll());
  }
  model_.markGeneration();
}

// Live resources. When a handle changes is the resource table's to decide; the model follows, and
// sees to it that no change comes too early and no destination is let go too early, or never.

void ModelRun::wish(Interface intf, int state, std::uint32_t number) {
  constexpr std::uint32_t kEach = 1'000;  // destinations of different interfaces differ
  Wish& wish = wishes_[intf];
  const Destination before = wish.destination;
  const std::uint32_t first = intf * kEach + number;
  const bool wanted = state == kDone;
  wish.state = wanted ? kDone : state <= kInLog ? kNotResolved : kResourceFailed;
  wish.destination = wanted ? Destination{first, number, number} : Destination();
  wish.needed = wanted && number % 2 == 0 ? Needed{{kDestinationTable, number}} : Needed();
  if (before != Destination()) {
    wish.replaced.insert(before.first);
  }
  wish.replaced.erase(wish.destination.first);
  real_.resourceIs(intf, wish.state, wish.destination, wish.needed);
}

// After a restart the owner says again what it wants, before any table is made.
void ModelRun::wishAgain() {
  model_.forgetResources();
  for (auto& [intf, wish] : wishes_) {
    wish.replaced.clear();
    real_.resourceIs(intf, wish.state, wish.destination, wish.needed);
  }
  turns(true);
}

// A handle may change when the hardware has applied all that carried its last change; for the first
// time at once, whatever a restart has found in the log.
void ModelRun::followResources() {
  for (const Destination& destination : real_.takeFreed()) {
    followFreed(destination);
  }
  const Version applied = model_.shared().applied.value_or(0);
  for (const RealTable::Change& change : real_.takeChanges()) {
    const Resource& resource = model_.resource(change.intf);
    for (const HandlePtr& carrier : resource.carriers) {
      if (resource.updateNumber > 0 && carrier->logVersion > applied) {
        disagreement_ = fmt::format("interface {} changes before version {} is applied",
                                    change.intf, carrier->logVersion);
      }
    }
    model_.situations.met(Situation::liveChange);
    model_.resourceIs(change.intf, change.state, change.destination, change.needed);
    model_.publish(change.intf, ordersOfAll());
    model_.markGeneration();
  }
}

void ModelRun::followFreed(const Destination& destination) {
  model_.situations.met(Situation::destinationFreed);
  std::size_t waited = 0;
  for (auto& [intf, wish] : wishes_) {
    waited += wish.replaced.erase(destination.first);
  }
  if (waited != 1) {
    disagreement_ =
        fmt::format("destination {} is let go without being replaced, or again", destination.first);
  }
  for (const auto& [place, entry] : model_.hardware()) {
    if (entry.resolved == destination && isSpokenFor(place.first)) {
      disagreement_ = fmt::format("destination {} is let go while the hardware has unit {} {}",
                                  destination.first, place.first, print(entry));
    }
  }
}

// Whether the resource table can know of every use that the unit's hardware entries make of a
// destination. It cannot while the unit has no table since a restart; while removals from before
// the restart are not applied, which leave nothing to restore; while a remove-all is not applied,
// whose releases name an operation that never gets a version; and after a reset, which leaves usage
// of entries that are gone and so acknowledgements that name nothing to wait for.
bool ModelRun::isSpokenFor(Unit unit) const {
  constexpr std::uint32_t kTableDeleted = 2;
  const Version applied = model_.shared().applied.value_or(0);
  const bool removeAllUnderWay = std::ranges::any_of(model_.shared().log, [&](const auto& row) {
    return row.first > applied && row.second.unit == unit && row.second.operation == kTableDeleted;
  });
  return model_.hasTable(unit) && applied >= startedAt_ && !removeAllUnderWay &&
         !wereReset_.contains(unit);
}

std::string ModelRun::settle() {
  constexpr int kRounds = 8;
  if (!live_) {
    return {};
  }
  for (int rounds = 0; rounds < kRounds && disagreement_.empty(); ++rounds) {
    turns(true);
    report(fec_model::report(Report::behind, 0));
  }
  turns(true);
  return disagreement_.empty() ? compareSettled() : disagreement_;
}

// Every wish has come true, the hardware is equal to what is committed, and what was replaced has
// been let go, unless entries that have no new destination yet still keep it.
std::string ModelRun::compareSettled() {
  Comparison comparison;
  for (const auto& [intf, wish] : wishes_) {
    const Resource& resource = model_.resource(intf);
    comparison.same("state of a resource", resource.state, wish.state);
    comparison.same("destination of a resource", resource.destination.first,
                    wish.destination.first);
    const bool kept = wish.state == kNotResolved && !resource.subscribers.empty();
    if (!wish.replaced.empty() && !kept) {
      comparison.failed(fmt::format("destination {} is never let go", *wish.replaced.begin()));
    }
  }
  std::map<std::pair<Unit, Key>, Entry> committed;
  for (const auto& [unit, rows] : model_.shared().config) {
    for (const auto& [key, row] : rows) {
      if (!row.isDeleted) {
        committed[{unit, key}] = row.entry;
        committed[{unit, key}].intf = 0;
      }
    }
  }
  comparison.same("hardware", model_.hardware(), committed);
  return comparison.found();
}

void ModelRun::hooks(const Operation& operation) {
  const bool logsFailures = (operation.mode & kHookLogsFailures) != 0;
  const bool marks = (operation.mode & kHookMarks) != 0;
  const Unit unit = operation.unit;
  const Reaction reaction = operation.reaction;
  real_.helperIs(unit, logsFailures, marks,
                 [this, unit, reaction](Key key) { reactReal(followUp(reaction, unit, key)); });
  UnitTable& table = model_.table(unit);
  table.helperLogsFailures = logsFailures;
  table.helperMarks = marks;
  table.onNextSuccess = [this, unit, reaction](Key key) {
    if (reaction != Reaction::none) {
      model_.situations.met(Situation::hookRequested);
    }
    reactModel(followUp(reaction, unit, key));
  };
}

// Turns.

// A turn of the resolver ends with its walk, or for one of its two bounds.
bool ModelRun::turnIsWhole() const {
  constexpr std::size_t kLooksPerTurn = 1'024;
  constexpr std::uint64_t kRowsPerTurn = 8'192;
  const std::size_t probes = live_ ? 1 : 0;  // looked at as well, in the first turn of a walk
  return real_.looks() <= kLooksPerTurn &&
         (!model_.walking() || real_.looks() + probes >= kLooksPerTurn ||
          real_.rowsTouched() >= kRowsPerTurn);
}

void ModelRun::turns(bool all) {
  constexpr int kMostTurns = 1'000;
  bool more = true;
  for (int turns = 0; more && turns < (all ? kMostTurns : 1); ++turns) {
    const RealTable::Ran ran = real_.turn();
    more = ran != RealTable::Ran::nothing;
    if (ran == RealTable::Ran::other) {
      followResources();
    } else if (model_.turn(real_.looks()) != more && !live_) {
      disagreement_ = "one side has a turn, the other has none";
    } else if (more && !turnIsWhole()) {
      disagreement_ = fmt::format("a turn ended after {} looks and {} rows", real_.looks(),
                                  real_.rowsTouched());
    }
  }
  if (live_ && all && real_.resourcesWait()) {
    model_.situations.met(Situation::liveChangeHeldBack);
  }
}

void ModelRun::report(const Operation& operation) {
  const auto which = static_cast<Report>(operation.mode);
  const Version from = which == Report::again ? lastReport_ : model_.tableVersion();
  Version version = from - std::min<Version>(from, operation.count);
  if (which == Report::beyond) {
    version = from + operation.count;
  } else {
    lastReport_ = version;
  }
  real_.report(version);
  model_.report(version);
}

void ModelRun::update(const Operation& operation) {
  const RealTable::RealHandle real = real_.update(operation.unit, operation.key);
  const HandlePtr model = model_.update(operation.unit, operation.key);
  Comparison comparison;
  comparison.same("updateEntry's handle", handleText(RealTable::RealDependency(real)),
                  handleText(model));
  disagreement_ = comparison.found();
}

// Iterations.

void ModelRun::openWalk(const Operation& operation) {
  const Unit unit = operation.unit;
  const bool fromKey = operation.kind == Kind::openWalkFrom;
  OpenWalk walk{
      fromKey ? real_.walk(unit, operation.key) : real_.walk(unit),
      fromKey ? WalkExpectation(model_, unit, operation.key) : WalkExpectation(model_, unit),
      model_.tableVersion()};
  walks_.insert_or_assign(operation.count, std::move(walk));
}

std::string ModelRun::stepWalk(const Operation& operation) {
  const auto held = walks_.find(operation.count);
  if (held == walks_.end()) {
    return {};
  }
  OpenWalk& walk = held->second;
  if (walk.openedAt != model_.tableVersion()) {
    model_.situations.met(Situation::walkAcrossTurns);
  }
  for (std::uint32_t steps = 0; steps < operation.value; ++steps) {
    const std::optional<Entry> entry = walk.real.step();
    std::string wrong = walk.expected.yielded(model_, entry, walk.real.fromTransient());
    if (!wrong.empty()) {
      return wrong;
    }
  }
  return {};
}

// Comparison.

std::string ModelRun::compareTouched(const Operation& operation) {
  Comparison comparison;
  comparison.failed(disagreement_);
  compareAnswers(comparison);
  compareResourceEvents(comparison);
  comparison.same("pending hardware writes", real_.pendingHwWrites(), model_.pendingHwWrites());
  comparison.same("suspended", real_.suspended(), model_.suspended());
  comparison.same("log version", real_.tableVersion(), model_.tableVersion());
  comparison.same("scratchpad", real_.scratchpad(), model_.shared().scratchpad);
  comparison.same("cleaned up to", real_.cleanedTo(), model_.cleanedTo());
  comparison.same("log rows", real_.logRowCount(), model_.shared().log.size());
  comparison.same("queue", real_.queueLength(), model_.queueLength());
  if (model_.turnDue() || !live_) {
    comparison.same("turn due", real_.turnDue(), model_.turnDue());
  }
  comparison.same("requests made", realHandles_.size(), modelHandles_.size());
  compareNewLogRows(comparison);
  if (model_.hasTable(operation.unit)) {
    compareKey(comparison, operation.unit, operation.key);
  }
  if (open_.size() <= kComparedEachStep) {
    compareOpenHandles(comparison);
  }
  return comparison.found();
}

void ModelRun::compareAnswers(Comparison& comparison) {
  comparison.same("answers", realAnswers_.size(), modelAnswers_.size());
  for (std::size_t at = 0; at < std::min(realAnswers_.size(), modelAnswers_.size()); ++at) {
    const Answer& real = realAnswers_[at];
    const Answer& model = modelAnswers_[at];
    comparison.same("answered request", real.request, model.request);
    comparison.same("key of an answer", real.key, model.key);
    comparison.same("answer", handleText(real.state, real.version),
                    handleText(model.state, model.version));
  }
  realAnswers_.clear();
  modelAnswers_.clear();
}

// The releases of one table delete come in any order; all else is as it happened.
void ModelRun::compareResourceEvents(Comparison& comparison) {
  std::vector<std::string> real;
  for (const RealTable::Event& event : real_.takeResourceEvents()) {
    real.push_back(eventText(event.isRelease, event.unit, event.intf, event.updateNumber,
                             handleText(event.dependency)));
  }
  std::vector<std::string> model;
  const std::vector<ResourceEvent> events = model_.takeResourceEvents();
  for (const ResourceEvent& event : events) {
    model.push_back(eventText(event.isRelease, event.unit, event.intf, event.updateNumber,
                              handleText(event.dependency)));
  }
  for (std::size_t from = 0; from < events.size() && real.size() == model.size();) {
    std::size_t to = from + 1;
    while (events[from].anyOrder != 0 && to < events.size() &&
           events[to].anyOrder == events[from].anyOrder) {
      ++to;
    }
    for (auto* texts : {&real, &model}) {
      std::sort(texts->begin() + static_cast<std::ptrdiff_t>(from),
                texts->begin() + static_cast<std::ptrdiff_t>(to));
    }
    from = to;
  }
  comparison.same("what the resource table was told", real, model);
}

void ModelRun::compareNewLogRows(Comparison& comparison) {
  for (; comparedTo_ < model_.tableVersion() && comparison.clean(); ++comparedTo_) {
    const auto row = model_.shared().log.find(comparedTo_ + 1);
    const auto model = row == model_.shared().log.end() ? std::nullopt : std::optional(row->second);
    comparison.same("log row", real_.logRow(comparedTo_ + 1), model);
  }
}

void ModelRun::compareKey(Comparison& comparison, Unit unit, Key key) {
  comparison.same("entryRead", real_.read(unit, key), model_.read(unit, key));
  comparison.same("entryHas", real_.has(unit, key), model_.has(unit, key));
  comparison.same("entrys", real_.entrys(unit), model_.entrys(unit));
  comparison.same("handles in the log", real_.handlesInLog(unit), model_.table(unit).inLog.size());
  comparison.same("remove-all version", real_.removeAllVersion(unit),
                  model_.table(unit).removeAllVersion);
}

// Handles at their end are looked at no more.
void ModelRun::compareOpenHandles(Comparison& comparison) {
  std::erase_if(open_, [&](std::size_t number) {
    if (!realHandles_[number]) {
      return true;
    }
    comparison.same("handle", handleText(RealTable::RealDependency(realHandles_[number])),
                    handleText(modelHandles_[number]));
    return isFinal(modelHandles_[number]->state);
  });
}

std::string ModelRun::compareAll(bool longLogToo) {
  Comparison comparison;
  compareOpenHandles(comparison);
  for (const auto& [unit, table] : model_.tables()) {
    compareUnit(comparison, unit);
  }
  comparison.same("group log", real_.groupRows(), model_.shared().groupLog);
  comparison.same("applied version", real_.applied(), model_.shared().applied);
  if (longLogToo || model_.shared().log.size() < kLongLog) {
    comparison.same("log", real_.logRows(), model_.shared().log);
  }
  return comparison.found();
}

void ModelRun::compareUnit(Comparison& comparison, Unit unit) {
  const UnitTable& table = model_.table(unit);
  for (Key key = 0; key < kKeys; ++key) {
    compareKey(comparison, unit, key);
    if (model_.liveRow(unit, key) != nullptr && !model_.has(unit, key) &&
        model_.read(unit, key) != Entry()) {
      model_.situations.met(Situation::hiddenByRemoveAll);
    }
  }
  comparison.same("configuration", real_.configRows(unit), model_.shared().config.at(unit));
  comparison.same("pending writes", real_.pendingWrites(unit), entriesOf(table.pendingWrites));
  comparison.same("pending removes", real_.pendingRemoves(unit), versionsOf(table.pendingRemoves));
  comparison.same("pending versions", real_.pendingVersions(unit), table.pendingVersions);
  comparison.same("usage", sorted(real_.usage(unit)), listed(table.usage));
  const std::map<Key, Entry> expected = model_.iterated(unit);
  const std::vector<Entry> iterated = real_.iterated(unit);
  comparison.same("entries iterated", iterated.size(), expected.size());
  comparison.same("iteration", byKey(iterated), expected);
  comparison.same("iterator", byKey(real_.iteratorYields(unit)), expected);
  comparison.same("snapshot", real_.snapshot(unit), expected);
}

Outcome runOperations(const Start& start, const std::vector<Operation>& operations,
                      WrongRule wrong) {
  ModelRun run(start, wrong);
  Outcome outcome;
  for (const Operation& operation : operations) {
    outcome.disagreement = run.step(operation);
    ++outcome.steps;
    if (outcome.disagreement.empty() && outcome.steps % kCompareAllEvery == 0) {
      outcome.disagreement = run.compareAll(false);
    }
    if (!outcome.disagreement.empty()) {
      break;
    }
  }
  if (outcome.disagreement.empty()) {
    outcome.disagreement = run.settle();
  }
  if (outcome.disagreement.empty()) {
    outcome.disagreement = run.compareAll(true);
  }
  outcome.situations = run.situations();
  return outcome;
}

}  // namespace fec_model
