// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/String.h"
#include "Zev/PtrInterface.h"

namespace Zev {

// Object with a name and a place in a tree of objects; also the holder of process singletons.
//
// Kind, ownership, threads: as PtrInterface.
class Entity : public PtrInterface {
 public:
  // Name for people; the entity's own name unless a class knows better.
  virtual Pell::String nameString() const;
  // Called when the entity is placed below a parent; does nothing by default.
  virtual void handleParent(const Pell::Ptr<Entity>& parent);

  const Pell::String& name() const { return name_; }

  // How a process singleton of a type is made; the type's own static operation.
  using SingletonFactory = Pell::Ptr<Entity> (*)(const Pell::String& name);

  static bool singletonExists(const Pell::String& name);
  // The singleton of that name, made with the factory when there is none.
  static Pell::Ptr<Entity> singletonIs(SingletonFactory type, const Pell::String& name);
  // Null when there is none.
  static Pell::Ptr<Entity> singleton(const Pell::String& name);
  // Drops every singleton of the process: for tests, and for a program's orderly end.
  static void singletonDelAll();

 protected:
  explicit Entity(Pell::String name) : name_(std::move(name)) {}
  ~Entity() override = default;

 private:
  Pell::String name_;
};

}  // namespace Zev
