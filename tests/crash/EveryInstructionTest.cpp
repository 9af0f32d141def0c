// SPDX-License-Identifier: Apache-2.0

// A writer of shared tables is stopped at every state in which its instructions leave the files. At
// each one a copy of the files is verified, read by a reader, taken over by the next writer,
// compared with what the first one had acknowledged by then, and worked on.
//
// The short form stops at every store and system call, and at every instruction of one small piece
// of work, which must come to the same. The long form steps every instruction of everything, of
// more work:
//
//   LOAMFEC_EVERY_INSTRUCTION=1 CrashTest --gtest_filter='EveryInstruction*'

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "offline/Verify.h"
#include "testing/SingleStep.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::OddRow;
using glint_test::oddRow;
using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::SmallRow;
using glint_test::smallRow;
using glint_test::State;
using testing_support::FolderImage;
using testing_support::longForm;
using testing_support::SteppedRun;
using testing_support::SteppedState;
using testing_support::SteppedWork;
using testing_support::Stepping;
using testing_support::stepping;
using testing_support::TemporaryRoot;

// ---- the tables: as small as can be, so that chains are long and slots are used again

constexpr std::uint32_t kConfigCapacity = 8;
constexpr std::uint32_t kLogCapacity = 6;
constexpr std::uint32_t kGroupCapacity = 4;

// What the tables hold when everything went as asked.
struct Model {
  std::map<std::uint64_t, OddRow> config;
  std::map<std::uint64_t, RisingRow> log;
  std::map<std::uint64_t, SmallRow> group;
  std::uint64_t lastVersion = 0;   // the log's scratchpad
  std::uint64_t lastSequence = 0;  // the group log's
  friend bool operator==(const Model&, const Model&) = default;
};

enum class Access { write, read };

struct Tables {
  explicit Tables(const std::string& root, Access access = Access::write) : state(root) {
    const auto type =
        access == Access::write ? ZevGlint::ZevGlintType::writer : ZevGlint::ZevGlintType::reader;
    config = state.mount<OddRow>("config", kConfigCapacity, type);
    log = state.mount<RisingRow>("log", kLogCapacity, type);
    group = state.mount<SmallRow>("group", kGroupCapacity, type);
  }

  // By a walk, and by a lookup of each key; throws when the two differ.
  Model contents() const {
    return {read(config->rows()), read(log->rows()), read(group->rows()),
            log->rows().control().scratchpad(), group->rows().control().scratchpad()};
  }

  std::uint64_t corruptions() const {
    return config->rows().corruptionCount() + log->rows().corruptionCount() +
           group->rows().corruptionCount();
  }
  bool countsAre(const Model& model) const {
    return config->rows().rowCount() == model.config.size() &&
           log->rows().rowCount() == model.log.size() &&
           group->rows().rowCount() == model.group.size();
  }

  template <typename Row>
  static std::map<std::uint64_t, Row> read(const Glint::GlintMap<Row>& rows) {
    constexpr std::uint32_t kKeys = 300;  // more than any test uses
    const auto walked = glint_test::walk(rows);
    std::map<std::uint64_t, Row> found;
    for (std::uint32_t key = 0; key < kKeys; ++key) {
      if (const auto row = rows.row(key)) {
        found.emplace(key, *row);
      }
    }
    if (walked.steps != walked.rows.size() || !(walked.rows == found)) {
      throw std::runtime_error("a walk and lookups do not find the same rows");
    }
    return found;
  }

  State state;
  Pell::Ptr<glint_test::TestEntity<OddRow>> config;
  Pell::Ptr<glint_test::TestEntity<RisingRow>> log;
  Pell::Ptr<glint_test::TestEntity<SmallRow>> group;
};

const std::vector<std::string> kFiles = {"config.table", "log.table", "group.table"};

// ---- the work: changes of one row or scratchpad, in the order in which a commit makes them

struct Change {
  enum class Kind { write, remove, scratchpad };
  enum class Table { config, log, group };

  Kind kind = Kind::write;
  Table table = Table::config;
  std::uint64_t key = 0;
  std::uint64_t value = 0;

  std::uint32_t configKey() const { return static_cast<std::uint32_t>(key); }

  void applyTo(Tables& tables) const {
    switch (table) {
      case Table::config:
        return applyTo(tables.config->rows(), oddRow(configKey(), value));
      case Table::log:
        return applyTo(tables.log->rows(), risingRow(key, value));
      case Table::group:
        return applyTo(tables.group->rows(), smallRow(key, value));
    }
  }
  void applyTo(Model& model) const {
    switch (table) {
      case Table::config:
        return applyTo(model.config, oddRow(configKey(), value), model.lastVersion);
      case Table::log:
        return applyTo(model.log, risingRow(key, value), model.lastVersion);
      case Table::group:
        return applyTo(model.group, smallRow(key, value), model.lastSequence);
    }
  }

 private:
  template <typename Row>
  void applyTo(Glint::GlintMap<Row>& rows, const Row& row) const {
    switch (kind) {
      case Kind::write:
        return rows.rowIs(row);
      case Kind::remove:
        rows.rowDel(row.key);
        return;
      case Kind::scratchpad:
        return rows.control().scratchpadIs(value);
    }
  }
  template <typename Row>
  void applyTo(std::map<std::uint64_t, Row>& rows, const Row& row, std::uint64_t& pad) const {
    switch (kind) {
      case Kind::write:
        rows.insert_or_assign(key, row);
        return;
      case Kind::remove:
        rows.erase(key);
        return;
      case Kind::scratchpad:
        pad = value;
    }
  }
};

// A table's life in changes. A configuration row's value is its version; one that is marked
// deleted is odd.
class Script {
 public:
  using Kind = Change::Kind;
  using Table = Change::Table;

  Script& write(std::uint64_t key) {
    ++version_;
    add({Kind::write, Table::config, key, version_ * 2});
    return logIt();
  }
  Script& remove(std::uint64_t key) {
    ++version_;
    add({Kind::write, Table::config, key, version_ * 2 + 1});
    marked_[version_] = {key};
    return logIt();
  }
  Script& removeAll() {
    ++version_;
    for (const auto& [key, row] : model_.config) {
      marked_[version_].push_back(key);
    }
    for (const std::uint64_t key : marked_[version_]) {
      add({Kind::write, Table::config, key, version_ * 2 + 1});
    }
    return logIt();
  }
  // The hardware has applied everything up to the newest version.
  Script& cleanUp() {
    for (; cleaned_ < version_; ++cleaned_) {
      const std::uint64_t version = cleaned_ + 1;
      add({Kind::remove, Table::log, version});
      for (const std::uint64_t key : marked_[version]) {
        const auto row = model_.config.find(key);
        if (row != model_.config.end() && glint_test::valueOf(row->second) == version * 2 + 1) {
          add({Kind::remove, Table::config, key});
        }
      }
      add({Kind::remove, Table::group, version});
    }
    return *this;
  }

  const std::vector<Change>& changes() const { return changes_; }

 private:
  Script& logIt() {
    add({Kind::write, Table::log, version_, version_});
    add({Kind::scratchpad, Table::log, 0, version_});
    add({Kind::write, Table::group, version_, version_});
    add({Kind::scratchpad, Table::group, 0, version_});
    return *this;
  }
  void add(const Change& change) {
    change.applyTo(model_);
    changes_.push_back(change);
  }

  std::vector<Change> changes_;
  Model model_;
  std::uint64_t version_ = 0;
  std::uint64_t cleaned_ = 0;
  std::map<std::uint64_t, std::vector<std::uint64_t>> marked_;
};

std::vector<Change> script(std::uint64_t rounds) {
  Script script;
  script.write(1).write(2).write(1).remove(2).cleanUp();
  script.write(3).write(4).write(5).removeAll().write(4).cleanUp().remove(4).cleanUp();
  for (std::uint64_t round = 0; round < rounds; ++round) {
    for (std::uint64_t key = round; key < round + 4; ++key) {
      script.write(key * 3 % 11);
    }
    script.remove(round * 3 % 11).cleanUp();
    if (round % 5 == 4) {
      script.removeAll().cleanUp();
    }
  }
  return script.changes();
}

std::vector<Model> modelsOf(const std::vector<Change>& changes) {
  std::vector<Model> models(1);
  for (const Change& change : changes) {
    models.push_back(models.back());
    change.applyTo(models.back());
  }
  return models;
}

int apply(const std::string& root, const std::vector<Change>& changes, SteppedWork& work) {
  Tables tables(root);
  work.begin();
  for (const Change& change : changes) {
    work.operationBegins();
    change.applyTo(tables);
    work.operationDone();
  }
  work.end();
  return 0;
}

// ---- what must hold at each state

// The contents that a state may show: those after `least` changes at least and `most` at most.
struct Expected {
  const std::vector<Model>& models;
  std::size_t least = 0;
  std::size_t most = 0;
};

// What was found wrong with one state; empty if nothing.
std::string verifyFiles(const std::string& root, bool& changeInFlight) {
  for (const std::string& name : kFiles) {
    const std::filesystem::path file = std::filesystem::path(root) / name;
    if (std::filesystem::exists(file)) {
      const Glint::Verification found = Glint::verifyTable(file.string());
      if (!found.clean()) {
        return name + ": " + found.findings.front();
      }
      changeInFlight = changeInFlight || found.changeInFlight;
    }
  }
  return {};
}

// Up to the last slot: one that has been forgotten stops the process.
template <typename Row, typename Make>
void fill(Glint::GlintMap<Row>& rows, Make make) {
  for (std::uint64_t key = 250; rows.rowCount() < rows.slotCount(); ++key) {
    rows.rowIs(make(key));
  }
}

std::string workOn(Tables& tables, Model model) {
  const std::vector<Change> more = {
      {Change::Kind::write, Change::Table::config, 230, 100},
      {Change::Kind::write, Change::Table::log, 231, 101},
      {Change::Kind::write, Change::Table::group, 232, 102},
      {Change::Kind::write, Change::Table::config, 230, 103},
      {Change::Kind::write, Change::Table::log, 231, 104},
      {Change::Kind::remove, Change::Table::group, 232},
      {Change::Kind::remove, Change::Table::config, 230},
      {Change::Kind::write, Change::Table::config, 1, 105},
      {Change::Kind::write, Change::Table::log, 233, 106},
      {Change::Kind::remove, Change::Table::log, 231},
      {Change::Kind::scratchpad, Change::Table::log, 0, 107},
      {Change::Kind::scratchpad, Change::Table::group, 0, 108},
      {Change::Kind::write, Change::Table::group, 234, 109},
  };
  for (const Change& change : more) {
    change.applyTo(tables);
    change.applyTo(model);
  }
  if (!(tables.contents() == model) || !tables.countsAre(model)) {
    return "it does not take changes as it should";
  }
  fill(tables.config->rows(),
       [](std::uint64_t key) { return oddRow(static_cast<std::uint32_t>(key), key); });
  fill(tables.log->rows(), [](std::uint64_t key) { return risingRow(key, key); });
  fill(tables.group->rows(), [](std::uint64_t key) { return smallRow(key, key); });
  return {};
}

// Everything about one state: how many changes it shows, or what is wrong with it.
struct Verdict {
  std::size_t shows = 0;
  bool changeInFlight = false;
  std::string fault;
};

Verdict judge(const std::string& root, const Expected& expected) {
  Verdict verdict;
  const auto wrong = [&](const std::string& what) {
    verdict.fault = what;
    return verdict;
  };
  if (const std::string fault = verifyFiles(root, verdict.changeInFlight); !fault.empty()) {
    return wrong("before the mount: " + fault);
  }
  std::optional<Model> seen;  // by a reader of the dead writer's tables
  if (std::filesystem::exists(root + "/" + kFiles.back())) {
    seen = Tables(root, Access::read).contents();
  }
  Tables tables(root);
  const Model found = tables.contents();
  for (verdict.shows = expected.least; verdict.shows <= expected.most; ++verdict.shows) {
    if (expected.models[verdict.shows] == found) {
      break;
    }
  }
  if (verdict.shows > expected.most) {
    return wrong("it holds neither what was acknowledged nor that and the next change");
  }
  if (seen && !(*seen == found)) {
    return wrong("a reader and the next writer do not find the same");
  }
  if (!tables.countsAre(found) || tables.corruptions() != 0) {
    return wrong("its counters are wrong");
  }
  bool inFlight = false;
  if (const std::string fault = verifyFiles(root, inFlight); !fault.empty() || inFlight) {
    return wrong("after the mount: " + (inFlight ? "a change is still in flight" : fault));
  }
  if (const std::string fault = workOn(tables, found); !fault.empty()) {
    return wrong(fault);
  }
  if (const std::string fault = verifyFiles(root, inFlight); !fault.empty() || inFlight) {
    return wrong("after more changes: " + fault);
  }
  return verdict;
}

// ---- the tests

class EveryInstruction : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = testing_support::whyNoStepping(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  void TearDown() override {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - started_;
    std::printf("%llu instructions stepped, %llu states, %llu looked at, %llu failures, %.1f s\n",
                static_cast<unsigned long long>(instructions_),
                static_cast<unsigned long long>(states_), static_cast<unsigned long long>(looked_),
                static_cast<unsigned long long>(failures_), time.count());
  }

  // Takes the state apart in a folder of its own. False when there have been failures enough.
  template <typename Judge>
  bool look(const SteppedState& state, Judge judgeCopy) {
    ++looked_;
    const TemporaryRoot copy;
    state.folder.copyTo(copy.path());
    std::string fault;
    try {
      fault = judgeCopy(copy.path());
    } catch (const std::exception& error) {
      fault = error.what();
    }
    if (!fault.empty()) {
      ++failures_;
      ADD_FAILURE() << "state " << state.number << ", " << state.acknowledged
                    << " changes acknowledged, " << state.begun << " begun: " << fault;
    }
    return failures_ < kEnoughFailures;
  }

  void step(const std::string& root, Stepping how, const std::function<int(SteppedWork&)>& work,
            const std::function<bool(const SteppedState&)>& look) {
    const SteppedRun run = testing_support::stepThrough(root, how, work, look);
    EXPECT_EQ(run.fault, "");
    EXPECT_EQ(run.instructions > 0, how == Stepping::everyInstruction);
    instructions_ += run.instructions;
    states_ += run.states;
  }

  // Steps the changes on tables that are there, and looks at every state.
  void stepChanges(const std::vector<Change>& changes, Stepping how) {
    const std::vector<Model> models = modelsOf(changes);
    const TemporaryRoot root;
    { const Tables made(root.path()); }
    std::size_t shown = 0;
    step(
        root.path(), how, [&](SteppedWork& work) { return apply(root.path(), changes, work); },
        [&](const SteppedState& state) {
          return look(state, [&](const std::string& copy) {
            const Verdict verdict = judge(copy, {models, state.acknowledged, state.begun});
            if (verdict.fault.empty() && verdict.changeInFlight) {
              inFlight_.push_back({state.folder.clone(), verdict.shows});
            }
            const bool undone = verdict.fault.empty() && verdict.shows < shown;
            shown = verdict.shows;
            return undone ? "a change that had taken effect is gone again" : verdict.fault;
          });
        });
    EXPECT_EQ(shown, changes.size());
  }

  static constexpr std::uint64_t kEnoughFailures = 5;

  struct InFlight {
    FolderImage folder;
    std::size_t shows;
  };
  std::vector<InFlight> inFlight_;  // states with a change to be finished or undone

  std::uint64_t instructions_ = 0;
  std::uint64_t states_ = 0;
  std::uint64_t looked_ = 0;
  std::uint64_t failures_ = 0;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

TEST_F(EveryInstruction, OfInsertsUpdatesDeletesAndCleanupLeavesWholeChanges) {
  stepChanges(script(longForm() ? 20 : 1), stepping());
  EXPECT_GT(states_, 500U);
  EXPECT_GT(inFlight_.size(), 10U) << "inserts and deletes whose slot is linked and dead";
}

TEST_F(EveryInstruction, AndEveryStoreComeToTheSameStates) {
  std::vector<Change> changes = script(0);
  changes.resize(4);
  stepChanges(changes, Stepping::everyInstruction);
  EXPECT_GT(instructions_, 200U);
  const std::uint64_t states = states_;
  stepChanges(changes, Stepping::everyStore);
  EXPECT_EQ(states_, 2 * states);
}

TEST_F(EveryInstruction, OfTheFirstMountLeavesEmptyTablesOrNone) {
  const std::vector<Model> models(1);
  const TemporaryRoot root;
  step(
      root.path(), stepping(),
      [&](SteppedWork& work) {
        work.begin();
        const Tables tables(root.path());
        work.end();
        return 0;
      },
      [&](const SteppedState& state) {
        return look(state, [&](const std::string& copy) {
          return judge(copy, {models, 0, 0}).fault;
        });
      });
  EXPECT_GT(states_, 30U);
}

// The mount that finishes or undoes a change is killed too.
TEST_F(EveryInstruction, OfAMountThatRecoversLeavesTheSameRows) {
  const std::vector<Change> changes = script(longForm() ? 2 : 0);
  const std::vector<Model> models = modelsOf(changes);
  stepChanges(changes, Stepping::everyStore);
  ASSERT_GT(inFlight_.size(), 10U);
  const std::uint64_t before = states_;
  for (const InFlight& left : inFlight_) {
    if (failures_ >= kEnoughFailures) {
      return;
    }
    const TemporaryRoot root;
    left.folder.copyTo(root.path());
    step(
        root.path(), stepping(),
        [&](SteppedWork& work) {
          work.begin();
          const Tables tables(root.path());
          work.end();
          return 0;
        },
        [&](const SteppedState& state) {
          return look(state, [&](const std::string& copy) {
            return judge(copy, {models, left.shows, left.shows}).fault;
          });
        });
  }
  EXPECT_GT(states_ - before, 3 * inFlight_.size()) << "the lock file, the link, the generation";
}

// ---- growth by a chunk of slots

constexpr std::uint32_t kGrowingCapacity = Glint::kChunkSlots + 6;

std::string judgeGrowing(const std::string& root, std::uint64_t least, std::uint64_t most) {
  const std::string file = root + "/grows.table";
  if (const auto found = Glint::verifyTable(file); !found.clean()) {
    return "before the mount: " + found.findings.front();
  }
  State state(root);
  auto& rows = state.mount<SmallRow>("grows", kGrowingCapacity)->rows();
  const auto walked = glint_test::walk(rows);
  if (walked.steps != rows.rowCount() || walked.steps < least || walked.steps > most) {
    return "it holds " + std::to_string(walked.steps) + " rows";
  }
  std::uint64_t next = 0;
  for (const auto& [key, row] : walked.rows) {
    if (key != next++ || row.value != key + 7) {
      return "a row is missing or wrong";
    }
  }
  for (std::uint64_t key = next; key < next + 9; ++key) {
    rows.rowIs(smallRow(key, key + 7));
  }
  if (rows.rowCount() != next + 9 || !rows.has(next + 8) || !rows.rowDel(0)) {
    return "it does not take more rows";
  }
  const auto found = Glint::verifyTable(file);
  return found.clean() && !found.changeInFlight ? "" : "after more rows: it does not verify";
}

TEST_F(EveryInstruction, OfGrowthByAChunkOfSlotsLosesNoRow) {
  constexpr std::uint64_t kBefore = Glint::kChunkSlots - 1;
  const std::uint64_t stride = longForm() ? 1 : 61;  // of the states in which slots are made
  const TemporaryRoot root;
  step(
      root.path(), stepping(),
      [&](SteppedWork& work) {
        State state(root.path());
        auto& rows = state.mount<SmallRow>("grows", kGrowingCapacity)->rows();
        for (std::uint64_t key = 0; key < kBefore; ++key) {
          rows.rowIs(smallRow(key, key + 7));
        }
        work.begin();
        for (std::uint64_t key = kBefore; key < kBefore + 3; ++key) {
          work.operationBegins();
          rows.rowIs(smallRow(key, key + 7));
          work.operationDone();
        }
        work.end();
        return 0;
      },
      [&](const SteppedState& state) {
        const bool between = state.number > 20 && state.number < 2040;
        return (between && state.number % stride != 0) || look(state, [&](const auto& copy) {
                 return judgeGrowing(copy, kBefore + state.acknowledged, kBefore + state.begun);
               });
      });
  EXPECT_GT(states_, 2 * 1024U) << "a seq and a link for each slot";
}

// ---- damage that is put out of use

constexpr std::uint64_t kRows = 10;

// A table whose writer is about to meet damage done by somebody else.
class EveryInstructionOnDamage : public EveryInstruction {
 protected:
  void make() {
    State state(root_.path());
    auto& rows = state.mount<SmallRow>("damaged", 8)->rows();
    for (std::uint64_t key = 0; key < kRows; ++key) {
      rows.rowIs(smallRow(key, key + 7));
    }
  }

  // The writer's mapping of the file, to damage it behind the table's back.
  std::string file() const { return root_.path() + "/damaged.table"; }
  void flip(std::uint64_t offset) const {
    std::FILE* opened = std::fopen(file().c_str(), "r+b");
    ASSERT_NE(opened, nullptr);
    std::fseek(opened, static_cast<long>(offset), SEEK_SET);
    const int byte = std::fgetc(opened);
    std::fseek(opened, static_cast<long>(offset), SEEK_SET);
    std::fputc(byte ^ 1, opened);
    std::fclose(opened);
  }

  // The writer looks every key up, does what its users do about damage, and goes on.
  static void meetDamage(Glint::GlintMap<SmallRow>& rows) {
    for (std::uint64_t key = 0; key < kRows; ++key) {
      try {
        (void)rows.row(key);
      } catch (const Pell::CorruptionDetectedException& damage) {
        rows.doCorruptionDetected(damage.message());
      }
    }
  }

  void stepDamage(std::uint64_t offset, bool rowIsLost) {
    make();
    step(
        root_.path(), stepping(),
        [&](SteppedWork& work) {
          State state(root_.path());
          auto& rows = state.mount<SmallRow>("damaged", 8)->rows();
          flip(offset);
          work.begin();
          meetDamage(rows);
          work.end();
          return 0;
        },
        [&](const SteppedState& state) {
          return look(state,
                      [&](const std::string& copy) { return judgeDamaged(copy, rowIsLost); });
        });
  }

  // What a reader of the dead writer's table does not find, and what it is told is damaged.
  struct Missed {
    std::uint64_t absent = 0;
    std::uint64_t damaged = 0;
    std::uint64_t wrong = 0;
  };
  static Missed missedByAReader(const std::string& copy) {
    State state(copy);
    const auto& rows = state.mountReader<SmallRow>("damaged")->rows();
    Missed missed;
    for (std::uint64_t key = 0; key < kRows; ++key) {
      try {
        const auto row = rows.row(key);
        missed.absent += row ? 0U : 1U;
        missed.wrong += row && row->value != key + 7 ? 1U : 0U;
      } catch (const Pell::CorruptionDetectedException&) {
        ++missed.damaged;
      }
    }
    return missed;
  }

  std::string judgeDamaged(const std::string& copy, bool rowIsLost) {
    const Missed missed = missedByAReader(copy);
    if (missed.wrong > 0 || missed.absent > (rowIsLost ? 1 : 0) ||
        (rowIsLost && missed.absent + missed.damaged != 1)) {
      return "a reader misses more than the damaged row";
    }
    State state(copy);
    Pell::Ptr<glint_test::TestEntity<SmallRow>> entity;
    try {
      entity = state.mount<SmallRow>("damaged", 8);
    } catch (const ZevGlint::MountException&) {
      // A damaged index is refused until its rebuilding has begun.
      ++refused_;
      return rowIsLost || repairing_ ? "it is refused" : "";
    }
    repairing_ = true;
    if (const auto mounted = Glint::verifyTable(copy + "/damaged.table");
        !mounted.clean() || mounted.changeInFlight) {
      return "the mount leaves damage or an unfinished index";
    }
    if (!rowIsLost && missed.damaged > 0) {
      return "a reader does not know that the index is being rebuilt";
    }
    auto& rows = entity->rows();
    const auto walked = glint_test::walk(rows);
    const std::uint64_t left = rowIsLost ? kRows - 1 : kRows;
    if (walked.steps != left || walked.rows.size() != left || rows.rowCount() != left) {
      return "it holds " + std::to_string(walked.steps) + " rows";
    }
    for (const auto& [key, row] : walked.rows) {
      if (row.value != key + 7 || !rows.has(key)) {
        return "a row is wrong or cannot be found";
      }
    }
    rows.rowIs(smallRow(20, 1));
    rows.rowDel(walked.rows.begin()->first);
    const auto found = Glint::verifyTable(copy + "/damaged.table");
    const bool counted = rows.corruptionCount() > 0;
    return found.clean() && !found.changeInFlight && rows.rowCount() == left && counted
               ? ""
               : "after the mount: " + (found.clean() ? "not counted" : found.findings.front());
  }

  TemporaryRoot root_;
  bool repairing_ = false;
  std::uint64_t refused_ = 0;
};

constexpr std::uint64_t kLinksAt = 0x2000;
constexpr std::uint64_t kSlotsAt = 0x3000;

TEST_F(EveryInstructionOnDamage, RetiringARowTakesItOutWhole) {
  // A value in slot 3, in the second of its copies: the first change of a slot publishes that.
  stepDamage(kSlotsAt + 3 * Glint::slotBytes(sizeof(SmallRow)) + 48, true);
  EXPECT_GT(states_, 3U) << "seq, link, generation, counters";
  EXPECT_EQ(refused_, 0U);
}

TEST_F(EveryInstructionOnDamage, RebuildingTheIndexIsTakenUpByTheNextMount) {
  stepDamage(kLinksAt + 4 * 9, false);
  EXPECT_GT(states_, 20U) << "heads and links";
  EXPECT_LE(refused_, 2U) << "the damage, and the count of it";
  EXPECT_TRUE(repairing_);
}

}  // namespace
