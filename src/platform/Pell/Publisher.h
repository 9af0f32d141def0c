#pragma once

#include <functional>
#include <utility>

#include "Pell/Ptr.h"

namespace Pell {

class Publisher;

// One observer of one publisher.
//
// Kind: object with identity; its address is what a publisher knows.
// Ownership: owned by the observer, who adds it to a publisher and must remove it (or let the
// publisher go first) before it dies.
// Threads: those of the publisher (one).
class Subscriber {
 public:
  // publisher and subscriber are those of the delivery; attributeId names what changed; element
  // and oldValue point at what the publishing operation says, valid during the call only, or are
  // null.
  using Callback = std::function<void(Publisher*, Subscriber*, short attributeId,
                                      const void* element, const void* oldValue)>;

  explicit Subscriber(Callback callback) : callee_(new Callee(std::move(callback))) {}
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  // Called by the publisher. The callback may remove or destroy this subscriber.
  void notify(Publisher* publisher, short attributeId, const void* element, const void* oldValue);

 private:
  struct Callee : SharedByOneThread<Callee> {
    explicit Callee(Callback callback) : call(std::move(callback)) {}
    const Callback call;
  };

  Ptr<Callee> callee_;  // also held by a notify() that is under way
};

// Announces attribute changes of one object to its subscribers, in the order in which they came.
//
// Kind: object with identity; while nobody ever subscribed, one null word, and publishing costs one
// comparison.
// Ownership: owned by the object that it speaks for; refers to subscribers without owning them.
// Threads: one.
// Invariants: during a delivery any subscriber may be added (it hears the next change), removed
// (it hears nothing more) or destroyed after removal, and the publisher itself may be destroyed.
class Publisher {
 public:
  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  ~Publisher() {
    if (state_ != nullptr) [[unlikely]] {
      end();
    }
  }

  // Adding a subscriber twice makes it hear everything twice.
  void subscriberAdd(Subscriber& subscriber);
  // Removes the oldest addition of the subscriber; an absent one changes nothing.
  void subscriberRemove(Subscriber& subscriber);

  // True while there is no subscriber and no delivery under way: nobody could see a change.
  bool idle() const { return state_ == nullptr || idleState(); }

  // The attribute has a new value.
  void attributeChange(short attributeId) { publish(attributeId, nullptr, nullptr); }
  // The element (a key, a sequence number: the attribute says which) of a collection changed.
  void attributeElementChange(short attributeId, const void* element) {
    publish(attributeId, element, nullptr);
  }
  // The attribute changed from *oldValue, and so did everything derived from it.
  void recursiveAttributeChange(short attributeId, const void* oldValue) {
    publish(attributeId, nullptr, oldValue);
  }

 private:
  struct State;

  bool idleState() const;
  void publish(short attributeId, const void* element, const void* oldValue) {
    if (state_ != nullptr) [[unlikely]] {
      deliver(attributeId, element, oldValue);
    }
  }
  void deliver(short attributeId, const void* element, const void* oldValue);
  void end();

  State* state_ = nullptr;  // also held by the deliveries under way
};

}  // namespace Pell
