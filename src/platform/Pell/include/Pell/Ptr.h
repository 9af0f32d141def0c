// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "Pell/Assert.h"

namespace Pell {

template <typename From, typename To>
concept PointerConvertibleTo = std::is_convertible_v<From*, To*>;

// Counted pointer to an object that carries its own count.
//
// Kind: value type, one word. Null allowed.
// Ownership: holds one reference to what it points at; the last one to go ends the object.
// Threads: as the count of T: plain unless the process runs in thread-safe-pointer mode.
// T offers refInc() const and refDec() const (see Zev::PtrInterface).
template <typename T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}

  // Takes a reference of its own; null gives a null pointer.
  explicit Ptr(T* object) noexcept : object_(object) { hold(); }

  Ptr(const Ptr& other) noexcept : object_(other.object_) { hold(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  template <PointerConvertibleTo<T> U>
  Ptr(const Ptr<U>& other) noexcept : object_(other.get()) {
    hold();
  }
  template <PointerConvertibleTo<T> U>
  Ptr(Ptr<U>&& other) noexcept : object_(other.detach()) {}

  ~Ptr() { drop(object_); }

  // The old object goes last, so an assignment that ends it may find this pointer already changed.
  Ptr& operator=(const Ptr& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    Ptr().swap(*this);
    return *this;
  }

  // Takes over a reference that the caller holds already.
  static Ptr adopt(T* object) noexcept {
    Ptr result;
    result.object_ = object;
    return result;
  }
  // Gives the reference up to the caller; this pointer is null afterwards.
  T* detach() noexcept { return std::exchange(object_, nullptr); }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* get() const noexcept { return object_; }
  // Dereferencing null is a broken invariant of the caller and stops the process.
  T& operator*() const noexcept { return *held(); }
  T* operator->() const noexcept { return held(); }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  template <typename U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

 private:
  T* held() const noexcept {
    PELL_ASSERT(object_ != nullptr, "object_ != NULL");
    return object_;
  }
  void hold() const noexcept {
    if (object_ != nullptr) {
      object_->refInc();
    }
  }
  static void drop(T* object) noexcept {
    if (object != nullptr) {
      object->refDec();
    }
  }

  T* object_ = nullptr;
};

// Count for an object that the Ptrs of one thread share; Derived is the object's class.
//
// Invariants: the object is made with new, goes into a Ptr at once and ends with its last one.
template <typename Derived>
class SharedByOneThread {
 public:
  SharedByOneThread() = default;
  SharedByOneThread(const SharedByOneThread&) = delete;
  SharedByOneThread& operator=(const SharedByOneThread&) = delete;

  void refInc() const noexcept { ++references_; }
  void refDec() const noexcept {
    if (--references_ == 0) {
      delete static_cast<const Derived*>(this);
    }
  }

 protected:
  ~SharedByOneThread() = default;

 private:
  mutable std::uint32_t references_ = 0;
};

// Down-cast that checks the object's class; null in, or another class, gives null. An object of
// exactly the class asked for, which is the rule, needs no look at its bases.
template <typename To, typename From>
Ptr<To> dynamicPtrCast(const Ptr<From>& from) noexcept {
  From* object = from.get();
  if (object != nullptr && &typeid(*object) == &typeid(To)) {
    return Ptr<To>(static_cast<To*>(object));
  }
  return Ptr<To>(dynamic_cast<To*>(object));
}

}  // namespace Pell

template <typename T>
struct std::hash<Pell::Ptr<T>> {
  std::size_t operator()(const Pell::Ptr<T>& ptr) const noexcept {
    return std::hash<T*>()(ptr.get());
  }
};
