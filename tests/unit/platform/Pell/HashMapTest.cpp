// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/HashMap.h"
#include "Pell/Ptr.h"
#include "Probe.h"
#include "Zev/Hash.h"
#include "testing/LeakCheck.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Optional;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

using Key = std::uint32_t;

struct KeyBits {
  std::uint32_t operator()(Key key) const { return key; }
};
using SpreadHash = Zev::SaltedHash<0x1badcafe, KeyBits>;
// Every key in one place: the map must stay right when its hash does not help.
struct CollidingHash {
  std::size_t operator()(Key) const { return 42; }
};

using TextMap = Pell::HashMap<Key, std::string, SpreadHash>;
using ProbeMap = Pell::HashMap<Key, Pell::Ptr<Probe>, SpreadHash>;

class HashMapTest : public testing_support::LeakCheckedTest {};

template <typename Map>
std::vector<Key> keysOf(const Map& map) {
  std::vector<Key> keys;
  for (auto at = map.begin(); at != map.end(); at = map.next(at)) {
    keys.push_back(map.elementAt(at)->key);
  }
  return keys;
}

TEST_F(HashMapTest, IsEmptyAtFirst) {
  const TextMap map;
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.size(), 0U);
  EXPECT_EQ(map.begin(), map.end());
  EXPECT_EQ(map.elementAt(0), nullptr);
  EXPECT_EQ(map.find(1), nullptr);
  EXPECT_EQ(map.cursorOf(1), map.end());
}

TEST_F(HashMapTest, InsertsThenReplaces) {
  TextMap map;
  EXPECT_TRUE(map.insertOrAssign(7, "first"));
  const std::string* held = map.find(7);
  EXPECT_FALSE(map.insertOrAssign(7, "second"));
  EXPECT_EQ(map.size(), 1U);
  EXPECT_EQ(map.find(7), held) << "a replaced value stays where it is";
  EXPECT_EQ(*held, "second");
}

TEST_F(HashMapTest, TheIndexOperatorMakesAnAbsentElement) {
  TextMap map;
  EXPECT_EQ(map[5], "");
  map[5] += "grown";
  EXPECT_EQ(map[5], "grown");
  EXPECT_EQ(map.size(), 1U);
}

TEST_F(HashMapTest, TakeHandsTheValueOverAndEraseDropsIt) {
  TextMap map;
  map.insertOrAssign(1, "one");
  map.insertOrAssign(2, "two");
  EXPECT_THAT(map.take(1), Optional(std::string("one")));
  EXPECT_EQ(map.take(1), std::nullopt);
  EXPECT_TRUE(map.erase(2));
  EXPECT_FALSE(map.erase(2));
  EXPECT_TRUE(map.empty());
  EXPECT_FALSE(map.has(1));
}

TEST_F(HashMapTest, AKeyOfAStoredElementMayNameItsOwnRemoval) {
  TextMap map;
  map.insertOrAssign(9, "nine");
  EXPECT_TRUE(map.erase(map.elementAt(map.cursorOf(9))->key));
  EXPECT_TRUE(map.empty());
}

TEST_F(HashMapTest, ReusesTheSlotsOfRemovedElements) {
  TextMap map;
  for (Key key = 0; key < 8; ++key) {
    map.insertOrAssign(key, "x");
  }
  const auto slots = map.end();
  for (Key round = 1; round <= 100; ++round) {
    ASSERT_TRUE(map.erase(round - 1));
    ASSERT_TRUE(map.insertOrAssign(round + 7, "x"));
  }
  EXPECT_EQ(map.end(), slots);
  EXPECT_EQ(map.size(), 8U);
}

TEST_F(HashMapTest, ReferencesLiveUntilTheElementIsRemoved) {
  TextMap map;
  std::string& held = map[1];
  held = "stays";
  for (Key key = 2; key < 5000; ++key) {
    map.insertOrAssign(key, "x");
  }
  for (Key key = 2; key < 5000; key += 2) {
    map.erase(key);
  }
  EXPECT_EQ(map.find(1), &held);
  EXPECT_EQ(held, "stays");
}

TEST_F(HashMapTest, AWalkYieldsElementsInSlotOrder) {
  TextMap map;
  for (const Key key : {30U, 10U, 20U}) {
    map.insertOrAssign(key, "x");
  }
  EXPECT_THAT(keysOf(map), ElementsAre(30, 10, 20));
  map.erase(30);
  map.insertOrAssign(40, "x");
  EXPECT_THAT(keysOf(map), ElementsAre(40, 10, 20));
}

TEST_F(HashMapTest, AWalkSurvivesTheRemovalOfTheElementItStandsOn) {
  TextMap map;
  for (Key key = 0; key < 20; ++key) {
    map.insertOrAssign(key, "x");
  }
  std::vector<Key> seen;
  for (auto at = map.begin(); at != map.end(); at = map.next(at)) {
    seen.push_back(map.elementAt(at)->key);
    map.erase(seen.back());
    EXPECT_EQ(map.elementAt(at), nullptr);
  }
  EXPECT_EQ(seen.size(), 20U);
  EXPECT_TRUE(map.empty());
}

TEST_F(HashMapTest, ACursorWhoseElementHasGoneGivesNullAndGoesOn) {
  TextMap map;
  for (Key key = 0; key < 3; ++key) {
    map.insertOrAssign(key, "x");
  }
  const auto second = map.next(map.begin());
  map.erase(1);
  EXPECT_EQ(map.elementAt(second), nullptr);
  EXPECT_EQ(map.elementAt(map.next(second))->key, 2U);
}

TEST_F(HashMapTest, ClearDuringAWalkEndsIt) {
  TextMap map;
  for (Key key = 0; key < 20; ++key) {
    map.insertOrAssign(key, "x");
  }
  int steps = 0;
  for (auto at = map.begin(); at != map.end(); at = map.next(at)) {
    ASSERT_LT(++steps, 100);
    if (steps == 10) {
      map.clear();
    }
  }
  EXPECT_EQ(steps, 10);
}

TEST_F(HashMapTest, ACursorFromBeforeAClearEndsTheWalkOfWhatCameAfterIt) {
  TextMap map;
  for (Key key = 0; key < 20; ++key) {
    map.insertOrAssign(key, "x");
  }
  const auto old = map.cursorOf(15);
  map.clear();
  map.insertOrAssign(100, "new");
  EXPECT_EQ(map.elementAt(old), nullptr);
  EXPECT_FALSE(map.within(old));
  EXPECT_EQ(map.next(old), map.end());
}

TEST_F(HashMapTest, ForEachSeesElementsInsertedAheadOfItAndSkipsRemovedOnes) {
  TextMap map;
  map.insertOrAssign(1, "one");
  map.insertOrAssign(2, "two");
  map.insertOrAssign(3, "three");
  std::vector<std::pair<Key, std::string>> seen;
  map.forEach([&](const Key& key, const std::string& value) {
    seen.emplace_back(key, value);
    if (seen.size() == 1) {
      map.erase(2);
      map.insertOrAssign(3, "replaced");
    }
  });
  EXPECT_THAT(seen, ElementsAre(Pair(1, "one"), Pair(3, "replaced")));
}

TEST_F(HashMapTest, AReplacedElementEndsAfterTheNewOneIsIn) {
  ProbeMap map;
  int seen = 0;
  map.insertOrAssign(1, Zev::makeObject<Probe>(1, [&] { seen = (*map.find(1))->id(); }));
  map.insertOrAssign(1, Zev::makeObject<Probe>(2));
  EXPECT_EQ(seen, 2);
}

TEST_F(HashMapTest, TheDestructorOfAnErasedElementMayUseTheMap) {
  ProbeMap map;
  bool stillThere = true;
  map.insertOrAssign(1, Zev::makeObject<Probe>(1, [&] {
                       stillThere = map.has(1);
                       map.insertOrAssign(1, Zev::makeObject<Probe>(10));
                       for (Key key = 100; key < 200; ++key) {
                         map.insertOrAssign(key, Zev::makeObject<Probe>(0));
                       }
                       map.erase(2);
                     }));
  map.insertOrAssign(2, Zev::makeObject<Probe>(2));
  EXPECT_TRUE(map.erase(1));
  EXPECT_FALSE(stillThere);
  EXPECT_EQ((*map.find(1))->id(), 10);
  EXPECT_FALSE(map.has(2));
  EXPECT_EQ(map.size(), 101U);
}

TEST_F(HashMapTest, TheDestructorOfAnErasedElementMayClearTheMap) {
  ProbeMap map;
  map.insertOrAssign(1, Zev::makeObject<Probe>(1, [&] { map.clear(); }));
  map.insertOrAssign(2, Zev::makeObject<Probe>(2));
  EXPECT_TRUE(map.erase(1));
  EXPECT_TRUE(map.empty());
  map.insertOrAssign(3, Zev::makeObject<Probe>(3));
  map.insertOrAssign(4, Zev::makeObject<Probe>(4));
  EXPECT_THAT(keysOf(map), ElementsAre(3, 4));
}

TEST_F(HashMapTest, DestructorsSeeAnEmptyMapDuringClearAndMayFillIt) {
  ProbeMap map;
  std::vector<bool> wasEmpty;
  for (Key key = 0; key < 3; ++key) {
    map.insertOrAssign(key, Zev::makeObject<Probe>(0, [&map, &wasEmpty, key] {
                         wasEmpty.push_back(!map.has(key));
                         map.insertOrAssign(key + 10, Zev::makeObject<Probe>(1));
                       }));
  }
  map.clear();
  EXPECT_THAT(wasEmpty, ElementsAre(true, true, true));
  EXPECT_THAT(keysOf(map), UnorderedElementsAre(10, 11, 12));
}

template <typename Hash>
class HashMapModel : public testing_support::LeakCheckedTest {
 protected:
  using Map = Pell::HashMap<Key, int, Hash>;

  // One random change of both, clears included; few keys, so that they meet often.
  void changeOnce() {
    const Key key = static_cast<Key>(random_() % 97);
    const int value = static_cast<int>(random_() % 1000);
    const auto kind = random_() % 256;
    if (kind == 0) {
      map_.clear();
      model_.clear();
      staying_.clear();
    } else if (kind < 140) {
      EXPECT_EQ(map_.insertOrAssign(key, value), model_.insert_or_assign(key, value).second);
    } else {
      EXPECT_EQ(map_.erase(key), model_.erase(key) != 0);
      staying_.erase(key);
    }
  }

  void compare() const {
    ASSERT_EQ(map_.size(), model_.size());
    std::map<Key, int> walked;
    map_.forEach([&walked](Key key, int value) { EXPECT_TRUE(walked.emplace(key, value).second); });
    ASSERT_EQ(walked, model_);
    for (Key key = 0; key < 97; ++key) {
      ASSERT_EQ(map_.has(key), model_.contains(key)) << key;
    }
  }

  static constexpr std::uint32_t kSeed = 20240917;
  std::mt19937 random_{kSeed};
  Map map_;
  std::map<Key, int> model_;
  std::set<Key> staying_;  // there since the walk under way began
};

using Hashes = ::testing::Types<SpreadHash, CollidingHash>;
TYPED_TEST_SUITE(HashMapModel, Hashes);

TYPED_TEST(HashMapModel, AgreesWithAnOrderedMapUnderRandomChanges) {
  std::printf("seed %u\n", this->kSeed);
  for (int change = 0; change < 20'000; ++change) {
    this->changeOnce();
    if (change % 50 == 0) {
      ASSERT_NO_FATAL_FAILURE(this->compare()) << "after change " << change;
    }
  }
}

TYPED_TEST(HashMapModel, AWalkYieldsEveryStayingElementExactlyOnceUnderRandomChanges) {
  std::printf("seed %u\n", this->kSeed);
  for (int walk = 0; walk < 500; ++walk) {
    while (this->model_.size() < 30) {
      this->changeOnce();
    }
    this->staying_.clear();
    for (const auto& [key, value] : this->model_) {
      this->staying_.insert(key);
    }
    std::map<Key, int> yielded;
    for (auto at = this->map_.begin(); at != this->map_.end(); at = this->map_.next(at)) {
      if (const auto* element = this->map_.elementAt(at); element != nullptr) {
        ++yielded[element->key];
      }
      for (auto changes = this->random_() % 3; changes != 0; --changes) {
        this->changeOnce();
      }
    }
    for (const Key key : this->staying_) {
      ASSERT_EQ(yielded[key], 1) << "key " << key << " in walk " << walk;
    }
  }
}

}  // namespace
