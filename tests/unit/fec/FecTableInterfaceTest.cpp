// SPDX-License-Identifier: Apache-2.0

// The way into the FEC table: registration and start-up with what the last process left behind, and
// the making of each unit's table. Canonical names too.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Asic/CanonicalTableName.h"
#include "Asic/Constants.h"
#include "Asic/SwTableInterfacesSingleton.h"
#include "FecTestNames.h"
#include "Glint/MountInfo.h"
#include "Pell/Exceptions.h"
#include "testing/StateFiles.h"
#include "testing/TableFile.h"

namespace {

using namespace fec_test;
using namespace LoamFec;
using Asic::SwTableInterfacesSingleton;
using testing_support::ManualEventLoop;

constexpr const char* kName = "LoamFec::FecTableInterface";
constexpr const char* kGroup = "LoamAdj.LoamAdj";
constexpr const char* kResourceTable = "ResourceTable.IntfIdToDestIdResourceTable.LoamAdj";
constexpr Asic::SwTableId kTableId{0x03010805};

// An agent whose interface a test makes itself, when everything before it is as the test wants.
class FecTableInterfaceTest : public testing_support::LeakCheckedTest {
 protected:
  FecTableInterfaceTest() { begin(); }
  ~FecTableInterfaceTest() override { end(); }

  void begin() {
    tables_ = Zev::makeObject<Asic::OrderedTableInterface>(
        loop_, Zev::makeObject<Vanta::EntityManager>(root_.path()));
    tables_->makeGroupIntf("LoamAdj", "LoamAdj", 0x0301);
    tables_->resourceTableIs(
        kResourceTable,
        Zev::makeObject<ResourceTable>(loop_, group()->groupResolver(), group()->groupLog()));
  }
  // As a process's end, except that counted references end.
  void end() {
    if (const auto held = tables_ ? group() : nullptr) {
      held->groupResolver()->resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
    }
    Zev::Entity::singletonDelAll();
    tables_ = nullptr;
  }
  void restart() {
    end();
    begin();
  }

  Pell::Ptr<Asic::GroupInterface> group() const { return tables_->groupIntf(kGroup); }
  Pell::Ptr<FecTableInterface> getIntf() const { return FecTableInterface::getIntf(tables_); }

  // Leaves a log behind that holds that many versions, of which the hardware applied some.
  void leaveBehind(std::uint32_t versions, std::optional<std::uint64_t> applied) {
    const auto fec = getIntf();
    const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
    for (std::uint32_t key = 1; key <= versions; ++key) {
      table->entryWrite(FecHarness::key(key), FecHarness::entry(""), nullptr);
    }
    loop_.runUntilIdle();
    ASSERT_EQ(fec->entryLog()->tableVersion(), LogVersion(versions));
    if (applied) {
      // The agent dies before its tables hear of it.
      group()->groupLog()->tableVersionIs({kTableId, LogVersion(*applied)});
    }
  }

  std::string fileAt(const Pell::String& glintPath) const {
    return root_.path() + "/" + glintPath + ".table";
  }

  testing_support::TemporaryRoot root_;
  ManualEventLoop loop_;
  Pell::Ptr<Asic::OrderedTableInterface> tables_;
};

using FecTableInterfaceDeathTest = FecTableInterfaceTest;

// Names and attributes.

TEST_F(FecTableInterfaceTest, CarriesItsThreeNames) {
  const auto fec = getIntf();
  EXPECT_EQ(fec->tableName(), "FecTable");
  EXPECT_EQ(fec->groupName(), "LoamAdj");
  EXPECT_EQ(fec->agentName(), "LoamAdj");
  EXPECT_EQ(fec->orderedTableIntf(), tables_);
  EXPECT_TRUE(fec->hasNotificationActive());
}

TEST_F(FecTableInterfaceTest, ItsAttributesAreNumberedInTheirOrder) {
  const Zev::TypeRecord& type = getIntf()->fwkType();
  EXPECT_EQ(type.name, kName);
  std::vector<std::pair<std::string, short>> attributes;
  for (const auto& attribute : type.attributes) {
    attributes.emplace_back(attribute.name, attribute.id);
  }
  using Attribute = std::pair<std::string, short>;
  EXPECT_THAT(attributes, ElementsAre(Attribute("tableName", 1), Attribute("groupName", 2),
                                      Attribute("agentName", 3), Attribute("entryLog", 4),
                                      Attribute("swTableStatus", 5), Attribute("swTable", 6)));
}

// getIntf.

TEST_F(FecTableInterfaceTest, TwoCallsOfGetIntfReturnOneInterfaceAndTheSecondCreatesNothing) {
  const auto first = getIntf();
  TraceRecorder traces({"FecTableInterface", "FecTableEntryLog"});
  const auto objects = Zev::AllocationTracker::liveOfAllTypes();
  EXPECT_EQ(getIntf(), first);
  EXPECT_EQ(FecTableInterface::getIntf(nullptr), first);
  EXPECT_EQ(Zev::AllocationTracker::liveOfAllTypes(), objects);
  EXPECT_THAT(traces.records(), IsEmpty());
}

TEST_F(FecTableInterfaceTest, TheRegistryIsMadeOnTheFirstCallAndHoldsTheInterface) {
  EXPECT_EQ(SwTableInterfacesSingleton::instance(), nullptr);
  Pell::Ptr<FecTableInterface> fec = getIntf();
  const auto registry = SwTableInterfacesSingleton::instance();
  ASSERT_TRUE(registry);
  EXPECT_EQ(registry->swTableIntf(kName), fec);
  EXPECT_EQ(fec->references(), 2U);
}

TEST_F(FecTableInterfaceTest, ARegistryThatExistsIsUsed) {
  const auto registry = Zev::Entity::singletonIs(SwTableInterfacesSingleton::make,
                                                 SwTableInterfacesSingleton::kTypeName);
  const auto fec = getIntf();
  EXPECT_EQ(SwTableInterfacesSingleton::instance(), registry);
  EXPECT_TRUE(SwTableInterfacesSingleton::instance()->swTableIntfHas(kName));
}

TEST_F(FecTableInterfaceDeathTest, ASecondInterfaceStopsTheProcess) {
  const auto fec = getIntf();
  EXPECT_DEATH(Zev::makeObject<FecTableInterface>(tables_),
               R"(assertion failed: !singleton->swTableIntfHas\( "LoamFec::FecTableInterface" \): )"
               "Interface already created\n");
}

TEST_F(FecTableInterfaceTest, WhatTheConstructorThrowsPropagatesAndNothingIsRegistered) {
  const auto fec = getIntf();  // holds the folder's lock
  const auto registry = SwTableInterfacesSingleton::instance();
  Zev::Entity::singletonDelAll();
  const auto other = Zev::makeObject<Asic::OrderedTableInterface>(
      loop_, Zev::makeObject<Vanta::EntityManager>(root_.path()));
  EXPECT_THROW(FecTableInterface::getIntf(other), ZevGlint::MountException);
  EXPECT_FALSE(SwTableInterfacesSingleton::instance()->swTableIntfHas(kName));
}

// handleInitialized.

TEST_F(FecTableInterfaceTest, CreatesTheGroupTheLogTheStatusAndTheSet) {
  tables_->groupIntfDel(kGroup);
  const auto fec = getIntf();
  ASSERT_TRUE(group());
  EXPECT_EQ(group()->agentAndGroupId(), 0x0301);
  EXPECT_TRUE(group()->swTableSetHas(kTableId));
  ASSERT_TRUE(fec->entryLog());
  EXPECT_EQ(fec->entryLog()->tableId(), kTableId);
  EXPECT_EQ(fec->entryLog()->entityManager(), tables_->entityManager());
  EXPECT_EQ(fec->entryLog()->groupLogInterface(), group()->groupLogInterface());
  ASSERT_TRUE(fec->swTableStatus());
  EXPECT_EQ(fec->swTableStatus()->tableId(), kTableId);
}

TEST_F(FecTableInterfaceTest, AFirstStartTracesItsTwoMilestonesAndNoCleanup) {
  TraceRecorder traces({"FecTableInterface"});
  getIntf();
  ASSERT_EQ(traces.records().size(), 2U);
  EXPECT_EQ(traces.records()[0].level, 8);
  EXPECT_EQ(traces.records()[0].message, " Creating entry log for 03:01:0805");
  EXPECT_EQ(traces.records()[1].level, 2);
  EXPECT_EQ(traces.records()[1].message,
            " Entry log created for table id: 03:01:0805 at version: 0");
  for (const TraceRecorder::Record& record : traces.records()) {
    EXPECT_EQ(record.file, "FecTableInterface");
    EXPECT_EQ(record.className, "FecTableInterface");
    EXPECT_EQ(record.function, "handleInitialized");
  }
}

TEST_F(FecTableInterfaceTest, WithoutACommittedVersionNothingIsCleanedAndTheFlagIsUntouched) {
  leaveBehind(3, std::nullopt);
  restart();
  TraceRecorder traces({"FecTableInterface", "FecTableEntryLog"});
  const auto fec = getIntf();
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion(3));
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 3U);
  EXPECT_FALSE(fec->swTableStatus()->pendingHwWrites());
  EXPECT_THAT(traces.textsOf("cleanupEntryLog"), IsEmpty());
  EXPECT_THAT(traces, HasTrace(2, " Entry log created for table id: 03:01:0805 at version: 3"));
}

TEST_F(FecTableInterfaceTest, ALogAboveTheCommittedVersionIsCleanedUpToItAndWaitsForTheHardware) {
  leaveBehind(3, 2);
  restart();
  TraceRecorder traces({"FecTableInterface"});
  const auto fec = getIntf();
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 1U);
  EXPECT_TRUE(fec->swTableStatus()->pendingHwWrites());
  const auto* cleaned = traces.find(" Cleaned entry log until table version: 2");
  ASSERT_NE(cleaned, nullptr);
  EXPECT_EQ(cleaned->level, 3);
  EXPECT_EQ(cleaned->function, "handleInitialized");
  EXPECT_THAT(traces.texts(), ElementsAre(" Creating entry log for 03:01:0805",
                                          " Cleaned entry log until table version: 2",
                                          " Entry log created for table id: 03:01:0805 at "
                                          "version: 3"));
}

TEST_F(FecTableInterfaceTest, ALogAtTheCommittedVersionIsCleanedAndWaitsForNothing) {
  leaveBehind(3, 3);
  restart();
  const auto fec = getIntf();
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 0U);
  EXPECT_FALSE(fec->swTableStatus()->pendingHwWrites());
}

TEST_F(FecTableInterfaceTest,
       ALogBelowTheCommittedVersionIsRaisedToItAndCleanedAndWaitsForNothing) {
  leaveBehind(3, 4);
  restart();
  const auto fec = getIntf();
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion(4));
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 0U);
  EXPECT_FALSE(fec->swTableStatus()->pendingHwWrites());
}

TEST_F(FecTableInterfaceTest, ACommittedVersionOfZeroCleansNothingAndLeavesTheLogPending) {
  leaveBehind(1, 0);
  restart();
  const auto fec = getIntf();
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 1U);
  EXPECT_TRUE(fec->swTableStatus()->pendingHwWrites());
}

TEST_F(FecTableInterfaceTest, ADeletionThatIsCleanedAtStartUpFindsNoConfigurationYetAndSaysSo) {
  leaveBehind(1, std::nullopt);
  getIntf()->swTable(UnitId(0))->entryRemove(FecHarness::key(1), nullptr);
  loop_.runUntilIdle();
  group()->groupLog()->tableVersionIs({kTableId, LogVersion(2)});
  restart();
  TraceRecorder traces({"FecTableEntryLog"});
  const auto fec = getIntf();
  EXPECT_EQ(traces.count(3, " configGlint not found for unitId: 0"), 2U);
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  EXPECT_FALSE(table->entryHas(FecHarness::key(1)));
  EXPECT_EQ(table->entrys(), 0U);
}

TEST_F(FecTableInterfaceTest, AStartCleansUpThenSaysSoAndThenRaisesTheFlag) {
  leaveBehind(3, 2);
  restart();
  const auto fec = getIntf();
  // As before the start, with somebody who listens.
  const auto status = fec->swTableStatus();
  status->pendingHwWritesIs(false);
  fec->entryLog()->tableEntryLog()->entryLogConfigIs({LogVersion(2), 0, UnitId(0), {}});
  Zev::Entity::singletonDelAll();
  std::vector<std::string> steps;
  const TraceRecorder levels({"FecTableInterface", "FecTableEntryLog", "GlintMap"});
  Zev::traceSinkIs([&](const Zev::TraceRecord& record) { steps.emplace_back(record.message); });
  Pell::Subscriber flag(
      [&](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
        if (attributeId == Asic::OrderedSwTableStatus::kPendingHwWritesAttribute) {
          steps.emplace_back(status->pendingHwWrites() ? "the flag is up" : "the flag is down");
        }
      });
  status->publisher().subscriberAdd(flag);
  fec->handleInitialized();
  status->publisher().subscriberRemove(flag);
  EXPECT_THAT(steps, ElementsAre(" Creating entry log for 03:01:0805", " version 2",
                                 "LoamAdj.LoamAdj.FecTable.log.table: row 2 removed",
                                 " configGlint not found for unitId: 0",
                                 " Cleaned entry log until table version: 2", "the flag is up",
                                 " Entry log created for table id: 03:01:0805 at version: 3"));
}

TEST_F(FecTableInterfaceTest, TheLogsLastVersionMayBeReportedThoughTheAgentDiedBeforeAnnouncingIt) {
  leaveBehind(3, std::nullopt);
  auto& groupRows =
      dynamic_cast<Glint::GlintMap<Asic::GroupLogRow>&>(group()->groupLog()->logMap());
  ASSERT_TRUE(groupRows.rowDel(3));
  groupRows.control().scratchpadIs(2);
  restart();
  const auto fec = getIntf();
  fec->makeSwTable(UnitId(0), nullptr, false);
  group()->tableVersionApplied({kTableId, LogVersion(4)});
  EXPECT_EQ(group()->refusedReports(), 1U);
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 3U);
  group()->tableVersionApplied({kTableId, LogVersion(3)});
  EXPECT_EQ(group()->refusedReports(), 1U);
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 0U);
  EXPECT_EQ(group()->groupLog()->tableVersion(kTableId), LogVersion(3));
}

// A log that was removed, because it was damaged.

class RemovedLogTest : public FecTableInterfaceTest {
 protected:
  // Five versions are left behind, and the log's file is removed.
  void startWithoutTheLog(std::optional<std::uint64_t> applied) {
    leaveBehind(5, applied);
    end();
    ASSERT_TRUE(std::filesystem::remove(fileAt(FecTableConstants::entryLogGlintPath())));
    begin();
    fec_ = getIntf();
  }
  LogVersion version() const { return fec_->entryLog()->tableVersion(); }
  std::uint64_t scratchpad() const {
    return fec_->entryLog()->tableEntryLog()->entryLogConfig().control().scratchpad();
  }
  ~RemovedLogTest() override { fec_ = nullptr; }

  Pell::Ptr<FecTableInterface> fec_;
};

TEST_F(RemovedLogTest, VersionsGoOnAboveWhatTheHardwareHasApplied) {
  startWithoutTheLog(5);
  EXPECT_EQ(version(), LogVersion(5));
  const auto table = fec_->makeSwTable(UnitId(0), nullptr, false);
  EXPECT_FALSE(fec_->swTableStatus()->pendingHwWrites());
  const auto handle = table->entryWrite(FecHarness::key(1), FecHarness::entry(""), nullptr);
  loop_.runUntilIdle();
  EXPECT_EQ(handle->logVersion(), LogVersion(6));
  group()->tableVersionApplied({kTableId, LogVersion(5)});
  EXPECT_NE(handle->entryState(), Asic::SwTableBase::success());
  group()->tableVersionApplied({kTableId, LogVersion(6)});
  EXPECT_EQ(handle->entryState(), Asic::SwTableBase::success());
}

TEST_F(RemovedLogTest, VersionsGoOnAboveWhatTheHardwareHasStillToApply) {
  startWithoutTheLog(3);
  EXPECT_EQ(version(), LogVersion(5));
  EXPECT_TRUE(fec_->swTableStatus()->pendingHwWrites());
  const auto table = fec_->makeSwTable(UnitId(0), nullptr, false);
  group()->tableVersionApplied({kTableId, LogVersion(6)});
  EXPECT_EQ(group()->refusedReports(), 1U);
  group()->tableVersionApplied({kTableId, LogVersion(5)});
  EXPECT_EQ(group()->refusedReports(), 1U);
  EXPECT_FALSE(fec_->swTableStatus()->pendingHwWrites());
}

TEST_F(RemovedLogTest, TheLogItselfKeepsTheVersionThatItWasRaisedTo) {
  startWithoutTheLog(3);
  EXPECT_EQ(scratchpad(), 5U);
  fec_ = nullptr;
  end();
  ASSERT_TRUE(std::filesystem::remove(fileAt(FecTableConstants::groupLogGlintPath())));
  ASSERT_TRUE(std::filesystem::remove(fileAt(FecTableConstants::groupVersionsGlintPath())));
  begin();
  fec_ = getIntf();
  EXPECT_EQ(version(), LogVersion(5));
}

TEST_F(RemovedLogTest, ARaisedVersionIsTracedAndOneThatIsThereAlreadyIsNot) {
  startWithoutTheLog(5);
  fec_ = nullptr;
  TraceRecorder traces({"FecTableEntryLog"});
  restart();
  fec_ = getIntf();
  EXPECT_THAT(traces.texts(3), IsEmpty());
  fec_ = nullptr;
  end();
  ASSERT_TRUE(std::filesystem::remove(fileAt(FecTableConstants::entryLogGlintPath())));
  begin();
  fec_ = getIntf();
  EXPECT_THAT(traces.texts(3), ElementsAre(" raised to announced: 5 from tableVersion: 0"));
}

// A damaged group log at start-up.

class DamagedGroupLogTest : public FecTableInterfaceTest {
 protected:
  std::string file() const { return group()->groupLog()->versionsMap().filePath(); }
  std::uint64_t corruptions() const { return group()->groupLog()->versionsMap().corruptionCount(); }
  // Starts; nothing is cleaned, and everything after the cleanup is done.
  void expectStartsWithoutCleanup() const {
    const TraceRecorder traces({"FecTableInterface"});
    const auto fec = getIntf();
    EXPECT_THAT(traces.textsOf("handleInitialized"),
                ElementsAre(" Creating entry log for 03:01:0805",
                            " Entry log created for table id: 03:01:0805 at version: 3"));
    EXPECT_EQ(corruptions(), 1U);
    EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 3U);
    EXPECT_FALSE(fec->swTableStatus()->pendingHwWrites());
    EXPECT_TRUE(group()->swTableSetHas(kTableId));
    EXPECT_TRUE(SwTableInterfacesSingleton::instance()->swTableIntfHas(kName));
  }
};

TEST_F(DamagedGroupLogTest, ARowThatIsDamagedWhileMappedIsReportedAndStartUpGoesOn) {
  leaveBehind(3, 2);
  restart();
  testing_support::damageRow(file(), 0);
  expectStartsWithoutCleanup();
}

TEST_F(DamagedGroupLogTest, TheReportOfTheDamageCarriesItsMessage) {
  leaveBehind(3, 2);
  restart();
  testing_support::damageRow(file(), 0);
  const TraceRecorder traces({"GlintMapBase"});
  getIntf();
  ASSERT_EQ(traces.texts(1).size(), 1U);
  EXPECT_THAT(traces.texts(1).front(), HasSubstr("LoamAdj.LoamAdj.applied"));
}

TEST_F(DamagedGroupLogTest, ARowThatIsDamagedWhileUnmountedCountsAsAbsent) {
  leaveBehind(3, 2);
  const std::string damaged = file();
  end();
  testing_support::damageRow(damaged, 0);
  begin();
  expectStartsWithoutCleanup();
}

TEST_F(DamagedGroupLogTest, AReportAfterTheDamageCleansTheLogAsEver) {
  leaveBehind(3, 2);
  restart();
  testing_support::damageRow(file(), 0);
  const auto fec = getIntf();
  fec->makeSwTable(UnitId(0), nullptr, false);
  group()->tableVersionApplied({kTableId, LogVersion(3)});
  EXPECT_EQ(fec->entryLog()->entryLogConfigRows(), 0U);
  EXPECT_EQ(group()->groupLog()->tableVersion(kTableId), LogVersion(3));
}

TEST_F(DamagedGroupLogTest, DamageThatSomebodyElseMeetsInACleanupIsNotTheGroupLogs) {
  leaveBehind(3, 2);
  restart();
  const TraceRecorder levels({"FecTableInterface"});
  Zev::traceSinkIs([](const Zev::TraceRecord& record) {
    if (record.message.starts_with(" Cleaned entry log")) {
      throw Pell::CorruptionDetectedException("another table's");
    }
  });
  EXPECT_THROW(getIntf(), Pell::CorruptionDetectedException);
  EXPECT_EQ(corruptions(), 0U);
}

// makeSwTable of a new unit.

TEST_F(FecTableInterfaceTest, ANewUnitsTableIsWiredAndFiled) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(4), nullptr, false);
  EXPECT_EQ(table->tableName()->name(), "OrderedSwTable.LoamAdj.FecTable");
  EXPECT_EQ(table->tableId(), kTableId);
  EXPECT_EQ(table->unitId(), UnitId(4));
  EXPECT_EQ(table->status(), fec->swTableStatus());
  EXPECT_EQ(table->entryLog(), fec->entryLog());
  EXPECT_EQ(table->groupResolver(), group()->groupResolver());
  ASSERT_TRUE(table->intfIdToDestIdLinkage());
  EXPECT_TRUE(table->intfIdToDestIdLinkage()->hasNotificationActive());
  EXPECT_TRUE(table->hasNotificationActive());
  EXPECT_EQ(fec->swTable(UnitId(4)), table);
  EXPECT_EQ(group()->swTableSet(kTableId)->swTable(UnitId(4)), table);
  EXPECT_TRUE(fec->entryLog()->tableConfigGlintHas(UnitId(4)));
  EXPECT_FALSE(fec->entryLog()->tableConfigGlintHas(UnitId(0)));
}

TEST_F(FecTableInterfaceTest, ANewUnitIsRestoredAndSaysSo) {
  const auto fec = getIntf();
  TraceRecorder traces({"FecTableInterface"});
  fec->makeSwTable(UnitId(4), nullptr, false);
  ASSERT_EQ(traces.records().size(), 2U);
  EXPECT_THAT(traces, HasTrace(8, "unitId: 4"));
  EXPECT_THAT(traces, HasTrace(2, " Restoring entries for table id: 03:01:0805"));
  EXPECT_THAT(traces.textsOf("makeSwTable"),
              ElementsAre("unitId: 4", " Restoring entries for table id: 03:01:0805"));
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion());
}

TEST_F(FecTableInterfaceTest, ANewUnitWithResetAndNoHelperIsClearedAndKeepsTheDefaultHelper) {
  leaveBehind(2, std::nullopt);
  restart();
  const auto fec = getIntf();
  TraceRecorder traces({"FecTableInterface"});
  const auto table = fec->makeSwTable(UnitId(0), nullptr, true);
  EXPECT_THAT(traces.textsOf("makeSwTable"),
              ElementsAre("unitId: 0", " Clearing entries for table id: 03:01:0805"));
  EXPECT_THAT(traces, HasTrace(2, " Clearing entries for table id: 03:01:0805"));
  EXPECT_EQ(table->entrys(), 0U);
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion(3));
  ASSERT_TRUE(table->swTableHelper());
  EXPECT_EQ(table->swTableHelper()->fwkType().name, "LoamFec::FecTableSwTableHelperBase");
}

// What a restore and a clear leave of a unit whose entry uses an interface.
class ResetTest : public FecTableInterfaceTest {
 protected:
  ResetTest() {
    const auto resources =
        Pell::dynamicPtrCast<ResourceTable>(tables_->resourceTable(kResourceTable));
    resources->destinationIs(Wirex::IntfId::fromName("eth1"), {7, 0, 0});
    fec_ = getIntf();
    fec_->makeSwTable(UnitId(0), nullptr, false)
        ->entryWrite(FecHarness::key(1), FecHarness::entry("eth1"), nullptr);
    loop_.runUntilIdle();
  }
  ~ResetTest() override { fec_ = nullptr; }

  // What the unit's table does in a reset, and how many interfaces it uses afterwards.
  std::uint32_t usedAfterReset() {
    const TraceRecorder traces({"FecTableInterface", "FecTableSwTable"});
    const auto table = fec_->makeSwTable(UnitId(0), nullptr, true);
    EXPECT_EQ(traces.textsOf("delAllEntries"),
              (std::vector<std::string>{" releaseResources: false, neededEntry:null "}));
    EXPECT_THAT(traces.textsOf("restoreEntries"), IsEmpty());
    EXPECT_THAT(traces.textsOf("entryWrapperFromConfig"), IsEmpty());
    return table->intfIdToDestIdLinkage()->entryUsageSms();
  }

  Pell::Ptr<FecTableInterface> fec_;
};

TEST_F(ResetTest, AResetOfATableInUseReleasesNothing) { EXPECT_EQ(usedAfterReset(), 1U); }

TEST_F(ResetTest, AResetOfANewTableRestoresNothingBeforeItClears) {
  fec_ = nullptr;
  restart();
  fec_ = getIntf();
  EXPECT_EQ(usedAfterReset(), 0U);
}

TEST_F(FecTableInterfaceTest, ANewUnitWithoutResetKeepsWhatTheLastProcessCommitted) {
  leaveBehind(2, std::nullopt);
  restart();
  const auto table = getIntf()->makeSwTable(UnitId(0), nullptr, false);
  EXPECT_EQ(table->entrys(), 2U);
  EXPECT_TRUE(table->entryHas(FecHarness::key(2)));
}

TEST_F(FecTableInterfaceTest, ANewUnitGetsTheHelperItIsGiven) {
  const auto helper = fecTableSwTableHelperBaseFactory();
  EXPECT_EQ(getIntf()->makeSwTable(UnitId(0), helper, false)->swTableHelper(), helper);
}

TEST_F(FecTableInterfaceTest, ANewUnitsTableIsFiledOnlyWhenItHasBeenCleared) {
  const auto fec = getIntf();
  const auto set = group()->swTableSet(kTableId);
  bool announced = false;
  bool filed = true;
  auto& publisher = group()->groupLog()->publisher();
  Pell::Subscriber tableDelete(
      [&](Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {
        announced = true;
        filed = fec->swTable(UnitId(0)) != nullptr || set->swTable(UnitId(0)) != nullptr;
      });
  publisher.subscriberAdd(tableDelete);
  const auto table = fec->makeSwTable(UnitId(0), nullptr, true);
  publisher.subscriberRemove(tableDelete);
  EXPECT_TRUE(announced);
  EXPECT_FALSE(filed) << "no report reaches a table that is being made";
  EXPECT_EQ(set->swTable(UnitId(0)), table);
}

TEST_F(FecTableInterfaceTest, ANewUnitWithHelperAndResetGetsBothAndSaysOnlyThatItClears) {
  const auto fec = getIntf();
  const auto helper = fecTableSwTableHelperBaseFactory();
  TraceRecorder traces({"FecTableInterface"});
  EXPECT_EQ(fec->makeSwTable(UnitId(0), helper, true)->swTableHelper(), helper);
  EXPECT_THAT(traces.texts(),
              ElementsAre("unitId: 0", " Clearing entries for table id: 03:01:0805"));
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion(1));
}

TEST_F(FecTableInterfaceTest, EachUnitHasATableOfItsOwnAndSharesLogAndStatus) {
  const auto fec = getIntf();
  const auto zero = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto one = fec->makeSwTable(UnitId(1), nullptr, false);
  EXPECT_NE(zero, one);
  EXPECT_EQ(zero->entryLog(), one->entryLog());
  EXPECT_EQ(zero->status(), one->status());
  EXPECT_NE(zero->intfIdToDestIdLinkage(), one->intfIdToDestIdLinkage());
}

// makeSwTable of a unit that has a table.

TEST_F(FecTableInterfaceTest, AKnownUnitsTableIsReturnedUnchangedAndSaysItExists) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto helper = table->swTableHelper();
  const auto linkage = table->intfIdToDestIdLinkage();
  const auto objects = Zev::AllocationTracker::liveOfAllTypes();
  TraceRecorder traces({"FecTableInterface", "FecTableSwTable", "FecTableEntryLog"});
  EXPECT_EQ(fec->makeSwTable(UnitId(0), nullptr, false), table);
  EXPECT_THAT(traces.texts(), ElementsAre("unitId: 0", "swTable with unitId: 0 exists"));
  EXPECT_THAT(traces, HasTrace(3, "swTable with unitId: 0 exists"));
  EXPECT_EQ(table->swTableHelper(), helper);
  EXPECT_EQ(table->intfIdToDestIdLinkage(), linkage);
  EXPECT_EQ(Zev::AllocationTracker::liveOfAllTypes(), objects);
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion());
}

TEST_F(FecTableInterfaceTest, AKnownUnitGetsANewHelperAndKeepsItWhenNullComesNext) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto helper = fecTableSwTableHelperBaseFactory();
  TraceRecorder traces({"FecTableInterface"});
  EXPECT_EQ(fec->makeSwTable(UnitId(0), helper, false), table);
  EXPECT_EQ(table->swTableHelper(), helper);
  EXPECT_THAT(traces.texts(), ElementsAre("unitId: 0", "swTable with unitId: 0 exists",
                                          "Update software table helper"));
  EXPECT_THAT(traces, HasTrace(2, "Update software table helper"));
  fec->makeSwTable(UnitId(0), nullptr, false);
  EXPECT_EQ(table->swTableHelper(), helper);
}

TEST_F(FecTableInterfaceTest, AKnownUnitWithResetIsCleared) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  table->entryWrite(FecHarness::key(1), FecHarness::entry(""), nullptr);
  loop_.runUntilIdle();
  TraceRecorder traces({"FecTableInterface"});
  EXPECT_EQ(fec->makeSwTable(UnitId(0), nullptr, true), table);
  EXPECT_EQ(table->entrys(), 0U);
  EXPECT_EQ(fec->entryLog()->tableVersion(), LogVersion(2));
  EXPECT_THAT(traces.texts(), ElementsAre("unitId: 0", "swTable with unitId: 0 exists",
                                          " Clearing entries for table id: 03:01:0805"));
}

TEST_F(FecTableInterfaceTest, AKnownUnitWithHelperAndResetGetsTheHelperFirst) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto helper = fecTableSwTableHelperBaseFactory();
  TraceRecorder traces({"FecTableInterface"});
  EXPECT_EQ(fec->makeSwTable(UnitId(0), helper, true), table);
  EXPECT_EQ(table->swTableHelper(), helper);
  EXPECT_THAT(traces.texts(), ElementsAre("unitId: 0", "swTable with unitId: 0 exists",
                                          "Update software table helper",
                                          " Clearing entries for table id: 03:01:0805"));
  EXPECT_EQ(traces.texts(2).size(), 2U);
}

// Wiring that is missing stops the process.

TEST_F(FecTableInterfaceDeathTest, AMissingGroupStopsTheProcess) {
  const auto fec = getIntf();
  tables_->groupIntfDel(kGroup);
  EXPECT_DEATH(fec->makeSwTable(UnitId(0), nullptr, false), "assertion failed: groupIntf\n");
}

TEST_F(FecTableInterfaceDeathTest, AGroupWithoutTheTablesSetStopsTheProcess) {
  const auto fec = getIntf();
  tables_->groupIntfDel(kGroup);
  tables_->makeGroupIntf("LoamAdj", "LoamAdj", 0x0301);
  EXPECT_DEATH(fec->makeSwTable(UnitId(0), nullptr, false),
               R"(assertion failed: groupIntf->swTableSetHas\( tableId\(\) \))"
               "\n");
}

TEST_F(FecTableInterfaceDeathTest, AMissingResourceTableStopsTheProcess) {
  tables_->resourceTableIs(kResourceTable, nullptr);
  const auto fec = getIntf();
  EXPECT_DEATH(fec->makeSwTable(UnitId(0), nullptr, false), "assertion failed: resTbl\n");
}

class OtherResourceTable : public Zev::Typed<OtherResourceTable, Asic::ResourceTableBase> {
 public:
  static constexpr const char* kTypeName = "OtherResourceTable";
};

TEST_F(FecTableInterfaceDeathTest, AResourceTableOfAnotherTypeStopsTheProcess) {
  tables_->resourceTableIs(kResourceTable, Zev::makeObject<OtherResourceTable>());
  const auto fec = getIntf();
  EXPECT_DEATH(fec->makeSwTable(UnitId(0), nullptr, false),
               "assertion failed: typedResourceTable\n");
}

TEST_F(FecTableInterfaceTest, AKnownUnitNeedsNoResourceTableAnyMore) {
  const auto fec = getIntf();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  tables_->resourceTableIs(kResourceTable, nullptr);
  EXPECT_EQ(fec->makeSwTable(UnitId(0), nullptr, false), table);
}

// The attributes' own operations.

TEST_F(FecTableInterfaceTest, EntryLogIsWithTheSameArgumentsReturnsTheSameLog) {
  const auto fec = getIntf();
  const auto log = fec->entryLog();
  EXPECT_EQ(fec->entryLogIs(kTableId, tables_->entityManager(), group()->groupLogInterface()), log);
  EXPECT_EQ(fec->entryLog(), log);
}

TEST_F(FecTableInterfaceTest, EntryLogIsWithAnyOtherArgumentReplacesTheLog) {
  const auto fec = getIntf();
  const auto manager = tables_->entityManager();
  const auto groupLog = group()->groupLogInterface();
  const auto first = fec->entryLog();

  const testing_support::TemporaryRoot otherRoot;
  const auto second =
      fec->entryLogIs(kTableId, Zev::makeObject<Vanta::EntityManager>(otherRoot.path()), groupLog);
  EXPECT_NE(second, first);
  EXPECT_EQ(fec->entryLog(), second);
  EXPECT_TRUE(second->hasNotificationActive());

  const auto third = fec->entryLogIs(Asic::SwTableId(1), manager, groupLog);
  EXPECT_NE(third, second);
  EXPECT_EQ(third->tableId(), Asic::SwTableId(1));

  const auto fourth = fec->entryLogIs(Asic::SwTableId(1), manager, nullptr);
  EXPECT_NE(fourth, third);
  EXPECT_EQ(fec->entryLogIs(Asic::SwTableId(1), manager, nullptr), fourth);
}

TEST_F(FecTableInterfaceTest, AReplacedLogIsReleasedAndTablesKeepTheOneTheyHave) {
  const auto fec = getIntf();
  auto& tracker = Zev::trackerOf<FecTableEntryLog>();
  const auto live = tracker.live();
  const auto manager = tables_->entityManager();
  fec->entryLogIs(Asic::SwTableId(1), manager, group()->groupLogInterface());
  EXPECT_EQ(tracker.live(), live);
  const auto table = [&] {
    fec->entryLogIs(kTableId, manager, group()->groupLogInterface());
    return fec->makeSwTable(UnitId(0), nullptr, false);
  }();
  const auto held = table->entryLog();
  fec->entryLogIs(Asic::SwTableId(1), manager, group()->groupLogInterface());
  EXPECT_EQ(table->entryLog(), held);
  EXPECT_NE(fec->entryLog(), held);
}

TEST_F(FecTableInterfaceTest, SwTableStatusIsReturnsTheStatusOfThatTableOrMakesOne) {
  const auto fec = getIntf();
  const auto status = fec->swTableStatus();
  EXPECT_EQ(fec->swTableStatusIs(kTableId), status);
  const auto other = fec->swTableStatusIs(Asic::SwTableId(1));
  EXPECT_NE(other, status);
  EXPECT_EQ(other->tableId(), Asic::SwTableId(1));
  EXPECT_TRUE(other->hasNotificationActive());
  EXPECT_EQ(fec->swTableStatus(), other);
}

TEST_F(FecTableInterfaceTest, TheDelOperationsSetTheirAttributesToNull) {
  const auto fec = getIntf();
  fec->entryLogDel();
  fec->swTableStatusDel();
  EXPECT_EQ(fec->entryLog(), nullptr);
  EXPECT_EQ(fec->swTableStatus(), nullptr);
  EXPECT_TRUE(fec->entryLogIs(kTableId, tables_->entityManager(), nullptr));
  EXPECT_TRUE(fec->swTableStatusIs(kTableId));
}

TEST_F(FecTableInterfaceTest, SwTableIsReplacesAndSwTableDelForgets) {
  const auto fec = getIntf();
  const auto zero = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto one = fec->makeSwTable(UnitId(1), nullptr, false);
  EXPECT_EQ(fec->swTable(UnitId(2)), nullptr);
  fec->swTableIs(UnitId(0), one);
  EXPECT_EQ(fec->swTable(UnitId(0)), one);
  fec->swTableDel(UnitId(0));
  fec->swTableDel(UnitId(9));
  EXPECT_EQ(fec->swTable(UnitId(0)), nullptr);
  EXPECT_EQ(fec->swTable(UnitId(1)), one);
  fec->swTableDelAll();
  EXPECT_EQ(fec->swTable(UnitId(1)), nullptr);
  EXPECT_EQ(group()->swTableSet(kTableId)->swTable(UnitId(0)), zero);
}

TEST_F(FecTableInterfaceTest, AUnitThatIsMadeAgainAfterSwTableDelReplacesTheOldTableInTheSet) {
  const auto fec = getIntf();
  const auto first = fec->makeSwTable(UnitId(0), nullptr, false);
  fec->swTableDel(UnitId(0));
  const auto second = fec->makeSwTable(UnitId(0), nullptr, false);
  EXPECT_NE(second, first);
  EXPECT_EQ(group()->swTableSet(kTableId)->swTable(UnitId(0)), second);
}

// Destruction.

TEST_F(FecTableInterfaceTest, DestructionReleasesLogStatusAndTables) {
  Pell::Ptr<FecTableInterface> fec = getIntf();
  const auto log = fec->entryLog();
  const auto status = fec->swTableStatus();
  const auto table = fec->makeSwTable(UnitId(0), nullptr, false);
  const auto tableReferences = table->references();
  const auto logReferences = log->references();
  const auto statusReferences = status->references();
  Zev::Entity::singletonDelAll();
  EXPECT_EQ(fec->references(), 1U);
  fec = nullptr;
  EXPECT_EQ(table->references(), tableReferences - 1);
  EXPECT_EQ(log->references(), logReferences - 1);
  EXPECT_EQ(status->references(), statusReferences - 1);
}

// Looks at something when it dies.
class Witness {
 public:
  explicit Witness(std::function<void()> look) : look_(std::move(look)) {}
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;
  ~Witness() { look_(); }

 private:
  std::function<void()> look_;
};

TEST_F(FecTableInterfaceTest, DestructionReleasesLogAndStatusBeforeTheTables) {
  Pell::Ptr<FecTableInterface> fec = getIntf();
  const auto log = fec->entryLog();
  const auto status = fec->swTableStatus();
  std::vector<std::uint32_t> seen;
  bool hearsNotifications = true;
  FecTableInterface* const going = fec.get();
  // The handler dies with the queue of handles in the log, which is the table's.
  fec->makeSwTable(UnitId(0), nullptr, false)
      ->entryWriteWithResponseHandler(FecHarness::key(1), FecHarness::entry(""), nullptr,
                                      [witness = std::make_shared<Witness>([&] {
                                         seen = {log->references(), status->references()};
                                         hearsNotifications = going->hasNotificationActive();
                                       })](const auto&) { EXPECT_TRUE(witness); });
  loop_.runUntilIdle();
  group()->swTableSet(kTableId)->swTableDel(UnitId(0));
  Zev::Entity::singletonDelAll();
  EXPECT_THAT(seen, IsEmpty());
  fec = nullptr;
  // Held by this test and by the table that is going, no more by the interface.
  EXPECT_THAT(seen, ElementsAre(2U, 2U));
  EXPECT_FALSE(hearsNotifications);
}

TEST_F(FecTableInterfaceTest, TeardownWritesNothingToSharedMemory) {
  leaveBehind(2, 1);
  const auto files = testing_support::stateContents(root_.path());
  ASSERT_EQ(files.size(), 5U) << "the log, the unit's, the group's two, and the lock";
  end();
  const auto after = testing_support::stateContents(root_.path());
  EXPECT_EQ(after.size(), files.size());
  Texts changed;  // their names: their bytes are too many to be printed
  for (const auto& [name, bytes] : files) {
    if (!after.contains(name) || after.at(name) != bytes) {
      changed.push_back(name);
    }
  }
  EXPECT_THAT(changed, IsEmpty());
}

// Canonical names.

Pell::String nameOf(Asic::OrderedTableType type, const Pell::String& first,
                    const Pell::String& second) {
  const Pell::Ptr<Asic::CanonicalTableName const> name =
      Zev::makeObject<Asic::CanonicalTableName>(type, first, second);
  return name->name();
}

TEST(CanonicalTableNameTest, AnOrderedTableIsNamedByBothParts) {
  const testing_support::LeakCheck leaks;
  EXPECT_EQ(nameOf(Asic::OrderedTableType::orderedSwTable, "LoamAdj", "FecTable"),
            "OrderedSwTable.LoamAdj.FecTable");
  EXPECT_EQ(nameOf(Asic::OrderedTableType::orderedSwTable, "", ""), "OrderedSwTable..");
}

TEST(CanonicalTableNameTest, TheFirstPartIsIgnoredByTheOtherTypesEvenWhenItIsNotEmpty) {
  EXPECT_EQ(nameOf(Asic::OrderedTableType::partiallyOrderedSwTable, "group", "table"),
            "PartiallyOrderedSwTable.table");
  EXPECT_EQ(nameOf(Asic::OrderedTableType::resourceTable, "group", "table"), "ResourceTable.table");
}

TEST(CanonicalTableNameTest, TheResourceTableIsKnownByItsCanonicalName) {
  EXPECT_EQ(FecTableInterface::resourceTableName(), kResourceTable);
}

TEST(CanonicalTableNameTest, ANameWithAnEmptySecondPartEndsInADot) {
  EXPECT_EQ(nameOf(Asic::OrderedTableType::partiallyOrderedSwTable, "x", ""),
            "PartiallyOrderedSwTable.");
  EXPECT_EQ(nameOf(Asic::OrderedTableType::resourceTable, "x", ""), "ResourceTable.");
}

TEST(CanonicalTableNameDeathTest, AnyOtherTypeStopsTheProcess) {
  for (const int type : {3, 255}) {
    EXPECT_DEATH(nameOf(static_cast<Asic::OrderedTableType>(type), "a", "b"),
                 R"(assertion failed: "false" == nullptr: Table type undefined!)"
                 "\n");
  }
}

TEST(CanonicalTableNameTest, ItNamesItsType) {
  const auto name =
      Zev::makeObject<Asic::CanonicalTableName>(Asic::OrderedTableType::orderedSwTable, "a", "b");
  EXPECT_EQ(name->fwkType().name, "Asic::CanonicalTableName");
}

}  // namespace
