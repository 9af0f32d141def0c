// SPDX-License-Identifier: Apache-2.0

#include "RealTable.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include "Glint/Guarded.h"
#include "Operations.h"
#include "Zev/Trace.h"
#include "Zev/WorkMeter.h"
#include "records/FecTableConstants.h"

namespace fec_model {

namespace {

using LoamFec::FecTableDataModelEntry;
using LoamFec::FecTableDataModelEntryKey;
using testing_support::ResourceTable;
using testing_support::ScriptedResourceHandle;

constexpr std::uint32_t kForeign = 0xDEADBEEF;  // mark, interface, key or unit of no test

Wirex::IntfId intfId(Interface intf) {
  return intf == 0 ? Wirex::IntfId() : Wirex::IntfId::fromName("eth" + std::to_string(intf));
}

Interface interfaceOf(Wirex::IntfId id) {
  constexpr Interface kHighest = 9;
  for (Interface intf = 0; intf <= kHighest; ++intf) {
    if (intfId(intf) == id) {
      return intf;
    }
  }
  return kForeign;
}

// The FEC identifiers that the model's keys stand for: both ends and the middle of the 32 bits, and
// pairs whose low or high halves are the same.
constexpr std::array<std::uint32_t, kKeys> kFecIds = {
    0,           1,           0xFFFF,      0x1'0000,    0x1'0001,
    0x7FFF'FFFF, 0x8000'0000, 0x8000'0001, 0xFFFF'0000, 0xFFFF'FFFF};

FecTableDataModelEntryKey fecKeyOf(Key key) {
  return FecTableDataModelEntryKey(key < kKeys ? kFecIds.at(key) : key);
}

// The fields that a test does not look at one by one follow from the mark; so do those of the
// default entry, whose mark is 0.
FecTableDataModelEntry entryOf(const Entry& entry) {
  FecTableDataModelEntry real;
  real.key = fecKeyOf(entry.key);
  real.opaqueA = entry.mark;
  real.opaqueB = entry.hookMark;
  real.resolvedDest.first = entry.resolved.first;
  real.resolvedDest.second = static_cast<std::uint16_t>(entry.resolved.second);
  real.resolvedDest.third = entry.resolved.third;
  real.intfId = intfId(entry.intf);
  if (entry.mark != 0) {
    real.flagA = static_cast<std::uint8_t>(entry.mark);
    real.flagB = static_cast<std::uint8_t>(entry.mark >> 3);
    real.clientDest.first = entry.mark + 1;
    real.clientDest.second = static_cast<std::uint16_t>(entry.mark + 2);
    real.clientDest.third = entry.mark + 3;
  }
  return real;
}

Entry entryOf(const FecTableDataModelEntry& real) {
  Entry entry{keyOf(real.key),
              real.opaqueA,
              real.opaqueB,
              {real.resolvedDest.first, real.resolvedDest.second, real.resolvedDest.third},
              interfaceOf(real.intfId)};
  if (!FecTableDataModelEntry::isEq(entryOf(entry), real)) {
    entry.mark = kForeign;
  }
  return entry;
}

Pell::Ptr<Asic::NeededEntry const> neededOf(const Needed& versions) {
  auto needed = Zev::makeObject<Asic::NeededEntry>();
  for (const auto& [table, version] : versions) {
    needed->add({Asic::SwTableId(table), Asic::LogVersion(version)});
  }
  return needed;
}

// The numbers that the model's units stand for.
constexpr std::array<std::uint16_t, kUnits> kUnitIds = {7, 0x8007, 0xFFFF};

Asic::UnitId unitId(Unit unit) { return Asic::UnitId(kUnitIds.at(unit)); }

Unit unitOf(Asic::UnitId id) {
  const auto* const found = std::find(kUnitIds.begin(), kUnitIds.end(), id.value());
  return found == kUnitIds.end() ? kForeign : static_cast<Unit>(found - kUnitIds.begin());
}

LogRow logRowOf(const LoamFec::FecTableDataModelLogGlintEntry& row) {
  return {row.operation(), unitOf(row.unitId()),
          entryOf(FecTableDataModelEntry::fromLog(row.logEntry(), {}))};
}

void expectSawAll(bool sawAll) {
  if (!sawAll) {
    throw std::runtime_error("nobody has damaged the model's tables, and a walk met damage");
  }
}

}  // namespace

class RealTable::Resources : public ResourceTable {
 public:
  Resources(testing_support::FecHarness& agent, RealTable& owner)
      : ResourceTable(agent.loop(), agent.group()->groupResolver(), agent.group()->groupLog()),
        owner_(owner) {}

  Pell::Ptr<ClientInstance> makeClientInstance() override;

 private:
  RealTable& owner_;
};

// Client of one unit's table: writes down what it is told, and hands out scripted handles or passes
// everything on to the real resource table.
class RealTable::Client : public ResourceTable::ClientInstance {
 public:
  Client(RealTable& owner, Unit unit)
      : ClientInstance(owner.liveResources_ ? Pell::Ptr<ResourceTable>(owner.resources_) : nullptr),
        owner_(owner),
        unit_(unit) {}

  Pell::Ptr<ResourceTable::ResourceHandle const> request(
      const ResourceTable::Key& key, const ResourceTable::Dependency& dependency) override {
    if (owner_.liveResources_) {
      return ClientInstance::request(key, dependency);
    }
    return Pell::Ptr<ResourceTable::ResourceHandle const>(&owner_.handle(key));
  }
  void ackUpdate(const Pell::Ptr<ResourceTable::ResourceHandle const>& handle,
                 std::uint32_t updateNumber, const ResourceTable::Dependency& dependency) override {
    owner_.events_.push_back(
        {false, unit_, interfaceOf(handle->key().intfId()), updateNumber, dependency});
    if (owner_.liveResources_) {
      ClientInstance::ackUpdate(handle, updateNumber, dependency);
    }
  }
  void release(const Pell::Ptr<ResourceTable::ResourceHandle const>& handle,
               const ResourceTable::Dependency& dependency) override {
    owner_.events_.push_back({true, unit_, interfaceOf(handle->key().intfId()), 0, dependency});
    if (owner_.liveResources_) {
      ClientInstance::release(handle, dependency);
    }
  }

 private:
  RealTable& owner_;
  Unit unit_;
};

Pell::Ptr<ResourceTable::ClientInstance> RealTable::Resources::makeClientInstance() {
  return Zev::makeObject<Client>(owner_, owner_.unitBeingMade_);
}

// Stands in the resolver's queue for good.
class RealTable::Probe : public Zev::Typed<RealTable::Probe, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "fec_model::RealTable::Probe";

  Probe() : Typed(nullptr, Asic::EntryFlags::write()) {}
  bool isResolved() override {
    walked = true;
    return false;
  }
  void commitEntry(const Pell::Ptr<ResolverEntry>& /*resolverEntry*/) override {}

  bool walked = false;
};

class RealTable::Helper : public LoamFec::FecTableSwTableHelperBase {
 public:
  using Wrapper = Pell::Ptr<LoamFec::FecTableEntryWrapper>;

  Helper(bool logsFailures, bool marks, std::function<void(Key)> onNextSuccess)
      : logsFailures_(logsFailures), marks_(marks), onNextSuccess_(std::move(onNextSuccess)) {}

  void finalizeOnSuccess(Wrapper const& entry, bool /*isDelete*/) override {
    if (marks_) {
      FecTableDataModelEntry marked = entry->entry();
      marked.opaqueB = marked.opaqueA + 1;
      entry->entryIs(marked);
    }
    if (onNextSuccess_) {
      const auto act = std::exchange(onNextSuccess_, nullptr);
      act(keyOf(entry->key()));
    }
  }
  bool finalizeOnFailure(Wrapper const& /*entry*/, bool /*isDelete*/,
                         Pell::Ptr<LoamFec::FecTableSwTable> const& /*swTable*/) override {
    return logsFailures_;
  }

 private:
  bool logsFailures_;
  bool marks_;
  std::function<void(Key)> onNextSuccess_;
};

RealTable::RealTable(std::uint32_t logRows, bool liveResources)
    : liveResources_(liveResources), agent_(testing_support::FecHarness::Resources::recording) {
  if (logRows != 0) {
    auto& log = *agent_.log().tableEntryLog();
    for (Version version = 1; version <= logRows; ++version) {
      log.entryLogConfigIs({Asic::LogVersion(version), 0, unitId(0), {}});
    }
    log.entryLogConfig().control().scratchpadIs(logRows);
    agent_.restart();
  }
  resourcesAreOurs();
}

RealTable::~RealTable() {
  unwatchResources();
  tables_.clear();
  agent_.stop();
}

void RealTable::resourcesAreOurs() {
  resources_ = Zev::makeObject<Resources>(agent_, *this);
  agent_.orderedTables().resourceTableIs(LoamFec::FecTableInterface::resourceTableName(),
                                         resources_);
  if (liveResources_) {
    watchResources();
  }
}

// Before any table does, so that a change is known before it drives anything.
void RealTable::watchResources() {
  probe_ = Zev::makeObject<Probe>();
  agent_.group()->groupResolver()->resolverQueueEnq(probe_);
  resources_->freedHandlerIs([this](Wirex::IntfId, const LoamAdjLib::DestId& destination) {
    freed_.push_back({destination.first, destination.second, destination.third});
  });
  const auto client = resources_->ResourceTable::makeClientInstance();
  for (Interface intf = 1; intf <= kInterfaces; ++intf) {
    const auto handle = client->request(ResourceTable::Key(intfId(intf)), nullptr);
    auto watch = std::make_unique<Pell::Subscriber>(
        [this, intf, seen = handle.get()](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                                          const void*) {
          Change change{intf,
                        static_cast<int>(seen->entryState()),
                        {seen->destId().first, seen->destId().second, seen->destId().third},
                        {}};
          if (seen->neededEntry()) {
            for (const Asic::TableVersion& version : seen->neededEntry()->tableVersions()) {
              change.needed[version.tableId().value()] = version.logVersion().value();
            }
          }
          changes_.push_back(change);
        });
    handle->publisher().subscriberAdd(*watch);
    watched_.emplace_back(handle, std::move(watch));
  }
}

void RealTable::unwatchResources() {
  for (const auto& [handle, watch] : watched_) {
    handle->publisher().subscriberRemove(*watch);
  }
  watched_.clear();
  resources_ = nullptr;
  probe_ = nullptr;
}

void RealTable::restart() {
  unwatchResources();
  tables_.clear();
  agent_.restart();
  changes_.clear();
  freed_.clear();
  resourcesAreOurs();
}

namespace {

// Counts how often requests are asked whether they are resolved: each trace of that is one.
class LookCounter {
 public:
  LookCounter() : levels_(trace_.levels()), sink_(Zev::traceSink()) {
    trace_.levelsIs(1U << 8U);
    Zev::traceSinkIs([this](const Zev::TraceRecord& record) {
      looks_ += record.function == "isResolved" ? 1U : 0U;
    });
  }
  ~LookCounter() {
    Zev::traceSinkIs(sink_);
    trace_.levelsIs(levels_);
  }
  LookCounter(const LookCounter&) = delete;
  LookCounter& operator=(const LookCounter&) = delete;

  std::size_t looks() const { return looks_; }

 private:
  Zev::TraceHandle& trace_ = Zev::traceHandle("FecTableResolverEntry");
  std::uint32_t levels_;
  Zev::TraceSink sink_;
  std::size_t looks_ = 0;
};

}  // namespace

RealTable::Ran RealTable::turn() {
  if (probe_) {
    probe_->walked = false;
  }
  const LookCounter counter;
  const Zev::WorkBudget work(0);
  const bool ran = agent_.loop().runOne();
  looks_ = counter.looks();
  rowsTouched_ = work.used();
  if (!ran) {
    return Ran::nothing;
  }
  return !probe_ || probe_->walked || looks_ > 0 ? Ran::resolver : Ran::other;
}

void RealTable::makeTable(Unit unit, bool reset) {
  unitBeingMade_ = unit;
  tables_[unit] = agent_.makeTable(unitId(unit).value(), reset);
}

void RealTable::reset(Unit unit) { agent_.makeTable(unitId(unit).value(), true); }

ScriptedResourceHandle& RealTable::handle(const ResourceTable::Key& key) {
  auto& held = handles_[key.intfId().value()];
  if (!held) {
    held = Zev::makeObject<ScriptedResourceHandle>(key);
  }
  return *held;
}

// Requests.

RealTable::RealHandle RealTable::write(Unit unit, const Entry& entry,
                                       const RealDependency& dependency,
                                       const RealHandler& handler) {
  return table(unit).entryWriteWithResponseHandler(fecKeyOf(entry.key), entryOf(entry), dependency,
                                                   handler);
}

RealTable::RealHandle RealTable::remove(Unit unit, Key key, const RealDependency& dependency,
                                        const RealHandler& handler) {
  return table(unit).entryRemoveWithResponseHandler(fecKeyOf(key), dependency, handler);
}

void RealTable::removeAll(Unit unit, const RealDependency& dependency, const RealHandler& handler) {
  table(unit).entryRemoveAllWithResponseHandler(dependency, handler);
}

void RealTable::markGeneration() { agent_.group()->groupResolver()->updateGenId(); }

RealTable::RealHandle RealTable::update(Unit unit, Key key) {
  return table(unit).updateEntry(fecKeyOf(key));
}

void RealTable::helperIs(Unit unit, bool logsFailures, bool marks,
                         std::function<void(Key)> onNextSuccess) {
  agent_.makeTable(unitId(unit).value(), false,
                   Zev::makeObject<Helper>(logsFailures, marks, std::move(onNextSuccess)));
}

void RealTable::resourceIs(Interface intf, int state, const Destination& destination,
                           const Needed& needed) {
  const LoamAdjLib::DestId destId{destination.first, static_cast<std::uint16_t>(destination.second),
                                  destination.third};
  if (!liveResources_) {
    handle(ResourceTable::Key(intfId(intf)))
        .contentsAre(static_cast<Asic::EntryState>(state), destId, neededOf(needed));
  } else if (state == kDone) {
    resources_->destinationIs(intfId(intf), destId, neededOf(needed));
  } else if (state == kNotResolved || state == kInLog) {
    resources_->destinationDel(intfId(intf));
  } else {
    resources_->destinationFailed(intfId(intf));
  }
}

std::vector<RealTable::Change> RealTable::takeChanges() { return std::exchange(changes_, {}); }

std::vector<Destination> RealTable::takeFreed() { return std::exchange(freed_, {}); }

bool RealTable::resourcesWait() { return resources_->waitingUpdates() != 0; }

void RealTable::publish(Interface intf, bool asChange) {
  constexpr short kOther = ScriptedResourceHandle::kChangeAttribute - 1;
  handle(ResourceTable::Key(intfId(intf)))
      .publish(asChange ? ScriptedResourceHandle::kChangeAttribute : kOther);
}

// Reads.

Entry RealTable::read(Unit unit, Key key) { return entryOf(table(unit).entryRead(fecKeyOf(key))); }

bool RealTable::has(Unit unit, Key key) { return table(unit).entryHas(fecKeyOf(key)); }

RealTable::Walk RealTable::walk(Unit unit) { return Walk(table(unit).initIterState()); }

RealTable::Walk RealTable::walk(Unit unit, Key from) {
  return Walk(table(unit).initIterStateFromKey(fecKeyOf(from)));
}

std::optional<Entry> RealTable::Walk::step() {
  const Entry entry = entryOf(state_->maybeUpdateCurrentEntry());
  return state_->atEnd() ? std::nullopt : std::optional(entry);
}

bool RealTable::Walk::fromTransient() const {
  return dynamic_cast<const LoamFec::FecTableSwTableIteratorState&>(*state_).fromTransient();
}

std::vector<Entry> RealTable::iterated(Unit unit) {
  std::vector<Entry> entries;
  Walk fresh = walk(unit);
  while (const std::optional<Entry> entry = fresh.step()) {
    entries.push_back(*entry);
  }
  return entries;
}

std::vector<Entry> RealTable::iteratorYields(Unit unit) {
  std::vector<Entry> entries;
  for (auto at = table(unit).entryIteratorConst(); at; ++at) {
    entries.push_back(entryOf(*at));
  }
  return entries;
}

std::map<Key, Entry> RealTable::snapshot(Unit unit) {
  std::map<Key, Entry> entries;
  table(unit).getTableEntries_py()->tableEntries().forEach(
      [&](const FecTableDataModelEntryKey& key, const FecTableDataModelEntry& entry) {
        entries[keyOf(key)] = entryOf(entry);
      });
  return entries;
}

// State to compare.

Version RealTable::scratchpad() {
  return agent_.log().tableEntryLog()->entryLogConfig().control().scratchpad();
}

std::optional<LogRow> RealTable::logRow(Version version) {
  const auto row = agent_.log().tableEntryLog()->entryLogConfig().row(Asic::LogVersion(version));
  return row ? std::optional(logRowOf(*row)) : std::nullopt;
}

std::map<Version, LogRow> RealTable::logRows() {
  std::map<Version, LogRow> rows;
  expectSawAll(
      Glint::walkOverDamage(agent_.log().tableEntryLog()->entryLogConfig(),
                            [&](const auto& row) { rows[row.version().value()] = logRowOf(row); }));
  return rows;
}

std::map<Key, ConfigRow> RealTable::configRows(Unit unit) {
  std::map<Key, ConfigRow> rows;
  const auto take = [&](const auto& row) {
    rows[keyOf(row.key())] = {
        entryOf(FecTableDataModelEntry::fromLog(row.logEntry(), row.rsrcKeys())),
        row.version().value(), row.isDeleted(), 0};
  };
  expectSawAll(
      Glint::walkOverDamage(agent_.log().tableConfigGlint(unitId(unit))->swTableEntries(), take));
  return rows;
}

// In group order.
std::list<GroupRow> RealTable::groupRows() {
  std::map<std::uint64_t, GroupRow> rows;
  auto& map =
      static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(agent_.group()->groupLog()->logMap());
  expectSawAll(Glint::walkOverDamage(map, [&](const Asic::GroupLogRow& row) {
    const bool ours = row.tableVersion().tableId() == LoamFec::FecTableConstants::kTableId;
    GroupRow& held = rows[row.sequence()];
    held.version = ours ? row.tableVersion().logVersion().value() : kForeign;
    for (std::uint32_t at = 0; at < row.neededCount(); ++at) {
      held.needed[row.needed(at).tableId().value()] = row.needed(at).logVersion().value();
    }
  }));
  std::list<GroupRow> inOrder;
  for (auto& [sequence, row] : rows) {
    inOrder.push_back(std::move(row));
  }
  return inOrder;
}

std::optional<Version> RealTable::applied() {
  const auto groupLog = agent_.group()->groupLog();
  if (!groupLog->hasTableVersion(LoamFec::FecTableConstants::kTableId)) {
    return std::nullopt;
  }
  return groupLog->tableVersion(LoamFec::FecTableConstants::kTableId).value();
}

std::size_t RealTable::queueLength() {
  return agent_.group()->groupResolver()->resolverQueueLength() - (probe_ ? 1 : 0);
}

namespace {

std::uint64_t versionOf(const LoamFec::FecTableEntryWrapper& wrapper) {
  return Pell::dynamicPtrCast<LoamFec::FecTableSwTable::EntryHandle>(wrapper.entryHandle())
      ->version()
      .major();
}

}  // namespace

std::map<Key, std::pair<Entry, std::uint64_t>> RealTable::pendingWrites(Unit unit) {
  std::map<Key, std::pair<Entry, std::uint64_t>> pending;
  table(unit).transientAddEntry().forEach([&](const auto& key, const auto& wrapper) {
    pending[keyOf(key)] = {entryOf(wrapper->entry()), versionOf(*wrapper)};
  });
  return pending;
}

std::map<Key, std::uint64_t> RealTable::pendingRemoves(Unit unit) {
  std::map<Key, std::uint64_t> pending;
  table(unit).transientRemoveEntry().forEach(
      [&](const auto& key, const auto& wrapper) { pending[keyOf(key)] = versionOf(*wrapper); });
  return pending;
}

std::map<Key, std::uint64_t> RealTable::pendingVersions(Unit unit) {
  std::map<Key, std::uint64_t> pending;
  table(unit).transientVersionForKey().forEach(
      [&](const auto& key, const auto& version) { pending[keyOf(key)] = version.major(); });
  return pending;
}

std::map<Interface, std::vector<Key>> RealTable::usage(Unit unit) {
  std::map<Interface, std::vector<Key>> usage;
  table(unit).intfIdToDestIdLinkage()->forEachUsage([&](const auto& record) {
    std::vector<Key>& keys = usage[interfaceOf(record->key().intfId())];
    record->entryUsage().forEach(
        [&](const auto& key, bool /*there*/) { keys.push_back(keyOf(key)); });
  });
  return usage;
}

std::vector<RealTable::Event> RealTable::takeResourceEvents() { return std::exchange(events_, {}); }

Key keyOf(const FecTableDataModelEntryKey& key) {
  const auto* const found = std::find(kFecIds.begin(), kFecIds.end(), key.fecId());
  return found == kFecIds.end() ? kForeign : static_cast<Key>(found - kFecIds.begin());
}

}  // namespace fec_model
