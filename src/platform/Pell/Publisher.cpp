// Delivery walks a list of subscribers by index. Removal during a delivery leaves a hole that the
// outermost delivery closes, so no index ever shifts under a running loop; the state outlives a
// publisher that is destroyed by one of its own observers.

#include "Pell/Publisher.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Pell {

struct Publisher::State : SharedByOneThread<State> {
  std::vector<Subscriber*> subscribers;  // null: removed during a delivery
  std::uint32_t deliveries = 0;          // nested deliveries under way
  std::size_t count = 0;                 // subscribers without the holes
};

void Subscriber::notify(Publisher* publisher, short attributeId, const void* element,
                        const void* oldValue) {
  // A callback may destroy this subscriber, and with it the function that is running.
  const Ptr<Callee> callee = callee_;
  callee->call(publisher, this, attributeId, element, oldValue);
}

void Publisher::end() {
  std::fill(state_->subscribers.begin(), state_->subscribers.end(), nullptr);
  state_->refDec();
}

void Publisher::subscriberAdd(Subscriber& subscriber) {
  if (state_ == nullptr) {
    state_ = Ptr<State>(new State).detach();
  }
  state_->subscribers.push_back(&subscriber);
  ++state_->count;
}

void Publisher::subscriberRemove(Subscriber& subscriber) {
  if (state_ == nullptr) {
    return;
  }
  auto& subscribers = state_->subscribers;
  const auto found = std::find(subscribers.begin(), subscribers.end(), &subscriber);
  if (found == subscribers.end()) {
    return;
  }
  --state_->count;
  if (state_->deliveries == 0) {
    subscribers.erase(found);
  } else {
    *found = nullptr;
  }
}

bool Publisher::idleState() const { return state_->count == 0 && state_->deliveries == 0; }

void Publisher::deliver(short attributeId, const void* element, const void* oldValue) {
  struct Delivery {
    explicit Delivery(State* s) : state(s) { ++state->deliveries; }
    ~Delivery() {
      if (--state->deliveries == 0 && state->count < state->subscribers.size()) {
        std::erase(state->subscribers, nullptr);
      }
    }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    Ptr<State> state;
  };
  const Delivery delivery(state_);
  const std::size_t known = delivery.state->subscribers.size();
  for (std::size_t i = 0; i < known; ++i) {
    if (Subscriber* subscriber = delivery.state->subscribers[i]; subscriber != nullptr) {
      subscriber->notify(this, attributeId, element, oldValue);
    }
  }
}

}  // namespace Pell
