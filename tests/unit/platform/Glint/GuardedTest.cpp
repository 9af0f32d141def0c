// SPDX-License-Identifier: Apache-2.0

// The walks for callers who go on when a table turns out to be damaged: what each meets, what it
// says about that, and whose exceptions it lets through.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Glint/Guarded.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::State;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Offsets;
using Rows = Glint::GlintMap<RisingRow>;
using Keys = std::vector<std::uint64_t>;

constexpr std::uint32_t kCapacity = 8;
constexpr std::uint32_t kSlots = 16;
constexpr std::uint32_t kRows = 12;  // keys 0 to 11, in the slots of these numbers

const Offsets kOffsets(kCapacity, kSlots, sizeof(RisingRow));

Keys allKeys() {
  Keys keys(kRows);
  std::iota(keys.begin(), keys.end(), 0U);
  return keys;
}

Keys without(Keys keys, const Keys& gone) {
  std::erase_if(keys, [&](std::uint64_t key) { return std::ranges::count(gone, key) != 0; });
  return keys;
}

class GuardedTest : public testing_support::LeakCheckedTest {
 protected:
  GuardedTest() : state_(root_.path()), entity_(state_.mount<RisingRow>("t", kCapacity)) {
    for (std::uint64_t key = 0; key < kRows; ++key) {
      rows().rowIs(risingRow(key, key));
    }
  }

  Rows& rows() { return entity_->rows(); }
  std::string file() const { return root_.path() + "/t.table"; }
  const std::string& root() const { return root_.path(); }

  void damageRow(std::uint32_t slot) const { testing_support::damageRow(file(), slot); }
  void damageSeq(std::uint32_t slot) const {
    testing_support::flipBit(file(), 8 * kOffsets.slot(slot) + 9);
  }
  void damageSlotsInUse() const {
    testing_support::flipBit(file(), 8 * offsetof(Glint::Header, slotsInUse));
  }

 private:
  testing_support::TemporaryRoot root_;
  State state_;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> entity_;
};

struct Walked {
  Keys keys;
  bool sawAll = false;
};

const auto kVisitNothing = [](const RisingRow&) {};

template <typename Also>
Walked over(Rows& rows, Also&& also) {
  Walked walked;
  walked.sawAll = Glint::walkOverDamage(rows, [&](const RisingRow& row) {
    EXPECT_EQ(row, risingRow(row.key, row.key));
    walked.keys.push_back(row.key);
    also(row);
  });
  return walked;
}
Walked over(Rows& rows) { return over(rows, kVisitNothing); }

template <typename Also>
Walked before(Rows& rows, Also&& also) {
  Walked walked;
  walked.sawAll = Glint::walkToDamage(rows, [&](const RisingRow& row) {
    walked.keys.push_back(row.key);
    also(row);
  });
  return walked;
}
Walked before(Rows& rows) { return before(rows, kVisitNothing); }

// ---- without damage

TEST_F(GuardedTest, WithoutDamageBothWalksMeetEveryRowAndSaySo) {
  for (const Walked& walked : {over(rows()), before(rows())}) {
    EXPECT_TRUE(walked.sawAll);
    EXPECT_EQ(walked.keys, allKeys());
  }
  EXPECT_EQ(rows().corruptionCount(), 0U);
}

TEST_F(GuardedTest, OfAnEmptyTableBothWalksMeetAllThereIs) {
  for (std::uint64_t key = 0; key < kRows; ++key) {
    rows().rowDel(key);
  }
  for (const Walked& walked : {over(rows()), before(rows())}) {
    EXPECT_TRUE(walked.sawAll);
    EXPECT_THAT(walked.keys, IsEmpty());
  }
}

// ---- damage

struct Damage {
  const char* name;
  Keys slots;
};

class GuardedDamageTest : public GuardedTest, public ::testing::WithParamInterface<Damage> {
 protected:
  // Rows and seq words in turn.
  void damage() const {
    bool seqsTurn = false;
    for (const std::uint64_t slot : GetParam().slots) {
      seqsTurn ? damageSeq(static_cast<std::uint32_t>(slot))
               : damageRow(static_cast<std::uint32_t>(slot));
      seqsTurn = !seqsTurn;
    }
  }
  static Keys good() { return without(allKeys(), GetParam().slots); }
  static Keys inFront() {
    Keys keys = allKeys();
    keys.resize(GetParam().slots.front());
    return keys;
  }
  static std::size_t damaged() { return GetParam().slots.size(); }
};

TEST_P(GuardedDamageTest, AWriterGoesOnOverItAndMeetsItOnce) {
  damage();
  const Walked first = over(rows());
  EXPECT_FALSE(first.sawAll);
  EXPECT_EQ(first.keys, good());
  EXPECT_EQ(rows().corruptionCount(), damaged());
  const Walked second = over(rows());
  EXPECT_TRUE(second.sawAll);
  EXPECT_EQ(second.keys, good());
  EXPECT_EQ(rows().corruptionCount(), damaged());
}

TEST_P(GuardedDamageTest, AReaderGoesOnOverItAndMeetsItAgain) {
  State reader(root());
  const auto entity = reader.mountReader<RisingRow>("t");
  damage();
  for (const std::size_t times : {1U, 2U}) {
    const Walked walked = over(entity->rows());
    EXPECT_FALSE(walked.sawAll);
    EXPECT_EQ(walked.keys, good());
    EXPECT_EQ(entity->rows().corruptionCount(), times * damaged());
  }
}

TEST_P(GuardedDamageTest, AWriterThatEndsAtItMeetsTheRowsInFront) {
  damage();
  const Walked walked = before(rows());
  EXPECT_FALSE(walked.sawAll);
  EXPECT_EQ(walked.keys, inFront());
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

TEST_P(GuardedDamageTest, AReaderThatEndsAtItMeetsTheRowsInFront) {
  State reader(root());
  const auto entity = reader.mountReader<RisingRow>("t");
  damage();
  const Walked walked = before(entity->rows());
  EXPECT_FALSE(walked.sawAll);
  EXPECT_EQ(walked.keys, inFront());
  EXPECT_EQ(entity->rows().corruptionCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Of, GuardedDamageTest,
    ::testing::Values(Damage{"TheFirstRow", {0}}, Damage{"ARowInTheMiddle", {5}},
                      Damage{"TheLastRow", {11}}, Damage{"TheFirstThree", {0, 1, 2}},
                      Damage{"ThreeInTheMiddle", {4, 5, 6}}, Damage{"TheLastThree", {9, 10, 11}},
                      Damage{"RowsApart", {1, 5, 10}}, Damage{"EveryRow", allKeys()}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(GuardedTest, AnImpossibleSeqIsDamageToo) {
  damageSeq(3);
  const Walked walked = over(rows());
  EXPECT_FALSE(walked.sawAll);
  EXPECT_EQ(walked.keys, without(allKeys(), {3}));
}

TEST_F(GuardedTest, AReaderThatCannotTellWhereTheSlotsEndMeetsNoneAndSaysSo) {
  State reader(root());
  const auto entity = reader.mountReader<RisingRow>("t");
  damageSlotsInUse();
  const Walked walked = over(entity->rows());
  EXPECT_FALSE(walked.sawAll);
  EXPECT_THAT(walked.keys, IsEmpty());
  EXPECT_EQ(entity->rows().corruptionCount(), 1U);
  EXPECT_FALSE(before(entity->rows()).sawAll);
  EXPECT_EQ(entity->rows().corruptionCount(), 2U);
}

TEST_F(GuardedTest, AReaderThatCanNoLongerTellWhereTheSlotsEndGoesNoFurther) {
  State reader(root());
  const auto entity = reader.mountReader<RisingRow>("t");
  const Walked walked = over(entity->rows(), [&](const RisingRow& row) {
    if (row.key == 4) {
      damageSlotsInUse();
    }
  });
  EXPECT_FALSE(walked.sawAll);
  EXPECT_THAT(walked.keys, ElementsAre(0, 1, 2, 3, 4));
  EXPECT_EQ(entity->rows().corruptionCount(), 1U);
}

TEST_F(GuardedTest, AWriterKnowsWhereTheSlotsEndWhateverTheFileSays) {
  damageSlotsInUse();
  for (const Walked& walked : {over(rows()), before(rows())}) {
    EXPECT_TRUE(walked.sawAll);
    EXPECT_EQ(walked.keys, allKeys());
  }
}

TEST_F(GuardedTest, DamageThatIsDoneBeforeTheWalkComesByIsMet) {
  const Walked walked = over(rows(), [&](const RisingRow& row) {
    if (row.key == 4) {
      damageRow(2);  // behind
      damageRow(9);
    }
  });
  EXPECT_FALSE(walked.sawAll);
  EXPECT_EQ(walked.keys, without(allKeys(), {9}));
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

// ---- what the visitor throws

// Both walks, by name.
struct Way {
  const char* name;
  bool (*walk)(Rows&, const std::function<void(const RisingRow&)>&);
};

class GuardedVisitorTest : public GuardedTest, public ::testing::WithParamInterface<Way> {
 protected:
  bool walk(const std::function<void(const RisingRow&)>& visit) {
    return GetParam().walk(rows(), visit);
  }
};

TEST_P(GuardedVisitorTest, AnExceptionOfTheVisitorIsTheCallers) {
  Keys visited;
  EXPECT_THROW((void)walk([&](const RisingRow& row) {
                 visited.push_back(row.key);
                 if (row.key == 3) {
                   throw std::runtime_error("the visitor's own");
                 }
               }),
               std::runtime_error);
  EXPECT_THAT(visited, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(rows().corruptionCount(), 0U);
}

TEST_P(GuardedVisitorTest, CorruptionOfAnotherTableIsNotTakenForThisOnes) {
  std::string text;
  try {
    (void)walk([](const RisingRow& row) {
      if (row.key == 3) {
        throw Pell::CorruptionDetectedException("another table's");
      }
    });
  } catch (const Pell::CorruptionDetectedException& damage) {
    text = damage.what();
  }
  EXPECT_EQ(text, "another table's");
  EXPECT_EQ(rows().corruptionCount(), 0U);
  EXPECT_EQ(over(rows()).keys, allKeys());
}

// ---- what the visitor changes

TEST_P(GuardedVisitorTest, TheVisitorMayDeleteTheRowItIsGivenAndOthers) {
  Keys visited;
  EXPECT_TRUE(walk([&](const RisingRow& row) {
    visited.push_back(row.key);
    EXPECT_TRUE(rows().rowDel(row.key));
    rows().rowDel(row.key + 1);
  }));
  EXPECT_THAT(visited, ElementsAre(0, 2, 4, 6, 8, 10));
  EXPECT_EQ(rows().rowCount(), 0U);
}

TEST_P(GuardedVisitorTest, TheVisitorMayDeleteEveryRow) {
  Keys visited;
  EXPECT_TRUE(walk([&](const RisingRow& row) {
    visited.push_back(row.key);
    for (std::uint64_t key = 0; key < kRows; ++key) {
      rows().rowDel(key);
    }
  }));
  EXPECT_THAT(visited, ElementsAre(0));
}

TEST_P(GuardedVisitorTest, TheVisitorMayReplaceTheRowItIsGivenAndMeetsItOnce) {
  Keys visited;
  EXPECT_TRUE(walk([&](const RisingRow& row) {
    visited.push_back(row.key);
    EXPECT_EQ(row, risingRow(row.key, row.key));
    rows().rowIs(risingRow(row.key, 99));
    EXPECT_EQ(row, risingRow(row.key, row.key)) << "the copy stays";
  }));
  EXPECT_EQ(visited, allKeys());
  EXPECT_EQ(rows().row(11), risingRow(11, 99));
}

TEST_P(GuardedVisitorTest, TheVisitorMayInsertRowsAndMeetsThoseThatStayOnce) {
  Keys visited;
  std::uint64_t next = kRows;
  EXPECT_TRUE(walk([&](const RisingRow& row) {
    visited.push_back(row.key);
    if (next < kSlots) {
      rows().rowIs(risingRow(next, next));
      ++next;
    }
  }));
  std::ranges::sort(visited);
  EXPECT_THAT(visited, ::testing::IsSupersetOf(allKeys()));
  EXPECT_EQ(std::ranges::adjacent_find(visited), visited.end());
  EXPECT_EQ(rows().rowCount(), kSlots);
}

// Meeting the damage in a lookup puts the row out of use, so the walk does not meet it any more.
TEST_P(GuardedVisitorTest, DamageThatTheVisitorMeetsFirstIsNotTheWalks) {
  damageRow(7);
  Keys visited;
  EXPECT_TRUE(walk([&](const RisingRow& row) {
    visited.push_back(row.key);
    EXPECT_FALSE(Glint::guardedRow(rows(), 7));
  }));
  EXPECT_EQ(visited, without(allKeys(), {7}));
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Of, GuardedVisitorTest,
    ::testing::Values(Way{"TheWalkOverDamage",
                          [](Rows& rows, const std::function<void(const RisingRow&)>& visit) {
                            return Glint::walkOverDamage(rows, visit);
                          }},
                      Way{"TheWalkToDamage",
                          [](Rows& rows, const std::function<void(const RisingRow&)>& visit) {
                            return Glint::walkToDamage(rows, visit);
                          }}),
    [](const auto& tested) { return tested.param.name; });

// ---- lookups

TEST_F(GuardedTest, AGuardedLookupSaysWhetherItMetDamage) {
  damageRow(3);
  EXPECT_TRUE(Glint::guarded(rows(), [&] { EXPECT_TRUE(rows().has(2)); }));
  EXPECT_FALSE(Glint::guarded(rows(), [&] { (void)rows().has(3); }));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_TRUE(Glint::guarded(rows(), [&] { EXPECT_FALSE(rows().has(3)); }));
}

TEST_F(GuardedTest, AGuardedRowIsNothingWhenItIsAbsentOrDamaged) {
  damageRow(3);
  EXPECT_EQ(Glint::guardedRow(rows(), 2), risingRow(2, 2));
  EXPECT_FALSE(Glint::guardedRow(rows(), 3));
  EXPECT_FALSE(Glint::guardedRow(rows(), kRows));
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

}  // namespace
