// SPDX-License-Identifier: Apache-2.0

#include <functional>
#include <memory>
#include <type_traits>
#include <unordered_set>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/Ptr.h"
#include "Probe.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"

namespace {

using Pell::Ptr;
using Zev::makeObject;

static_assert(sizeof(Ptr<Probe>) == sizeof(void*), "one word");
static_assert(std::is_nothrow_move_constructible_v<Ptr<Probe>>);
static_assert(std::is_convertible_v<Ptr<SpecialProbe>, Ptr<Probe>>);
static_assert(std::is_convertible_v<Ptr<Probe>, Ptr<const Probe>>);
static_assert(!std::is_convertible_v<Ptr<Probe>, Ptr<SpecialProbe>>);
static_assert(!std::is_convertible_v<Ptr<const Probe>, Ptr<Probe>>);
static_assert(!std::is_convertible_v<Probe*, Ptr<Probe>>, "taking a reference is explicit");

class PtrTest : public testing_support::LeakCheckedTest {};
using PtrDeathTest = PtrTest;

TEST_F(PtrTest, IsNullByDefault) {
  const Ptr<Probe> pointer;
  EXPECT_FALSE(pointer);
  EXPECT_EQ(pointer, nullptr);
  EXPECT_EQ(pointer.get(), nullptr);
  EXPECT_EQ(Ptr<Probe>(nullptr), Ptr<const Probe>());
}

TEST_F(PtrTest, TheLastCopyEndsTheObject) {
  int ended = 0;
  Ptr<Probe> first = makeObject<Probe>(1, [&ended] { ++ended; });
  EXPECT_EQ(first->references(), 1U);
  Ptr<Probe> second = first;
  EXPECT_EQ(first->references(), 2U);
  first = nullptr;
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(second->references(), 1U);
  second = nullptr;
  EXPECT_EQ(ended, 1);
}

TEST_F(PtrTest, APointerFromThePlainOneTakesAReferenceOfItsOwn) {
  const Ptr<Probe> held = makeObject<Probe>();
  {
    const Ptr<Probe> again(held.get());
    EXPECT_EQ(held->references(), 2U);
    EXPECT_EQ(again, held);
  }
  EXPECT_EQ(held->references(), 1U);
}

TEST_F(PtrTest, SelfAssignmentByCopyAndByMoveKeepsTheObject) {
  Ptr<Probe> pointer = makeObject<Probe>(5);
  const Ptr<Probe>& alias = pointer;
  pointer = alias;
  ASSERT_TRUE(pointer);
  EXPECT_EQ(pointer->references(), 1U);
  Ptr<Probe>& movable = pointer;
  pointer = std::move(movable);
  ASSERT_TRUE(pointer);
  EXPECT_EQ(pointer->references(), 1U);
  EXPECT_EQ(pointer->id(), 5);
}

TEST_F(PtrTest, AssigningTheSameObjectAgainNeverEndsIt) {
  int ended = 0;
  Ptr<Probe> pointer = makeObject<Probe>(1, [&ended] { ++ended; });
  pointer = Ptr<Probe>(pointer.get());
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(pointer->references(), 1U);
}

TEST_F(PtrTest, MovingTakesTheReferenceAlong) {
  Ptr<Probe> source = makeObject<Probe>(3);
  Ptr<Probe> target = std::move(source);
  EXPECT_EQ(source.get(), nullptr);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null
  EXPECT_EQ(target->references(), 1U);
  Ptr<Probe> assigned = makeObject<Probe>(4);
  assigned = std::move(target);
  EXPECT_EQ(target.get(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(assigned->id(), 3);
  EXPECT_EQ(assigned->references(), 1U);
}

TEST_F(PtrTest, ConvertsFromDerivedAndToConst) {
  Ptr<SpecialProbe> special = makeObject<SpecialProbe>(9);
  Ptr<Probe> copied = special;
  EXPECT_EQ(special->references(), 2U);
  Ptr<const Probe> constant;
  constant = special;
  EXPECT_EQ(special->references(), 3U);
  EXPECT_EQ(special, copied);
  EXPECT_EQ(copied, constant);
  EXPECT_FALSE(copied != special);
  Ptr<Probe> moved;
  moved = std::move(special);
  EXPECT_EQ(special.get(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(moved->references(), 3U);
}

TEST_F(PtrTest, AnAssignmentThatEndsTheOldObjectShowsItTheNewOne) {
  Ptr<Probe> pointer;
  int seen = 0;
  pointer = makeObject<Probe>(1, [&] { seen = pointer->id(); });
  pointer = makeObject<Probe>(2);
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(pointer->id(), 2);
}

TEST_F(PtrTest, TheEndOfTheOldObjectMayAssignThePointerAgain) {
  Ptr<Probe> pointer;
  pointer = makeObject<Probe>(1, [&] { pointer = makeObject<Probe>(3); });
  pointer = makeObject<Probe>(2);
  EXPECT_EQ(pointer->id(), 3);
  EXPECT_EQ(pointer->references(), 1U);
}

TEST_F(PtrTest, WalkingAListReleasesEachNodeAfterItsSuccessorIsHeld) {
  std::vector<int> ended;
  Ptr<Probe> list;
  for (int id = 3; id >= 1; --id) {
    Ptr<Probe> node = makeObject<Probe>(id, [&ended, id] { ended.push_back(id); });
    node->next = list;
    list = node;
  }
  list = list->next;  // the assigned pointer dies with the object that it replaces
  EXPECT_THAT(ended, ::testing::ElementsAre(1));
  list = std::move(list->next);
  EXPECT_THAT(ended, ::testing::ElementsAre(1, 2));
  EXPECT_EQ(list->id(), 3);
  EXPECT_EQ(list->references(), 1U);
}

TEST_F(PtrTest, DetachAndAdoptHandOverOneReference) {
  Ptr<Probe> pointer = makeObject<Probe>(1);
  Probe* plain = pointer.detach();
  EXPECT_EQ(pointer.get(), nullptr);
  EXPECT_EQ(plain->references(), 1U);
  const Ptr<Probe> adopted = Ptr<Probe>::adopt(plain);
  EXPECT_EQ(adopted->references(), 1U);
}

TEST_F(PtrTest, SwapExchangesObjectsWithoutCounting) {
  Ptr<Probe> one = makeObject<Probe>(1);
  Ptr<Probe> none;
  one.swap(none);
  EXPECT_EQ(one.get(), nullptr);
  EXPECT_EQ(none->id(), 1);
  EXPECT_EQ(none->references(), 1U);
}

TEST_F(PtrTest, TheDynamicCastGivesNullForAnotherClassAndForNull) {
  const Ptr<Probe> special = makeObject<SpecialProbe>(1);
  const Ptr<Probe> plain = makeObject<Probe>(2);
  const Ptr<SpecialProbe> cast = Pell::dynamicPtrCast<SpecialProbe>(special);
  EXPECT_EQ(cast, special);
  EXPECT_EQ(special->references(), 2U);
  EXPECT_EQ(Pell::dynamicPtrCast<SpecialProbe>(plain), nullptr);
  EXPECT_EQ(plain->references(), 1U);
  EXPECT_EQ(Pell::dynamicPtrCast<SpecialProbe>(Ptr<Probe>()), nullptr);
  EXPECT_EQ(Pell::dynamicPtrCast<const SpecialProbe>(Ptr<const Probe>(special)), special);
}

TEST_F(PtrTest, EqualPointersHashEqual) {
  const Ptr<Probe> one = makeObject<Probe>(1);
  const Ptr<Probe> other = makeObject<Probe>(1);
  std::unordered_set<Ptr<Probe>> set{one, one, other, Ptr<Probe>(one.get())};
  EXPECT_EQ(set.size(), 2U);
  EXPECT_TRUE(set.contains(other));
}

TEST_F(PtrDeathTest, DereferencingNullStopsTheProcess) {
  const Ptr<Probe> null;
  EXPECT_DEATH(static_cast<void>(null->id()), "assertion failed: object_ != NULL");
  EXPECT_DEATH(static_cast<void>((*null).id()), "assertion failed: object_ != NULL");
}

}  // namespace
