// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "Pell/Ptr.h"

namespace Pell {

class Publisher;
struct PublisherState;

// One observer of one publisher.
//
// Kind: object with identity; its address is what a publisher knows.
// Ownership: owned by the observer, who adds it to a publisher and removes it. A subscriber that
// ends before that is removed by its destructor.
// Threads: those of the publisher (one).
// Invariants: it remembers its place at its publisher, so it is with one publisher at a time.
class Subscriber {
 public:
  // publisher and subscriber are those of the delivery; attributeId names what changed; element
  // and oldValue point at what the publishing operation says, valid during the call only, or are
  // null.
  using Callback = std::function<void(Publisher*, Subscriber*, short attributeId,
                                      const void* element, const void* oldValue)>;

  explicit Subscriber(Callback callback);
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;
  ~Subscriber();

  // Called by the publisher. The callback may remove or destroy this subscriber.
  void notify(Publisher* publisher, short attributeId, const void* element, const void* oldValue);

 private:
  friend class Publisher;
  friend struct PublisherState;

  struct Callee : SharedByOneThread<Callee> {
    explicit Callee(Callback callback) : call(std::move(callback)) {}
    const Callback call;
  };

  Ptr<Callee> callee_;           // also held by a notify() that is under way
  Ptr<PublisherState> at_;       // where it was added last
  std::uint32_t additions_ = 0;  // there, and not removed yet
  std::uint32_t place_ = 0;      // of the oldest of them
};

// Announces attribute changes of one object to its subscribers, in the order in which they came.
//
// Kind: object with identity; while nobody ever subscribed, one null word, and publishing costs one
// comparison.
// Ownership: owned by the object that it speaks for; refers to subscribers without owning them.
// Threads: one.
// Invariants: during a delivery any subscriber may be added (it hears the next change), removed (it
// hears nothing more) or destroyed, and the publisher itself may be destroyed. Adding and removing
// take constant time on average. Only the removal of a subscriber that was added several times
// searches for its next addition.
class Publisher {
 public:
  // A change that is told to one subscriber at a time, in as many calls as there are subscribers.
  //
  // Kind: a token of one change, movable. It may be dropped before all have been told.
  // Ownership: refers to nothing that it could outlive. Publisher, subscribers and token may end
  // between two steps and during a step.
  // Invariants: the order is that of the additions. A subscriber that came after the change began,
  // or left and came back, is not told.
  class PacedDelivery {
   public:
    PacedDelivery(PacedDelivery&& other) noexcept;
    PacedDelivery& operator=(PacedDelivery&&) = delete;
    ~PacedDelivery();

    // Whether a subscriber is left that has not been told.
    bool more() const { return next() != nullptr; }
    // Tells the next one; false when none is left. A subscriber that throws has been told: its
    // exception goes to the caller, and the next call goes on behind it.
    bool tellNext();

   private:
    friend class Publisher;
    PacedDelivery(Publisher& publisher, short attributeId);

    Subscriber* next() const;

    Publisher* publisher_;  // there while it has subscribers
    short attributeId_;
    Ptr<PublisherState> state_;
    mutable std::uint64_t next_ = 0;  // the numbers of additions that are still to be told
    std::uint64_t end_ = 0;
  };

  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  ~Publisher() {
    if (state_ != nullptr) [[unlikely]] {
      end();
    }
  }

  // Adding a subscriber twice makes it hear everything twice. One that is with another publisher
  // stops the process.
  void subscriberAdd(Subscriber& subscriber);
  // Removes the oldest addition of the subscriber; an absent one changes nothing.
  void subscriberRemove(Subscriber& subscriber);

  // The cost of the removals so far: the places that they have looked at or moved.
  std::uint64_t removalSteps() const;

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
  // Like attributeChange(), but the holder of the token tells the subscribers one by one. Nobody is
  // told in this call.
  PacedDelivery pacedAttributeChange(short attributeId) { return {*this, attributeId}; }

 private:
  bool idleState() const;
  void publish(short attributeId, const void* element, const void* oldValue) {
    if (state_ != nullptr) [[unlikely]] {
      deliver(attributeId, element, oldValue);
    }
  }
  void deliver(short attributeId, const void* element, const void* oldValue);
  void end();

  PublisherState* state_ = nullptr;  // also held by the deliveries under way
};

}  // namespace Pell
