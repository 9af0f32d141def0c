// SPDX-License-Identifier: Apache-2.0

// Cleanup of the entry log: which rows go, what the cursor does, and that its ways of finding the
// rows leave the same behind.

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Asic/GroupLog.h"
#include "EntryLogFixture.h"
#include "Zev/WorkMeter.h"

namespace {

using namespace fec_test;

constexpr const char* kHandle = "FecTableEntryLog";
constexpr UnitId kNoUnit{7};  // never mounted
constexpr std::uint64_t kMaxVersion = ~std::uint64_t{0};

class FecTableLogCleanup : public EntryLogTest {
 protected:
  void cleanup(std::uint64_t version) { log().cleanupEntryLog(LogVersion(version)); }
  // Log rows of that version alone, as gaps and strange histories leave them.
  void logRowIs(std::uint64_t version, std::uint16_t operation = 0, UnitId unit = kUnit,
                std::uint32_t fecId = 0) {
    logRows().rowIs(LogRow(LogVersion(version), operation, unit, logEntry(fecId)));
  }
};

// ---- The first cleanup of a process.

TEST_F(FecTableLogCleanup, TheFirstCleanupRemovesEveryRowUpToItsVersionWhateverGapsLieBetween) {
  for (const std::uint64_t version : {1ULL, 3ULL, 1000ULL, 1001ULL, 1ULL << 40, (1ULL << 40) + 1}) {
    logRowIs(version);
  }
  restart();
  cleanup(1ULL << 40);
  EXPECT_THAT(loggedVersions(), ElementsAre((1ULL << 40) + 1));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(1ULL << 40));
}

TEST_F(FecTableLogCleanup, TheFirstCleanupStopsAtItsVersionAndNotOneBesideIt) {
  for (std::uint64_t version = 4; version <= 6; ++version) {
    logRowIs(version);
  }
  cleanup(5);
  EXPECT_THAT(loggedVersions(), ElementsAre(6));
}

TEST_F(FecTableLogCleanup, TheFirstCleanupRemovesEachRowThoughItRemovesWhileItWalks) {
  constexpr std::uint32_t kKeys = 1100;  // more rows than are reserved at a time
  for (std::uint32_t fecId = 0; fecId < kKeys; ++fecId) {
    write(fecId);
    remove(fecId);
  }
  cleanup(2 * kKeys - 1);
  EXPECT_THAT(loggedVersions(), ElementsAre(2 * kKeys));
  EXPECT_THAT(configuredKeys(), ElementsAre(kKeys - 1));
  cleanup(2 * kKeys);
  EXPECT_EQ(configRows().rowCount(), 0U);
}

TEST_F(FecTableLogCleanup, ACleanupOfAnEmptyLogOnlySetsTheCursor) {
  cleanup(9);
  EXPECT_EQ(log().prevTableVersion(), LogVersion(9));
  EXPECT_EQ(log().tableVersion(), LogVersion(0));
}

TEST_F(FecTableLogCleanup, ACleanupUpToVersion0RemovesNothingAndStaysTheFirst) {
  write(1);
  cleanup(0);
  EXPECT_THAT(loggedVersions(), ElementsAre(1));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(0));
}

// ---- Deletions that no log row speaks for.

class FecTableSweep : public FecTableLogCleanup {
 protected:
  // The key's row is marked deleted under the version of its write, which no log row has any more.
  void orphan(std::uint32_t fecId, UnitId unit = kUnit) {
    const auto row = configRows(unit).row(Key(fecId)).value();
    configRows(unit).rowIs({row.logEntry(), row.rsrcKeys(), row.version(), true});
    logRows().rowDel(row.version());
  }
};

TEST_F(FecTableSweep, OrphansAreSweptUpToTheAppliedVersionAndNotOneBesideIt) {
  for (std::uint32_t fecId = 1; fecId <= 3; ++fecId) {
    write(fecId);
    orphan(fecId);
  }
  log().sweepOrphans(kUnit, LogVersion(2));
  EXPECT_THAT(configuredKeys(), ElementsAre(3));
}

TEST_F(FecTableSweep, OnlyDeletionsOfTheUnitThatNoLogRowSpeaksForAreSwept) {
  write(1);
  orphan(1);
  write(2);
  logRows().rowDel(LogVersion(2));  // an entry
  write(3);
  remove(3);  // its log row, of version 4, is there
  write(4, 0, kOtherUnit);
  orphan(4, kOtherUnit);
  log().sweepOrphans(kUnit, LogVersion(5));
  EXPECT_THAT(configuredKeys(), ElementsAre(2, 3));
  EXPECT_THAT(configuredKeys(kOtherUnit), ElementsAre(4));
}

TEST_F(FecTableSweep, OrphansBehindADamagedRowAreSwept) {
  for (std::uint32_t fecId = 1; fecId <= 3; ++fecId) {
    write(fecId);
    orphan(fecId);
  }
  RowFile(configRows()).damageRow(Key(2));
  log().sweepOrphans(kUnit, LogVersion(3));
  EXPECT_EQ(configRows().corruptionCount(), 1U);
  EXPECT_THAT(configuredKeys(), IsEmpty());
}

// ---- Later cleanups.

// Hardware that has applied nothing yet says so in each of its reports.
TEST_F(FecTableLogCleanup, ACleanupUpToVersion0LooksAtNoRow) {
  for (std::uint32_t fecId = 0; fecId < 100; ++fecId) {
    write(fecId);
  }
  const Zev::WorkBudget work(UINT64_MAX);
  cleanup(0);
  EXPECT_EQ(work.used(), 0U);
  EXPECT_EQ(loggedVersions().size(), 100U);
}

TEST_F(FecTableLogCleanup, ALaterCleanupWithTheSameVersionRemovesNothingNew) {
  write(1);
  write(2);
  cleanup(1);
  cleanup(1);
  EXPECT_THAT(loggedVersions(), ElementsAre(2));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(1));
}

TEST_F(FecTableLogCleanup, ALaterCleanupLooksItsCursorUpAgain) {
  write(1);
  cleanup(1);
  logRowIs(1);  // come back
  write(1);
  cleanup(2);
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

TEST_F(FecTableLogCleanup, ALaterCleanupSkipsVersionsWithoutARow) {
  for (int i = 0; i < 6; ++i) {
    write(1);
  }
  cleanup(1);
  logRows().rowDel(LogVersion(3));
  cleanup(5);
  EXPECT_THAT(loggedVersions(), ElementsAre(6));
}

TEST_F(FecTableLogCleanup, ALaterCleanupRemovesNoRowBelowItsCursor) {
  for (const std::uint64_t version : {2ULL, 4ULL, 5ULL, 6ULL}) {
    logRowIs(version);
  }
  cleanup(3);  // the first one: 2 goes
  logRowIs(2);
  cleanup(5);  // as many rows as versions: each version is looked up
  EXPECT_THAT(loggedVersions(), ElementsAre(2, 6));
  cleanup(1000);  // the rows are taken in order
  EXPECT_THAT(loggedVersions(), ElementsAre(2));
}

TEST_F(FecTableLogCleanup, ACleanupBelowTheLastOneRemovesNothingAndTheNextWalksFromThere) {
  for (int i = 0; i < 5; ++i) {
    write(1);
  }
  cleanup(4);
  logRowIs(2);
  logRowIs(3);
  cleanup(3);
  EXPECT_EQ(log().prevTableVersion(), LogVersion(3));
  EXPECT_THAT(loggedVersions(), ElementsAre(2, 3, 5));
  cleanup(5);
  EXPECT_THAT(loggedVersions(), ElementsAre(2));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(5));
}

TEST_F(FecTableLogCleanup, ACursorMovedBackTo0MakesTheNextCleanupAFirstOne) {
  for (const std::uint64_t version : {5ULL, 6ULL}) {
    logRowIs(version);
  }
  cleanup(6);
  logRowIs(1);
  cleanup(0);
  EXPECT_THAT(loggedVersions(), ElementsAre(1));
  cleanup(2);
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

// ---- What goes from the configuration table.

TEST_F(FecTableLogCleanup, TheLogRowOfAWriteGoesAndItsEntryStays) {
  write(5, 50);
  cleanup(1);
  EXPECT_THAT(loggedVersions(), IsEmpty());
  EXPECT_EQ(log().entry(Key(5), kUnit).opaqueA, 50U);
}

TEST_F(FecTableLogCleanup, ADeletedEntryGoesWithTheLogRowOfItsDeletionAndNotBefore) {
  write(5);
  remove(5);
  cleanup(1);
  EXPECT_TRUE(configRows().has(Key(5)));
  cleanup(2);
  EXPECT_FALSE(configRows().has(Key(5)));
}

TEST_F(FecTableLogCleanup, AKeyDeletedAndWrittenAgainKeepsItsRow) {
  write(5, 50);
  const LogVersion deletion = remove(5);
  write(5, 51);
  log().cleanupEntryLog(deletion);
  EXPECT_FALSE(logRows().has(deletion));
  EXPECT_EQ(log().entry(Key(5), kUnit).opaqueA, 51U);
}

TEST_F(FecTableLogCleanup, AKeyDeletedTwiceKeepsItsRowUntilTheSecondDeletionIsCleanedUp) {
  write(5);
  const LogVersion first = remove(5);
  const LogVersion second = remove(5);
  log().cleanupEntryLog(first);
  EXPECT_TRUE(configRows().has(Key(5)));
  log().cleanupEntryLog(second);
  EXPECT_FALSE(configRows().has(Key(5)));
}

TEST_F(FecTableLogCleanup, ATableDeletionTakesItsRowsAndLeavesTheOneWrittenAfterIt) {
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    write(fecId);
    write(fecId, 0, kOtherUnit);
  }
  const LogVersion deletion = removeAll();
  write(2, 20);
  TraceRecorder traces({kHandle});
  log().cleanupEntryLog(deletion);
  EXPECT_EQ(traces.count(3, " deleteing all entries for unitId: 0"), 1U);
  EXPECT_EQ(traces.records().back().function, "cleanupEntryLog");
  EXPECT_THAT(configuredKeys(), ElementsAre(2));
  EXPECT_THAT(configuredKeys(kOtherUnit), ElementsAre(1, 2, 3));
}

TEST_F(FecTableLogCleanup, ATableDeletionTakesTheRowsOfItsVersionAndNotOneBesideIt) {
  for (const std::uint32_t version : {4U, 5U, 6U}) {
    configRows().rowIs(ConfigRow(logEntry(version), {}, LogVersion(version), true));
  }
  logRowIs(5, LogRow::kTableDeleted);
  cleanup(9);
  EXPECT_THAT(configuredKeys(), ElementsAre(4, 6));
}

TEST_F(FecTableLogCleanup, DeletionsTellRowsWhoseVersionsDifferInTheHighHalfAlone) {
  constexpr std::uint64_t kHigh = 1ULL << 32;
  for (const std::uint16_t operation : {LogRow::kEntryDeleted, LogRow::kTableDeleted}) {
    configRows().rowIs(ConfigRow(logEntry(7), resourceKeys("eth1"), LogVersion(kHigh + 5), true));
    logRowIs(5, operation, kUnit, 7);
    cleanup(5);
    EXPECT_THAT(configuredKeys(), ElementsAre(7)) << "operation " << operation;
    cleanup(0);
  }
}

TEST_F(FecTableLogCleanup, ATableDeletionOfManyRowsTakesEachOfThem) {
  constexpr std::uint32_t kRows = 2500;
  for (std::uint32_t fecId = 0; fecId < kRows; ++fecId) {
    write(fecId);
  }
  log().cleanupEntryLog(removeAll());
  EXPECT_EQ(configRows().rowCount(), 0U);
  EXPECT_EQ(logRows().rowCount(), 0U);
}

TEST_F(FecTableLogCleanup, EachDeletionBitIsTestedByItself) {
  constexpr std::uint16_t kUnknown = 4;  // what it would be is not known
  for (const auto& [fecId, version] : {std::pair(5U, 1U), std::pair(6U, 1U), std::pair(7U, 2U),
                                       std::pair(8U, 3U), std::pair(9U, 3U), std::pair(10U, 4U)}) {
    configRows().rowIs(ConfigRow(logEntry(fecId), {}, LogVersion(version), true));
  }
  logRowIs(1, kUnknown | LogRow::kEntryDeleted, kUnit, 5);
  logRowIs(2, kUnknown, kUnit, 7);
  logRowIs(3, LogRow::kEntryDeleted | LogRow::kTableDeleted, kUnit, 8);
  logRowIs(4, kUnknown | LogRow::kTableDeleted);
  cleanup(4);
  EXPECT_THAT(configuredKeys(), ElementsAre(6, 7));
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

TEST_F(FecTableLogCleanup, ALogRowOfAUnitThatIsNotMountedGoesAndIsTraced) {
  logRowIs(1, 1, kNoUnit, 5);
  log().tableConfigGlintIs(UnitId(8), nullptr);  // mounted as something else
  logRowIs(2, 2, UnitId(8));
  TraceRecorder traces({kHandle});
  cleanup(2);
  EXPECT_EQ(traces.count(3, " configGlint not found for unitId: 7"), 1U);
  EXPECT_EQ(traces.count(3, " configGlint not found for unitId: 8"), 1U);
  EXPECT_EQ(traces.textsOf("cleanupEntryLog"), traces.texts());
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

TEST_F(FecTableLogCleanup, EachCleanupTracesItsVersionAtLevel8) {
  TraceRecorder traces({kHandle});
  cleanup(5);
  cleanup(3);
  cleanup(9);
  EXPECT_THAT(traces.texts(8), ElementsAre(" version 5", " version 3", " version 9"));
  EXPECT_THAT(traces.textsOf("cleanupEntryLog"), traces.texts(8));
  EXPECT_EQ(traces.records().front().className, "FecTableEntryLog");
  EXPECT_EQ(traces.records().front().file, "FecTableEntryLog");
}

TEST(FecTableLogCleanupAtStart, AStartCleansUpBeforeAnyUnitIsMountedAndLeavesItsMarkedRows) {
  const LeakCheck leaks;
  FecHarness agent;
  agent.table().entryWrite(FecHarness::key(5), FecHarness::entry(""), nullptr);
  agent.table().entryRemove(FecHarness::key(5), nullptr);
  agent.run();
  // The hardware's answer reaches the group log, and the agent dies before it looks at it.
  agent.group()->groupLog()->tableVersionIs({LoamFec::FecTableConstants::kTableId, LogVersion(2)});
  TraceRecorder traces({kHandle, "FecTableInterface"});
  agent.restart();
  EXPECT_EQ(traces.count(3, " configGlint not found for unitId: 0"), 2U);
  EXPECT_EQ(traces.count(3, " Cleaned entry log until table version: 2"), 1U);
  EXPECT_EQ(agent.log().entryLogConfigRows(), 0U);
  agent.table();
  EXPECT_EQ(agent.log().entrysInDeletion(kUnit), 1U);
  EXPECT_EQ(agent.log().entrys(kUnit), 0U);
}

// ---- The order of the stores.

class FecTableLogCleanupOrder : public FecTableLogCleanup {
 protected:
  // What a cleanup stores, in order.
  std::vector<std::string> storesOfCleanup(std::uint64_t version) {
    const TraceRecorder traces({"GlintMap"});
    cleanup(version);
    return traces.texts(9);
  }
  static std::string logRow(std::uint64_t version) {
    return fmt::format("LoamAdj.LoamAdj.FecTable.log.table: row {} removed", version);
  }
  static std::string configRow(std::uint32_t fecId) {
    return fmt::format("LoamAdj.FecTable.unit0.config.table: row {} removed", fecId);
  }
};

TEST_F(FecTableLogCleanupOrder, RowsGoInTheOrderOfTheirVersionsWhenEachVersionIsLookedUp) {
  cleanup(1);
  for (const std::uint64_t version : {5ULL, 3ULL, 4ULL, 2ULL}) {
    logRowIs(version);
  }
  EXPECT_THAT(storesOfCleanup(5), ElementsAre(logRow(2), logRow(3), logRow(4), logRow(5)));
}

TEST_F(FecTableLogCleanupOrder, RowsGoInTheOrderOfTheirVersionsWhenTheyAreFewerThanVersions) {
  cleanup(1);
  for (const std::uint64_t version : {5ULL, 3ULL, 4ULL, 1ULL}) {  // 1: the cursor's own
    logRowIs(version);
  }
  EXPECT_THAT(storesOfCleanup(1000), ElementsAre(logRow(1), logRow(3), logRow(4), logRow(5)));
}

// However the rows are found, a log row goes before the configuration rows that it had marked.
TEST_F(FecTableLogCleanupOrder, ALogRowGoesBeforeTheRowsThatItMarkedInAFirstCleanup) {
  write(5);
  write(6);
  remove(5);    // 3
  removeAll();  // 4, of 5 again and 6
  EXPECT_THAT(storesOfCleanup(4),
              ElementsAre(logRow(1), logRow(2), logRow(3), logRow(4), configRow(5), configRow(6)));
}

TEST_F(FecTableLogCleanupOrder, ALogRowGoesBeforeTheRowThatItMarkedWhenEachVersionIsLookedUp) {
  write(5);
  cleanup(1);
  remove(5);
  write(6);
  removeAll();
  EXPECT_THAT(storesOfCleanup(4),
              ElementsAre(logRow(2), logRow(3), logRow(4), configRow(5), configRow(6)));
  write(5);
  remove(5);
  EXPECT_THAT(storesOfCleanup(6), ElementsAre(logRow(5), logRow(6), configRow(5)));
}

TEST_F(FecTableLogCleanupOrder, ALogRowGoesBeforeTheRowThatItMarkedWhenRowsAreFewerThanVersions) {
  write(5);
  cleanup(1);
  remove(5);
  EXPECT_THAT(storesOfCleanup(1000), ElementsAre(logRow(2), configRow(5)));
}

// ---- Huge gaps.

TEST_F(FecTableLogCleanup, ACleanupWithTheHighestVersionEndsAtOnceWithTheSameResult) {
  write(5);
  remove(5);
  cleanup(1);
  for (const std::uint64_t version :
       {std::uint64_t{1} << 32, std::uint64_t{1} << 63, kMaxVersion}) {
    cleanup(version);
    EXPECT_EQ(log().prevTableVersion(), LogVersion(version));
    EXPECT_THAT(loggedVersions(), IsEmpty());
    EXPECT_THAT(configuredKeys(), IsEmpty());
  }
}

TEST_F(FecTableLogCleanup, ARowOfTheHighestVersionIsCleanedUpToo) {
  logRowIs(kMaxVersion - 1);
  cleanup(kMaxVersion - 1);
  logRowIs(kMaxVersion - 1);
  logRowIs(kMaxVersion);
  cleanup(kMaxVersion);  // two versions, two rows: each is looked up
  EXPECT_THAT(loggedVersions(), IsEmpty());
  logRowIs(kMaxVersion);
  cleanup(kMaxVersion);
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

TEST_F(FecTableLogCleanup, TheFirstCleanupMayHaveTheHighestVersion) {
  logRowIs(1);
  logRowIs(kMaxVersion);
  cleanup(kMaxVersion);
  EXPECT_THAT(loggedVersions(), IsEmpty());
  cleanup(7);  // moves back
  EXPECT_EQ(log().prevTableVersion(), LogVersion(7));
}

// ---- Damaged rows.

class FecTableLogCleanupDamage : public FecTableLogCleanup {
 protected:
  // Deletions of the keys 1 to 8 at the versions 9 to 16.
  FecTableLogCleanupDamage() {
    for (std::uint32_t fecId = 1; fecId <= 8; ++fecId) {
      write(fecId);
    }
    for (std::uint32_t fecId = 1; fecId <= 8; ++fecId) {
      remove(fecId);
    }
  }
  void damageLogRow(std::uint64_t version) { RowFile(logRows()).damageRow(LogVersion(version)); }
  void damageConfigRow(std::uint32_t fecId) { RowFile(configRows()).damageRow(Key(fecId)); }
};

TEST_F(FecTableLogCleanupDamage, TheFirstCleanupGoesOnOverADamagedRow) {
  damageLogRow(11);
  TraceRecorder traces({"GlintMapBase"});
  cleanup(16);
  EXPECT_EQ(logRows().corruptionCount(), 1U);
  EXPECT_THAT(traces.texts(1), ElementsAre(HasSubstr("the row of key 11")));
  EXPECT_THAT(loggedVersions(), IsEmpty());
  EXPECT_THAT(configuredKeys(), ElementsAre(3));  // its deletion is not known any more
  EXPECT_EQ(log().prevTableVersion(), LogVersion(16));
}

TEST_F(FecTableLogCleanup, TheFirstCleanupOfAFullLogGoesOnOverADamagedFirstRow) {
  constexpr std::uint64_t kFull = 100000;
  for (std::uint64_t version = 1; version <= kFull; ++version) {
    logRowIs(version);
  }
  RowFile(logRows()).damageRow(LogVersion(1));
  cleanup(kFull);
  EXPECT_EQ(logRows().corruptionCount(), 1U);
  EXPECT_EQ(logRows().rowCount(), 0U);
}

TEST_F(FecTableLogCleanupDamage, ADamagedRowCountsAsAbsentWhenEachVersionIsLookedUp) {
  cleanup(8);
  damageLogRow(11);
  damageLogRow(13);
  TraceRecorder traces({"GlintMapBase"});
  cleanup(16);  // 8 versions on, 8 rows
  EXPECT_EQ(logRows().corruptionCount(), 2U);
  EXPECT_THAT(traces.texts(1),
              ElementsAre(HasSubstr("the row of key 11"), HasSubstr("the row of key 13")));
  EXPECT_THAT(loggedVersions(), IsEmpty());
  EXPECT_THAT(configuredKeys(), ElementsAre(3, 5));  // their deletions are not known any more
}

TEST_F(FecTableLogCleanupDamage, ADamagedRowCountsAsAbsentWhenTheRowsAreTakenInOrder) {
  cleanup(8);
  damageLogRow(11);
  damageLogRow(13);
  TraceRecorder traces({"GlintMapBase"});
  cleanup(17);  // 9 versions on, 8 rows
  EXPECT_EQ(logRows().corruptionCount(), 2U);
  EXPECT_EQ(traces.texts(1).size(), 2U);
  EXPECT_THAT(loggedVersions(), IsEmpty());
  EXPECT_THAT(configuredKeys(), ElementsAre(3, 5));
}

TEST_F(FecTableLogCleanupDamage, ADamagedConfigurationRowIsNotRemovedByItsDeletion) {
  damageConfigRow(4);
  TraceRecorder traces({"GlintMapBase"});
  cleanup(16);
  EXPECT_EQ(configRows().corruptionCount(), 1U);
  EXPECT_THAT(traces.texts(1), ElementsAre(HasSubstr("the row of key 4")));
  EXPECT_THAT(configuredKeys(), IsEmpty());  // the map has put the damaged one out of use
  EXPECT_THAT(loggedVersions(), IsEmpty());
}

TEST_F(FecTableLogCleanupDamage, ATableDeletionTakesItsRowsOnBothSidesOfADamagedOne) {
  removeAll();
  cleanup(16);  // the deletions before it, whose rows it has marked again
  damageConfigRow(4);
  TraceRecorder traces({"GlintMapBase"});
  cleanup(17);
  EXPECT_EQ(configRows().corruptionCount(), 1U);
  EXPECT_THAT(traces.texts(1), ElementsAre(HasSubstr("the row of key 4")));
  EXPECT_THAT(configuredKeys(), IsEmpty());
  EXPECT_THAT(loggedVersions(), IsEmpty());
  EXPECT_EQ(log().prevTableVersion(), LogVersion(17));
}

// ---- The ways of finding the rows, against each other and against a plain model.

constexpr UnitId kUnits[] = {kUnit, kOtherUnit};

// Everything that is in the log and in the units, as text.
using Contents = std::vector<std::string>;

std::string textOf(const LogRow& row) {
  return fmt::format("log {}: {} {} {}", row.version(), row.operation(), row.unitId(),
                     row.logEntry().key);
}
std::string textOf(UnitId unit, const ConfigRow& row) {
  return fmt::format("unit {}: {} {} {}", unit, row.key(), row.version(), row.isDeleted());
}

// What a cleanup must do, written down as plainly as can be.
class Model {
 public:
  LogVersion add(std::uint16_t operation, UnitId unit, std::uint32_t fecId) {
    const bool wholeTable = operation == LogRow::kTableDeleted;
    if (operation == LogRow::kEntryDeleted && !config_[unit].contains(fecId)) {
      return {};
    }
    const LogVersion version(++tableVersion_);
    log_[tableVersion_] = LogRow(version, operation, unit, logEntry(wholeTable ? 0 : fecId));
    if (!wholeTable) {
      config_[unit][fecId] = ConfigRow(logEntry(fecId), {}, version, operation != 0);
    } else {
      for (auto& [key, row] : config_[unit]) {
        row = ConfigRow(logEntry(key), {}, version, true);
      }
    }
    return version;
  }
  void logRowDel(std::uint64_t version) { log_.erase(version); }

  void cleanup(std::uint64_t version) {
    if (prev_ == 0 || version >= prev_) {
      const auto end = log_.upper_bound(version);
      for (auto at = log_.lower_bound(prev_); at != end; at = log_.erase(at)) {
        applyRemoval(at->second);
      }
    }
    prev_ = version;
  }

  std::uint64_t tableVersion() const { return tableVersion_; }
  std::uint64_t prev() const { return prev_; }
  std::size_t logRows() const { return log_.size(); }
  Contents contents() const {
    Contents contents;
    for (const auto& [version, row] : log_) {
      contents.push_back(textOf(row));
    }
    for (const auto& [unit, rows] : config_) {
      for (const auto& [key, row] : rows) {
        contents.push_back(textOf(unit, row));
      }
    }
    std::sort(contents.begin(), contents.end());
    return contents;
  }

 private:
  void applyRemoval(const LogRow& logRow) {
    const bool wholeTable = logRow.operation() == LogRow::kTableDeleted;
    std::erase_if(config_[logRow.unitId()], [&](const auto& element) {
      return logRow.operation() != LogRow::kEntryWritten &&
             (wholeTable || element.first == logRow.logEntry().key.fecId()) &&
             element.second.version() == logRow.version();
    });
  }

  std::uint64_t tableVersion_ = 0;
  std::uint64_t prev_ = 0;
  std::map<std::uint64_t, LogRow> log_;
  std::map<UnitId, std::map<std::uint32_t, ConfigRow>> config_;
};

// A real log that does what the model does. Rows far above every version keep its log longer than
// any gap, if it is padded, so that its later cleanups look up each version.
class ComparedLog {
 public:
  static constexpr std::uint64_t kPadding = 1000;

  explicit ComparedLog(bool padded) : process_(root_.path()), padded_(padded) {
    for (const UnitId unit : kUnits) {
      process_.log().mountGlintConfig(unit);
    }
    for (std::uint64_t i = 0; padded && i < kPadding; ++i) {
      process_.logRows().rowIs(LogRow(LogVersion(kFirstPadding + i), 0, kNoUnit, {}));
    }
  }

  LogVersion add(std::uint16_t operation, UnitId unit, std::uint32_t fecId) {
    switch (operation) {
      case LogRow::kEntryWritten:
        return process_.log().entryIs(logEntry(fecId), {}, nullptr, unit);
      case LogRow::kEntryDeleted:
        return process_.remove(fecId, unit);
      default:
        return process_.removeAll(unit);
    }
  }
  void logRowDel(std::uint64_t version) { process_.logRows().rowDel(LogVersion(version)); }
  void cleanup(std::uint64_t version) { process_.log().cleanupEntryLog(LogVersion(version)); }

  std::uint64_t rowCount() { return process_.logRows().rowCount(); }
  Contents contents() {
    Contents contents;
    for (auto at = process_.logRows().iterator(); at.valid(); at.advance()) {
      if (at.row().version().value() < kFirstPadding) {
        contents.push_back(textOf(at.row()));
      }
    }
    for (const UnitId unit : kUnits) {
      for (auto at = process_.configRows(unit).iterator(); at.valid(); at.advance()) {
        contents.push_back(textOf(unit, at.row()));
      }
    }
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(process_.logRows().rowCount() >= kPadding, padded_);
    return contents;
  }

 private:
  static constexpr std::uint64_t kFirstPadding = 1ULL << 40;

  TemporaryRoot root_;
  LogProcess process_;
  bool padded_;
};

class FecTableLogCleanupComparison : public ::testing::TestWithParam<std::uint32_t> {
 protected:
  FecTableLogCleanupComparison() { RecordProperty("seed", std::to_string(GetParam())); }

  std::uint32_t upTo(std::uint64_t last) {
    return static_cast<std::uint32_t>(random_() % (last + 1));
  }
  void changeSomething() {
    const std::uint32_t kind = upTo(19);
    const UnitId unit = kUnits[upTo(1)];
    const std::uint32_t fecId = upTo(9);
    if (kind == 0 && model_.tableVersion() > 0) {
      const std::uint64_t version = 1 + upTo(model_.tableVersion() - 1);
      model_.logRowDel(version);
      rowsInOrder_.logRowDel(version);
      eachVersion_.logRowDel(version);
      return;
    }
    const auto operation =
        static_cast<std::uint16_t>(kind == 1 ? 2 : (kind < 9 ? LogRow::kEntryDeleted : 0));
    const LogVersion version = model_.add(operation, unit, fecId);
    ASSERT_EQ(rowsInOrder_.add(operation, unit, fecId), version);
    ASSERT_EQ(eachVersion_.add(operation, unit, fecId), version);
  }
  void cleanupTo(std::uint64_t version) {
    if (model_.prev() != 0 && version >= model_.prev()) {
      const std::uint64_t gap = version - model_.prev();
      ASSERT_LE(gap, eachVersion_.rowCount());
      tookRowsInOrder_ += gap > rowsInOrder_.rowCount() ? 1 : 0;
    }
    model_.cleanup(version);
    rowsInOrder_.cleanup(version);
    eachVersion_.cleanup(version);
    ASSERT_EQ(rowsInOrder_.contents(), model_.contents());
    ASSERT_EQ(eachVersion_.contents(), model_.contents());
  }

  LeakCheck leaks_;
  std::mt19937 random_{GetParam()};
  Model model_;
  ComparedLog rowsInOrder_{false};
  ComparedLog eachVersion_{true};
  int tookRowsInOrder_ = 0;
};

TEST_P(FecTableLogCleanupComparison, EveryWayOfFindingTheRowsLeavesTheSame) {
  SCOPED_TRACE(fmt::format("seed {}", GetParam()));
  for (int round = 0; round < 12; ++round) {
    for (int change = 0; change < 40; ++change) {
      changeSomething();
    }
    const std::uint64_t newest = model_.tableVersion();
    cleanupTo(upTo(newest));
    cleanupTo(upTo(model_.prev()));  // moves the cursor back
    cleanupTo(newest - upTo(newest / 4));
  }
  cleanupTo(model_.tableVersion() + 100);
  EXPECT_EQ(model_.logRows(), 0U);
  EXPECT_GT(tookRowsInOrder_, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeded, FecTableLogCleanupComparison, ::testing::Range(1U, 9U));

}  // namespace
