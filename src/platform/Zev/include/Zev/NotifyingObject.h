// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/Publisher.h"
#include "Zev/PtrInterface.h"

namespace Zev {

// Object that publishes its attribute changes and may itself react to those of others.
//
// Kind, ownership, threads: as PtrInterface.
class NotifyingObject : public PtrInterface {
 public:
  const Pell::Publisher* notifieeList() const override { return &publisher_; }
  // Observing does not change the object that is observed.
  Pell::Publisher& publisher() const { return publisher_; }

  // With true, every Reactor of this object is dead from now on: nothing reaches it any more, not
  // even a delivery that is under way. Called by destructors.
  void zevDoZombieReactors(bool zombie) { zombieReactors_ = zombie; }
  // True while the object takes notifications.
  bool reactsToChanges() const {
    return hasNotificationActive() && !zombieReactors_ && !isBeingDestroyed();
  }

 private:
  mutable Pell::Publisher publisher_;
  bool zombieReactors_ = false;
};

// Subscriber of an object, which hears nothing while that object's notifications are off.
//
// Ownership: a member of the object it reacts for; that object adds and removes it.
class Reactor : public Pell::Subscriber {
 public:
  Reactor(const NotifyingObject& owner, Callback callback);
};

}  // namespace Zev
