// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

namespace Pell {

// Array that grows at its end and never moves an element: chunk c holds 8 << c of them.
// Nothing is allocated while it is empty.
template <typename T>
class StableArray {
 public:
  std::uint32_t size() const { return size_; }
  T& operator[](std::uint32_t at) { return const_cast<T&>(std::as_const(*this)[at]); }
  const T& operator[](std::uint32_t at) const {
    const std::uint32_t position = at + kFirstChunk;
    const std::uint32_t chunk = chunkOf(position);
    return chunks_[chunk][position - (kFirstChunk << chunk)];
  }
  // Appends a default element.
  void grow() {
    const std::uint32_t chunk = chunkOf(size_ + kFirstChunk);
    if (chunk == chunks_.size()) {
      chunks_.push_back(std::make_unique<T[]>(std::size_t{kFirstChunk} << chunk));
    }
    ++size_;
  }

 private:
  static constexpr std::uint32_t kFirstChunk = 8;
  static std::uint32_t chunkOf(std::uint32_t position) {
    return static_cast<std::uint32_t>(std::bit_width(position) - std::bit_width(kFirstChunk));
  }

  std::vector<std::unique_ptr<T[]>> chunks_;
  std::uint32_t size_ = 0;
};

// Hash map of slots that never move, plus an index.
//
// Kind: container with value elements; Hash is a function object over Key.
// Ownership: owns its elements; a removed element is detached before it is destroyed, so an
// element's destructor may use the map.
// Threads: one.
// Errors: an insertion that finds no memory, or whose value cannot be moved, throws and has changed
// nothing; nothing else throws.
// Invariants: a Cursor stays usable across any insertion, removal and clear(); a walk by cursor
// yields every element that stayed during the walk exactly once, in slot order. References to a
// stored value live until that element is removed. Lookup, insertion, removal: constant time. A
// walk costs the number of slots, which is the largest number of elements the map has held since
// it was last cleared.
template <typename Key, typename Value, typename Hash>
class HashMap {
  static_assert(std::is_nothrow_copy_constructible_v<Key>);

 public:
  struct Element {
    Key key;
    Value value;
  };
  using Cursor = std::uint32_t;

  HashMap() = default;
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap() { clear(); }

  std::uint32_t size() const { return static_cast<std::uint32_t>(index_.size()); }
  bool empty() const { return index_.empty(); }
  bool has(const Key& key) const { return index_.contains(key); }

  // Null when the key is absent.
  Value* find(const Key& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }
  const Value* find(const Key& key) const {
    if (index_.empty()) {  // many maps are, most of the time: spare them the hash
      return nullptr;
    }
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &slots_[found->second]->value;
  }

  // Inserts or replaces; true when the key is new. The replaced value goes after the new one is in.
  bool insertOrAssign(const Key& key, Value value) {
    makeRoom();
    const auto [indexed, isNew] = index_.try_emplace(key);
    if (!isNew) {
      std::swap(slots_[indexed->second]->value, value);
      return false;
    }
    fillSlot(indexed->second, key, std::move(value));
    return true;
  }

  // The element's value, made by default when the key is absent.
  Value& operator[](const Key& key) {
    if (Value* held = find(key); held != nullptr) {
      return *held;
    }
    Value made{};
    makeRoom();
    const auto indexed = index_.try_emplace(key).first;
    fillSlot(indexed->second, key, std::move(made));
    return slots_[indexed->second]->value;
  }

  // Removes the key and hands the value to the caller; nothing when the key is absent.
  std::optional<Value> take(const Key& key) {
    if (index_.empty()) {
      return std::nullopt;
    }
    const auto found = index_.find(key);
    if (found == index_.end()) {
      return std::nullopt;
    }
    const Cursor slot = found->second;
    std::optional<Value> taken(std::move(slots_[slot]->value));
    index_.erase(found);
    slots_[slot].reset();
    free_.push_back(slot);
    return taken;
  }
  // True when the key was there.
  bool erase(const Key& key) { return take(key).has_value(); }

  void clear() {
    const Slots detached = std::exchange(slots_, Slots());
    free_.clear();
    index_.clear();
  }

  // Walk: for (auto at = map.begin(); at != map.end(); at = map.next(at)). The element of a cursor
  // may be gone when it is reached: elementAt() is null then. next() skips free slots.
  Cursor begin() const { return firstFrom(0); }
  Cursor end() const { return slots_.size(); }
  Cursor next(Cursor at) const { return firstFrom(at + 1); }
  // True while the cursor is before the end of the slots as they are now.
  bool within(Cursor at) const { return at < slots_.size(); }
  const Element* elementAt(Cursor at) const {
    return within(at) && slots_[at].has_value() ? &*slots_[at] : nullptr;
  }
  // The cursor at the key's element, or end().
  Cursor cursorOf(const Key& key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? end() : found->second;
  }

  // Calls visit(key, value) for each element; visit may change the map, and must copy what it
  // needs of its arguments before it removes the element they stand in.
  template <typename Visit>
  void forEach(Visit&& visit) const {
    for (Cursor at = begin(); within(at); at = next(at)) {
      visit(slots_[at]->key, slots_[at]->value);
    }
  }

 private:
  using Slots = StableArray<std::optional<Element>>;

  // Never past end(), wherever the cursor stood before a clear().
  Cursor firstFrom(Cursor at) const {
    while (within(at) && !slots_[at].has_value()) {
      ++at;
    }
    return std::min(at, end());
  }

  // Has a free slot, and memory to give every slot back: what is indexed next cannot fail.
  void makeRoom() {
    if (!free_.empty()) {
      return;
    }
    if (free_.capacity() <= slots_.size()) {
      free_.reserve(2 * std::size_t{slots_.size()} + 1);
    }
    slots_.grow();
    free_.push_back(slots_.size() - 1);
  }

  // Gives a new key the free slot that makeRoom() has seen to; `indexed` is the index's word for
  // it.
  void fillSlot(Cursor& indexed, const Key& key, Value&& value) {
    const Cursor slot = free_.back();
    try {
      slots_[slot].emplace(Element{key, std::move(value)});
    } catch (...) {  // what the value's move threw
      index_.erase(key);
      throw;
    }
    indexed = slot;
    free_.pop_back();
  }

  Slots slots_;
  std::vector<Cursor> free_;
  boost::unordered_flat_map<Key, Cursor, Hash> index_;
};

}  // namespace Pell
