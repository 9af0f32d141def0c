// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "Pell/Ptr.h"
#include "Zev/AllocationTracker.h"
#include "Zev/Count.h"
#include "Zev/ObjectMemory.h"
#include "Zev/TypeRecord.h"

namespace Pell {
class Publisher;
}

namespace Zev {

// Base of every object of the platform: counted, typed, and able to tell whether it is live.
// Concrete classes derive from it through Typed, below.
//
// Kind: object with identity, made by makeObject<T>() only.
// Ownership: lives while a Pell::Ptr holds it. It is born with one construction reference, so its
// constructor may hand out counted pointers to itself; makeObject() turns that reference into the
// pointer it returns.
// Threads: counts are plain increments unless thread-safe-pointer mode is on.
// Invariants: once being destroyed it stays so; counted pointers made by a destructor do no harm.
// Notifications of an object are off before its first destructor begins, so that no destructor has
// to turn them off. An object that has taken notifications ends only with its last reference; one
// that ends with notifications on stops the process.
class PtrInterface {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // The publisher that announces this object's changes; null for a class that announces none.
  virtual const Pell::Publisher* notifieeList() const;
  // Called by the runtime with true when the last reference has gone: turns notifications off and
  // ends the object.
  virtual void zeroReferencesIs(bool zero);
  virtual const TypeRecord& fwkType() const = 0;

  // NOLINTNEXTLINE(misc-new-delete-overloads): its match is the sized one below
  static void* operator new(std::size_t bytes) { return ObjectMemory::take(bytes); }
  static void operator delete(void* block, std::size_t bytes) noexcept {
    ObjectMemory::give(block, bytes);
  }

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface();

 public:
  [[gnu::always_inline]] void refInc() const noexcept { references_.raise(); }
  [[gnu::always_inline]] void refDec() const noexcept {
    if (references_.lower() == 0 && !beingDestroyed_) [[unlikely]] {
      const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
    }
  }
  std::uint32_t references() const noexcept { return references_.value(); }

  // Set by makeObject() once construction is complete, cleared before destruction begins: while it
  // is off, no change notification reaches the object.
  bool hasNotificationActive() const { return notificationActive_; }
  void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

  bool isBeingDestroyed() const { return beingDestroyed_; }

 private:
  template <typename T, typename... Arguments>
  friend Pell::Ptr<T> makeObject(Arguments&&... arguments);

  AllocationTracker* tracker_ = nullptr;
  mutable Count<std::uint32_t> references_{1};
  bool notificationActive_ = false;
  bool beingDestroyed_ = false;
};

// Stands between a concrete class and its base, and supplies the hook that returns its type record.
// The record holds only the name, unless the class has a typeRecord() of its own.
//
//   class Door : public Zev::Typed<Door, Zev::NotifyingObject> {
//    public:
//     static constexpr const char* kTypeName = "Door";
//
// A class that derives from Door without a Typed of its own counts as a Door.
template <typename Derived, typename Base = PtrInterface>
class Typed : public Base {
 public:
  static TypeRecord typeRecord() { return {.name = Derived::kTypeName}; }

  const TypeRecord& fwkType() const override {
    static const TypeRecord record = Derived::typeRecord();
    return record;
  }

 protected:
  using Base::Base;
};

// The allocation tracker of T, which names itself in T::kTypeName.
template <typename T>
AllocationTracker& trackerOf() {
  static AllocationTracker tracker(T::kTypeName);
  return tracker;
}

// The one way in which objects are made: allocates under the type's tracker, constructs, marks the
// object notification-active. An exception of the constructor propagates; nothing is left then.
template <typename T, typename... Arguments>
Pell::Ptr<T> makeObject(Arguments&&... arguments) {
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
  T* object = new T(std::forward<Arguments>(arguments)...);
  PtrInterface* base = object;
  base->tracker_ = &trackerOf<T>();
  base->tracker_->allocated();
  object->hasNotificationActiveIs(true);
  return Pell::Ptr<T>::adopt(object);
}

}  // namespace Zev
