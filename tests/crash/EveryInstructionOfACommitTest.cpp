// SPDX-License-Identifier: Apache-2.0

// An agent is stopped at every state in which a commit, the hardware's report or the cleanup leaves
// the state folder. From a copy of each one a new agent is started, with hardware that holds what
// it held at that moment, and must end with hardware, configuration tables and log in agreement,
// nothing answered lost, versions going on, and the next requests carried out. Each state checks
// clean, as `fecctl check` does it, before the new agent and behind it.
//
// The short form stops at every store and looks at one state in a few. The long form steps every
// instruction of the requests and looks at every state, with each kind of hardware:
//
//   LOAMFEC_EVERY_INSTRUCTION=1 AgentCrashTest

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Glint/SharedMemEntityManager.h"
#include "agent/FecAgent.h"
#include "records/FecSharedTables.h"
#include "testing/ChildProcess.h"
#include "testing/LeakCheck.h"
#include "testing/SingleStep.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestHardware.h"
#include "tools/StateCheck.h"
#include "tools/TableRole.h"

namespace {

using Agent::FecAgent;
using Asic::UnitId;
using LoamFec::FecTableDataModelEntryKey;
using testing_support::FolderImage;
using testing_support::longForm;
using testing_support::SteppedRun;
using testing_support::SteppedState;
using testing_support::SteppedWork;
using testing_support::Stepping;
using testing_support::stepping;
using testing_support::TemporaryRoot;
using ZevSharedMem::mountForReading;

const std::vector<UnitId> kUnits = {UnitId(0), UnitId(3)};

// ---- requests, and what they make of the tables

struct Content {
  std::uint32_t mark = 0;
  std::uint32_t destination = 0;
  friend bool operator==(const Content&, const Content&) = default;
};
using Key = std::pair<UnitId, std::uint32_t>;
struct Model {
  std::map<Key, Content> entries;
  std::uint32_t destination = 100;  // of the one interface
};

struct Request {
  enum class Kind { write, remove, removeAll, destination };

  Kind kind;
  UnitId unit;
  std::uint32_t key = 0;
  std::uint32_t value = 0;  // a write's mark, or the destination

  void applyTo(Model& model) const {
    switch (kind) {
      case Kind::write:
        model.entries.insert_or_assign({unit, key}, Content{value, model.destination});
        return;
      case Kind::remove:
        model.entries.erase({unit, key});
        return;
      case Kind::removeAll:
        std::erase_if(model.entries, [&](const auto& item) { return item.first.first == unit; });
        return;
      case Kind::destination:
        model.destination = value;
        for (auto& [at, content] : model.entries) {
          content.destination = value;
        }
    }
  }
};

// The version under which a request was answered as done; nothing: it was not.
using Answered = std::function<void(std::optional<std::uint64_t> version)>;

void destinationIs(FecAgent& agent, std::uint32_t destination) {
  agent.resourceTable().destinationIs(Wirex::IntfId::fromName("eth1"), {destination, 0, 0});
}

LoamFec::FecTableDataModelEntry entryOf(const Request& request) {
  LoamFec::FecTableDataModelEntry entry;
  entry.intfId = Wirex::IntfId::fromName("eth1");
  entry.opaqueA = request.value;
  return entry;
}

// Makes the request and runs the agent until it has nothing to do.
void carryOut(FecAgent& agent, const Request& request, const Answered& answered) {
  const auto table = agent.fec().swTable(request.unit);
  const auto respond =
      [answered](const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>& handle) {
        const bool done = handle->entryState() == Asic::SwTableBase::success();
        answered(done ? std::optional(handle->logVersion().value()) : std::nullopt);
      };
  const FecTableDataModelEntryKey key(request.key);
  switch (request.kind) {
    case Request::Kind::write:
      table->entryWriteWithResponseHandler(key, entryOf(request), nullptr, respond);
      break;
    case Request::Kind::remove:
      table->entryRemoveWithResponseHandler(key, nullptr, respond);
      break;
    case Request::Kind::removeAll:
      table->entryRemoveAllWithResponseHandler(nullptr, respond);
      break;
    case Request::Kind::destination:
      destinationIs(agent, request.value);
      break;
  }
  agent.loop().runUntilIdle();
}

std::vector<Model> modelsOf(const std::vector<Request>& requests, Model before) {
  std::vector<Model> models = {std::move(before)};
  for (const Request& request : requests) {
    models.push_back(models.back());
    request.applyTo(models.back());
  }
  return models;
}

// ---- the agent that is stopped

// What it tells beside its progress.
struct Board {
  std::atomic<std::uint64_t> settled = 0;  // requests after which it had nothing more to do
  std::atomic<std::uint64_t> version = 0;  // highest under which it answered
};

// A request counts as acknowledged when it is answered; a change of the destination, which nobody
// answers, when there is nothing more to do.
void carryOutAll(FecAgent& agent, const std::vector<Request>& requests, SteppedWork& work,
                 Board& board) {
  for (const Request& request : requests) {
    work.operationBegins();
    carryOut(agent, request, [&](std::optional<std::uint64_t> version) {
      if (version) {
        board.version = std::max(board.version.load(), *version);
        work.operationDone();
      }
    });
    if (request.kind == Request::Kind::destination || request.kind == Request::Kind::removeAll) {
      work.operationDone();
    }
    ++board.settled;
  }
}

// ---- the agent that takes over

enum class HardwareKind {
  behind,  // has what was applied before the request in flight
  level,   // has also applied all that is announced
  empty,   // has lost everything
};

std::map<Key, Content> contentsOf(FecAgent& agent) {
  std::map<Key, Content> contents;
  for (const UnitId unit : kUnits) {
    auto& rows = agent.fec().entryLog()->tableConfigGlint(unit)->swTableEntries();
    for (auto at = rows.iterator(); at.valid(); at.advance()) {
      const auto row = at.row();
      if (!row.isDeleted()) {
        contents.emplace(Key(unit, row.key().fecId()),
                         Content{row.logEntry().opaqueA, row.logEntry().resolvedDest.first});
      }
    }
  }
  return contents;
}

bool hardwareIsEqual(const FecAgent& agent) {
  return std::all_of(kUnits.begin(), kUnits.end(),
                     [&](UnitId unit) { return agent.hardwareEqualsTable(unit); });
}

std::optional<Content> at(const std::map<Key, Content>& contents, const Key& key) {
  const auto found = contents.find(key);
  return found == contents.end() ? std::nullopt : std::optional(found->second);
}

// Each key holds what one of the models has. Two neighbouring models differ in one key, unless a
// request for many keys lies between them: that one may be done in part.
std::string compare(const std::map<Key, Content>& found, const std::vector<Model>& models,
                    std::size_t least, std::size_t most) {
  std::map<Key, Content> every = found;
  for (std::size_t n = least; n <= most; ++n) {
    every.insert(models[n].entries.begin(), models[n].entries.end());
  }
  for (const auto& [key, unused] : every) {
    bool good = false;
    for (std::size_t n = least; n <= most; ++n) {
      good = good || at(found, key) == at(models[n].entries, key);
    }
    if (!good) {
      return "key " + std::to_string(key.second) + " of unit " + std::to_string(key.first.value()) +
             (at(found, key) ? " holds what it should not" : " is lost");
    }
  }
  return {};
}

// One state to be judged.
struct Killed {
  const FolderImage& folder;
  const FolderImage* settled =
      nullptr;  // before the request in flight; null: there were no tables yet
  const std::vector<Model>& models;
  std::size_t least = 0;  // requests that must show
  std::size_t most = 0;   // that may
  std::uint64_t answeredVersion = 0;
  // Another agent was killed before this one: a version that it had not announced any more is
  // cleaned up like the others, so a reader cannot tell by the rows in which order it was written.
  bool takesOver = false;
};

std::unique_ptr<Asic::HardwareSide> hardwareAt(const std::string& root, const Killed& killed,
                                               HardwareKind kind) {
  if (kind == HardwareKind::empty) {
    killed.folder.copyTo(root);
    return nullptr;
  }
  killed.settled->copyTo(root);
  auto hardware = testing_support::simulatedHardware()(root, kUnits, Asic::Writer::onThisThread);
  killed.folder.rewrite(root, *killed.settled);
  if (kind == HardwareKind::level) {
    hardware->step(1000);
  }
  return hardware;
}

// A killed first start may not have come to one yet.
bool hasTables(const FolderImage& folder) {
  return std::any_of(folder.files().begin(), folder.files().end(),
                     [](const auto& file) { return file.first.ends_with(".table"); });
}

// What `fecctl check` says of the folder; empty if it is clean.
std::string checkFinding(const std::string& root) {
  const Tools::StateReport found = Tools::checkState(root);
  return found.clean() ? "" : "the check of the state finds: " + Tools::reportText(found, 5);
}

// What is wrong in a folder whose agent had nothing more to do; empty if nothing is left over in it
// and there is a configuration row for each entry.
std::string findingIn(const std::string& root, const std::map<Key, Content>& contents) {
  const Tools::StateReport found = Tools::checkState(root);
  if (!found.clean() || !found.notes.empty()) {
    return "the check of the state finds: " + Tools::reportText(found, 5);
  }
  std::map<std::string, std::ptrdiff_t> expected = {
      {Tools::fileNameOf(Tools::TableRole::log), 0},
      {Tools::fileNameOf(Tools::TableRole::groupLog), 0},
      {Tools::fileNameOf(Tools::TableRole::applied), -1}};  // any number
  for (const UnitId unit : kUnits) {
    expected[Tools::fileNameOf(Tools::TableRole::config, unit)] =
        std::count_if(contents.begin(), contents.end(),
                      [&](const auto& item) { return item.first.first == unit; });
  }
  for (const Tools::TableFigures& table : found.tables) {
    const auto rows = expected.extract(table.file);
    if (rows.empty() || (rows.mapped() >= 0 && rows.mapped() != table.rows)) {
      return table.file + ": rows are left that should have gone, or are missing";
    }
  }
  return expected.empty() ? "" : expected.begin()->first + " is missing";
}

// ---- what a reader may rely on at any moment

// The folder's tables as another process sees them. docs/format/fec-rows.md: a change writes its
// configuration rows, its log row, the log's scratchpad, its group row, the group log's scratchpad.
class ReaderView {
 public:
  explicit ReaderView(const std::string& root)
      : manager_(Zev::makeObject<Vanta::EntityManager>(root)),
        log_(mountForReading<LoamFec::FecTableDataModelEntryLogGlint>(manager_,
                                                                      Names::entryLogGlintPath())),
        groupLog_(mountForReading<Asic::GroupLogGlint>(manager_, Names::groupLogGlintPath())),
        applied_(
            mountForReading<Asic::GroupVersionsGlint>(manager_, Names::groupVersionsGlintPath())) {
    for (const UnitId unit : kUnits) {
      configs_[unit] = mountForReading<LoamFec::FecTableDataModelConfigGlint>(
          manager_, Names::configGlintPath(unit));
    }
  }

  // What is there before what must come before it; empty if nothing.
  std::string finding() const {
    auto& log = log_->entryLogConfig();
    auto& groupLog = groupLog_->groupLog();
    const std::uint64_t version = log.control().scratchpad();
    const std::uint64_t sequence = groupLog.control().scratchpad();
    const auto appliedRow = applied_->appliedVersions().row(Names::kTableId);
    const std::uint64_t applied = appliedRow ? appliedRow->tableVersion().logVersion().value() : 0;
    std::uint64_t announced = applied;
    for (auto at = groupLog.iterator(); at.valid(); at.advance()) {
      announced = std::max(announced, at.row().tableVersion().logVersion().value());
    }
    if (announced > version) {
      return "a version is announced that the log's scratchpad does not have";
    }
    if (version > announced && !log.has(Asic::LogVersion(version))) {
      return "the log's scratchpad names a version that has no row";
    }
    // The group has one table here, so a version's sequence is the same number, or a smaller one
    // after a kill.
    if (sequence == version && applied < version && !groupLog.has(sequence)) {
      return "the group log's scratchpad names a sequence that has no row";
    }
    for (auto at = log.iterator(); at.valid(); at.advance()) {
      if (!configHas(at.row())) {
        return "version " + std::to_string(at.row().version().value()) +
               " is logged and its configuration row is not written";
      }
    }
    return {};
  }

 private:
  using Names = LoamFec::FecTableConstants;
  using LogRow = LoamFec::FecTableDataModelLogGlintEntry;

  bool configHas(const LogRow& logged) const {
    auto& rows = configs_.at(logged.unitId())->swTableEntries();
    if ((logged.operation() & LogRow::kTableDeleted) == 0) {
      const auto row = rows.row(logged.logEntry().key);
      return row && row->version() >= logged.version();
    }
    for (auto at = rows.iterator(); at.valid(); at.advance()) {
      if (at.row().version() < logged.version()) {
        return false;
      }
    }
    return true;
  }

  Pell::Ptr<Vanta::EntityManager> manager_;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log_;
  Pell::Ptr<Asic::GroupLogGlint> groupLog_;
  Pell::Ptr<Asic::GroupVersionsGlint> applied_;
  std::map<UnitId, Pell::Ptr<LoamFec::FecTableDataModelConfigGlint>> configs_;
};

// ---- the restart

// The next requests, in both units; `key` is one that was in use before, or is not.
std::string goOn(FecAgent& agent, Model& model, std::uint64_t version, std::uint32_t key) {
  using Kind = Request::Kind;
  const std::vector<Request> requests = {
      {Kind::write, kUnits[1], 90, 901}, {Kind::write, kUnits[0], key, 902},
      {Kind::write, kUnits[0], 91, 903}, {Kind::remove, kUnits[0], key},
      {Kind::remove, kUnits[1], 90},     {Kind::write, kUnits[1], key, 904}};
  for (const Request& request : requests) {
    std::optional<std::uint64_t> answered;
    carryOut(agent, request, [&](std::optional<std::uint64_t> done) { answered = done; });
    request.applyTo(model);
    if (!answered) {
      return "a request after the restart is not answered as done";
    }
    if (*answered <= version) {
      return "version " + std::to_string(*answered) + " comes again";
    }
    version = *answered;
    if (!hardwareIsEqual(agent)) {
      return "a request after the restart does not reach the hardware";
    }
  }
  return contentsOf(agent) == model.entries ? "" : "requests after the restart go wrong";
}

// What is wrong with the restart; empty if nothing.
std::string judge(const Killed& killed, HardwareKind kind) {
  const TemporaryRoot root;
  Model model = killed.models[killed.most];
  {
    auto hardware = hardwareAt(root.path(), killed, kind);
    if (!killed.takesOver) {
      if (std::string fault = ReaderView(root.path()).finding(); !fault.empty()) {
        return fault;
      }
    }
    if (std::string fault = hasTables(killed.folder) ? checkFinding(root.path()) : "";
        !fault.empty()) {
      return fault;
    }
    FecAgent agent(root.path(), kUnits, testing_support::simulatedHardware(),
                   {.reset = false, .hardware = std::move(hardware)});
    agent.loop().runUntilIdle();
    if (!hardwareIsEqual(agent)) {
      return "after the restart the hardware differs from the tables";
    }
    model.entries = contentsOf(agent);
    if (std::string fault = compare(model.entries, killed.models, killed.least, killed.most);
        !fault.empty()) {
      return fault;
    }
    const std::uint64_t found = agent.fec().entryLog()->tableVersion().value();
    if (found < killed.answeredVersion) {
      return "the log goes on below an answered version";
    }
    destinationIs(agent, model.destination);
    agent.loop().runUntilIdle();
    for (auto& [key, content] : model.entries) {
      content.destination = model.destination;
    }
    if (!hardwareIsEqual(agent) || contentsOf(agent) != model.entries) {
      return "after the destinations have come back, hardware or tables are wrong";
    }
    const std::uint32_t key = kind == HardwareKind::level ? 1 : 92;
    if (std::string fault = goOn(agent, model, found, key); !fault.empty()) {
      return fault;
    }
  }
  {
    FecAgent agent(root.path(), kUnits, testing_support::simulatedHardware());
    agent.loop().runUntilIdle();
    if (!hardwareIsEqual(agent) || contentsOf(agent) != model.entries) {
      return "the next restart does not find the same";
    }
  }
  return findingIn(root.path(), model.entries);
}

// ---- the tests

class EveryInstructionOfACommit : public testing_support::LeakCheckedTest {
 protected:
  void SetUp() override {
    if (const std::string why = testing_support::whyNoStepping(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  void TearDown() override {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - started_;
    std::printf("%llu instructions stepped, %llu states, %llu restarts, %llu failures, %.1f s\n",
                static_cast<unsigned long long>(instructions_),
                static_cast<unsigned long long>(states_),
                static_cast<unsigned long long>(restarts_),
                static_cast<unsigned long long>(failures_), time.count());
  }

  bool look(const SteppedState& state, const Killed& killed) {
    const auto judgeWith = [&](HardwareKind kind) {
      ++restarts_;
      std::string fault;
      try {
        fault = judge(killed, kind);
      } catch (const std::exception& error) {
        fault = error.what();
      }
      if (!fault.empty()) {
        ++failures_;
        ADD_FAILURE() << "state " << state.number << ", " << killed.least << " requests answered, "
                      << killed.most << " made, hardware " << static_cast<int>(kind) << ": "
                      << fault;
      }
    };
    if (!killed.settled) {
      judgeWith(HardwareKind::empty);
    } else if (longForm()) {
      judgeWith(HardwareKind::behind);
      judgeWith(HardwareKind::level);
      judgeWith(HardwareKind::empty);
    } else {
      judgeWith(static_cast<HardwareKind>(restarts_ % 3));
    }
    return failures_ < kEnoughFailures;
  }

  void step(const std::string& root, Stepping how, const std::function<int(SteppedWork&)>& work,
            const std::function<bool(const SteppedState&)>& look) {
    const SteppedRun run = testing_support::stepThrough(root, how, work, look);
    EXPECT_EQ(run.fault, "");
    instructions_ += run.instructions;
    states_ += run.states;
  }

  // Steps the requests, made of an agent that has carried out `before`, and shows every state.
  void stepRequests(const std::vector<Request>& before, const std::vector<Request>& requests,
                    Stepping how,
                    const std::function<bool(const SteppedState&, const Killed&)>& look) {
    const std::vector<Model> models = modelsOf(requests, modelsOf(before, {}).back());
    const TemporaryRoot root;
    const testing_support::Shared<Board> board;
    std::optional<FolderImage> settled;
    std::uint64_t settledRequests = 0;
    step(
        root.path(), how,
        [&](SteppedWork& work) {
          FecAgent agent(root.path(), kUnits, testing_support::simulatedHardware());
          destinationIs(agent, Model().destination);
          agent.loop().runUntilIdle();
          for (const Request& request : before) {
            carryOut(agent, request, [](auto&&) {});
          }
          work.begin();
          carryOutAll(agent, requests, work, *board);
          work.end();
          return 0;
        },
        [&](const SteppedState& state) {
          if (!settled || settledRequests < board->settled) {
            settled = state.folder.clone();
            settledRequests = board->settled;
          }
          return look(state, {state.folder, &*settled, models, state.acknowledged, state.begun,
                              board->version});
        });
    EXPECT_EQ(board->settled, requests.size());
  }

  // As above, and looks at one state in stride().
  void judgeRequests(const std::vector<Request>& before, const std::vector<Request>& requests) {
    stepRequests(before, requests, stepping(),
                 [this](const SteppedState& state, const Killed& killed) {
                   return met_++ % stride() != 0 || look(state, killed);
                 });
  }

  // Steps the start of an agent on what a killed one has left, or on nothing, and looks at one
  // state in `every`. By stores: a mount looks at every bucket, which is millions of instructions
  // that store nothing.
  void judgeStart(const TemporaryRoot& root, const FolderImage* left,
                  const std::vector<Model>& models, std::size_t least, std::size_t most,
                  std::uint64_t version, std::uint64_t every) {
    step(
        root.path(), Stepping::everyStore,
        [&](SteppedWork& work) {
          work.begin();
          FecAgent agent(root.path(), kUnits, testing_support::simulatedHardware());
          agent.loop().runUntilIdle();
          destinationIs(agent, models[most].destination);
          agent.loop().runUntilIdle();
          work.end();
          return 0;
        },
        [&](const SteppedState& state) {
          return state.number % every != 0 ||
                 look(state, {state.folder, left, models, least, most, version, true});
        });
  }

  static std::uint64_t stride() { return longForm() ? 1 : 4; }

  static constexpr std::uint64_t kEnoughFailures = 5;

  std::uint64_t met_ = 0;  // states of which some are looked at
  std::uint64_t instructions_ = 0;
  std::uint64_t states_ = 0;
  std::uint64_t restarts_ = 0;
  std::uint64_t failures_ = 0;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

using Kind = Request::Kind;

TEST_F(EveryInstructionOfACommit, OfWritesAndRemovesLosesNothingAnswered) {
  judgeRequests({{Kind::write, kUnits[0], 1, 10}, {Kind::write, kUnits[1], 1, 11}},
                {{Kind::write, kUnits[0], 2, 20},
                 {Kind::write, kUnits[0], 1, 21},
                 {Kind::remove, kUnits[0], 1},
                 {Kind::write, kUnits[1], 3, 22}});
  EXPECT_GT(states_, 4 * 30U) << "a request's rows, scratchpads, report and cleanup";
}

TEST_F(EveryInstructionOfACommit, OfARemoveAllTouchesOnlyItsUnit) {
  judgeRequests({{Kind::write, kUnits[0], 1, 10},
                 {Kind::write, kUnits[0], 2, 11},
                 {Kind::write, kUnits[0], 3, 12},
                 {Kind::write, kUnits[1], 1, 13}},
                {{Kind::removeAll, kUnits[0]}, {Kind::write, kUnits[0], 2, 20}});
  EXPECT_GT(states_, 2 * 30U);
}

TEST_F(EveryInstructionOfACommit, OfAChangeOfTheDestinationReachesEveryEntry) {
  judgeRequests({{Kind::write, kUnits[0], 1, 10}, {Kind::write, kUnits[1], 2, 11}},
                {{Kind::destination, kUnits[0], 0, 200}, {Kind::write, kUnits[0], 3, 20}});
  EXPECT_GT(states_, 3 * 30U) << "two entries and a write";
}

// The agent that takes over is killed while it starts.
TEST_F(EveryInstructionOfACommit, OfAStartThatTakesOverLosesNothingAnswered) {
  struct Left {
    FolderImage folder;
    std::size_t least;
    std::size_t most;
    std::uint64_t version;
  };
  std::vector<Left> lefts;
  std::vector<Model> models;
  const std::uint64_t every = longForm() ? 4 : 11;
  stepRequests(
      {{Kind::write, kUnits[0], 1, 10}, {Kind::write, kUnits[0], 2, 11}},
      {{Kind::remove, kUnits[0], 1}, {Kind::write, kUnits[1], 3, 20}, {Kind::removeAll, kUnits[0]}},
      Stepping::everyStore, [&](const SteppedState& state, const Killed& killed) {
        models = killed.models;
        if (state.number % every == 0) {
          lefts.push_back(
              {killed.folder.clone(), killed.least, killed.most, killed.answeredVersion});
        }
        return true;
      });
  const std::uint64_t before = states_;
  for (const Left& left : lefts) {
    if (failures_ >= kEnoughFailures) {
      return;
    }
    SCOPED_TRACE("killed after " + std::to_string(left.least) + " answers");
    const TemporaryRoot root;
    left.folder.copyTo(root.path());
    judgeStart(root, &left.folder, models, left.least, left.most, left.version, longForm() ? 2 : 5);
  }
  EXPECT_GT(states_ - before, 5 * lefts.size());
}

TEST_F(EveryInstructionOfACommit, OfAFirstStartIsNoHindranceToTheNext) {
  const TemporaryRoot root;
  judgeStart(root, nullptr, {Model()}, 0, 0, 0, longForm() ? 97 : 997);
  EXPECT_GT(states_, 5 * 64U) << "slots are made in every table";
}

}  // namespace
