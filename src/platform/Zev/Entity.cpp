// SPDX-License-Identifier: Apache-2.0

#include "Zev/Entity.h"

#include <map>

namespace Zev {

namespace {

using Singletons = std::map<Pell::String, Pell::Ptr<Entity>>;

Singletons& singletons() {
  static auto* instance = new Singletons;
  return *instance;
}

}  // namespace

Pell::String Entity::nameString() const { return name_; }

void Entity::handleParent(const Pell::Ptr<Entity>& /*parent*/) {}

bool Entity::singletonExists(const Pell::String& name) { return singletons().contains(name); }

Pell::Ptr<Entity> Entity::singletonIs(SingletonFactory type, const Pell::String& name) {
  if (Pell::Ptr<Entity> held = singleton(name)) {
    return held;
  }
  Pell::Ptr<Entity> made = type(name);
  singletons()[name] = made;
  return made;
}

Pell::Ptr<Entity> Entity::singleton(const Pell::String& name) {
  const auto found = singletons().find(name);
  return found == singletons().end() ? nullptr : found->second;
}

void Entity::singletonDelAll() {
  const Singletons dropped = std::exchange(singletons(), Singletons());
}

}  // namespace Zev
