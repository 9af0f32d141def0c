// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Asic/ResolverEntry.h"
#include "Zev/EventLoop.h"
#include "Zev/NotifyingObject.h"

namespace Asic {

// Queue of the operations of one group of tables that wait to be committed.
//
// Kind: object with identity, one per group.
// Ownership: holds its entries; refers to the loop, which outlives it.
// Threads: the event loop's.
// Invariants: a generation is walked in turns of its own, never inside a call. A walk asks each
// entry isResolved(), in queue order, and commits a resolved entry at once; an unresolved entry
// keeps its place. Entries that arrive during a walk wait for the next one. One turn looks at no
// more than kEntriesPerTurn entries, and ends with the entry that brings the number of touched rows
// of shared memory to kRowsPerTurn, so that other turns are not starved. An exception of an entry
// ends the turn and goes to the loop, and the walk goes on behind that entry in the next turn. An
// entry that threw in isResolved() goes on waiting. An entry that threw in commitEntry() leaves the
// queue: its commit has begun, and a second one could log and answer it twice.
class GroupResolver : public Zev::Typed<GroupResolver, Zev::NotifyingObject> {
 public:
  static constexpr const char* kTypeName = "Asic::GroupResolver";
  static constexpr std::uint32_t kEntriesPerTurn = 1024;
  static constexpr std::uint64_t kRowsPerTurn = 8192;

  explicit GroupResolver(Zev::EventLoop& loop);
  // Drops the waiting entries. Code that runs because of their release finds an empty queue, and
  // the entries that it appends are dropped.
  ~GroupResolver() override;

  // Appends the entry. While the operation it depends on is not yet resolved, a change of that
  // operation's state starts a new generation.
  void resolverQueueEnq(Pell::Ptr<ResolverEntry> const& entry);

  // Starts a new generation: the entries are looked at again, in a later turn. Many calls before
  // that turn make one walk.
  void updateGenId();

  // Entries that wait, the one being committed included. Constant time.
  std::uint32_t resolverQueueLength() const { return length_; }

  // Drops every entry that the predicate names, without committing it, also in the middle of a
  // walk. Entries point at their table without holding it: a table that ends calls this for its
  // own. The predicate only looks; it leaves the queue alone. Linear in the queue.
  void resolverQueueDelIf(const std::function<bool(const ResolverEntry&)>& predicate);

 private:
  // Starts a generation when the operation that an entry waits for leaves its state.
  class DependencyWatch;
  struct Waiting {
    Pell::Ptr<ResolverEntry> entry;          // null: committed or dropped
    std::unique_ptr<DependencyWatch> watch;  // null: nothing to wait for
  };

  void walk();
  void walkEntry(std::size_t at);
  void endTurn();
  // Leaves a hole; nothing more when there is one already.
  Waiting take(std::size_t at);
  void closeHoles();

  Zev::DeferredTurn turn_;
  std::vector<Waiting> queue_;
  std::uint32_t length_ = 0;
  bool generationMarked_ = false;  // a walk is due after the one under way
  bool walking_ = false;
  std::size_t next_ = 0;  // the walk's next entry
  std::size_t end_ = 0;   // entries from here on came during the walk
};

}  // namespace Asic
