// The queue is a vector that only grows during a walk; an entry that has gone leaves a hole, and
// the end of the walk closes the holes, so commits in a walk cost no moves. Handlers that run
// inside a commit may append entries, start generations, and drop entries: the walk goes by index
// and holds a reference to the entry it is at.

#include "Asic/GroupResolver.h"

#include <algorithm>
#include <utility>

#include "Pell/Publisher.h"

namespace Asic {

class GroupResolver::DependencyWatch {
 public:
  DependencyWatch(Pell::Ptr<DependencyEntryHandle const> dependency, GroupResolver& resolver)
      : dependency_(std::move(dependency)),
        subscriber_([&resolver](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*,
                                const void*) {
          if (attributeId == DependencyEntryHandle::kEntryStateAttribute) {
            resolver.updateGenId();
          }
        }) {
    dependency_->publisher().subscriberAdd(subscriber_);
  }
  ~DependencyWatch() { dependency_->publisher().subscriberRemove(subscriber_); }
  DependencyWatch(const DependencyWatch&) = delete;
  DependencyWatch& operator=(const DependencyWatch&) = delete;

 private:
  Pell::Ptr<DependencyEntryHandle const> dependency_;
  Pell::Subscriber subscriber_;
};

GroupResolver::GroupResolver(Zev::EventLoop& loop) : turn_(loop, [this] { walk(); }) {}

GroupResolver::~GroupResolver() { hasNotificationActiveIs(false); }

const Zev::TypeRecord& GroupResolver::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

void GroupResolver::resolverQueueEnq(Pell::Ptr<ResolverEntry> const& entry) {
  const auto& dependency = entry->dependantEntryHandle();
  Waiting waiting{entry, nullptr};
  if (dependency && dependency->entryState() == EntryState::notResolved) {
    waiting.watch = std::make_unique<DependencyWatch>(dependency, *this);
  }
  queue_.push_back(std::move(waiting));
  ++length_;
}

void GroupResolver::updateGenId() {
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
  }
  const std::size_t turnEnd = std::min(end_, next_ + kEntriesPerTurn);
  while (next_ < turnEnd) {
    walkEntry(next_++);
  }
  if (next_ < end_) {
    turn_.mark();
  } else {
    finishWalk();
  }
}

void GroupResolver::walkEntry(std::size_t at) {
  const Pell::Ptr<ResolverEntry> entry = queue_[at].entry;
  if (entry && entry->isResolved()) {
    entry->commitEntry(entry);
    drop(queue_[at]);
  }
}

void GroupResolver::finishWalk() {
  std::erase_if(queue_, [](const Waiting& waiting) { return !waiting.entry; });
  walking_ = false;
  if (generationMarked_) {
    turn_.mark();
  }
}

void GroupResolver::resolverQueueDelIf(
    const std::function<bool(const ResolverEntry&)>& predicate) {
  for (std::size_t at = 0; at < queue_.size(); ++at) {
    if (queue_[at].entry && predicate(*queue_[at].entry)) {
      drop(queue_[at]);
    }
  }
  if (!walking_) {
    std::erase_if(queue_, [](const Waiting& waiting) { return !waiting.entry; });
  }
}

void GroupResolver::drop(Waiting& waiting) {
  if (waiting.entry) {
    --length_;
    // What goes with the entry may call back: the hole is there before anything is released.
    const Waiting dropped = std::exchange(waiting, Waiting());
  }
}

}  // namespace Asic
