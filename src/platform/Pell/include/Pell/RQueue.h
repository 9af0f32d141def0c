// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "Pell/Assert.h"

namespace Pell {

// First-in first-out queue of counted pointers whose elements are numbered consecutively.
//
// Kind: container; T is null-able (a counted pointer), Tag keeps queues of one element type apart.
// kLinkedFromElement is false for every queue of this platform: elements do not know their array.
// Ownership: owns its elements; an element is detached from the queue before it is destroyed.
// Threads: one.
// Invariants: elements are numbered from 1 in a new queue, numbers go on when it drains, and wrap
// at 2^32 (0 is then a number like any other). Enqueue, dequeue, front, back: constant time, with
// an allocation each time an array fills. Access by number: linear in the arrays, at most one array
// per doubling up to 8192 elements.
// Layout: a circular singly linked list of arrays; the queue points at the tail array, whose link
// points at the head. An array is: link (one word); read index (14 bits), write index (14 bits)
// and log2 of the capacity (4 bits, 0: a placeholder without slots that keeps the numbering) in
// one 32-bit word; the number of slot 0; the slots.
template <typename T, bool kLinkedFromElement, typename Tag>
class RQueue {
  static_assert(!kLinkedFromElement, "elements of a queue do not know their array");

 public:
  using Sequence = std::uint32_t;

  static constexpr std::uint32_t kSmallestCapacity = 8;
  static constexpr std::uint32_t kLargestCapacity = 8192;
  static constexpr Sequence kFirstSequence = 1;

  RQueue() = default;
  RQueue(const RQueue&) = delete;
  RQueue& operator=(const RQueue&) = delete;
  ~RQueue() { doClear(false); }

  bool empty() const { return count_ == 0; }
  std::uint32_t size() const { return count_; }

  // Appends and returns the element's number. Out of memory aborts the process.
  Sequence enq(T element) {
    Array* array = arrayWithRoom();
    const std::uint32_t index = array->writeIndex();
    new (array->slot(index)) T(std::move(element));
    array->writeIndexIs(index + 1);
    ++count_;
    return array->base + index;
  }

  // Removes and returns the front element, null when empty; *sequence is its number then.
  T deq(Sequence* sequence = nullptr) {
    if (empty()) {
      return T();
    }
    Array* head = tail_->link;
    const std::uint32_t index = head->readIndex();
    if (sequence != nullptr) {
      *sequence = head->base + index;
    }
    T element = std::move(*head->slot(index));
    head->slot(index)->~T();
    head->readIndexIs(index + 1);
    --count_;
    if (head->drained()) {
      drop(head);
    }
    return element;
  }

  // Null when empty.
  T front() const { return empty() ? T() : *tail_->link->slot(tail_->link->readIndex()); }
  T back() const { return empty() ? T() : *tail_->slot(tail_->writeIndex() - 1); }
  // The element of that number; null (false) outside the queued range.
  T at(Sequence sequence) const {
    const T* found = find(sequence);
    return found == nullptr ? T() : *found;
  }
  bool has(Sequence sequence) const { return find(sequence) != nullptr; }

  // Capacity of the array that takes the next element unless it is full; 0 for a placeholder or a
  // queue that never held anything.
  std::uint32_t tailCapacity() const { return tail_ == nullptr ? 0 : tail_->capacity(); }

  // Releases every element and frees every array. With keepNumbering the queue goes on from the
  // next number, without it from 1. Elements' destructors see a queue that is empty already.
  void doClear(bool keepNumbering) {
    if (tail_ == nullptr) {
      return;
    }
    const Sequence next = tail_->base + tail_->writeIndex();
    Array* head = std::exchange(tail_->link, nullptr);
    tail_ = keepNumbering ? Array::make(0, next) : nullptr;
    count_ = 0;
    while (head != nullptr) {
      Array* following = std::exchange(head->link, nullptr);
      for (std::uint32_t i = head->readIndex(); i < head->writeIndex(); ++i) {
        head->slot(i)->~T();
      }
      Array::free(head);
      head = following;
    }
  }

  // A new queue whose first element gets this number: for tests of the wrap at 2^32.
  void numberingStartsAt(Sequence first) {
    doClear(false);
    tail_ = Array::make(0, first);
  }

 private:
  friend struct RQueueTestPeer;  // reaches the array's assertions, which no caller can break

  struct Array {
    static constexpr std::uint32_t kIndexBits = 14;
    static constexpr std::uint32_t kIndexMask = (1U << kIndexBits) - 1;

    Array* link;         // the next younger array; of the tail: the oldest
    std::uint32_t word;  // read index | write index << 14 | log2(capacity) << 28
    Sequence base;       // number of slot 0

    // A new array links to itself.
    static Array* make(std::uint32_t capacity, Sequence base) {
      PELL_ASSERT(capacity == 0 || std::has_single_bit(capacity), "isPowerOfTwo( i )");
      void* memory = std::malloc(sizeof(Array) + capacity * sizeof(T));
      if (memory == nullptr) {
        std::abort();
      }
      const auto log2 = capacity == 0 ? 0U : static_cast<std::uint32_t>(std::countr_zero(capacity));
      auto* array = new (memory) Array{nullptr, log2 << (2 * kIndexBits), base};
      array->link = array;
      return array;
    }
    static void free(Array* array) {
      PELL_ASSERT(!array->linked(), "!linked()");
      std::free(array);
    }

    bool linked() const { return link != nullptr; }
    std::uint32_t readIndex() const { return word & kIndexMask; }
    std::uint32_t writeIndex() const { return (word >> kIndexBits) & kIndexMask; }
    std::uint32_t capacity() const {
      const std::uint32_t log2 = word >> (2 * kIndexBits);
      return log2 == 0 ? 0 : 1U << log2;
    }
    void readIndexIs(std::uint32_t index) { word = (word & ~kIndexMask) | index; }
    void writeIndexIs(std::uint32_t index) {
      word = (word & ~(kIndexMask << kIndexBits)) | (index << kIndexBits);
    }
    bool full() const { return writeIndex() == capacity(); }
    bool drained() const { return readIndex() == writeIndex(); }
    T* slot(std::uint32_t index) { return reinterpret_cast<T*>(this + 1) + index; }
  };
  static_assert(sizeof(Array) % alignof(T) == 0, "slots follow the header");

  // n is at or after m: n - m below 0x7FFFFFFF, modulo 2^32.
  static bool atOrAfter(Sequence n, Sequence m) { return n - m < 0x7FFFFFFFU; }

  // The smallest power of two above the count, within the bounds of an array.
  static std::uint32_t capacityFor(std::uint32_t count) {
    return count >= kLargestCapacity
               ? kLargestCapacity
               : std::clamp(std::bit_ceil(count + 1), kSmallestCapacity, kLargestCapacity);
  }

  Array* arrayWithRoom() {
    if (tail_ == nullptr) {
      tail_ = Array::make(kSmallestCapacity, kFirstSequence);
    } else if (tail_->capacity() == 0) {
      Array* placeholder = std::exchange(tail_, Array::make(capacityFor(0), tail_->base));
      placeholder->link = nullptr;
      Array::free(placeholder);
    } else if (tail_->full()) {
      Array* array = Array::make(capacityFor(count_), tail_->base + tail_->writeIndex());
      array->link = std::exchange(tail_->link, array);
      tail_ = array;
    }
    return tail_;
  }

  void drop(Array* head) {
    if (head == tail_) {
      tail_ = Array::make(0, head->base + head->writeIndex());
    } else {
      tail_->link = head->link;
    }
    head->link = nullptr;
    Array::free(head);
  }

  static const T* slotOf(Array* array, Sequence sequence) {
    const Sequence first = array->base + array->readIndex();
    const Sequence end = array->base + array->writeIndex();
    const bool inside = atOrAfter(sequence, first) && !atOrAfter(sequence, end);
    return inside ? array->slot(sequence - array->base) : nullptr;
  }

  const T* find(Sequence sequence) const {
    if (tail_ == nullptr) {
      return nullptr;
    }
    if (const T* found = slotOf(tail_, sequence); found != nullptr) {
      return found;
    }
    for (Array* array = tail_->link; array != tail_; array = array->link) {
      if (const T* found = slotOf(array, sequence); found != nullptr) {
        return found;
      }
    }
    return nullptr;
  }

  Array* tail_ = nullptr;
  std::uint32_t count_ = 0;
};

}  // namespace Pell
