// SPDX-License-Identifier: Apache-2.0

// examples/read-state.py, which knows the files from docs/format/ alone, against the programs: the
// same rows, the same misses, the same damage. Where they differ, the documents do not say what the
// programs do.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "GoldenState.h"
#include "SparseText.h"
#include "records/FecTableConstants.h"
#include "testing/ChildProcess.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"

namespace {

using format_test::FecTables;
using nlohmann::json;
using ::testing::HasSubstr;
using testing_support::Outcome;
using ZevGlint::ZevGlintType;

const std::string kCaptures = std::string(EXAMPLES_DIR) + "/frr-nexthops/";
const std::string kConfigFile =
    LoamFec::FecTableConstants::configGlintPath(Asic::UnitId(0)) + ".table";
const std::string kGoldenConfigFile = format_test::kGoldenFiles[0];

class ReadStateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(PYTHON3).empty()) {
      GTEST_SKIP() << "python3 is not installed (scripts/setup test installs it)";
    }
  }

  Outcome python(const std::vector<std::string>& arguments, const std::string& state) const {
    std::vector<std::string> all = {PYTHON3, std::string(EXAMPLES_DIR) + "/read-state.py",
                                    "--state", state, "--json"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return testing_support::runProgram(all, files_.path());
  }
  json pythonRows(const std::vector<std::string>& arguments, const std::string& state) const {
    const Outcome outcome = python(arguments, state);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return json::parse(outcome.out);
  }
  json fecctl(const std::string& state, const std::string& unit) const {
    const Outcome outcome = testing_support::runProgram(
        {FECCTL, "show", "fec", "--state", state, "--unit", unit, "--json"}, files_.path());
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return json::parse(outcome.out);
  }
  std::vector<std::string> replayOf(const std::string& moment, const std::string& units) const {
    return {FECD,         "replay",
            "--state",    state_,
            "--units",    units,
            "--links",    kCaptures + "links-" + moment + ".json",
            "--nexthops", kCaptures + "nexthops-" + moment + ".json",
            "--json"};
  }
  void replay(const std::string& moment, const std::string& units) const {
    const Outcome outcome = testing_support::runProgram(replayOf(moment, units), files_.path());
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
  }
  // Row by row, so that a difference is shown and not only told.
  static void expectSame(const json& mine, const json& theirs) {
    ASSERT_EQ(mine["entries"].size(), theirs["entries"].size());
    for (std::size_t i = 0; i < mine["entries"].size(); ++i) {
      ASSERT_EQ(mine["entries"][i], theirs["entries"][i]) << "row " << i;
    }
    EXPECT_EQ(mine, theirs);
  }

  testing_support::TemporaryRoot files_;
  testing_support::TemporaryRoot parent_;
  std::string state_ = parent_.path() + "/state";
};

TEST_F(ReadStateTest, TheTestVectorsOfTheDocumentsHold) {
  const Outcome outcome = python({"--self-test"}, state_);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
}

TEST_F(ReadStateTest, AfterEachCaptureEveryRowIsAsFecctlShowsIt) {
  for (const char* moment : {"a-before", "b-four-links-down", "c-links-back"}) {
    replay(moment, "0,1");
    for (const char* unit : {"0", "1"}) {
      const json shown = fecctl(state_, unit);
      EXPECT_GT(shown["count"], 4000);
      expectSame(pythonRows({"fec", "--unit", unit}, state_), shown);
    }
  }
}

TEST_F(ReadStateTest, BesideAWorkingAgentNothingLooksDamaged) {
  std::vector<std::string> arguments = {FECD, "replay", "--state", state_, "--json"};
  for (const char* moment : {"a-before", "b-four-links-down", "c-links-back"}) {
    arguments.insert(arguments.end(), {"--links", kCaptures + "links-" + moment + ".json",
                                       "--nexthops", kCaptures + "nexthops-" + moment + ".json"});
  }
  const testing_support::TemporaryRoot output;
  testing_support::Program agent(arguments, output.path());
  Outcome outcome;
  do {
    outcome = python({"fec", "log", "group-log", "applied"}, state_);
    EXPECT_THAT(outcome.exitCode, ::testing::AnyOf(0, 3)) << outcome.err;
    EXPECT_THAT(outcome.err, ::testing::Not(HasSubstr("damaged")));
  } while (agent.running());
  EXPECT_EQ(agent.wait().exitCode, 0);
  expectSame(pythonRows({"fec"}, state_), fecctl(state_, "0"));
}

TEST_F(ReadStateTest, EveryKeyIsFoundThroughTheIndexAndNoOther) {
  replay("a-before", "0");
  const json all = pythonRows({"fec"}, state_);
  std::vector<std::string> arguments = {"fec"};
  std::uint32_t highest = 0;
  for (const json& entry : all["entries"]) {
    arguments.insert(arguments.end(), {"--key", std::to_string(entry["fec"].get<std::uint32_t>())});
    highest = std::max(highest, entry["fec"].get<std::uint32_t>());
  }
  for (std::uint32_t absent = 1; absent <= 2000; ++absent) {
    arguments.insert(arguments.end(), {"--key", std::to_string(highest + absent)});
  }
  EXPECT_EQ(pythonRows(arguments, state_)["entries"], all["entries"]);
}

// Slots of a configuration table, found by what the format says about them.
class ConfigFile {
 public:
  explicit ConfigFile(std::string path)
      : path_(std::move(path)),
        header_(testing_support::wordAt<Glint::FixedHeader>(path_, 0)),
        at_(header_) {}

  Glint::Seq seq(std::uint32_t slot) const {
    return Glint::Seq(testing_support::wordAt(path_, at_.slot(slot)));
  }
  void seqIs(std::uint32_t slot, Glint::Seq seq) const {
    testing_support::wordIs(path_, at_.slot(slot), seq.word());
  }
  void generationIs(std::uint64_t generation) const {
    testing_support::wordIs(path_, offsetof(Glint::Header, generation), generation);
  }
  std::uint32_t liveKey(std::uint32_t slot) const {
    return testing_support::wordAt<std::uint32_t>(path_, at_.row(slot, seq(slot).copy()));
  }
  std::uint64_t headAt(std::uint32_t key) const {
    return at_.head(Glint::bucketOf(key, header_.keyHash, header_.bucketCount));
  }
  const testing_support::Offsets& at() const { return at_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Glint::FixedHeader header_;
  testing_support::Offsets at_;
};

TEST_F(ReadStateTest, ADamagedRowIsReportedAndEveryOtherRowIsRead) {
  replay("a-before", "0");
  const json whole = pythonRows({"fec"}, state_);
  constexpr std::uint32_t kSlot = 1234;
  const std::uint32_t key = ConfigFile(state_ + "/" + kConfigFile).liveKey(kSlot);
  json others = whole["entries"];
  std::erase_if(others.get_ref<json::array_t&>(),
                [&](const json& row) { return row["fec"] == key; });
  ASSERT_EQ(others.size() + 1, whole["entries"].size());
  const ConfigFile original(state_ + "/" + kConfigFile);
  const unsigned live = original.seq(kSlot).copy();
  const std::uint64_t places[] = {original.at().row(kSlot, live) + 40,
                                  original.at().checksum(kSlot, live) + 3,
                                  original.at().slot(kSlot) + 1};
  for (const std::uint64_t place : places) {
    const testing_support::TemporaryRoot copyFolder;
    const std::string& copy = copyFolder.path();
    for (const std::string& name : {kConfigFile, std::string(format_test::kGoldenFiles[1])}) {
      format_test::fromText(format_test::toText(fmt::format("{}/{}", state_, name)),
                            fmt::format("{}/{}", copy, name));
    }
    testing_support::flipBit(fmt::format("{}/{}", copy, kConfigFile), 8 * place + 5);
    const Outcome outcome = python({"fec"}, copy);
    EXPECT_EQ(outcome.exitCode, 1) << place;
    EXPECT_THAT(outcome.err, HasSubstr("damaged: " + kConfigFile + ": slot 1234:"));
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_EQ(json::parse(outcome.out)["entries"], others);
    const Outcome lookup = python({"fec", "--key", std::to_string(key)}, copy);
    EXPECT_EQ(lookup.exitCode, 1) << "a damaged row is no miss";
    EXPECT_THAT(lookup.err, HasSubstr("slot 1234:"));
  }
}

TEST_F(ReadStateTest, ADamagedBucketIsReportedByLookupsAndDoesNotTouchTheWalk) {
  format_test::restoreGoldenState(parent_.path());
  const ConfigFile file(parent_.path() + "/" + kGoldenConfigFile);
  const json whole = pythonRows({"--unit", "3"}, parent_.path());
  testing_support::flipBit(file.path(), 8 * file.headAt(7));
  EXPECT_EQ(pythonRows({"--unit", "3"}, parent_.path()), whole);
  const Outcome outcome = python({"--unit", "3", "--key", "7"}, parent_.path());
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("leads nowhere"));
  EXPECT_EQ(pythonRows({"--unit", "3", "--key", "0"}, parent_.path())["count"], 1);
}

TEST_F(ReadStateTest, WhatAKilledWriterLeftIsAMissAndNoDamage) {
  format_test::restoreGoldenState(parent_.path());
  const ConfigFile file(parent_.path() + "/" + kGoldenConfigFile);
  const std::vector<std::string> lookup = {"--unit", "3", "--key", "0"};
  constexpr std::uint32_t kSlotOfKey0 = 2;
  const Glint::Seq live = file.seq(kSlotOfKey0);
  ASSERT_EQ(file.liveKey(kSlotOfKey0), 0U);
  ASSERT_EQ(pythonRows(lookup, parent_.path())["count"], 1);
  for (const Glint::Seq left : {Glint::Seq(live.version() - 1, false, live.copy() ^ 1U),
                                live.deleted(), Glint::Seq::retiredSlot()}) {
    file.seqIs(kSlotOfKey0, left);
    EXPECT_EQ(pythonRows(lookup, parent_.path())["count"], 0) << left.word();
    EXPECT_EQ(pythonRows({"--unit", "3"}, parent_.path())["count"], 1) << left.word();
  }
  file.seqIs(kSlotOfKey0, live.deleted().deleted());
  const Outcome foreign = python(lookup, parent_.path());
  EXPECT_EQ(foreign.exitCode, 1) << "dead, reachable and no change under way";
  EXPECT_THAT(foreign.err, HasSubstr("slot 2 does not belong on its chain"));
}

TEST_F(ReadStateTest, WhileTheIndexIsBeingRebuiltLookupsScan) {
  format_test::restoreGoldenState(parent_.path());
  const ConfigFile file(parent_.path() + "/" + kGoldenConfigFile);
  file.generationIs(5);
  testing_support::wordIs(file.path(), file.headAt(7), Glint::Link::end().word());
  EXPECT_EQ(pythonRows({"--unit", "3", "--key", "7"}, parent_.path())["count"], 1);
}

TEST_F(ReadStateTest, EveryInterfaceNameIsPrintedAsFecctlPrintsIt) {
  std::vector<Wirex::IntfId> interfaces;
  std::ifstream document(std::string(FORMAT_DOCS) + "/interface-identifiers.md");
  const std::regex prefixRow(R"(^\| [0-9]+ \| `([^`]+)` \| .* \|$)");
  for (std::string line; std::getline(document, line);) {
    std::smatch match;
    if (std::regex_match(line, match, prefixRow)) {
      for (const char* rest :
           {"", "0", "77", "1/2", "1/2/3", "1/2/3:4", "1s2", "1f0np1", "9.8190"}) {
        try {
          interfaces.push_back(Wirex::IntfId::fromName(match[1].str() + rest));
        } catch (const Wirex::IntfNameError&) {
          continue;  // a combination that the prefix does not have
        }
      }
    }
  }
  EXPECT_GT(interfaces.size(), 300U);
  std::mt19937_64 random(20240611);  // NOLINT(cert-msc51-cpp): the same values in each run
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t value = random();
    interfaces.push_back(Wirex::IntfId::fromValue(value));
    interfaces.push_back(Wirex::IntfId::fromValue((value >> 2U) | std::uint64_t{1} << 62U));
  }
  {
    const FecTables tables(parent_.path(), ZevGlintType::writer);
    for (std::uint32_t i = 0; i < interfaces.size(); ++i) {
      tables.config().rowIs(
          {format_test::logEntry(i, i), {interfaces[i]}, Asic::LogVersion(i + 1), false});
    }
  }
  expectSame(pythonRows({"--unit", "3"}, parent_.path()), fecctl(parent_.path(), "3"));
}

json asJson(const LoamFec::FecDestination& destination) {
  return {destination.first, destination.second, destination.third};
}

json asJson(const format_test::LogRow& row) {
  const LoamFec::FecTableDataModelLogEntry& entry = row.logEntry();
  return {{"version", row.version().value()},
          {"operation", row.operation()},
          {"unit", row.unitId().value()},
          {"entry",
           {{"fec", entry.key.fecId()},
            {"flag_a", entry.flagA},
            {"client_destination", asJson(entry.clientDest)},
            {"opaque_a", entry.opaqueA},
            {"opaque_b", entry.opaqueB},
            {"flag_b", entry.flagB},
            {"destination", asJson(entry.resolvedDest)}}}};
}

json asJson(const Asic::TableVersion& version) {
  return {{"table", version.tableId().value()}, {"version", version.logVersion().value()}};
}

json asJson(const Asic::GroupLogRow& row) {
  json result = asJson(row.tableVersion());
  result["sequence"] = row.sequence();
  result["is_continued"] = row.isContinued();
  result["is_continuation"] = row.isContinuation();
  result["needed"] = json::array();
  for (std::uint32_t i = 0; i < row.neededCount(); ++i) {
    result["needed"].push_back(asJson(row.needed(i)));
  }
  return result;
}

json asJson(const Asic::GroupVersionRow& row) { return asJson(row.tableVersion()); }

// The rows in slot order, which in the golden state is that of their keys.
template <typename Map>
json rowsOf(const Map& map) {
  json rows = json::array();
  for (auto at = map.iterator(); at.valid(); at.advance()) {
    rows.push_back(asJson(at.row()));
  }
  return rows;
}

TEST_F(ReadStateTest, AnOperationOfSeveralGroupRowsIsReadRowByRow) {
  const std::vector<Asic::TableVersion> needed(8,
                                               {Asic::SwTableId(0x03010806), Asic::LogVersion(7)});
  const Asic::TableVersion operation(LoamFec::FecTableConstants::kTableId, Asic::LogVersion(1));
  using Asic::GroupLogRow;
  {
    const FecTables tables(parent_.path(), ZevGlintType::writer);
    tables.group().rowIs({1, operation, needed, GroupLogRow::kContinued});
    tables.group().rowIs(
        {2, operation, needed, GroupLogRow::kContinued | GroupLogRow::kContinuation});
    tables.group().rowIs({3, operation, {}, GroupLogRow::kContinuation});
    tables.group().control().scratchpadIs(3);
  }
  const FecTables tables(parent_.path(), ZevGlintType::reader);
  const json group = pythonRows({"group-log"}, parent_.path());
  EXPECT_EQ(group["count"], 3);
  EXPECT_EQ(group["rows"], rowsOf(tables.group()));
}

TEST_F(ReadStateTest, LogGroupLogAndAppliedVersionsAreAsTheLibraryReadsThem) {
  format_test::restoreGoldenState(parent_.path());
  const FecTables tables(parent_.path(), ZevGlintType::reader);
  const json log = pythonRows({"log"}, parent_.path());
  EXPECT_EQ(log["rows"], rowsOf(tables.log()));
  EXPECT_EQ(log["last_version"], tables.log().control().scratchpad());
  const json group = pythonRows({"group-log"}, parent_.path());
  EXPECT_EQ(group["rows"], rowsOf(tables.group()));
  EXPECT_EQ(group["last_sequence"], tables.group().control().scratchpad());
  const json applied = pythonRows({"applied"}, parent_.path());
  EXPECT_EQ(applied["rows"], rowsOf(tables.applied()));
  for (const json& view : {log, group, applied}) {
    EXPECT_EQ(view["count"], 3);
  }
}

// As above, where rows have gone and come: slots are not in the order of keys.
json byKey(const json& rows, const char* key) {
  std::map<std::uint64_t, json> sorted;
  for (const json& row : rows) {
    sorted.emplace(row[key].get<std::uint64_t>(), row);
  }
  json result = json::array();
  for (const auto& item : sorted) {
    result.push_back(item.second);
  }
  return result;
}

// Killed when there are rows in the log, as often as it takes.
TEST_F(ReadStateTest, TheStateOfAKilledAgentIsAsFecctlAndTheLibraryReadIt) {
  const std::string golden = std::to_string(format_test::kGoldenUnit.value());
  replay("a-before", "0," + golden);
  const FecTables tables(state_, ZevGlintType::reader);
  int lives = 0;
  for (const char* moment : {"b-four-links-down", "a-before"}) {
    SCOPED_TRACE(moment);
    std::size_t logged = 0;
    while (logged == 0 && lives < 30) {
      ++lives;
      testing_support::Program agent(replayOf(moment, "0," + golden), files_.path());
      while (agent.running() && tables.log().rowCount() == 0) {
      }
      agent.kill();
      logged = tables.log().rowCount();
      if (logged == 0) {
        replay("c-links-back", "0," + golden);  // so that there is something to do again
      }
    }
    ASSERT_GT(logged, 0U) << "no kill has left a row in the log";
    for (const std::string& unit : {std::string("0"), golden}) {
      expectSame(pythonRows({"fec", "--unit", unit}, state_), fecctl(state_, unit));
    }
    const json log = pythonRows({"log"}, state_);
    EXPECT_EQ(log["count"], logged);
    EXPECT_EQ(byKey(log["rows"], "version"), byKey(rowsOf(tables.log()), "version"));
    EXPECT_EQ(log["last_version"], tables.log().control().scratchpad());
    const json group = pythonRows({"group-log"}, state_);
    EXPECT_EQ(byKey(group["rows"], "sequence"), byKey(rowsOf(tables.group()), "sequence"));
    EXPECT_EQ(group["last_sequence"], tables.group().control().scratchpad());
    EXPECT_EQ(pythonRows({"applied"}, state_)["rows"], rowsOf(tables.applied()));
  }
}

TEST_F(ReadStateTest, AFileThatIsNotTheTableIsRefused) {
  EXPECT_EQ(python({"fec"}, state_).exitCode, 3) << "no folder";
  format_test::restoreGoldenState(parent_.path());
  const std::string file = parent_.path() + "/" + kGoldenConfigFile;
  const std::pair<std::uint64_t, const char*> places[] = {
      {0, "wrong magic"}, {8, "format version"}, {24, "header is damaged"}, {130, "damaged"}};
  for (const auto& [place, words] : places) {
    testing_support::flipBit(file, 8 * place);
    const Outcome outcome = python({"--unit", "3"}, parent_.path());
    EXPECT_EQ(outcome.exitCode, 3) << place;
    EXPECT_THAT(outcome.err, HasSubstr(words));
    testing_support::flipBit(file, 8 * place);
  }
  std::filesystem::rename(parent_.path() + "/" + format_test::kGoldenFiles[3], file);
  EXPECT_THAT(python({"--unit", "3"}, parent_.path()).err, HasSubstr("it holds rows of"));
  std::filesystem::remove(file);
  std::filesystem::create_symlink(parent_.path() + "/" + format_test::kGoldenFiles[1], file);
  EXPECT_EQ(python({"--unit", "3"}, parent_.path()).exitCode, 3) << "a symbolic link";
}

}  // namespace
