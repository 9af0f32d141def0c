#pragma once

#include <cstdint>
#include <functional>
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
// Ownership: holds one handle object a key, for good; clients hold this table.
// Threads: the event loop's.
// Invariants: nothing reacts inside a call: a handle changes, and its change is published, only in
// a turn of this table's own. Updates of a handle are stop-and-wait: the next one is published
// when every client that uses the handle has acknowledged the last one and the operations named in
// the acknowledgements (and in releases) have been applied by the hardware. Changes in between
// coalesce. So a flapping interface cannot flood the logs, and a destination that has been
// replaced is free, and reported so, only when no hardware entry uses it any more.
class IntfIdToDestIdResourceTableResourceTable : public Asic::ResourceTableBase {
 public:
  static constexpr const char* kTypeName = "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable";

  using Key = IntfIdToDestIdResourceTableEntryKey;
  using Dependency = Pell::Ptr<Asic::DependencyEntryHandle const>;

  class ClientInstance;

  // What is known of one interface's destination, as all clients see it.
  //
  // Ownership: held by the table for good, and by whoever uses it.
  // Invariants: changes only in a turn of the table's own.
  class ResourceHandle : public Zev::NotifyingObject {
   public:
    static constexpr const char* kTypeName =
        "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ResourceHandle";
    // Published after every change of the handle.
    static constexpr short kChangeAttribute = 517;

    explicit ResourceHandle(const Key& key) : key_(key) {}
    ~ResourceHandle() override;

    const Zev::TypeRecord& fwkType() const override;

    const Key& key() const { return key_; }
    // notResolved: no destination known; done: there is one; resourceFailed: there cannot be one.
    Asic::EntryState entryState() const { return entryState_; }
    const DestId& destId() const { return destId_; }
    // What must be applied before an entry that uses the destination; null: nothing.
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
  class ClientInstance : public Zev::PtrInterface {
   public:
    static constexpr const char* kTypeName =
        "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ClientInstance";

    // A null table is for a client that answers by itself.
    explicit ClientInstance(
        const Pell::Ptr<IntfIdToDestIdResourceTableResourceTable>& resourceTable);
    ~ClientInstance() override;

    const Zev::TypeRecord& fwkType() const override;

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

   private:
    Pell::Ptr<IntfIdToDestIdResourceTableResourceTable> resourceTable_;
  };

  // The resolver looks again at what waits when a handle changes; the group log tells what the
  // hardware has applied.
  IntfIdToDestIdResourceTableResourceTable(Zev::EventLoop& loop,
                                           const Pell::Ptr<Asic::GroupResolver>& groupResolver,
                                           const Pell::Ptr<Asic::GroupLog>& groupLog);
  ~IntfIdToDestIdResourceTableResourceTable() override;

  const Zev::TypeRecord& fwkType() const override;

  virtual Pell::Ptr<ClientInstance> makeClientInstance();

  // The owner's side: what the destination of an interface is from now on. An equal value changes
  // nothing. The handle follows in a turn of its own.
  void destinationIs(Wirex::IntfId intfId, const DestId& destination,
                     const Pell::Ptr<Asic::NeededEntry const>& neededEntry = nullptr);
  // There cannot be a destination: entries that want it fail.
  void destinationFailed(Wirex::IntfId intfId);
  // There is no destination for now: entries that want it wait.
  void destinationDel(Wirex::IntfId intfId);

  // Called once for each destination that has been replaced, when no hardware entry uses it any
  // more; not for one that has been set again by then. While entries wait for a new destination
  // they keep the last one. The handler may call any operation of the owner's side.
  using FreedHandler = std::function<void(Wirex::IntfId, const DestId&)>;
  void freedHandlerIs(FreedHandler handler) { freedHandler_ = std::move(handler); }

  // Handles whose change is not published yet: it waits for its turn, or for the last change to be
  // acknowledged and applied.
  std::uint32_t waitingUpdates() const;

 private:
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
  struct Record {
    Pell::Ptr<ResourceHandle> handle;
    Target target;
    std::vector<Use> uses;
    // What the hardware must apply before the handle changes again: operations named since the last
    // review, and the versions of those before, the highest of each table.
    std::vector<Dependency> operations;
    std::vector<Asic::TableVersion> awaited;
    std::vector<DestId> retired;  // once the target, not now; hardware may still use them
    bool queued = false;          // in review_
  };
  static constexpr std::uint32_t kSalt = 0x7be1c04d;

  Record& record(const Key& key);
  void targetIs(Wirex::IntfId intfId, Target target);
  void reviewLater(Record& record);
  void review();
  void reviewRecord(const Key& key);
  bool settled(Record& record) const;
  static void takeVersions(Record& record);
  bool applied(const Asic::TableVersion& wanted) const;
  void freeRetired(Record& record);
  static bool showsTarget(const Record& record);
  void publishTarget(Record& record);
  void clientGone(const ClientInstance* client);

  Pell::Ptr<Asic::GroupResolver> groupResolver_;
  Pell::Ptr<Asic::GroupLog> groupLog_;
  Pell::HashMap<Key, Record, ResourceKeyHash<kSalt>> records_;
  std::vector<Key> review_;  // keys that may have something to publish or to free
  Zev::DeferredTurn turn_;
  FreedHandler freedHandler_;
  Pell::Subscriber appliedSubscriber_;
};

}  // namespace LoamAdjLib
