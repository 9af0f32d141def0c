// SPDX-License-Identifier: Apache-2.0

// The queue is a vector that only grows during a walk; an entry that has gone leaves a hole, and
// the end of the walk closes the holes, so commits in a walk cost no moves. Handlers that run
// inside a commit may append entries, start generations, and drop entries: the walk goes by index
// and holds a reference to the entry it is at. What leaves the queue is taken out of it before it
// is released, so that whatever a release sets off finds the queue in order.

#include "Asic/GroupResolver.h"

#include <algorithm>
#include <utility>

#include "Pell/Publisher.h"
#include "Zev/Trace.h"
#include "Zev/WorkMeter.h"

namespace Asic {

namespace {

constexpr const char* kClass = "GroupResolver";

// What is asked of the resolver, and what its walks do.
Zev::TraceHandle& trace = Zev::traceHandle(kClass);
Zev::TraceHandle& walkTrace = Zev::traceHandle("GroupResolverWalk");

// Does the action when its scope is left, also by an exception.
template <typename Action>
class AtExit {
 public:
  explicit AtExit(Action action) : action_(std::move(action)) {}
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;
  ~AtExit() { action_(); }

 private:
  Action action_;
};

}  // namespace

class GroupResolver::DependencyWatch {
 public:
  DependencyWatch(Pell::Ptr<DependencyEntryHandle const> dependency, GroupResolver& resolver)
      : dependency_(std::move(dependency)),
        subscriber_([this, &resolver](Pell::Publisher*, Pell::Subscriber*, short attributeId,
                                      const void*, const void*) {
          if (attributeId == DependencyEntryHandle::kEntryStateAttribute) {
            ZEV_TRACE_AS(walkTrace, 8, kClass, "dependencyChanged", "{} is in state {}",
                         dependency_->entryTableVersion(), dependency_->entryState());
            resolver.updateGenId();
          }
        }) {
    dependency_->publisher().subscriberAdd(subscriber_);
  }
  DependencyWatch(const DependencyWatch&) = delete;
  DependencyWatch& operator=(const DependencyWatch&) = delete;

 private:
  Pell::Ptr<DependencyEntryHandle const> dependency_;
  Pell::Subscriber subscriber_;
};

GroupResolver::GroupResolver(Zev::EventLoop& loop) : turn_(loop, [this] { walk(); }) {}

// The entries go while the queue is still in order: what their release sets off may look at it.
GroupResolver::~GroupResolver() {
  length_ = 0;
  const std::vector<Waiting> dropped = std::exchange(queue_, {});
}

void GroupResolver::resolverQueueEnq(Pell::Ptr<ResolverEntry> const& entry) {
  ZEV_TRACE(trace, 8, kClass, "flags {}", entry->flags().value());
  if (isBeingDestroyed()) {
    return;
  }
  const auto& dependency = entry->dependantEntryHandle();
  Waiting waiting{entry, nullptr};
  if (dependency && dependency->entryState() == EntryState::notResolved) {
    waiting.watch = std::make_unique<DependencyWatch>(dependency, *this);
  }
  queue_.push_back(std::move(waiting));
  ++length_;
}

void GroupResolver::updateGenId() {
  ZEV_TRACE(trace, 8, kClass, "");
  generationMarked_ = true;
  if (!walking_) {
    turn_.mark();
  }
}

void GroupResolver::walk() {
  // A handler may drop the last other reference to this resolver.
  const Pell::Ptr<GroupResolver> self(this);
  if (!walking_) {
    walking_ = true;
    generationMarked_ = false;
    next_ = 0;
    end_ = queue_.size();
    ZEV_TRACE(walkTrace, 8, kClass, "entries: {}", end_);
  }
  const AtExit turnEnded([this] { endTurn(); });
  const std::size_t turnEnd = std::min(end_, next_ + kEntriesPerTurn);
  const Zev::WorkBudget work(kRowsPerTurn);
  while (next_ < turnEnd && !work.spent()) {
    walkEntry(next_++);
  }
}

void GroupResolver::walkEntry(std::size_t at) {
  const Pell::Ptr<ResolverEntry> entry = queue_[at].entry;
  // The answer may have been found by ending the entry's table, which drops the entry.
  if (entry && entry->isResolved() && queue_[at].entry) {
    ZEV_TRACE(walkTrace, 8, kClass, "entry: {} of {} is resolved and commits", at + 1, end_);
    const AtExit committed([this, at] { take(at); });
    entry->commitEntry(entry);
  } else {
    ZEV_TRACE(walkTrace, 9, kClass, "entry: {} of {} {}", at + 1, end_,
              queue_[at].entry ? "is not resolved and waits on" : "has gone");
  }
}

void GroupResolver::endTurn() {
  if (next_ < end_) {
    ZEV_TRACE(walkTrace, 8, kClass, "next turn goes on behind entry: {} of {}", next_, end_);
    turn_.mark();
    return;
  }
  walking_ = false;
  closeHoles();
  ZEV_TRACE(walkTrace, 8, kClass, "walk is over, waiting: {}", length_);
  if (generationMarked_) {
    turn_.mark();
  }
}

void GroupResolver::resolverQueueDelIf(const std::function<bool(const ResolverEntry&)>& predicate) {
  ZEV_TRACE(trace, 8, kClass, "");
  std::vector<Waiting> dropped;
  for (std::size_t at = 0; at < queue_.size(); ++at) {
    if (queue_[at].entry && predicate(*queue_[at].entry)) {
      dropped.push_back(take(at));
    }
  }
  if (!walking_) {
    closeHoles();
  }
  ZEV_TRACE(walkTrace, 8, kClass, "dropped: {} waiting: {}", dropped.size(), length_);
}

GroupResolver::Waiting GroupResolver::take(std::size_t at) {
  if (queue_[at].entry) {
    --length_;
  }
  return std::exchange(queue_[at], Waiting());
}

void GroupResolver::closeHoles() {
  std::erase_if(queue_, [](const Waiting& waiting) { return !waiting.entry; });
}

}  // namespace Asic
