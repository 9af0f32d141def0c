// SPDX-License-Identifier: Apache-2.0

#include <string_view>

#include <gtest/gtest.h>

#include "Zev/Entity.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"

namespace {

using Zev::Entity;

int made = 0;

class Registry : public Zev::Typed<Registry, Entity> {
 public:
  static constexpr std::string_view kTypeName = "Registry";

  static Pell::Ptr<Entity> registryIs(const Pell::String& name) {
    ++made;
    return Zev::makeObject<Registry>(name);
  }
  explicit Registry(const Pell::String& name) : Typed(name) {}
};

// Its end looks for singletons, as teardown code does.
class LooksBack : public Registry {
 public:
  static constexpr std::string_view kTypeName = "LooksBack";

  static Pell::Ptr<Entity> looksBackIs(const Pell::String& name) {
    return Zev::makeObject<LooksBack>(name);
  }
  using Registry::Registry;
  ~LooksBack() override {
    sawOther = Entity::singletonExists("other");
    sawItself = Entity::singletonExists("looks back");
  }

  static inline bool sawOther = true;
  static inline bool sawItself = true;
};

class EntityTest : public testing_support::LeakCheckedTest {
 protected:
  EntityTest() { made = 0; }
  ~EntityTest() override { Entity::singletonDelAll(); }
};

TEST_F(EntityTest, HasAName) {
  const Pell::Ptr<Entity> entity = Registry::registryIs("LoamAdj");
  EXPECT_EQ(entity->name(), "LoamAdj");
  EXPECT_EQ(entity->nameString(), "LoamAdj");
  EXPECT_TRUE(entity->hasNotificationActive());
}

TEST_F(EntityTest, PlacingItBelowAParentDoesNothingByDefault) {
  const Pell::Ptr<Entity> parent = Registry::registryIs("parent");
  const Pell::Ptr<Entity> child = Registry::registryIs("child");
  child->handleParent(parent);
  EXPECT_EQ(parent->references(), 1U);
  EXPECT_EQ(child->references(), 1U);
}

TEST_F(EntityTest, ASingletonIsMadeOnceAndKept) {
  EXPECT_FALSE(Entity::singletonExists("one"));
  EXPECT_EQ(Entity::singleton("one"), nullptr);
  const Pell::Ptr<Entity> first = Entity::singletonIs(&Registry::registryIs, "one");
  EXPECT_TRUE(Entity::singletonExists("one"));
  EXPECT_EQ(first->name(), "one");
  EXPECT_EQ(Entity::singletonIs(&Registry::registryIs, "one"), first);
  EXPECT_EQ(Entity::singleton("one"), first);
  EXPECT_EQ(made, 1);
}

TEST_F(EntityTest, SingletonsOfDifferentNamesAreDifferentObjects) {
  const auto one = Entity::singletonIs(&Registry::registryIs, "one");
  const auto two = Entity::singletonIs(&Registry::registryIs, "two");
  EXPECT_NE(one, two);
  EXPECT_FALSE(Entity::singletonExists("three"));
}

TEST_F(EntityTest, ResetDropsEverySingletonAndTheNextOneIsNew) {
  const Entity* first = Entity::singletonIs(&Registry::registryIs, "one").get();
  EXPECT_EQ(first->references(), 1U) << "the process alone holds it";
  const Pell::Ptr<Entity> kept = Entity::singletonIs(&Registry::registryIs, "two");
  Entity::singletonDelAll();
  EXPECT_FALSE(Entity::singletonExists("one"));
  EXPECT_EQ(kept->references(), 1U) << "others' references survive a reset";
  Entity::singletonIs(&Registry::registryIs, "one");
  EXPECT_EQ(made, 3);
  Entity::singletonDelAll();
  Entity::singletonDelAll();  // none is left
  EXPECT_FALSE(Entity::singletonExists("one"));
}

TEST_F(EntityTest, WhatEndsDuringAResetFindsNoSingleton) {
  Entity::singletonIs(&Registry::registryIs, "other");
  Entity::singletonIs(&LooksBack::looksBackIs, "looks back");
  Entity::singletonDelAll();
  EXPECT_FALSE(LooksBack::sawOther);
  EXPECT_FALSE(LooksBack::sawItself);
}

}  // namespace
