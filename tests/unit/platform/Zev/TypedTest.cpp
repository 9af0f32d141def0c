// SPDX-License-Identifier: Apache-2.0

#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/NotifyingObject.h"
#include "testing/LeakCheck.h"
#include "testing/VirtualSlot.h"

namespace {

using ::testing::IsEmpty;
using testing_support::virtualSlot;

class Bare : public Zev::Typed<Bare> {
 public:
  static constexpr const char* kTypeName = "TypedTest.Bare";
};

// Abstract, with a constructor that only classes derived from it may call.
class Numbered : public Zev::NotifyingObject {
 public:
  int number() const { return number_; }

 protected:
  explicit Numbered(int number) : number_(number) {}

 private:
  int number_;
};

class Door : public Zev::Typed<Door, Numbered> {
 public:
  static constexpr const char* kTypeName = "TypedTest.Door";

  explicit Door(int number) : Typed(number) {}
  static Zev::TypeRecord typeRecord() {
    return {kTypeName, {{"number", 1}}, {{"open", {"slowly"}}}};
  }
};

class TrapDoor : public Zev::Typed<TrapDoor, Door> {
 public:
  static constexpr const char* kTypeName = "TypedTest.TrapDoor";
  using Typed::Typed;
};

class PlainDoor : public Door {
 public:
  using Door::Door;
};

using Typed = testing_support::LeakCheckedTest;

TEST_F(Typed, AClassThatSaysNothingElseTellsItsName) {
  const auto bare = Zev::makeObject<Bare>();
  EXPECT_EQ(bare->fwkType().name, "TypedTest.Bare");
  EXPECT_THAT(bare->fwkType().attributes, IsEmpty());
  EXPECT_THAT(bare->fwkType().operations, IsEmpty());
}

TEST_F(Typed, AClassTellsTheRecordThatItHasOfItsOwn) {
  const auto door = Zev::makeObject<Door>(7);
  EXPECT_EQ(door->number(), 7);
  EXPECT_EQ(door->fwkType().name, "TypedTest.Door");
  ASSERT_NE(door->fwkType().attribute("number"), nullptr);
  ASSERT_NE(door->fwkType().operation("open"), nullptr);
  EXPECT_THAT(door->fwkType().operation("open")->parameters, ::testing::ElementsAre("slowly"));
}

TEST_F(Typed, AClassDoesNotTellTheRecordOfTheTypedClassBelowIt) {
  const Pell::Ptr<Zev::PtrInterface> trapDoor = Zev::makeObject<TrapDoor>(8);
  EXPECT_EQ(trapDoor->fwkType().name, "TypedTest.TrapDoor");
  EXPECT_EQ(trapDoor->fwkType().attribute("number"), nullptr);
}

TEST_F(Typed, AClassWithoutATypeOfItsOwnTellsItsBases) {
  const Pell::Ptr<Zev::PtrInterface> plain = Zev::makeObject<PlainDoor>(9);
  EXPECT_EQ(plain->fwkType().name, "TypedTest.Door");
}

TEST_F(Typed, TheRecordIsOneForAllObjectsOfAClass) {
  EXPECT_EQ(&Zev::makeObject<Door>(1)->fwkType(), &Zev::makeObject<Door>(2)->fwkType());
}

TEST_F(Typed, TheHookKeepsItsSlot) {
  EXPECT_EQ(virtualSlot(&Zev::PtrInterface::fwkType), 2);
  EXPECT_EQ(virtualSlot(&Door::fwkType), 2);
  EXPECT_EQ(virtualSlot(&TrapDoor::fwkType), 2);
}

}  // namespace
