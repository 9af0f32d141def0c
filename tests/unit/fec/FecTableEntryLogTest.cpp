// SPDX-License-Identifier: Apache-2.0

// The entry log's mounts, its writes and deletions, and what it answers about what is committed.

#include <sys/mman.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "EntryLogFixture.h"
#include "fec/FecTableEntryLog.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

constexpr const char* kHandle = "FecTableEntryLog";
constexpr UnitId kNoUnit{7};  // never mounted

const Asic::TableVersion kNeededVersion(Asic::SwTableId(0x03010806), LogVersion(7));

Pell::Ptr<Asic::NeededEntry> neededEntry() {
  auto needed = Zev::makeObject<Asic::NeededEntry>();
  needed->add(kNeededVersion);
  return needed;
}

void expectRow(const std::optional<ConfigRow>& row, const LogEntry& entry, const ResourceKeys& keys,
               LogVersion version, bool isDeleted) {
  ASSERT_TRUE(row.has_value());
  EXPECT_THAT(row->logEntry(), IsEq(entry)) << valueToStrep(row->logEntry());
  EXPECT_THAT(row->rsrcKeys(), IsEq(keys));
  EXPECT_EQ(row->version(), version);
  EXPECT_EQ(row->isDeleted(), isDeleted);
}

void expectRow(const std::optional<LogRow>& row, LogVersion version, std::uint16_t operation,
               UnitId unit, const LogEntry& entry) {
  ASSERT_TRUE(row.has_value());
  EXPECT_EQ(row->version(), version);
  EXPECT_EQ(row->operation(), operation);
  EXPECT_EQ(row->unitId(), unit);
  EXPECT_THAT(row->logEntry(), IsEq(entry)) << valueToStrep(row->logEntry());
}

// ---- Mounts.

class FecTableEntryLogMounts : public EntryLogTest {};

TEST_F(FecTableEntryLogMounts, AFreshLogStartsAtVersion0AndItsFirstWriteGetsVersion1) {
  EXPECT_EQ(logRows().control().scratchpad(), 0U);
  EXPECT_EQ(log().tableVersion(), LogVersion(0));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(0));
  EXPECT_EQ(write(5), LogVersion(1));
}

TEST_F(FecTableEntryLogMounts, AfterARestartVersionsGoOnAboveEveryVersionWrittenBefore) {
  write(1);
  write(2);
  remove(1);
  restart();
  EXPECT_EQ(log().tableVersion(), LogVersion(3));
  EXPECT_EQ(log().prevTableVersion(), LogVersion(0));
  EXPECT_EQ(write(3), LogVersion(4));
  EXPECT_THAT(loggedVersions(), ElementsAre(1, 2, 3, 4));
}

TEST_F(FecTableEntryLogMounts, OnlyTheScratchpadTellsWhereVersionsGoOn) {
  write(1);
  logRows().rowIs(LogRow(LogVersion(9), 0, kUnit, logEntry(1)));
  logRows().control().scratchpadIs(0xFFFFFFFF00000001U);
  restart();
  EXPECT_EQ(log().tableVersion(), LogVersion(0xFFFFFFFF00000001U));
}

TEST_F(FecTableEntryLogMounts, ConstructionTracesItsStepsInOrder) {
  write(1);
  stop();
  TraceRecorder traces({kHandle});
  const LogProcess process(root());
  ASSERT_EQ(traces.records().size(), 3U);
  const char* const functions[] = {"handleInitialized", "mountGlintChangeLog",
                                   "mountGlintChangeLog"};
  const int levels[] = {8, 8, 2};
  const char* const messages[] = {
      "", "", " Mounted entryLog: LoamAdj.LoamAdj.FecTable.log, tableVersion: 1"};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(traces.records()[i].function, functions[i]);
    EXPECT_EQ(traces.records()[i].level, levels[i]);
    EXPECT_EQ(traces.records()[i].message, messages[i]);
    EXPECT_EQ(traces.records()[i].className, "FecTableEntryLog");
    EXPECT_EQ(traces.records()[i].file, "FecTableEntryLog");
  }
}

TEST_F(FecTableEntryLogMounts, AMountOfAUnitTracesItsNameAndThenItsPath) {
  TraceRecorder traces({kHandle});
  log().mountGlintConfig(UnitId(3));
  EXPECT_THAT(traces.textsOf("mountGlintConfig"),
              ElementsAre("", " Mounted config for unitId: 3 at LoamAdj.FecTable.unit3.config"));
  EXPECT_EQ(traces.records()[0].level, 8);
  EXPECT_EQ(traces.records()[1].level, 2);
}

TEST_F(FecTableEntryLogMounts, AMountSaysSoOnceItIsDone) {
  const TemporaryRoot fresh;
  const TraceRecorder levels({kHandle}, 1U << 2U);
  std::vector<bool> wasMounted;
  Zev::traceSinkIs([&](const Zev::TraceRecord& record) {
    wasMounted.push_back(record.message.starts_with(" Mounted entryLog")
                             ? std::ifstream(fresh.path() + "/" + kLogPath + ".table").good()
                             : log().tableConfigGlintHas(kNoUnit));
  });
  const LogProcess process(fresh.path());
  log().mountGlintConfig(kNoUnit);
  EXPECT_EQ(wasMounted, (std::vector<bool>{true, true}));
}

TEST_F(FecTableEntryLogMounts, TheLogIsACollectionOf100000RowsNamedEntryLogConfig) {
  EXPECT_STREQ(LogEntity::kTypeName, "LoamFec::FecTableDataModelEntryLogGlint");
  EXPECT_EQ(log().tableEntryLog()->name(), kLogPath);
  EXPECT_EQ(logRows().capacity(), 100000U);
  EXPECT_TRUE(logRows().isWriter());
  EXPECT_EQ(ZevGlint::ZevGlintType{0}, ZevGlint::ZevGlintType::writer);
  const auto header = testing_support::wordAt<Glint::FixedHeader>(logRows().filePath(), 0);
  EXPECT_STREQ(header.collectionName.data(), "entryLogConfig");
  EXPECT_EQ(header.rowBytes, 56U);
}

TEST_F(FecTableEntryLogMounts, AConfigurationTableIsACollectionOf65536RowsNamedSwTableEntries) {
  EXPECT_STREQ(ConfigEntity::kTypeName, "LoamFec::FecTableDataModelConfigGlint");
  EXPECT_EQ(log().tableConfigGlint(kUnit)->name(), FecTableConstants::configGlintPath(kUnit));
  EXPECT_EQ(configRows().capacity(), 65536U);
  EXPECT_TRUE(configRows().isWriter());
  const auto header = testing_support::wordAt<Glint::FixedHeader>(configRows().filePath(), 0);
  EXPECT_STREQ(header.collectionName.data(), "swTableEntries");
  EXPECT_EQ(header.rowBytes, 64U);
}

TEST_F(FecTableEntryLogMounts, EveryUnitHasATableOfItsOwn) {
  write(1, 10, kUnit);
  write(1, 20, kOtherUnit);
  EXPECT_NE(configRows(kUnit).filePath(), configRows(kOtherUnit).filePath());
  EXPECT_EQ(log().entry(Key(1), kUnit).opaqueA, 10U);
  EXPECT_EQ(log().entry(Key(1), kOtherUnit).opaqueA, 20U);
}

TEST_F(FecTableEntryLogMounts, MountingAUnitAgainReplacesItsEntryAndKeepsItsRows) {
  write(1, 10);
  const auto before = log().tableConfigGlint(kUnit);
  log().mountGlintConfig(kUnit);
  EXPECT_NE(log().tableConfigGlint(kUnit), before);
  EXPECT_EQ(log().entry(Key(1), kUnit).opaqueA, 10U);
  write(2);
  EXPECT_TRUE(before->swTableEntries().has(Key(2)));  // the same table behind both
}

TEST_F(FecTableEntryLogMounts, AUnitThatIsNotMountedHasNoTable) {
  EXPECT_FALSE(log().tableConfigGlintHas(kNoUnit));
  EXPECT_FALSE(log().tableConfigGlint(kNoUnit));
  EXPECT_TRUE(log().tableConfigGlintHas(kUnit));
}

TEST_F(FecTableEntryLogMounts, ATableIsInsertedReplacedAndRemovedByItsUnit) {
  const auto table = log().tableConfigGlint(kUnit);
  const auto other = log().tableConfigGlint(kOtherUnit);
  log().tableConfigGlintIs(kNoUnit, table);
  EXPECT_EQ(log().tableConfigGlint(kNoUnit), table);
  log().tableConfigGlintIs(kNoUnit, other);
  EXPECT_EQ(log().tableConfigGlint(kNoUnit), other);
  EXPECT_EQ(log().tableConfigGlintDel(kNoUnit), other);
  EXPECT_FALSE(log().tableConfigGlintHas(kNoUnit));
  EXPECT_FALSE(log().tableConfigGlintDel(kNoUnit));
  log().tableConfigGlintDelAll();
  EXPECT_FALSE(log().tableConfigGlintHas(kUnit));
  EXPECT_FALSE(log().tableConfigGlintHas(kOtherUnit));
}

TEST_F(FecTableEntryLogMounts, VersionsAreRaisedToWhatWasAnnouncedAndNeverFall) {
  const auto scratchpad = [this] {
    return log().tableEntryLog()->entryLogConfig().control().scratchpad();
  };
  log().versionsGoOnAbove(LogVersion(7));
  EXPECT_EQ(log().tableVersion(), LogVersion(7));
  EXPECT_EQ(scratchpad(), 7U);
  log().versionsGoOnAbove(LogVersion(6));
  log().versionsGoOnAbove(LogVersion(7));
  EXPECT_EQ(log().tableVersion(), LogVersion(7));
  EXPECT_EQ(scratchpad(), 7U);
  log().versionsGoOnAbove(LogVersion(8));
  EXPECT_EQ(log().tableVersion(), LogVersion(8));
  EXPECT_EQ(scratchpad(), 8U);
}

// Has mounts of a type's name give an entity of another type, as long as it lives.
template <typename Entity>
class Impostor {
 public:
  Impostor() {
    ZevSharedMem::entityTypeIs(Entity::kTypeName, [](const ZevGlint::MountSite& site) {
      return Pell::Ptr<Zev::Entity>(Zev::makeObject<Stranger>(site.path()));
    });
  }
  ~Impostor() {
    ZevSharedMem::entityTypeIs(Entity::kTypeName, [](const ZevGlint::MountSite& site) {
      return Pell::Ptr<Zev::Entity>(Zev::makeObject<Entity>(site));
    });
  }
  Impostor(const Impostor&) = delete;
  Impostor& operator=(const Impostor&) = delete;

 private:
  struct Stranger : Zev::Typed<Stranger, Zev::Entity> {
    static constexpr const char* kTypeName = "Stranger";
    explicit Stranger(const Pell::String& name) : Stranger::Typed(name) {}
  };
};

TEST_F(FecTableEntryLogMounts, AnEntityOfAnotherTypeAtTheLogsPathLeavesANullLog) {
  stop();
  const Impostor<LogEntity> impostor;
  LogProcess process(root());
  EXPECT_FALSE(process.log().tableEntryLog());
  process.log().versionsGoOnAbove(LogVersion(3));
  EXPECT_EQ(process.log().tableVersion(), LogVersion(0));
  EXPECT_DEATH(process.log().entryLogConfigRows(), "tableEntryLog");
}

TEST_F(FecTableEntryLogMounts, AnEntityOfAnotherTypeAtAUnitsPathLeavesANullTable) {
  const Impostor<ConfigEntity> impostor;
  log().mountGlintConfig(kUnit);
  EXPECT_TRUE(log().tableConfigGlintHas(kUnit));
  EXPECT_FALSE(log().tableConfigGlint(kUnit));
  EXPECT_DEATH(write(5), "tableConfigGlint\\( unitId \\)");
}

TEST_F(FecTableEntryLogMounts, ItsEndReleasesEveryMountAndLeavesTheRows) {
  write(1);
  const auto logEntity = log().tableEntryLog();
  const auto unit = log().tableConfigGlint(kUnit);
  const auto otherUnit = log().tableConfigGlint(kOtherUnit);
  const auto held = [&] {
    return std::vector{logEntity->references(), unit->references(), otherUnit->references()};
  };
  const auto before = held();
  auto& logs = Zev::trackerOf<FecTableEntryLog>();
  ASSERT_EQ(logs.live(), 1);
  stop();
  EXPECT_EQ(logs.live(), 0);
  // The log's and the entity manager's reference.
  EXPECT_THAT(held(), ElementsAre(before[0] - 2, before[1] - 2, before[2] - 2));
  EXPECT_TRUE(unit->swTableEntries().has(Key(1)));
}

// A unit's table that says when it goes.
class LeavingConfig : public ConfigEntity {
 public:
  static constexpr const char* kTypeName = "LeavingConfig";
  explicit LeavingConfig(const ZevGlint::MountSite& site) : ConfigEntity(site) {}
  ~LeavingConfig() override { onEnd(); }

  std::function<void()> onEnd;
};

TEST_F(FecTableEntryLogMounts, ItsEndReleasesTheUnitsBeforeTheLog) {
  ZevSharedMem::entityTypeIs(LeavingConfig::kTypeName, [](const ZevGlint::MountSite& site) {
    return Pell::Ptr<Zev::Entity>(Zev::makeObject<LeavingConfig>(site));
  });
  const Pell::String path = FecTableConstants::configGlintPath(kUnit);
  auto leaving = ZevSharedMem::mountForWriting<LeavingConfig>(log().entityManager(), path);
  // The entity manager lets go of it.
  ZevSharedMem::mountForWriting<ConfigEntity>(log().entityManager(), path);
  const auto logEntity = log().tableEntryLog();
  const std::uint32_t before = logEntity->references();
  std::uint32_t heldAtItsEnd = 0;
  leaving->onEnd = [&] { heldAtItsEnd = logEntity->references(); };
  log().tableConfigGlintIs(kUnit, leaving);
  leaving = nullptr;
  ASSERT_EQ(heldAtItsEnd, 0U);
  stop();
  EXPECT_EQ(heldAtItsEnd, before);
  EXPECT_LT(logEntity->references(), before);
}

TEST_F(FecTableEntryLogMounts, TheObjectKeepsWhatItWasMadeWith) {
  EXPECT_EQ(log().tableId(), Asic::SwTableId(0x03010805));
  EXPECT_EQ(log().entityManager(), process().entityManager());
  EXPECT_EQ(log().groupLogInterface(), process().groupLogPtr());
  EXPECT_TRUE(log().hasNotificationActive());
}

TEST_F(FecTableEntryLogMounts, TheFactoryUnderTheRuntimesNameMakesTheSame) {
  write(1);
  stop();
  const auto entityManager = Zev::makeObject<Vanta::EntityManager>(root());
  const auto groupLog = Zev::makeObject<RecordingGroupLog>();
  const auto made =
      FecTableEntryLog::FecTableEntryLogIs(FecTableConstants::kTableId, entityManager, groupLog);
  EXPECT_EQ(made->tableVersion(), LogVersion(1));
  EXPECT_TRUE(made->hasNotificationActive());
}

TEST_F(FecTableEntryLogMounts, ItsTypeRecordNamesItsAttributesInOrder) {
  const Zev::TypeRecord& record = log().fwkType();
  EXPECT_EQ(record.name, "LoamFec::FecTableEntryLog");
  ASSERT_EQ(record.attributes.size(), 3U);
  EXPECT_EQ(record.attribute("tableEntryLog")->id, 1);
  EXPECT_EQ(record.attribute("tableConfigGlint")->id, 2);
  EXPECT_EQ(record.attribute("prevTableVersion")->id, 3);
  ASSERT_NE(record.operation("FecTableEntryLogIs"), nullptr);
  EXPECT_THAT(record.operation("FecTableEntryLogIs")->parameters,
              ElementsAre("tableId", "entityManager", "groupLogInterface"));
}

TEST_F(FecTableEntryLogMounts, TheTypeHookIsItsThirdVirtualOperation) {
  EXPECT_EQ(virtualSlot(&FecTableEntryLog::fwkType), 2U);
}

// ---- Writes and deletions.

class FecTableEntryLogWrites : public EntryLogTest {};

TEST_F(FecTableEntryLogWrites, TwoWritesOfAKeyGetConsecutiveVersionsAndTheRowHoldsTheSecond) {
  EXPECT_EQ(write(5, 50), LogVersion(1));
  EXPECT_EQ(write(5, 51), LogVersion(2));
  expectRow(configRows().row(Key(5)), logEntry(5, 51), resourceKeys("eth1"), LogVersion(2), false);
  EXPECT_EQ(configRows().rowCount(), 1U);
  expectRow(logRows().row(LogVersion(1)), LogVersion(1), 0, kUnit, logEntry(5, 50));
  expectRow(logRows().row(LogVersion(2)), LogVersion(2), 0, kUnit, logEntry(5, 51));
}

TEST_F(FecTableEntryLogWrites, EveryFieldOfAWriteReachesBothRows) {
  LogEntry entry = logEntry(0xFFFFFFFF, 1);
  entry.flagA = 2;
  entry.clientDest = {3, 4, 0, 5};
  entry.opaqueB = 6;
  entry.flagB = 7;
  entry.resolvedDest = {8, 9, 0, 10};
  const LogVersion version = log().entryIs(entry, resourceKeys("eth3"), nullptr, kOtherUnit);
  expectRow(configRows(kOtherUnit).row(entry.key), entry, resourceKeys("eth3"), version, false);
  expectRow(logRows().row(version), version, 0, kOtherUnit, entry);
  EXPECT_EQ(configRows(kUnit).rowCount(), 0U);
}

TEST_F(FecTableEntryLogWrites, AWriteOfADeletedKeyMakesItsRowLiveAgain) {
  write(5, 50);
  remove(5);
  const LogVersion version = write(5, 51);
  expectRow(configRows().row(Key(5)), logEntry(5, 51), resourceKeys("eth1"), version, false);
}

TEST_F(FecTableEntryLogWrites, VersionsAreConsecutiveAcrossUnitsAndOperations) {
  EXPECT_EQ(write(1, 0, kUnit), LogVersion(1));
  EXPECT_EQ(write(1, 0, kOtherUnit), LogVersion(2));
  EXPECT_EQ(remove(1, kUnit), LogVersion(3));
  EXPECT_EQ(removeAll(kOtherUnit), LogVersion(4));
  EXPECT_EQ(write(1, 0, kUnit), LogVersion(5));
}

TEST_F(FecTableEntryLogWrites, EachChangeLeavesItsVersionInTableVersionAndScratchpad) {
  for (const auto& change :
       {std::function([&] { return write(1); }), std::function([&] { return remove(1); }),
        std::function([&] { return removeAll(); })}) {
    const LogVersion version = change();
    EXPECT_EQ(log().tableVersion(), version);
    EXPECT_EQ(logRows().control().scratchpad(), version.value());
  }
}

TEST_F(FecTableEntryLogWrites, ADeletionMarksTheRowAndLogsItsEntry) {
  write(5, 50);
  EXPECT_EQ(remove(5), LogVersion(2));
  expectRow(configRows().row(Key(5)), logEntry(5, 50), resourceKeys("eth1"), LogVersion(2), true);
  expectRow(logRows().row(LogVersion(2)), LogVersion(2), 1, kUnit, logEntry(5, 50));
}

TEST_F(FecTableEntryLogWrites, ADeletionOfAKeyThatWasNeverWrittenGetsVersion0AndChangesNothing) {
  write(1);
  groupLog().announced.clear();
  TraceRecorder traces({kHandle});
  EXPECT_EQ(remove(5), LogVersion(0));
  EXPECT_THAT(traces.textsOf("entryDel"),
              ElementsAre(" key:5 neededEntry: null unitId: 0",
                          " key: 5 entry does not exist. So ignoring delete"));
  EXPECT_THAT(traces, HasTrace(3, " key: 5 entry does not exist. So ignoring delete"));
  EXPECT_EQ(log().tableVersion(), LogVersion(1));
  EXPECT_EQ(logRows().control().scratchpad(), 1U);
  EXPECT_THAT(loggedVersions(), ElementsAre(1));
  EXPECT_FALSE(configRows().has(Key(5)));
  EXPECT_THAT(groupLog().announced, IsEmpty());
}

TEST_F(FecTableEntryLogWrites, ADeletionThatIsLoggedIsNotSaidToBeIgnored) {
  write(5);
  TraceRecorder traces({kHandle});
  EXPECT_EQ(remove(5), LogVersion(2));
  EXPECT_THAT(traces.texts(), ElementsAre(" key:5 neededEntry: null unitId: 0"));
}

TEST_F(FecTableEntryLogWrites, ADeletionOfAKeyOfAnotherUnitIsIgnored) {
  write(5, 0, kOtherUnit);
  EXPECT_EQ(remove(5, kUnit), LogVersion(0));
  EXPECT_TRUE(log().entryHas(Key(5), kOtherUnit));
}

TEST_F(FecTableEntryLogWrites, ADeletionOfAKeyAlreadyMarkedDeletedIsLoggedAgain) {
  write(5, 50);
  remove(5);
  EXPECT_EQ(remove(5), LogVersion(3));
  expectRow(configRows().row(Key(5)), logEntry(5, 50), resourceKeys("eth1"), LogVersion(3), true);
  expectRow(logRows().row(LogVersion(3)), LogVersion(3), 1, kUnit, logEntry(5, 50));
}

TEST_F(FecTableEntryLogWrites, ATableDeletionOfAnEmptyUnitIsOneLogRowWithTheDefaultEntry) {
  EXPECT_EQ(removeAll(), LogVersion(1));
  expectRow(logRows().row(LogVersion(1)), LogVersion(1), 2, kUnit, LogEntry());
  EXPECT_EQ(logRows().rowCount(), 1U);
  EXPECT_EQ(configRows().rowCount(), 0U);
  EXPECT_EQ(groupLog().announced.size(), 1U);
}

TEST_F(FecTableEntryLogWrites, ATableDeletionMarksEveryRowOfItsUnitOnceUnderOneVersion) {
  // More rows than are reserved at a time, one of them deleted before.
  constexpr std::uint32_t kRows = 2500;
  for (std::uint32_t fecId = 0; fecId < kRows; ++fecId) {
    write(fecId, fecId);
  }
  write(1, 1, kOtherUnit);
  remove(7);
  const LogVersion version = removeAll();
  EXPECT_EQ(version, LogVersion(kRows + 3));
  EXPECT_EQ(configRows().rowCount(), kRows);
  for (std::uint32_t fecId = 0; fecId < kRows; ++fecId) {
    expectRow(configRows().row(Key(fecId)), logEntry(fecId, fecId), resourceKeys("eth1"), version,
              true);
  }
  EXPECT_EQ(logRows().rowCount(), kRows + 3);
  EXPECT_TRUE(log().entryHas(Key(1), kOtherUnit));
}

TEST_F(FecTableEntryLogWrites, AWriteForAUnitThatIsNotMountedStopsTheProcess) {
  EXPECT_DEATH(write(5, 0, kNoUnit),
               "assertion failed: tableConfigGlintHas\\( unitId \\): Config glint for unitId:7 is "
               "not created yet!");
}

TEST_F(FecTableEntryLogWrites, DeletionsForAUnitThatIsNotMountedStopTheProcess) {
  EXPECT_DEATH(remove(5, kNoUnit), "tableConfigGlint\\( unitId \\)");
  EXPECT_DEATH(removeAll(kNoUnit), "tableConfigGlint\\( unitId \\)");
}

TEST_F(FecTableEntryLogWrites, EachChangeIsAnnouncedOnceWithItsNeededVersions) {
  const auto needed = neededEntry();
  log().entryIs(logEntry(5), {}, needed, kUnit);
  log().entryDel(Key(5), needed, kUnit);
  log().tableDel(nullptr, kUnit);
  const auto& announced = groupLog().announced;
  ASSERT_EQ(announced.size(), 3U);
  for (std::size_t i = 0; i < announced.size(); ++i) {
    EXPECT_EQ(announced[i].tableId, FecTableConstants::kTableId);
    EXPECT_EQ(announced[i].version, LogVersion(i + 1));
  }
  EXPECT_EQ(announced[0].needed, needed);
  EXPECT_EQ(announced[1].needed, needed);
  EXPECT_FALSE(announced[2].needed);
}

TEST_F(FecTableEntryLogWrites, EachOperationTracesItsArgumentsAtLevel8) {
  TraceRecorder traces({kHandle});
  log().entryIs(logEntry(5), {}, neededEntry(), kOtherUnit);
  log().entryDel(Key(5), neededEntry(), kOtherUnit);
  log().tableDel(nullptr, kOtherUnit);
  EXPECT_THAT(
      traces.texts(8),
      ElementsAre(fmt::format(" logEntry: {} neededEntry: {{03:01:0806@7}} version: 1 "
                              "unitId: 1",
                              logEntry(5)),
                  " key:5 neededEntry: {03:01:0806@7} unitId: 1", " neededEntry:null, unitId: 1"));
  EXPECT_EQ(traces.textsOf("entryIs").size(), 1U);
  EXPECT_EQ(traces.textsOf("entryDel").size(), 1U);
  EXPECT_EQ(traces.textsOf("tableDel").size(), 1U);
  for (const TraceRecorder::Record& record : traces.records()) {
    EXPECT_EQ(record.className, "FecTableEntryLog");
    EXPECT_EQ(record.file, "FecTableEntryLog");
  }
}

TEST_F(FecTableEntryLogWrites, WhenAChangeIsAnnouncedEveryProcessSeesItsRowsAndItsVersion) {
  const Reader reader(root());
  const auto readLog = reader.log();
  const auto readConfig = reader.config(kUnit);
  std::size_t looks = 0;
  groupLog().onAnnounce = [&](LogVersion version) {
    ++looks;
    EXPECT_EQ(log().tableVersion(), version);
    for (LogEntity* seen : {log().tableEntryLog().get(), readLog.get()}) {
      EXPECT_EQ(seen->entryLogConfig().control().scratchpad(), version.value());
      EXPECT_TRUE(seen->entryLogConfig().has(version));
    }
    for (ConfigEntity* seen : {log().tableConfigGlint(kUnit).get(), readConfig.get()}) {
      EXPECT_EQ(seen->swTableEntries().row(Key(5))->version(), version);
      EXPECT_EQ(seen->swTableEntries().row(Key(5))->isDeleted(), version != LogVersion(1));
    }
  };
  write(5);
  remove(5);
  removeAll();
  EXPECT_EQ(looks, 3U);
}

// ---- The order of the stores: a process that dies within a change leaves a prefix of them.

// Has the next store into that part of the file, wherever this process maps it for writing, end
// the process.
void writeProtect(const Pell::String& path, std::uint64_t from, std::uint64_t bytes) {
  // At once: the thread sanitizer's handler waits for a lock that its release store holds.
  std::signal(SIGSEGV, SIG_DFL);
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(path) != std::string::npos && line.find(" rw-s ") != std::string::npos) {
      void* base = nullptr;
      ASSERT_EQ(std::sscanf(line.c_str(), "%p", &base), 1);
      ASSERT_EQ(::mprotect(static_cast<std::byte*>(base) + from, bytes, PROT_READ), 0);
    }
  }
}

struct Change {
  const char* name;
  std::function<LogVersion(LogProcess&)> make;  // the second change of key 5
  std::uint16_t operation;
};

class FecTableEntryLogStoreOrder : public EntryLogTest,
                                   public ::testing::WithParamInterface<Change> {
 protected:
  FecTableEntryLogStoreOrder() { write(5, 50); }

  // The change dies at its first store into that part of the log; then nobody writes.
  void dieAtLogStore(std::uint64_t from, std::uint64_t bytes) {
    const Pell::String path = logRows().filePath();
    groupLog().onAnnounce = [](LogVersion) { std::fputs("announced", stderr); };
    EXPECT_DEATH(
        {
          writeProtect(path, from, bytes);
          GetParam().make(process());
        },
        ::testing::Not(HasSubstr("announced")));
    stop();
  }
};

TEST_P(FecTableEntryLogStoreOrder, TheConfigurationRowIsWrittenBeforeTheLogRow) {
  const RowFile<LogRow> file(logRows());
  dieAtLogStore(0, file.offsets().geometry.fileBytes);
  const Reader reader(root());
  EXPECT_EQ(reader.config(kUnit)->swTableEntries().row(Key(5))->version(), LogVersion(2));
  EXPECT_FALSE(reader.log()->entryLogConfig().has(LogVersion(2)));
  EXPECT_EQ(reader.log()->entryLogConfig().control().scratchpad(), 1U);
}

TEST_P(FecTableEntryLogStoreOrder, TheLogRowIsWrittenBeforeTheScratchpad) {
  dieAtLogStore(0, Glint::kPageBytes);
  const Reader reader(root());
  EXPECT_EQ(reader.log()->entryLogConfig().row(LogVersion(2))->operation(), GetParam().operation);
  EXPECT_EQ(reader.log()->entryLogConfig().control().scratchpad(), 1U);
}

TEST_P(FecTableEntryLogStoreOrder, AVersionThatMissedTheScratchpadIsGivenAgainAndReplacesItsRow) {
  dieAtLogStore(0, Glint::kPageBytes);
  start();
  EXPECT_EQ(log().tableVersion(), LogVersion(1));
  EXPECT_EQ(write(6, 60), LogVersion(2));
  expectRow(logRows().row(LogVersion(2)), LogVersion(2), 0, kUnit, logEntry(6, 60));
  EXPECT_THAT(loggedVersions(), ElementsAre(1, 2));
}

INSTANTIATE_TEST_SUITE_P(
    Of, FecTableEntryLogStoreOrder,
    ::testing::Values(Change{"Write", [](LogProcess& process) { return process.write(5, 51); }, 0},
                      Change{"Deletion", [](LogProcess& process) { return process.remove(5); }, 1},
                      Change{"TableDeletion",
                             [](LogProcess& process) { return process.removeAll(); }, 2}),
    [](const auto& tested) { return tested.param.name; });

class FecTableEntryLogCleanupOrder : public EntryLogTest {};

TEST_F(FecTableEntryLogCleanupOrder, TheLogRowOfADeletionGoesBeforeTheRowsThatItMarked) {
  const Pell::String path = configRows().filePath();
  const std::uint64_t bytes = RowFile<ConfigRow>(configRows()).offsets().geometry.fileBytes;
  for (const auto& deletion :
       {std::function([&] { return remove(5); }), std::function([&] { return removeAll(); })}) {
    write(5);
    const LogVersion version = deletion();
    EXPECT_DEATH(
        {
          writeProtect(path, 0, bytes);
          log().cleanupEntryLog(version);
        },
        "");
    stop();
    const Reader reader(root());
    EXPECT_EQ(reader.log()->entryLogConfig().rowCount(), 0U);
    EXPECT_TRUE(reader.config(kUnit)->swTableEntries().row(Key(5))->isDeleted());
    start();
  }
}

// ---- Capacity.

class FecTableEntryLogCapacity : public EntryLogTest {};

TEST_F(FecTableEntryLogCapacity, TheLogTakesWritesBelowAtAndBeyondItsNominalCapacity) {
  for (std::uint64_t version = 1; version < 99999; ++version) {
    logRows().rowIs(LogRow(LogVersion(version), 0, kUnit, logEntry(1)));
  }
  logRows().control().scratchpadIs(99998);
  restart();
  for (const std::uint32_t rows : {99999U, 100000U, 100001U}) {
    EXPECT_EQ(write(1), LogVersion(rows));
    EXPECT_EQ(log().entryLogConfigRows(), rows);
  }
}

TEST_F(FecTableEntryLogCapacity, AUnitTakesNewKeysBelowAtAndBeyondItsNominalCapacity) {
  for (std::uint32_t fecId = 1; fecId < 65535; ++fecId) {
    configRows().rowIs(ConfigRow(logEntry(fecId), {}, LogVersion(1), false));
  }
  for (const std::uint32_t rows : {65535U, 65536U, 65537U}) {
    write(rows);
    EXPECT_EQ(log().entrys(kUnit), rows);
  }
}

// ---- Queries.

class FecTableEntryLogQueries : public EntryLogTest {};

TEST_F(FecTableEntryLogQueries, ACommittedEntryIsAnsweredWithItsContentsAndResourceKeys) {
  write(5, 50);
  EXPECT_TRUE(log().entryHas(Key(5), kUnit));
  EXPECT_THAT(log().entry(Key(5), kUnit), IsEq(logEntry(5, 50)));
  EXPECT_THAT(log().entryRsrcKeys(Key(5), kUnit), IsEq(resourceKeys("eth1")));
  EXPECT_EQ(log().entrys(kUnit), 1U);
  EXPECT_EQ(log().entrysInDeletion(kUnit), 0U);
}

TEST_F(FecTableEntryLogQueries, AnAbsentKeyIsAnsweredWithDefaults) {
  write(5, 50, kOtherUnit);
  EXPECT_FALSE(log().entryHas(Key(5), kUnit));
  EXPECT_THAT(log().entry(Key(5), kUnit), IsEq(LogEntry()));
  EXPECT_THAT(log().entryRsrcKeys(Key(5), kUnit), IsEq(ResourceKeys()));
  EXPECT_EQ(log().entrys(kUnit), 0U);
}

TEST_F(FecTableEntryLogQueries, ADeletedEntryThatIsNotCleanedUpStillTellsItsResourceKeys) {
  write(5, 50);
  write(6, 60);
  remove(5);
  EXPECT_FALSE(log().entryHas(Key(5), kUnit));
  EXPECT_THAT(log().entry(Key(5), kUnit), IsEq(LogEntry()));
  EXPECT_THAT(log().entryRsrcKeys(Key(5), kUnit), IsEq(resourceKeys("eth1")));
  EXPECT_EQ(log().entrysInDeletion(kUnit), 1U);
  EXPECT_EQ(log().entrys(kUnit), 1U);
}

TEST_F(FecTableEntryLogQueries, ALookAnswersAsTheQueriesByKeyDoAndIsTracedLikeThem) {
  write(5, 50);
  write(6, 60);
  remove(6);
  for (const std::uint32_t fecId : {5U, 6U, 7U}) {
    TraceRecorder byKey({kHandle});
    const bool has = log().entryHas(Key(fecId), kUnit);
    const LogEntry entry = log().entry(Key(fecId), kUnit);
    const ResourceKeys keys = log().entryRsrcKeys(Key(fecId), kUnit);
    TraceRecorder byLook({kHandle});
    const auto look = log().look(Key(fecId), kUnit);
    EXPECT_THAT(byLook.records(), IsEmpty());
    EXPECT_EQ(look.entryHas(), has);
    EXPECT_THAT(look.entry(), IsEq(entry));
    EXPECT_THAT(look.entryRsrcKeys(), IsEq(keys));
    ASSERT_EQ(byLook.records().size(), 3U);
    for (std::size_t at = 0; at < 3; ++at) {
      EXPECT_EQ(byLook.records()[at].function, byKey.records()[at].function);
      EXPECT_EQ(byLook.records()[at].message, byKey.records()[at].message);
    }
  }
}

TEST_F(FecTableEntryLogQueries, WithoutRoomInTheGroupLogThereIsNoneInTheLog) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  EXPECT_NO_THROW(log().throwWithoutRoom(needed, kUnit));
  groupLog().hasRoom = false;
  EXPECT_THROW(log().throwWithoutRoom(needed, kUnit), LoamFec::FecTableLogRoomException);
  ASSERT_EQ(groupLog().askedRoomFor.size(), 2U);
  EXPECT_EQ(groupLog().askedRoomFor[1], needed);
}

TEST_F(FecTableEntryLogQueries, ALookStaysAsItWas) {
  write(5, 50);
  const auto look = log().look(Key(5), kUnit);
  remove(5);
  EXPECT_TRUE(look.entryHas());
}

TEST_F(FecTableEntryLogQueries, TheHintThatAKeyIsNeededSoonIsSilentWhateverTheUnit) {
  write(5, 50);
  TraceRecorder traces({kHandle});
  for (const UnitId unit : {kUnit, kNoUnit}) {
    log().fetchAhead(Key(5), unit);
    log().fetchAhead(Key(6), unit);
  }
  EXPECT_THAT(traces.records(), IsEmpty());
  EXPECT_EQ(log().entrys(kUnit), 1U);
}

TEST_F(FecTableEntryLogQueries, AfterCleanupADeletedKeyHasNoRow) {
  write(5, 50);
  log().cleanupEntryLog(remove(5));
  EXPECT_FALSE(configRows().has(Key(5)));
  EXPECT_THAT(log().entryRsrcKeys(Key(5), kUnit), IsEq(ResourceKeys()));
  EXPECT_EQ(log().entrysInDeletion(kUnit), 0U);
}

TEST_F(FecTableEntryLogQueries, AUnitWhoseEveryRowIsMarkedDeletedHas0Entries) {
  write(1);
  write(2);
  removeAll();
  EXPECT_EQ(configRows().rowCount(), 2U);
  EXPECT_EQ(log().entrysInDeletion(kUnit), 2U);
  EXPECT_EQ(log().entrys(kUnit), 0U);
}

TEST_F(FecTableEntryLogQueries, EachQueryTracesItsArgumentsAtLevel8) {
  TraceRecorder traces({kHandle});
  log().entry(Key(5), kOtherUnit);
  log().entryHas(Key(5), kOtherUnit);
  log().entryRsrcKeys(Key(5), kOtherUnit);
  for (const char* function : {"entry", "entryHas", "entryRsrcKeys"}) {
    EXPECT_THAT(traces.textsOf(function), ElementsAre(" key: 5 unitId:1")) << function;
  }
  log().entrysInDeletion(kOtherUnit);
  EXPECT_THAT(traces.textsOf("entrysInDeletion"), ElementsAre(" unitId:1"));
  log().entrys(kOtherUnit);
  EXPECT_THAT(traces.textsOf("entrys"), ElementsAre(" unitId:1"));
  EXPECT_EQ(traces.texts(8), traces.texts());
}

TEST_F(FecTableEntryLogQueries, AQueryOfAUnitThatIsNotMountedStopsTheProcess) {
  constexpr const char* kText = "assertion failed: tableConfigGlint\\( unitId \\)";
  EXPECT_DEATH(log().entry(Key(5), kNoUnit), kText);
  EXPECT_DEATH(log().entryHas(Key(5), kNoUnit), kText);
  EXPECT_DEATH(log().entryRsrcKeys(Key(5), kNoUnit), kText);
  EXPECT_DEATH(log().entrysInDeletion(kNoUnit), kText);
  EXPECT_DEATH(log().entrys(kNoUnit), kText);
}

// ---- Damaged rows.

class FecTableEntryLogDamage : public EntryLogTest {
 protected:
  FecTableEntryLogDamage() {
    for (const std::uint32_t fecId : {1U, 2U, 3U}) {
      write(fecId, 10 * fecId);
    }
  }
  void damage(std::uint32_t fecId) { RowFile(configRows()).damageRow(Key(fecId)); }
  // The map has been told of that many, each with its text.
  void expectTold(const TraceRecorder& traces, std::size_t times) {
    EXPECT_EQ(configRows().corruptionCount(), times);
    EXPECT_EQ(traces.textsOf("doCorruptionDetected").size(), times);
    for (const std::string& text : traces.texts(1)) {
      EXPECT_THAT(text, HasSubstr(configRows().filePath()));
    }
  }
};

TEST_F(FecTableEntryLogDamage, ADamagedRowReadsAsTheDefaultEntryAndTheMapIsTold) {
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  EXPECT_THAT(log().entry(Key(2), kUnit), IsEq(LogEntry()));
  expectTold(traces, 1);
  EXPECT_THAT(traces.texts(1), ElementsAre(HasSubstr("the row of key 2")));
  EXPECT_THAT(log().entry(Key(1), kUnit), IsEq(logEntry(1, 10)));
}

TEST_F(FecTableEntryLogDamage, ADamagedRowIsNotThere) {
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  EXPECT_FALSE(log().entryHas(Key(2), kUnit));
  EXPECT_FALSE(log().entryHas(Key(2), kUnit));
  expectTold(traces, 1);
}

TEST_F(FecTableEntryLogDamage, ADamagedRowHasTheDefaultResourceKeys) {
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  EXPECT_THAT(log().entryRsrcKeys(Key(2), kUnit), IsEq(ResourceKeys()));
  expectTold(traces, 1);
}

TEST_F(FecTableEntryLogDamage, DamageEndsTheCountOfDeletedRows) {
  removeAll();
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  EXPECT_EQ(log().entrysInDeletion(kUnit), 1U);  // the row before the damaged one
  expectTold(traces, 1);
  EXPECT_EQ(log().entrysInDeletion(kUnit), 2U);
}

TEST_F(FecTableEntryLogDamage, TheCountOfEntriesTakesTheRowsBeforeItLooksAtThem) {
  remove(1);
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  EXPECT_EQ(log().entrys(kUnit), 2U);
  expectTold(traces, 1);
  EXPECT_EQ(log().entrys(kUnit), 1U);
}

TEST_F(FecTableEntryLogDamage, ADeletionOfADamagedRowIsIgnored) {
  damage(2);
  TraceRecorder traces({"GlintMapBase", kHandle});
  groupLog().announced.clear();
  EXPECT_EQ(remove(2), LogVersion(0));
  expectTold(traces, 1);
  EXPECT_THAT(traces, HasTrace(3, " key: 2 entry does not exist. So ignoring delete"));
  EXPECT_EQ(log().tableVersion(), LogVersion(3));
  EXPECT_THAT(loggedVersions(), ElementsAre(1, 2, 3));
  EXPECT_THAT(groupLog().announced, IsEmpty());
}

TEST_F(FecTableEntryLogDamage, AWriteOverADamagedRowMakesItGood) {
  damage(2);
  EXPECT_EQ(write(2, 21), LogVersion(4));
  expectRow(configRows().row(Key(2)), logEntry(2, 21), resourceKeys("eth1"), LogVersion(4), false);
  EXPECT_EQ(configuredKeys(), (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST_F(FecTableEntryLogDamage, ATableDeletionMarksTheRowsOnBothSidesOfADamagedOne) {
  damage(2);
  TraceRecorder traces({"GlintMapBase"});
  groupLog().announced.clear();
  EXPECT_EQ(removeAll(), LogVersion(4));
  expectTold(traces, 1);
  for (const std::uint32_t fecId : {1U, 3U}) {
    expectRow(configRows().row(Key(fecId)), logEntry(fecId, 10 * fecId), resourceKeys("eth1"),
              LogVersion(4), true);
  }
  EXPECT_FALSE(configRows().has(Key(2)));
  expectRow(logRows().row(LogVersion(4)), LogVersion(4), 2, kUnit, LogEntry());
  EXPECT_EQ(logRows().control().scratchpad(), 4U);
  EXPECT_EQ(groupLog().announced.size(), 1U);
}

TEST_F(FecTableEntryLogDamage, ATableDeletionOverADamagedRowLeavesNoLiveRowToTheNextStart) {
  for (std::uint32_t fecId = 4; fecId <= 100; ++fecId) {
    write(fecId);
  }
  damage(2);
  removeAll();
  EXPECT_EQ(log().entrysInDeletion(kUnit), 99U);
  restart();
  EXPECT_EQ(log().entrys(kUnit), 0U);
  EXPECT_EQ(configRows().rowCount(), 99U);
}

TEST_F(FecTableEntryLogDamage, ARowThatATableDeletionCannotFindAgainIsMarkedAsTheDefaultRow) {
  // The way to the row of `hidden` leads past a damaged slot. Key 0 is a live entry.
  constexpr std::uint32_t kHidden = 100;
  const auto bucketOf = [](std::uint32_t fecId) {
    return Glint::bucketOf(fecId, Glint::KeyHash::mixing, 65536);
  };
  std::uint32_t neighbour = kHidden + 1;
  while (bucketOf(neighbour) != bucketOf(kHidden)) {
    ++neighbour;
  }
  write(0, 7);
  write(kHidden, 8);
  write(neighbour, 9);
  const RowFile file(configRows());
  file.damageSlot(file.slotOf(Key(neighbour)));
  TraceRecorder traces({"GlintMapBase"});

  const LogVersion version = removeAll();

  expectTold(traces, 1);
  expectRow(configRows().row(Key(0)), LogEntry(), ResourceKeys(), version, true);
  EXPECT_EQ(log().entry(Key(kHidden), kUnit).opaqueA, 8U);
  expectRow(logRows().row(version), version, 2, kUnit, LogEntry());
}

}  // namespace
