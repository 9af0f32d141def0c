// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <queue>
#include <vector>

#include "Asic/GroupLog.h"
#include "Asic/GroupResolver.h"
#include "Asic/ResourceTableBase.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"
#include "Pell/HashMap.h"
#include "Zev/EventLoop.h"
#include "Zev/NotifyingObject.h"

namespace LoamAdjLib {

// Hardware destination of an interface. The default is the unset value: no destination.
struct DestId {
  static constexpr std::uint32_t kUnset = 0xFFFF;

  std::uint32_t first = kUnset;
  std::uint16_t second = 0;
  std::uint32_t third = 0;

  friend constexpr bool operator==(const DestId&, const DestId&) = default;
};

// Hands out the hardware destination of each interface, and tells its clients when it changes.
//
// Kind: object with identity.
// Ownership: holds one handle object per key, for good; clients hold this table.
// Threads: the event loop's.
// Invariants: nothing reacts inside a call: a handle changes, and its change is published, only in
// turns of this table's own.
//
// Updates of a handle are stop-and-wait: the next one is published when every client that uses the
// handle has acknowledged the last one and the operations named in those acknowledgements have been
// applied by the hardware. Changes in between coalesce, so a flapping interface cannot flood the
// logs. The first update of a handle waits for no acknowledgement, and no update waits for a
// release. Every update waits until the group's log has room for all the operations that its users
// will log.
//
// A destination that has been replaced is free, and reported so, when the clients have left it (all
// have acknowledged an update that shows a state without it, or use the handle no longer) and the
// operations that they had logged and released by then have been applied: no hardware entry uses it
// any more. Later releases do not hold it back.
//
// Turns are bounded. Updates are told one after the other, and each update to one subscriber after
// the other. A turn begins no further step when its rows or its steps are used up, so a subscriber
// that touches many rows has a turn for itself. The cost of a hardware report depends on what it
// settles, not on what waits.
class IntfIdToDestIdResourceTableResourceTable
    : public Zev::Typed<IntfIdToDestIdResourceTableResourceTable, Asic::ResourceTableBase> {
 public:
  static constexpr const char* kTypeName = "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable";
  // Rows of shared memory that a turn touches before it leaves the rest to the next one, and steps
  // that it takes at most. A step looks at one handle, or tells one subscriber.
  static constexpr std::uint64_t kRowsPerTurn = 2048;
  static constexpr std::uint32_t kStepsPerTurn = 1024;

  using Key = IntfIdToDestIdResourceTableEntryKey;
  using Dependency = Pell::Ptr<Asic::DependencyEntryHandle const>;

  class ClientInstance;

  // The destination of one interface, as all clients see it.
  //
  // Ownership: held by the table for good, and by the code that uses it.
  // Invariants: changes only in a turn of the table's own. Subscribers are told in later turns, and
  // find the handle as it is by then; the next change waits until all have been told. A client that
  // subscribes meanwhile is not told and acknowledges by itself.
  class ResourceHandle : public Zev::Typed<ResourceHandle, Zev::NotifyingObject> {
   public:
    static constexpr const char* kTypeName =
        "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ResourceHandle";
    // Published after every change of the handle. A subscriber may do anything, even end the table.
    // Its exception goes to the loop when the turn is over; the others are still told.
    static constexpr short kChangeAttribute = 517;

    explicit ResourceHandle(const Key& key) : key_(key) {}
    static Zev::TypeRecord typeRecord();

    const Key& key() const { return key_; }
    // notResolved: no destination known; done: there is one; resourceFailed: there cannot be one.
    Asic::EntryState entryState() const { return entryState_; }
    const DestId& destId() const { return destId_; }
    // The operations that must be applied before an entry that uses the destination; null: none.
    const Pell::Ptr<Asic::NeededEntry const>& neededEntry() const { return neededEntry_; }
    // Raised by one with every change; wraps at 2^32.
    std::uint32_t updateNumber() const { return updateNumber_; }

   protected:
    // Sets the three and raises the update number; publishes nothing.
    void contentsIs(Asic::EntryState state, const DestId& destId,
                    Pell::Ptr<Asic::NeededEntry const> neededEntry);

   private:
    friend class IntfIdToDestIdResourceTableResourceTable;

    Key key_;
    Asic::EntryState entryState_ = Asic::EntryState::notResolved;
    DestId destId_;
    Pell::Ptr<Asic::NeededEntry const> neededEntry_;
    std::uint32_t updateNumber_ = 0;
  };

  // One client's access to the table.
  //
  // Ownership: held by the client; holds the table. When it goes, the client uses nothing any more.
  class ClientInstance : public Zev::Typed<ClientInstance> {
   public:
    static constexpr const char* kTypeName =
        "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ClientInstance";

    // A null table is for a client that answers by itself.
    explicit ClientInstance(
        const Pell::Ptr<IntfIdToDestIdResourceTableResourceTable>& resourceTable);
    ~ClientInstance() override;

    // The handle of the key: always the same object, never null. May be called any number of
    // times; it is not counted, and asks nothing of the client. The dependency is not used.
    virtual Pell::Ptr<ResourceHandle const> request(const Key& key, const Dependency& dependency);
    // The client uses the handle and has taken in its update of that number; the dependency names
    // the operation that carries it to the hardware (null: none). Numbers may repeat; one that is
    // not the handle's current one acknowledges nothing.
    virtual void ackUpdate(const Pell::Ptr<ResourceHandle const>& handle,
                           std::uint32_t updateNumber, const Dependency& dependency);
    // The client uses the handle no longer, once the operation has been applied. The operation
    // gets its log version after this call; one that never gets one is no constraint.
    virtual void release(const Pell::Ptr<ResourceHandle const>& handle,
                         const Dependency& dependency);

    // Returns how many operations the client may log for an update of the key's handle. The handler
    // changes nothing. A client without a handler logs none.
    using UsersHandler = std::function<std::uint32_t(const Key&)>;
    void usersHandlerIs(UsersHandler handler) { usersHandler_ = std::move(handler); }
    std::uint32_t users(const Key& key) const { return usersHandler_ ? usersHandler_(key) : 0; }

    // The client uses nothing any more, from now on and for good, as when it ends: nobody waits for
    // it, and its acknowledgements do not count. Linear in the interfaces.
    void end();

   private:
    Pell::Ptr<IntfIdToDestIdResourceTableResourceTable> resourceTable_;
    UsersHandler usersHandler_;
    bool ended_ = false;
  };

  // The resolver looks again at the waiting requests when a handle changes; the group log tells
  // what the hardware has applied.
  IntfIdToDestIdResourceTableResourceTable(Zev::EventLoop& loop,
                                           const Pell::Ptr<Asic::GroupResolver>& groupResolver,
                                           const Pell::Ptr<Asic::GroupLog>& groupLog);
  ~IntfIdToDestIdResourceTableResourceTable() override;

  virtual Pell::Ptr<ClientInstance> makeClientInstance();

  // The owner's side. Sets the destination of an interface. An equal value changes nothing. The
  // handle follows in a separate turn.
  void destinationIs(Wirex::IntfId intfId, const DestId& destination,
                     const Pell::Ptr<Asic::NeededEntry const>& neededEntry = nullptr);
  // There cannot be a destination: entries that want it fail.
  void destinationFailed(Wirex::IntfId intfId);
  // There is no destination for now: entries that want it wait.
  void destinationDel(Wirex::IntfId intfId);

  // Called once for each destination that has been replaced, when no hardware entry uses it any
  // more; not for one that has been set again by then. While entries wait for a new destination
  // they keep the last one. The handler may call any operation of the owner's side, replace itself
  // and drop the table. Its exception goes to the loop when the turn is over: the destination
  // counts as freed, and everything else is done.
  using FreedHandler = std::function<void(Wirex::IntfId, const DestId&)>;
  void freedHandlerIs(FreedHandler handler) { freedHandler_ = std::move(handler); }

  // Handles whose change has not reached every subscriber: it waits for its turn, for the last
  // change to be acknowledged and applied, for room in the group's log, or is being told.
  std::uint32_t waitingUpdates() const { return waitingUpdates_; }

 private:
  struct Record;
  // The highest version of each table.
  using Versions = std::vector<Asic::TableVersion>;
  // Updates that have no room, by the rows that they need.
  using RoomWaits = std::multimap<std::uint64_t, Record*>;

  // What a handle is to show.
  struct Target {
    Asic::EntryState state = Asic::EntryState::notResolved;
    DestId destId;
    Pell::Ptr<Asic::NeededEntry const> neededEntry;
  };
  // One client's use of one handle.
  struct Use {
    const ClientInstance* client;
    std::uint32_t acknowledged;  // update number
  };
  // What the hardware must apply: operations named since the last review, and the versions of those
  // before.
  struct Awaited {
    std::vector<Dependency> operations;
    Versions versions;
  };
  // A destination that was shown, or was to be, and is not shown now. Hardware may still use it,
  // also one that was never shown: a process before this one may have shown it.
  struct Retired {
    DestId destId;
    bool left = false;  // nobody logs it again
    Versions awaited;   // once left: what must be applied before it is free
  };
  struct Record {
    Pell::Ptr<ResourceHandle> handle;
    Target target;
    std::vector<Use> uses;
    Awaited acknowledged;  // with the current update
    Awaited released;      // and what else holds back the freeing only
    std::vector<Retired> retired;
    Versions filed;  // the lowest version of each table that waits_ holds for this record
    std::optional<RoomWaits::iterator> roomWait;
    bool queued = false;       // in review_
    bool updateWaits = false;  // counted in waitingUpdates_
  };
  // Records to be reviewed when a table is applied up to a version, lowest first.
  struct Wait {
    Asic::LogVersion version;
    Record* record = nullptr;
    friend bool operator>(const Wait& a, const Wait& b) { return a.version > b.version; }
  };
  struct WaitsOfTable {
    Asic::SwTableId tableId;
    std::priority_queue<Wait, std::vector<Wait>, std::greater<>> waits;
  };
  struct Publication {
    Record* record = nullptr;
    Pell::Publisher::PacedDelivery delivery;
  };
  static constexpr std::uint32_t kSalt = 0x7be1c04d;

  Record& record(const Key& key);
  void targetIs(Wirex::IntfId intfId, Target target);
  static void retire(Record& record, const DestId& destId);
  void noteWaiting(Record& record);
  void reviewLater(Record& record);

  void review();
  void step();
  bool hasWork() const;
  std::size_t dueTable() const;
  bool hasDueRoomWait() const;
  void reviewRoomless();
  Record* nextRecord();
  void tellNext();
  void reviewRecord(Record& record);
  static bool acknowledgedByAll(const Record& record);
  static void takeVersions(Awaited& awaited);
  void takeLeave(Record& record) const;
  bool freeOne(Record& record);
  static bool showsTarget(const Record& record);
  bool publicationIsDue(const Record& record) const;
  std::uint64_t rowsOfUpdate(const Record& record) const;
  void publishTarget(Record& record);
  void fileWaits(Record& record);
  void fileWait(Record& record, const Asic::TableVersion& wanted);
  Pell::String unapplied(const Versions& wanted) const;
  Pell::String waitsFor(const Record& record) const;
  bool applied(const Asic::TableVersion& wanted) const;
  bool allApplied(const Versions& wanted) const;
  void clientGone(const ClientInstance* client);

  Pell::Ptr<Asic::GroupResolver> groupResolver_;
  Pell::Ptr<Asic::GroupLog> groupLog_;
  Pell::HashMap<Key, Record, ResourceKeyHash<kSalt>> records_;
  std::deque<Record*> review_;  // what may have something to publish or to free
  std::vector<WaitsOfTable> waits_;
  RoomWaits roomWaits_;
  std::optional<Publication> publication_;  // the one under way
  std::uint32_t waitingUpdates_ = 0;
  Zev::DeferredTurn turn_;
  FreedHandler freedHandler_;
  Pell::Subscriber appliedSubscriber_;
};

}  // namespace LoamAdjLib
