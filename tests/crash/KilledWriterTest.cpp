// SPDX-License-Identifier: Apache-2.0

// A writer is killed at random, over and over: each time its tables verify and mount, hold every
// change that it acknowledged, and the one that was under way either wholly or not at all.

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <ostream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "offline/Verify.h"
#include "testing/ChildProcess.h"
#include "testing/LongForm.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::OddRow;
using glint_test::oddRow;
using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::State;

constexpr std::uint32_t kOddCapacity = 1100;  // its slots cross a chunk's edge
constexpr std::uint32_t kRisingCapacity = 64;

// What the tables hold when everything went as asked.
struct Model {
  std::map<std::uint64_t, OddRow> odd;
  std::map<std::uint64_t, RisingRow> rising;
  std::uint64_t scratchpad = 0;
  friend bool operator==(const Model&, const Model&) = default;
};

// Keys and values of the rows, and which of them are torn, for a failed test.
void PrintTo(const Model& model, std::ostream* out) {
  const auto print = [out](const auto& row, std::uint64_t value, const auto& whole) {
    *out << ' ' << row.key << '=' << value << (row == whole ? "" : "(torn)");
  };
  *out << "scratchpad " << model.scratchpad << "; odd";
  for (const auto& [key, row] : model.odd) {
    print(row, valueOf(row), oddRow(row.key, valueOf(row)));
  }
  *out << "; rising";
  for (const auto& [key, row] : model.rising) {
    print(row, row.values.front(), risingRow(row.key, row.values.front()));
  }
}

struct Tables {
  explicit Tables(const std::string& root) : state(root) {
    odd = state.mount<OddRow>("odd", kOddCapacity);
    rising = state.mount<RisingRow>("rising", kRisingCapacity);
  }

  Model contents() const {
    return {glint_test::walk(odd->rows()).rows, glint_test::walk(rising->rows()).rows,
            rising->rows().control().scratchpad()};
  }

  State state;
  Pell::Ptr<glint_test::TestEntity<OddRow>> odd;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> rising;
};

// The i-th change: the same one in the writer and in the model.
struct Change {
  explicit Change(std::uint64_t i) : index(i), random(mixed(i)) {}

  static constexpr std::uint64_t mixed(std::uint64_t i) {
    i = (i + 1) * 0x9E3779B97F4A7C15U;
    i = (i ^ i >> 30U) * 0xBF58476D1CE4E5B9U;
    i = (i ^ i >> 27U) * 0x94D049BB133111EBU;
    return i ^ i >> 31U;
  }

  std::uint32_t oddKey() const { return static_cast<std::uint32_t>(random >> 8U) % 1500; }
  std::uint64_t risingKey() const { return (random >> 8U) % 100; }

  void applyTo(Tables& tables) const {
    switch (random % 8) {
      case 0:
        tables.odd->rows().rowDel(oddKey());
        return;
      case 1:
      case 2:
      case 3:
        tables.odd->rows().rowIs(oddRow(oddKey(), index));
        return;
      case 4:
        tables.rising->rows().rowDel(risingKey());
        return;
      case 5:
      case 6:
        tables.rising->rows().rowIs(risingRow(risingKey(), index));
        return;
      default:
        tables.rising->rows().control().scratchpadIs(index);
    }
  }

  void applyTo(Model& model) const {
    switch (random % 8) {
      case 0:
        model.odd.erase(oddKey());
        return;
      case 1:
      case 2:
      case 3:
        model.odd.insert_or_assign(oddKey(), oddRow(oddKey(), index));
        return;
      case 4:
        model.rising.erase(risingKey());
        return;
      case 5:
      case 6:
        model.rising.insert_or_assign(risingKey(), risingRow(risingKey(), index));
        return;
      default:
        model.scratchpad = index;
    }
  }

  std::uint64_t index;
  std::uint64_t random;
};

struct Progress {
  std::atomic<std::uint64_t> acknowledged = 0;  // changes that are done
  std::atomic<std::uint64_t> begun = 0;
};

int write(const std::string& root, Progress& progress) {
  Tables tables(root);
  for (;;) {
    const std::uint64_t index = progress.acknowledged;
    progress.begun = index + 1;
    Change(index).applyTo(tables);
    progress.acknowledged = index + 1;
  }
}

class KilledWriterTest : public ::testing::Test {
 protected:
  // One writer's life and what it leaves. `changes`: at least so many are acknowledged; `idleTurns`
  // more of this process's, and the writer dies.
  void killOnce(std::uint64_t changes, std::uint64_t idleTurns) {
    const std::uint64_t goal = progress_->acknowledged + changes;
    testing_support::ForkedChild writer([&] { return write(root_.path(), *progress_); });
    ASSERT_TRUE(writer.waitUntil([&] { return progress_->acknowledged >= goal; }));
    for (std::atomic<std::uint64_t> turn = 0; turn < idleTurns; ++turn) {
    }
    writer.kill();
    for (const char* name : {"odd.table", "rising.table"}) {
      const std::string file = root_.path() + "/" + name;
      if (!std::filesystem::exists(file)) {
        continue;  // killed before it was made
      }
      const Glint::Verification found = Glint::verifyTable(file);
      ASSERT_THAT(found.findings, ::testing::IsEmpty()) << name;
      changesInFlight_ += found.changeInFlight ? 1 : 0;
    }
    checkContents();
  }

  void checkContents() {
    for (; applied_ < progress_->acknowledged; ++applied_) {
      Change(applied_).applyTo(model_);
    }
    Model more = model_;
    if (progress_->begun > applied_) {
      Change(applied_).applyTo(more);
    }
    const Tables tables(root_.path());
    const Model found = tables.contents();
    ASSERT_THAT(found, ::testing::AnyOf(model_, more)) << "after change " << applied_;
    if (found != model_) {
      model_ = more;
      progress_->acknowledged = ++applied_;
    }
    ASSERT_EQ(tables.odd->rows().rowCount(), found.odd.size());
    ASSERT_EQ(tables.rising->rows().rowCount(), found.rising.size());
    ASSERT_EQ(tables.odd->rows().corruptionCount() + tables.rising->rows().corruptionCount(), 0U);
    ASSERT_THAT(Glint::verifyTable(tables.odd->rows().filePath()).findings, ::testing::IsEmpty());
  }

  testing_support::TemporaryRoot root_;
  testing_support::Shared<Progress> progress_;
  Model model_;
  std::uint64_t applied_ = 0;  // changes in the model
  int changesInFlight_ = 0;
};

TEST_F(KilledWriterTest, LeavesEveryAcknowledgedChangeAndNoHalfOne) {
  constexpr unsigned kSeed = 4242;
  const unsigned kills = testing_support::times("LOAMFEC_KILLS", 200);
  std::mt19937 random(kSeed);
  for (unsigned kill = 0; kill < kills; ++kill) {
    SCOPED_TRACE("seed " + std::to_string(kSeed) + ", kill " + std::to_string(kill));
    killOnce(random() % 300, random() % 3000);
    if (HasFatalFailure()) {
      return;
    }
  }
  std::printf("seed %u: %u kills, %llu changes, %d found in flight\n", kSeed, kills,
              static_cast<unsigned long long>(applied_), changesInFlight_);
}

TEST_F(KilledWriterTest, MayBeKilledWhileItMounts) {
  constexpr unsigned kSeed = 77;
  std::mt19937 random(kSeed);
  const unsigned kills = testing_support::times("LOAMFEC_KILLS", 60);
  for (unsigned kill = 0; kill < kills; ++kill) {
    SCOPED_TRACE("seed " + std::to_string(kSeed) + ", kill " + std::to_string(kill));
    killOnce(0, random() % 100000);
    if (HasFatalFailure()) {
      return;
    }
  }
  std::printf("seed %u: %llu changes\n", kSeed, static_cast<unsigned long long>(applied_));
}

}  // namespace
