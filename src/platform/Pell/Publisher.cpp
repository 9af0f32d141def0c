// SPDX-License-Identifier: Apache-2.0

// The additions stand in a list in their order, each with a number that only rises. A removal
// leaves a hole; the list is closed up when more than half of it is holes, which is paid for by the
// removals since the last time. A subscriber knows its place in the list, so no removal searches.
//
// A delivery walks the list by place, and the list is not closed up under it. A paced one lives
// longer than that: it remembers numbers, and finds its place by them at every step. The list
// outlives a publisher that is destroyed by one of its own observers.

#include "Pell/Publisher.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Pell/Assert.h"

namespace Pell {

struct PublisherState : SharedByOneThread<PublisherState> {
  struct Addition {
    std::uint64_t number;
    Subscriber* subscriber;  // null: removed
  };

  void add(Subscriber& subscriber);
  void removeOldest(Subscriber& subscriber);
  // The publisher has gone.
  void end();
  void closeHoles();

  std::vector<Addition> additions;
  std::uint64_t nextNumber = 0;
  std::size_t count = 0;  // of additions without the holes
  bool ended = false;
  std::uint32_t deliveries = 0;  // nested deliveries under way
  std::uint64_t removalSteps = 0;
};

void PublisherState::add(Subscriber& subscriber) {
  if (subscriber.additions_ == 0 || subscriber.at_->ended) {
    subscriber.at_ = Ptr<PublisherState>(this);
    subscriber.additions_ = 0;
    subscriber.place_ = static_cast<std::uint32_t>(additions.size());
  }
  PELL_ASSERT_MESSAGE(subscriber.at_.get() == this, "a subscriber of one publisher",
                      "it is with another one");
  additions.push_back({nextNumber++, &subscriber});
  ++subscriber.additions_;
  ++count;
}

void PublisherState::removeOldest(Subscriber& subscriber) {
  std::uint32_t place = subscriber.place_;
  additions[place].subscriber = nullptr;
  --count;
  ++removalSteps;
  if (--subscriber.additions_ > 0) {
    do {
      ++place;
      ++removalSteps;
    } while (additions[place].subscriber != &subscriber);
    subscriber.place_ = place;
  }
  closeHoles();
}

void PublisherState::end() {
  ended = true;
  count = 0;
  for (Addition& addition : additions) {
    addition.subscriber = nullptr;
  }
}

void PublisherState::closeHoles() {
  if (deliveries > 0 || additions.size() <= 2 * count) {
    return;
  }
  removalSteps += additions.size();
  std::uint32_t kept = 0;
  for (std::uint32_t at = 0; at < additions.size(); ++at) {
    const Addition addition = additions[at];
    if (addition.subscriber == nullptr) {
      continue;
    }
    if (addition.subscriber->place_ == at) {
      addition.subscriber->place_ = kept;
    }
    additions[kept++] = addition;
  }
  additions.resize(kept);
}

Subscriber::Subscriber(Callback callback) : callee_(new Callee(std::move(callback))) {}

Subscriber::~Subscriber() {
  while (additions_ > 0 && !at_->ended) {
    at_->removeOldest(*this);
  }
}

void Subscriber::notify(Publisher* publisher, short attributeId, const void* element,
                        const void* oldValue) {
  // A callback may destroy this subscriber, and with it the function that is running.
  const Ptr<Callee> callee = callee_;
  callee->call(publisher, this, attributeId, element, oldValue);
}

void Publisher::end() {
  state_->end();
  state_->refDec();
}

void Publisher::subscriberAdd(Subscriber& subscriber) {
  if (state_ == nullptr) {
    state_ = Ptr<PublisherState>(new PublisherState).detach();
  }
  state_->add(subscriber);
}

void Publisher::subscriberRemove(Subscriber& subscriber) {
  if (state_ != nullptr && subscriber.at_.get() == state_ && subscriber.additions_ > 0) {
    state_->removeOldest(subscriber);
  }
}

std::uint64_t Publisher::removalSteps() const {
  return state_ == nullptr ? 0 : state_->removalSteps;
}

bool Publisher::idleState() const { return state_->count == 0 && state_->deliveries == 0; }

namespace {

// Keeps the list, and the places in it, while a delivery is under way.
class Delivery {
 public:
  explicit Delivery(PublisherState* state) : state_(state) { ++state_->deliveries; }
  ~Delivery() {
    --state_->deliveries;
    state_->closeHoles();
  }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  const PublisherState& state() const { return *state_; }

 private:
  Ptr<PublisherState> state_;
};

}  // namespace

void Publisher::deliver(short attributeId, const void* element, const void* oldValue) {
  const Delivery delivery(state_);
  const PublisherState& state = delivery.state();
  const std::size_t known = state.additions.size();
  for (std::size_t i = 0; i < known; ++i) {
    if (Subscriber* subscriber = state.additions[i].subscriber; subscriber != nullptr) {
      subscriber->notify(this, attributeId, element, oldValue);
    }
  }
}

Publisher::PacedDelivery::PacedDelivery(Publisher& publisher, short attributeId)
    : publisher_(&publisher), attributeId_(attributeId), state_(publisher.state_) {
  end_ = state_ ? state_->nextNumber : 0;
}

Publisher::PacedDelivery::PacedDelivery(PacedDelivery&& other) noexcept = default;
Publisher::PacedDelivery::~PacedDelivery() = default;

// Leaves next_ at the subscriber's number, behind those that have gone.
Subscriber* Publisher::PacedDelivery::next() const {
  if (next_ == end_) {
    return nullptr;
  }
  const auto& additions = state_->additions;
  auto at = std::ranges::lower_bound(additions, next_, {}, &PublisherState::Addition::number);
  while (at != additions.end() && at->number < end_ && at->subscriber == nullptr) {
    ++at;
  }
  next_ = at == additions.end() ? end_ : std::min(at->number, end_);
  return next_ == end_ ? nullptr : at->subscriber;
}

bool Publisher::PacedDelivery::tellNext() {
  Subscriber* const subscriber = next();
  if (subscriber == nullptr) {
    return false;
  }
  ++next_;
  const Delivery delivery(state_.get());
  subscriber->notify(publisher_, attributeId_, nullptr, nullptr);
  return true;
}

}  // namespace Pell
