// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Situations.h"

// A plain model of the FEC table of all units: the shared tables, what one process adds to them,
// and the resources. Written from what the table promises, with maps and lists and nothing clever,
// so that a reader can see that it is right.

namespace fec_model {

using Unit = std::uint32_t;
using Key = std::uint32_t;
using Interface = std::uint32_t;  // 0: the null interface
using Version = std::uint64_t;

inline constexpr std::uint32_t kFecTable = 0x03010805;
inline constexpr std::uint32_t kOtherTable = 0x03010806;        // that of dependencies
inline constexpr std::uint32_t kDestinationTable = 0x03010807;  // that resources wait for

struct Destination {
  std::uint32_t first = 0xFFFF;  // 0xFFFF: none
  std::uint32_t second = 0;
  std::uint32_t third = 0;
  friend bool operator==(const Destination&, const Destination&) = default;
};

// An entry, as far as tests tell entries apart: what a client writes follows from the mark.
struct Entry {
  Key key = 0;
  std::uint32_t mark = 0;
  std::uint32_t hookMark = 0;  // set by a helper
  Destination resolved;
  Interface intf = 0;
  friend bool operator==(const Entry&, const Entry&) = default;
};
// What a client writes; the mark is not 0.
Entry writtenEntry(Key key, Interface intf, std::uint32_t mark);
std::string print(const Entry& entry);

// State of a handle, by number.
enum State : int {  // NOLINT(readability-enum-initial-value)
  kNotResolved = 0,
  kInLog = 1,
  kDependencyFailed = 2,
  kDone = 3,
  kCommitFailed = 4,
  kResourceFailed = 5,
};

struct Handle;
using HandlePtr = std::shared_ptr<Handle>;
using Handler = std::function<void(const HandlePtr&)>;

// An operation, as its requester and the operations that depend on it know it.
struct Handle {
  std::uint32_t tableId = kFecTable;
  Key key = 0;
  std::uint64_t entryVersion = 0;
  int state = kNotResolved;
  Version logVersion = 0;
  Handler handler;  // may be empty
};

// Versions of other tables that must be applied first.
using Needed = std::map<std::uint32_t, Version>;

struct LogRow {
  std::uint32_t operation = 0;  // 0 written, 1 deleted, 2 table deleted
  Unit unit = 0;
  Entry entry;  // without its interface
  friend bool operator==(const LogRow&, const LogRow&) = default;
};

struct ConfigRow {
  Entry entry;
  Version version = 0;
  bool isDeleted = false;
  std::uint64_t placed = 0;  // tells a row that came back from the one that was there before
  friend bool operator==(const ConfigRow& a, const ConfigRow& b) {
    return a.entry == b.entry && a.version == b.version && a.isDeleted == b.isDeleted;
  }
};

struct GroupRow {
  Version version = 0;
  Needed needed;
  friend bool operator==(const GroupRow&, const GroupRow&) = default;
};

// What survives the process.
struct SharedTables {
  std::map<Version, LogRow> log;
  Version scratchpad = 0;
  std::map<Unit, std::map<Key, ConfigRow>> config;
  std::list<GroupRow> groupLog;
  std::optional<Version> applied;
};

// The destination of an interface; changed by its owner only.
struct Resource {
  int state = kNotResolved;
  Destination destination;
  Needed needed;
  std::uint32_t updateNumber = 0;
  bool heard = true;                // its users were told of the last change
  std::vector<HandlePtr> carriers;  // operations named in acknowledgements of the last change
  std::list<Unit> subscribers;      // tables that use it, oldest first
};

// What a table told the resource table.
struct ResourceEvent {
  bool isRelease = false;
  Unit unit = 0;
  Interface intf = 0;
  std::uint32_t updateNumber = 0;  // of an acknowledgement
  HandlePtr dependency;
  std::uint32_t anyOrder = 0;  // neighbours with the same number other than 0: in any order
};

// One operation on its way: its entry, its handle, and whether a resource was requested for it.
struct Request {
  Entry entry;
  HandlePtr handle;
  bool hasResource = false;
  std::uint64_t placed = 0;  // tells a request that came back from the one that was there before
};
using RequestPtr = std::shared_ptr<Request>;

inline constexpr std::uint64_t kNoRemoveAll = ~std::uint64_t{0};

// The software table of one unit.
struct UnitTable {
  std::map<Key, RequestPtr> pendingWrites;
  std::map<Key, RequestPtr> pendingRemoves;
  std::map<Key, std::uint64_t> pendingVersions;
  std::uint64_t removeAllVersion = kNoRemoveAll;
  std::list<HandlePtr> inLog;
  std::map<Interface, std::set<Key>> usage;
  bool helperLogsFailures = false;
  bool helperMarks = false;
  std::function<void(Key)> onNextSuccess;  // may be empty
};

// The order in which a hash container happens to hold things, as far as it shows.
struct Orders {
  std::vector<Interface> interfaces;
  std::map<std::pair<Unit, Interface>, std::vector<Key>> keys;
};

// Rules that are wrong on purpose, to see that they are found.
enum class WrongRule : std::uint8_t {
  none,
  removeStaysReadable,     // a pending remove hides nothing
  removeAllKeepsRequests,  // a remove-all forgets no pending write
  failureIsForgotten,      // a failed commit cleans its pending records up
  cursorStays,             // a report from behind does not move the cleanup's cursor
  staleVersionWins,        // a commit cleans the pending records of a newer request of its key
  releasesTwice,           // a rewrite with the same interface releases it
};

class Model {
 public:
  explicit Model(WrongRule wrong = WrongRule::none) : wrong_(wrong) {}

  Situations situations;

  // Rows of an earlier run, versions 1 to `rows`, in a state without any other content.
  void fillLog(std::uint32_t rows);
  // A process begins on the shared tables. Tables come with makeTable.
  void start();
  // The resources begin anew too: nobody knows any destination.
  void forgetResources() { resources_.clear(); }
  bool hasTable(Unit unit) const { return tables_.contains(unit); }
  void makeTable(Unit unit, bool reset, const Orders& orders);

  HandlePtr write(Unit unit, const Entry& entry, const HandlePtr& dependency, Handler handler);
  HandlePtr remove(Unit unit, Key key, const HandlePtr& dependency, Handler handler);
  HandlePtr removeAll(Unit unit, const HandlePtr& dependency, Handler handler);

  // A generation is due.
  void markGeneration();
  // Runs one turn of the resolver, which looks at no more than so many requests; false when none
  // was due.
  bool turn(std::size_t looksOfTurn);
  // A walk of the resolver has paused between two turns.
  bool walking() const { return walkAt_.has_value(); }
  bool turnDue() const { return turnDue_; }
  void report(Version version);

  void clear(Unit unit, bool releaseResources);
  // Null when the key is not committed.
  HandlePtr update(Unit unit, Key key);

  // The state of a handle changes from outside.
  void handleState(const HandlePtr& handle, int state);
  void resourceIs(Interface intf, int state, const Destination& destination, const Needed& needed);
  // The change is published to the resource's users.
  void publish(Interface intf, const Orders& orders);

  // Reads.
  Entry read(Unit unit, Key key) const;
  bool has(Unit unit, Key key) const;
  std::uint32_t entrys(Unit unit) const;
  // What an iteration from the start yields.
  std::map<Key, Entry> iterated(Unit unit) const;

  // State to compare.
  const SharedTables& shared() const { return shared_; }
  const std::map<Unit, UnitTable>& tables() const { return tables_; }
  UnitTable& table(Unit unit) { return tables_.at(unit); }
  const UnitTable& table(Unit unit) const { return tables_.at(unit); }
  const Resource& resource(Interface intf) { return resources_[intf]; }
  // What the hardware forwards by: everything logged up to the highest version reported.
  const std::map<std::pair<Unit, Key>, Entry>& hardware() const { return hardware_; }
  Version tableVersion() const { return tableVersion_; }
  Version cleanedTo() const { return cleanedTo_; }
  bool pendingHwWrites() const { return pendingHwWrites_; }
  bool suspended() const { return suspended_; }
  std::size_t queueLength() const { return queue_.size(); }
  bool committing() const { return committing_; }
  // The committed row of the key, live ones only; null when there is none.
  const ConfigRow* liveRow(Unit unit, Key key) const;
  // What the tables told the resource table since the last call.
  std::vector<ResourceEvent> takeResourceEvents();

 private:
  enum class Purpose : std::uint8_t { write, remove, removeAll };
  struct Queued {
    Unit unit;
    Purpose purpose;
    RequestPtr request;
    HandlePtr dependency;
    bool watches;  // a change of the dependency's state starts a generation
  };

  // Requests.
  std::uint64_t nextEntryVersion(UnitTable& table, Key key);
  std::size_t waitingOf(Unit unit, Key key) const;
  void noteOvertaking(const Queued& queued);
  void enqueue(Unit unit, Purpose purpose, const RequestPtr& request, const HandlePtr& dependency);
  void updateSuspend();

  // Resolution.
  bool isResolved(const Queued& queued);
  int resolution(const Request& request) const;
  Needed neededOf(const Request& request) const;

  // Commit.
  void commit(const Queued& queued);
  bool commitWrite(const Queued& queued);
  void commitRemove(const Queued& queued);
  void commitRemoveAll(const Queued& queued);
  bool finalize(const Queued& queued);
  void fail(const Queued& queued);
  void clean(UnitTable& table, std::map<Key, RequestPtr>& side, const Request& request);
  void inLog(UnitTable& table, const HandlePtr& handle, Version version);
  void setState(const HandlePtr& handle, int state);

  // Entry log.
  Version logChange(const LogRow& row, const Needed& needed);
  Version logWrite(Unit unit, const Entry& entry, const Needed& needed);
  Version logRemove(Unit unit, Key key, const Needed& needed);
  void deleteAll(Unit unit, bool releaseResources, const Needed& needed);
  void cleanup(Version version);
  void cleanupRow(Version version, const LogRow& row);

  // Usage of resources.
  void updateUsage(Unit unit, const Request& request, bool isRemove);
  void addUsage(Unit unit, Interface intf, Key key, bool acknowledge);
  void dropUsage(Unit unit, Interface intf, Key key, const HandlePtr& handle);
  void redrive(Unit unit, Interface intf, const Orders& orders);
  void restore(Unit unit, const Orders& orders);

  void reportTo(Unit unit, Version version);
  void applyUpTo(Version version);
  void tell(const ResourceEvent& event);

  WrongRule wrong_;
  SharedTables shared_;
  std::map<Interface, Resource> resources_;
  std::map<std::pair<Unit, Key>, Entry> hardware_;
  std::map<Version, LogRow> unapplied_;

  // Of the process.
  std::map<Unit, UnitTable> tables_;
  std::vector<Unit> tablesInOrder_;  // as they were made
  Version tableVersion_ = 0;
  Version cleanedTo_ = 0;
  bool pendingHwWrites_ = false;
  bool suspended_ = false;
  std::list<Queued> queue_;
  std::multiset<HandlePtr> watched_;  // what queued requests watch
  bool generationDue_ = false;
  bool turnDue_ = false;
  // The walk under way: its next entry, and how many it still looks at.
  std::optional<std::list<Queued>::iterator> walkAt_;
  std::size_t walkLeft_ = 0;
  bool committing_ = false;

  std::vector<ResourceEvent> resourceEvents_;
  std::uint64_t placements_ = 0;
  std::uint32_t tableDeletes_ = 0;
  std::optional<Version> lastReport_;
  std::map<Unit, Version> lastTableDelete_;
};

// What an iteration that is open across turns owes and may yield.
class WalkExpectation {
 public:
  WalkExpectation(const Model& model, Unit unit);
  WalkExpectation(const Model& model, Unit unit, Key from);

  // Something may have changed since the last call.
  void follow(const Model& model, Situations& situations);
  // The iteration has yielded the entry, or ended (nothing). Returns what is wrong, or "".
  std::string yielded(const Model& model, const std::optional<Entry>& entry, bool fromTransient);

  Unit unit() const { return unit_; }

 private:
  struct Owed {
    bool pending;
    std::uint64_t placed;
  };

  void owePending(const UnitTable& table);
  void oweCommitted(const Model& model);
  bool stillOwed(const Model& model, Key key, Owed& owed, Situations& situations) const;
  std::string yieldedPending(const Model& model, const Entry& entry);
  std::string yieldedCommitted(const Model& model, const Entry& entry);
  std::string ended();

  Unit unit_;
  bool removeAllPending_;
  bool inCommitted_ = false;
  bool ended_ = false;
  std::map<Key, Owed> owed_;
  std::set<std::uint64_t> yielded_;
  std::optional<Key> first_;  // what the first step must yield
};

}  // namespace fec_model
