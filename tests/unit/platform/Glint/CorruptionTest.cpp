// SPDX-License-Identifier: Apache-2.0

// Damage of every kind, done to the file under the eyes of a mounted writer or reader: it is
// reported, counted and put out of use; every other row stays; nothing hangs.

#include <functional>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/Exceptions.h"
#include "offline/Verify.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"
#include "testing/TraceRecorder.h"

namespace {

using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::State;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing_support::HasTrace;
using testing_support::Offsets;
using Rows = Glint::GlintMap<RisingRow>;

constexpr std::uint32_t kCapacity = 8;  // buckets too, and keys are their own hashes
constexpr std::uint32_t kSlots = 16;
constexpr std::uint32_t kRows = 12;    // keys 0 to 11, in the slots of these numbers
constexpr std::uint64_t kAbsent = 16;  // of the bucket of keys 0 and 8

const Offsets kOffsets(kCapacity, kSlots, sizeof(RisingRow));

class CorruptionTest : public testing_support::LeakCheckedTest {
 protected:
  CorruptionTest() {
    mountAnew();
    for (std::uint64_t key = 0; key < kRows; ++key) {
      rows().rowIs(risingRow(key, key));
    }
    rows().control().scratchpadIs(99);
  }

  void mountAnew() {
    entity_ = nullptr;
    state_.reset();
    state_.emplace(root_.path());
    entity_ = state_->mount<RisingRow>("t", kCapacity);
  }
  void unmount() {
    entity_ = nullptr;
    state_.reset();
  }
  Rows& rows() { return entity_->rows(); }
  const std::string& root() const { return root_.path(); }
  std::string file() const { return root_.path() + "/t.table"; }
  std::uint64_t generation() const {
    return testing_support::wordAt(file(), offsetof(Glint::Header, generation));
  }

  Glint::Seq seq(std::uint32_t slot) const {
    return Glint::Seq(testing_support::wordAt(file(), kOffsets.slot(slot)));
  }
  void damageRow(std::uint32_t slot) { testing_support::damageRow(file(), slot); }

  // Damage is thrown once, counted, and not met again; returns what was thrown.
  std::string thrownOnceBy(const std::function<void()>& look) {
    const std::uint64_t before = rows().corruptionCount();
    std::string text;
    try {
      look();
      ADD_FAILURE() << "the damage was not seen";
    } catch (const Pell::CorruptionDetectedException& damage) {
      text = damage.what();
      rows().doCorruptionDetected(damage.what());
    }
    EXPECT_EQ(rows().corruptionCount(), before + 1);
    EXPECT_NO_THROW(look());
    return text;
  }

  void expectRowsExcept(std::optional<std::uint64_t> missing) {
    for (std::uint64_t key = 0; key < kRows; ++key) {
      if (key == missing) {
        EXPECT_FALSE(rows().has(key));
      } else {
        EXPECT_EQ(rows().row(key), risingRow(key, key)) << key;
      }
    }
    EXPECT_FALSE(rows().has(kAbsent));
    const auto found = glint_test::walk(rows());
    EXPECT_EQ(found.steps, kRows - (missing ? 1 : 0));
    EXPECT_EQ(found.rows.size(), found.steps);
    EXPECT_EQ(rows().rowCount(), found.steps);
  }

  void expectVerifies() {
    const Glint::Verification found = Glint::verifyTable(file());
    EXPECT_THAT(found.findings, IsEmpty());
  }

 private:
  testing_support::TemporaryRoot root_;
  std::optional<State> state_;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> entity_;
};

TEST_F(CorruptionTest, ADamagedRowIsReportedOnceAndThenAbsent) {
  damageRow(3);
  EXPECT_THAT(thrownOnceBy([&] { rows().row(3); }),
              HasSubstr("slot 3: the checksum of the row of key 3 does not match"));
  expectRowsExcept(3);
  expectVerifies();
  rows().rowIs(risingRow(3, 3));  // the key can be written again
  expectRowsExcept(std::nullopt);
}

TEST_F(CorruptionTest, TheSlotOfADamagedRowIsNotUsedAgainNotEvenAfterARestart) {
  damageRow(3);
  const std::uint64_t generationBefore = generation();
  thrownOnceBy([&] { rows().row(3); });
  EXPECT_TRUE(seq(3).retired());
  EXPECT_EQ(generation(), generationBefore + 2);
  for (std::uint64_t key = 100; key < 100 + kSlots - kRows; ++key) {
    rows().rowIs(risingRow(key, 1));
  }
  mountAnew();
  EXPECT_TRUE(seq(3).retired());
  EXPECT_EQ(rows().rowCount(), kSlots - 1);
  EXPECT_EQ(rows().corruptionCount(), 1U);  // kept in the file
  EXPECT_EQ(Glint::verifyTable(file()).retiredSlots, 1U);
}

TEST_F(CorruptionTest, ACorruptionIsTracedAtLevel1WithItsText) {
  testing_support::TraceRecorder traces({"GlintMapBase"});
  rows().doCorruptionDetected("some damage");
  ASSERT_THAT(traces, HasTrace(1, "some damage"));
  EXPECT_EQ(traces.find("some damage")->className, "GlintMapBase");
  EXPECT_EQ(traces.find("some damage")->function, "doCorruptionDetected");
  EXPECT_EQ(rows().corruptionCount(), 1U);
  expectRowsExcept(std::nullopt);  // nothing was thrown, so nothing is put out of use
}

TEST_F(CorruptionTest, ADamagedKeyDoesNotHideItsRow) {
  // Key 8 becomes one of another bucket, then another one of its own bucket.
  for (const unsigned bit : {1U, 20U}) {
    const std::uint64_t keyBit = 8 * kOffsets.row(8, seq(8).copy()) + bit;
    testing_support::flipBit(file(), keyBit);
    EXPECT_THROW(rows().row(8), Pell::CorruptionDetectedException);
    EXPECT_THROW(rows().has(kAbsent), Pell::CorruptionDetectedException);  // on the way to a miss
    EXPECT_EQ(rows().row(0), risingRow(0, 0));  // behind it on the same chain
    testing_support::flipBit(file(), keyBit);
  }
  expectRowsExcept(std::nullopt);
}

TEST_F(CorruptionTest, AWalkEndsAtADamagedRowAndTheNextOneIsWhole) {
  damageRow(5);
  std::size_t steps = 0;
  auto it = rows().iterator();
  const auto walkOn = [&] {
    for (; it.valid(); it.advance()) {
      ++steps;
    }
  };
  EXPECT_THAT(thrownOnceBy(walkOn), HasSubstr("slot 5"));
  EXPECT_EQ(steps, 5U);
  EXPECT_FALSE(it.valid());
  expectRowsExcept(5);
}

TEST_F(CorruptionTest, TheHintThatAKeyIsNeededSoonChangesNothingAndMindsNoDamage) {
  rows().fetchAhead(5);
  rows().fetchAhead(kAbsent);
  testing_support::wordIs<std::uint32_t>(file(), kOffsets.head(3), 0xFFFFFFFFU);
  const auto before = testing_support::readFile(file());
  rows().fetchAhead(3);
  EXPECT_EQ(testing_support::readFile(file()), before);
  EXPECT_EQ(rows().corruptionCount(), 0U);
  EXPECT_EQ(rows().row(5), risingRow(5, 5));
}

TEST_F(CorruptionTest, AWalkThatBeginsAtADamagedRowIsReportedToo) {
  damageRow(0);
  thrownOnceBy([&] { rows().iterator(); });
  expectRowsExcept(0);
}

TEST_F(CorruptionTest, AnImpossibleSeqIsReportedByLookupsAndWalks) {
  testing_support::flipBit(file(), 8 * kOffsets.slot(4) + 1);  // the live bit
  EXPECT_THROW(rows().iteratorAt(4), Pell::CorruptionDetectedException);
  EXPECT_THROW(glint_test::walk(rows()), Pell::CorruptionDetectedException);
  EXPECT_THAT(thrownOnceBy([&] { rows().row(4); }), HasSubstr("slot 4: its seq is impossible"));
  expectRowsExcept(4);
  expectVerifies();
}

TEST_F(CorruptionTest, ALiveSlotOfVersion0IsImpossible) {
  testing_support::wordIs(file(), kOffsets.slot(4), Glint::Seq(0, true, 0).word());
  EXPECT_THROW(rows().row(4), Pell::CorruptionDetectedException);
  unmount();
  EXPECT_THAT(Glint::verifyTable(file()).findings.front(), HasSubstr("slot 4: impossible seq"));
}

TEST_F(CorruptionTest, ARowThatWasTakenOffWithAValidSeqIsMissed) {
  // Dead with a valid check, though nobody deleted it: no checksum vouches for that.
  testing_support::wordIs(file(), kOffsets.slot(4),
                          Glint::Seq(seq(4).version(), false, seq(4).copy()).word());
  EXPECT_THAT(thrownOnceBy([&] { rows().has(4); }), HasSubstr("does not belong there"));
  EXPECT_FALSE(rows().has(4));
  expectVerifies();
}

TEST_F(CorruptionTest, ALinkOutOfRangeIsMendedAndNoRowIsLost) {
  for (const std::uint32_t slot : {kSlots, kSlots + 1, Glint::Link::kMaxSlots - 1}) {
    testing_support::wordIs(file(), kOffsets.head(0), Glint::Link::to(slot).word());
    EXPECT_THAT(thrownOnceBy([&] { rows().row(0); }), HasSubstr("leads nowhere")) << slot;
    expectRowsExcept(std::nullopt);
    expectVerifies();
  }
}

TEST_F(CorruptionTest, ADamagedLinkWithinAChainIsMendedAndNoRowIsLost) {
  testing_support::flipBit(file(), 8 * kOffsets.link(8));  // 8 precedes 0
  EXPECT_THAT(thrownOnceBy([&] { rows().row(0); }), HasSubstr("leads nowhere"));
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

TEST_F(CorruptionTest, ARowThatARebuiltIndexDoesNotTakeIsTraced) {
  damageRow(3);
  testing_support::flipBit(file(), 8 * kOffsets.link(8));  // 8 precedes 0
  const testing_support::TraceRecorder traces({"GlintTable"});
  EXPECT_THROW((void)rows().row(0), Pell::CorruptionDetectedException);
  rows().doCorruptionDetected("a link");
  EXPECT_THAT(traces.lines(),
              ElementsAre("1 GlintTable::relinkOrRetire " + file() + ": slot 3 is retired"));
  expectRowsExcept(3);
}

TEST_F(CorruptionTest, ACycleIsMendedAndNoRowIsLost) {
  testing_support::wordIs(file(), kOffsets.link(0), Glint::Link::to(8).word());
  EXPECT_THAT(thrownOnceBy([&] { rows().has(kAbsent); }), HasSubstr("cycle"));
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

TEST_F(CorruptionTest, AChainThatLeadsIntoAnotherBucketIsMendedAndNoRowIsLost) {
  testing_support::wordIs(file(), kOffsets.head(0), Glint::Link::to(1).word());
  EXPECT_THAT(thrownOnceBy([&] { rows().row(0); }), HasSubstr("does not belong there"));
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

TEST_F(CorruptionTest, MutatorsMendWhatTheyMeetAndGoOn) {
  damageRow(8);                                            // precedes key 0 on its chain
  testing_support::flipBit(file(), 8 * kOffsets.head(1));  // the chain of keys 1 and 9
  EXPECT_FALSE(rows().rowDel(kAbsent));
  EXPECT_FALSE(rows().has(8));
  EXPECT_TRUE(rows().rowDel(9));
  rows().rowIs(risingRow(8, 8));
  rows().rowIs(risingRow(9, 9));
  EXPECT_EQ(rows().corruptionCount(), 2U);
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

TEST_F(CorruptionTest, AFreeSlotThatBecameLiveIsRetiredWhenItsTurnComes) {
  const std::uint32_t next = kRows;  // slots of a fresh table are filled in turn
  testing_support::wordIs(file(), kOffsets.slot(next), Glint::Seq(1, true, 0).word());
  rows().rowIs(risingRow(12, 12));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_TRUE(seq(next).retired());
  EXPECT_EQ(rows().row(12), risingRow(12, 12));
}

TEST_F(CorruptionTest, AWriterThatFindsTheGenerationOddRebuildsTheIndex) {
  testing_support::flipBit(file(), 8 * offsetof(Glint::Header, generation));
  EXPECT_EQ(rows().row(3), risingRow(3, 3));  // found in the slots
  rows().rowIs(risingRow(20, 20));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_TRUE(rows().rowDel(20));
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

// ---- mounts of damaged files

TEST_F(CorruptionTest, AMountPutsDamagedRowsOutOfUseAndCountsThem) {
  unmount();
  damageRow(3);
  damageRow(9);
  testing_support::TraceRecorder traces({"GlintTable"});
  mountAnew();
  EXPECT_EQ(rows().corruptionCount(), 2U);
  const auto finding = [this](int slot) {
    return fmt::format(
        "1 GlintTable::recover {0}: slot {1}: the row's checksum does not match (key {1}, seq "
        "version 1)",
        file(), slot);
  };
  EXPECT_THAT(traces.lines(), ElementsAre(finding(3), finding(9)));
  EXPECT_FALSE(rows().has(3));
  EXPECT_FALSE(rows().has(9));
  EXPECT_EQ(rows().rowCount(), kRows - 2);
  expectVerifies();
}

TEST_F(CorruptionTest, AMountCountsRowsAnewWhenTheCounterIsDamaged) {
  unmount();
  testing_support::flipBit(file(), 8 * offsetof(Glint::Header, rowCount));
  const testing_support::TraceRecorder traces({"GlintTable"});
  mountAnew();
  EXPECT_THAT(traces.lines(), ElementsAre(fmt::format(
                                  "1 GlintTable::recover {}: row count: impossible word {:#018x}",
                                  file(), Glint::Counter::of(kRows).word() ^ 1U)));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

TEST_F(CorruptionTest, AMountFinishesTheRebuildingOfAnIndex) {
  unmount();
  testing_support::wordIs<std::uint64_t>(file(), offsetof(Glint::Header, generation), 101);
  for (std::uint32_t bucket = 0; bucket < kCapacity; ++bucket) {
    testing_support::wordIs(file(), kOffsets.head(bucket), Glint::Link::end().word());
  }
  {
    State reader(root());  // until then readers find every row in the slots
    auto entity = reader.mountReader<RisingRow>("t");
    EXPECT_EQ(entity->rows().row(7), risingRow(7, 7));
    EXPECT_FALSE(entity->rows().has(kAbsent));
    EXPECT_EQ(glint_test::walk(entity->rows()).steps, kRows);
  }
  EXPECT_TRUE(Glint::verifyTable(file()).changeInFlight);
  mountAnew();
  expectRowsExcept(std::nullopt);
  expectVerifies();
}

// ---- what a kill leaves

class KilledWithinAChange : public CorruptionTest {
 protected:
  // The state in which the row of key 8, at the head of its chain, is dead and still linked.
  void expectSeenAsAbsentAndTidiedUp(Glint::Seq dead) {
    unmount();
    testing_support::wordIs(file(), kOffsets.slot(8), dead.word());
    const Glint::Verification before = Glint::verifyTable(file());
    EXPECT_THAT(before.findings, IsEmpty());
    EXPECT_TRUE(before.changeInFlight);
    const std::uint64_t generationBefore = generation();
    {
      State reader(root());
      auto entity = reader.mountReader<RisingRow>("t");
      EXPECT_FALSE(entity->rows().has(8));
      EXPECT_FALSE(entity->rows().has(kAbsent));
      EXPECT_EQ(entity->rows().row(0), risingRow(0, 0));
      EXPECT_EQ(glint_test::walk(entity->rows()).steps, kRows - 1);
    }
    mountAnew();
    EXPECT_EQ(generation(), generationBefore + 2)
        << "for a reader that follows the chain at this moment";
    const Glint::Verification after = Glint::verifyTable(file());
    EXPECT_THAT(after.findings, IsEmpty());
    EXPECT_FALSE(after.changeInFlight);
    EXPECT_EQ(after.freeSlots, kSlots - (kRows - 1));
    EXPECT_EQ(rows().corruptionCount(), 0U);
    expectRowsExcept(8);
    rows().rowIs(risingRow(8, 8));
    expectRowsExcept(std::nullopt);
    EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
  }
};

TEST_F(KilledWithinAChange, ADeleteThatWasNotUnlinkedIsFinished) {
  expectSeenAsAbsentAndTidiedUp(seq(8).deleted());
}

TEST_F(KilledWithinAChange, AnInsertThatWasNotPublishedIsUndone) {
  expectSeenAsAbsentAndTidiedUp(Glint::Seq(seq(8).version() - 1, false, seq(8).copy() ^ 1U));
}

TEST_F(KilledWithinAChange, ARetirementThatWasNotUnlinkedIsFinished) {
  unmount();
  testing_support::wordIs(file(), kOffsets.slot(8), Glint::Seq::retiredSlot().word());
  EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
  mountAnew();
  expectRowsExcept(8);
  EXPECT_FALSE(Glint::verifyTable(file()).changeInFlight);
  EXPECT_EQ(Glint::verifyTable(file()).retiredSlots, 1U);
}

TEST_F(KilledWithinAChange, TwoChangesInFlightAreNotWhatAKillLeaves) {
  unmount();
  for (const std::uint32_t slot : {8U, 9U}) {
    testing_support::wordIs(file(), kOffsets.slot(slot), seq(slot).deleted().word());
  }
  EXPECT_THROW(mountAnew(), ZevGlint::MountException);
  EXPECT_THAT(Glint::verifyTable(file()).findings,
              ::testing::ElementsAre(HasSubstr("2 slots are reachable but dead")));
}

TEST_F(KilledWithinAChange, AHalfFilledIdleCopyIsNobodysBusiness) {
  unmount();
  for (std::uint32_t slot = 0; slot < kRows; ++slot) {
    testing_support::flipBit(file(), 8 * (kOffsets.row(slot, seq(slot).copy() ^ 1U) + 8));
  }
  EXPECT_THAT(Glint::verifyTable(file()).findings, IsEmpty());
  mountAnew();
  expectRowsExcept(std::nullopt);
}

TEST_F(CorruptionTest, AMountRefusesADamagedStructureAndChangesNothing) {
  unmount();
  const testing_support::Bytes good = testing_support::readFile(file());
  const auto refused = [&](const char* why) {
    const testing_support::Bytes damaged = testing_support::readFile(file());
    try {
      mountAnew();
      ADD_FAILURE() << "mounted in spite of: " << why;
    } catch (const ZevGlint::MountException& error) {
      EXPECT_THAT(error.what(), HasSubstr(why));
      EXPECT_THAT(error.what(), HasSubstr("nothing has been changed"));
    }
    EXPECT_EQ(testing_support::readFile(file()), damaged);
    EXPECT_THAT(Glint::verifyTable(file()).findings, ::testing::Contains(HasSubstr(why)));
    unmount();
    testing_support::writeFile(file(), good);
  };
  testing_support::wordIs(file(), kOffsets.head(0), Glint::Link::end().word());
  refused("slot 0: live but not reachable from bucket 0");
  testing_support::wordIs(file(), kOffsets.head(0), Glint::Link::to(kSlots).word());
  refused("bucket 0: link");
  testing_support::wordIs(file(), kOffsets.link(0), Glint::Link::to(8).word());
  refused("bucket 0: slot 8 is reached twice");
  testing_support::wordIs(file(), kOffsets.link(0), Glint::Link::to(12).word());
  refused("slot 12: reachable, dead, and no change of it is in flight");
  testing_support::flipBit(file(), 8 * kOffsets.slot(6) + 40);
  refused("slot 6: impossible seq");
  testing_support::flipBit(file(), 8 * offsetof(Glint::Header, slotsInUse));
  refused("slots in use: impossible word");
  testing_support::flipBit(file(), 8 * (offsetof(Glint::Header, scratchpad) + 32));
  refused("scratchpad: the checksum does not match");
}

TEST_F(CorruptionTest, TheVerifierSeesAnAltogetherWrongRowCount) {
  unmount();
  for (const std::uint32_t count : {kRows - 1, kRows, kRows + 1}) {  // a kill may leave one off
    testing_support::wordIs(file(), offsetof(Glint::Header, rowCount),
                            Glint::Counter::of(count).word());
    expectVerifies();
  }
  testing_support::wordIs(file(), offsetof(Glint::Header, rowCount),
                          Glint::Counter::of(kRows + 2).word());
  EXPECT_THAT(Glint::verifyTable(file()).findings,
              ::testing::ElementsAre("the header counts 14 rows, but there are 12"));
}

TEST_F(CorruptionTest, TheVerifierTellsWhatItCannotRead) {
  EXPECT_THAT(Glint::verifyTable(root() + "/none").findings.front(), HasSubstr("cannot open it"));
  EXPECT_THAT(Glint::verifyTable(root()).findings.front(), HasSubstr("not a regular file"));
}

}  // namespace
