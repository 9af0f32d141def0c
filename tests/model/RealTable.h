// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "Model.h"
#include "testing/FecHarness.h"

namespace fec_model {

// The model's key that a key of the table stands for.
Key keyOf(const LoamFec::FecTableDataModelEntryKey& key);

// The real FEC table of all units over scripted or live resources, driven and read in the model's
// terms.
//
// Kind: object with identity.
// Ownership: holds a whole agent; the resources outlive its restarts.
class RealTable {
 public:
  using RealHandle = Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>;
  using RealDependency = Pell::Ptr<Asic::DependencyEntryHandle const>;
  using RealHandler = std::function<void(const RealHandle&)>;

  // What a table told the resource table.
  struct Event {
    bool isRelease;
    Unit unit;
    Interface intf;
    std::uint32_t updateNumber;  // of an acknowledgement
    RealDependency dependency;
  };
  // An iteration over one unit's table.
  class Walk {
   public:
    explicit Walk(Pell::Ptr<LoamFec::FecTableDataModelSwTableIteratorState> state)
        : state_(std::move(state)) {}
    // Nothing at the end.
    std::optional<Entry> step();
    // The last entry came from a pending write.
    bool fromTransient() const;

   private:
    Pell::Ptr<LoamFec::FecTableDataModelSwTableIteratorState> state_;
  };

  // A change that the resource table published by itself.
  struct Change {
    Interface intf;
    int state;
    Destination destination;
    Needed needed;
  };
  // A turn of the loop: the resolver's, or another one.
  enum class Ran { nothing, resolver, other };

  // Begins with the rows of an earlier run in the log, versions 1 to logRows. With live resources
  // the real resource table hands them out; otherwise they are scripted.
  RealTable(std::uint32_t logRows, bool liveResources);
  RealTable(const RealTable&) = delete;
  RealTable& operator=(const RealTable&) = delete;
  ~RealTable();

  // Every walk must have gone.
  void restart();
  void makeTable(Unit unit, bool reset);
  bool hasTable(Unit unit) const { return tables_.contains(unit); }

  RealHandle write(Unit unit, const Entry& entry, const RealDependency& dependency,
                   const RealHandler& handler);
  RealHandle remove(Unit unit, Key key, const RealDependency& dependency,
                    const RealHandler& handler);
  void removeAll(Unit unit, const RealDependency& dependency, const RealHandler& handler);

  void markGeneration();
  Ran turn();
  // Of the last turn: requests that the resolver has looked at, and rows of shared memory touched.
  std::size_t looks() const { return looks_; }
  std::uint64_t rowsTouched() const { return rowsTouched_; }
  bool turnDue() { return agent_.loop().pending() != 0; }
  void report(Version version) { agent_.report(version); }
  void reset(Unit unit);
  void clear(Unit unit, bool releaseResources) { table(unit).clearTable(releaseResources); }
  RealHandle update(Unit unit, Key key);
  // The helper from now on; onNextSuccess (may be empty) is called once.
  void helperIs(Unit unit, bool logsFailures, bool marks, std::function<void(Key)> onNextSuccess);

  // Scripted resources: the handle has changed. Live ones: so the owner wants it.
  void resourceIs(Interface intf, int state, const Destination& destination, const Needed& needed);
  // Live resources: the changes published, and the destinations let go, since the last call; and
  // whether a wish of the owner waits.
  std::vector<Change> takeChanges();
  std::vector<Destination> takeFreed();
  bool resourcesWait();
  // Publishes the handle's change, or another attribute that means nothing.
  void publish(Interface intf, bool asChange);

  // Reads.
  Entry read(Unit unit, Key key);
  bool has(Unit unit, Key key);
  std::uint32_t entrys(Unit unit) { return table(unit).entrys(); }
  Walk walk(Unit unit);
  Walk walk(Unit unit, Key from);
  // Every entry of a fresh iteration, of the iterator's form, and of the snapshot for scripts.
  std::vector<Entry> iterated(Unit unit);
  std::vector<Entry> iteratorYields(Unit unit);
  std::map<Key, Entry> snapshot(Unit unit);

  // State to compare.
  Version tableVersion() { return agent_.log().tableVersion().value(); }
  Version cleanedTo() { return agent_.log().prevTableVersion().value(); }
  Version scratchpad();
  std::size_t logRowCount() { return agent_.log().entryLogConfigRows(); }
  std::optional<LogRow> logRow(Version version);
  std::map<Version, LogRow> logRows();
  std::map<Key, ConfigRow> configRows(Unit unit);  // without `placed`
  std::list<GroupRow> groupRows();
  std::optional<Version> applied();
  bool pendingHwWrites() { return anyTable().status()->pendingHwWrites(); }
  bool suspended() { return anyTable().status()->suspend(); }
  std::size_t queueLength();
  std::size_t handlesInLog(Unit unit) { return table(unit).entryHandlesInLog(); }
  std::map<Key, std::pair<Entry, std::uint64_t>> pendingWrites(Unit unit);
  std::map<Key, std::uint64_t> pendingRemoves(Unit unit);
  std::map<Key, std::uint64_t> pendingVersions(Unit unit);
  std::uint64_t removeAllVersion(Unit unit) {
    return table(unit).transientRemoveAllVersion().value();
  }
  // The keys of each usage record, in the order in which a change drives them.
  std::map<Interface, std::vector<Key>> usage(Unit unit);
  const std::vector<Event>& resourceEvents() const { return events_; }
  std::vector<Event> takeResourceEvents();

 private:
  class Client;
  class Resources;
  class Probe;
  class Helper;

  LoamFec::FecTableSwTable& table(Unit unit) { return *tables_.at(unit); }
  LoamFec::FecTableSwTable& anyTable() { return *tables_.begin()->second; }
  void resourcesAreOurs();
  void watchResources();
  void unwatchResources();
  testing_support::ScriptedResourceHandle& handle(const testing_support::ResourceTable::Key& key);

  bool liveResources_;
  std::map<std::uint64_t, Pell::Ptr<testing_support::ScriptedResourceHandle>> handles_;
  std::vector<Event> events_;
  Unit unitBeingMade_ = 0;
  testing_support::FecHarness agent_;
  std::map<Unit, Pell::Ptr<LoamFec::FecTableSwTable>> tables_;
  // With live resources. The probe stands first in the resolver's queue and tells its walks.
  Pell::Ptr<Resources> resources_;
  Pell::Ptr<Probe> probe_;
  std::size_t looks_ = 0;
  std::uint64_t rowsTouched_ = 0;
  std::list<std::pair<Pell::Ptr<testing_support::ResourceTable::ResourceHandle const>,
                      std::unique_ptr<Pell::Subscriber>>>
      watched_;
  std::vector<Change> changes_;
  std::vector<Destination> freed_;
};

}  // namespace fec_model
