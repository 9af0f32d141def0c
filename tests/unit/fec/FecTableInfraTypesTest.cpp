// SPDX-License-Identifier: Apache-2.0

// The records that carry one request, and the platform's hooks.

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "FecTestNames.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;
using namespace LoamFec;

using DestId = FecTableEntryWrapper::DestId;
using Handle = FecTableDataModelSwTableBase::FecEntryHandle;

// Helper that writes down its calls and answers as it is told.
class RecordingHelper : public FecTableSwTableHelperBase {
 public:
  static constexpr const char* kTypeName = "RecordingHelper";

  void finalizeOnSuccess(Pell::Ptr<FecTableEntryWrapper> const& entry, bool isDelete) override {
    calls.emplace_back("success", entry->key().fecId(), isDelete);
    seen = entry->entry();
    wrapper = entry.get();
  }
  bool finalizeOnFailure(Pell::Ptr<FecTableEntryWrapper> const& entry, bool isDelete,
                         Pell::Ptr<FecTableSwTable> const& swTable) override {
    calls.emplace_back("failure", entry->key().fecId(), isDelete);
    seen = entry->entry();
    wrapper = entry.get();
    table = swTable.get();
    return answer;
  }

  std::vector<std::tuple<std::string, std::uint32_t, bool>> calls;
  FecTableDataModelEntry seen;
  FecTableEntryWrapper* wrapper = nullptr;
  FecTableSwTable* table = nullptr;
  bool answer = false;
};

using Call = std::tuple<std::string, std::uint32_t, bool>;

FecTableDataModelEntry someEntry() {
  FecTableDataModelEntry entry = FecHarness::entry("eth1", 77);
  entry.key = FecHarness::key(5);
  entry.clientDest = {.first = 1, .second = 2, .third = 3};
  entry.resolvedDest = {.first = 4, .second = 5, .third = 6};
  return entry;
}

Pell::Ptr<Handle> someHandle() {
  return Zev::makeObject<Handle>(Asic::EntryVersion(1, 0), FecHarness::key(5), nullptr);
}

Pell::Ptr<ScriptedResourceHandle> resource(const LoamAdjLib::DestId& destination) {
  auto handle =
      Zev::makeObject<ScriptedResourceHandle>(ResourceTable::Key(Wirex::IntfId::fromName("eth1")));
  handle->contentsAre(EntryState::done, destination);
  return handle;
}

class FecTableInfraTypesTest : public LeakCheckedTest {};

// The wrapper.

TEST_F(FecTableInfraTypesTest, AWrapperCopiesTheEntryAndHoldsTheHandle) {
  const auto handle = someHandle();
  FecTableDataModelEntry entry = someEntry();
  const auto wrapper = fecTableEntryWrapperFactory(entry, handle);
  entry.opaqueA = 0;
  EXPECT_THAT(wrapper->entry(), IsEq(someEntry()));
  EXPECT_EQ(wrapper->key(), FecHarness::key(5));
  EXPECT_EQ(wrapper->entryHandle(), handle);
  EXPECT_EQ(handle->references(), 2U);
  EXPECT_EQ(wrapper->intfIdResPtr(), nullptr);
}

TEST_F(FecTableInfraTypesTest, TheFactoriesTrackTheAllocationAndMarkTheObjectActive) {
  auto& wrappers = Zev::trackerOf<FecTableEntryWrapper>();
  auto& resolverEntries = Zev::trackerOf<FecTableResolverEntry>();
  auto& helpers = Zev::trackerOf<FecTableSwTableHelperBase>();
  const auto before = std::tuple(wrappers.live(), resolverEntries.live(), helpers.live());
  {
    const auto w1 = fecTableEntryWrapperFactory(someEntry(), nullptr);
    const auto w2 = FecTableEntryWrapper::FecTableEntryWrapperIs(someEntry(), nullptr);
    const auto r1 = fecTableResolverEntryFactory(nullptr, Asic::EntryFlags(), nullptr, w1);
    const auto r2 =
        FecTableResolverEntry::FecTableResolverEntryIs(nullptr, Asic::EntryFlags(), nullptr, w2);
    const auto h1 = fecTableSwTableHelperBaseFactory();
    const auto h2 = FecTableSwTableHelperBase::FecTableSwTableHelperBaseIs();
    EXPECT_EQ(
        std::tuple(wrappers.live(), resolverEntries.live(), helpers.live()),
        std::tuple(std::get<0>(before) + 2, std::get<1>(before) + 2, std::get<2>(before) + 2));
    for (const Zev::PtrInterface* object : std::initializer_list<const Zev::PtrInterface*>{
             w1.get(), w2.get(), r1.get(), r2.get(), h1.get(), h2.get()}) {
      EXPECT_TRUE(object->hasNotificationActive());
      EXPECT_EQ(object->notifieeList(), nullptr);
    }
  }
  EXPECT_EQ(std::tuple(wrappers.live(), resolverEntries.live(), helpers.live()), before);
}

TEST_F(FecTableInfraTypesTest, TheDestinationOfAWrapperWithoutAResourceIsTheUnsetOne) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  EXPECT_EQ(wrapper->destId(), (DestId{0xFFFF, 0, 0}));
}

TEST_F(FecTableInfraTypesTest, TheDestinationOfAWrapperIsItsResources) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  wrapper->intfIdResPtrIs(resource({0xFFFFFFFF, 0xFFFF, 0xFFFFFFFE}));
  EXPECT_EQ(wrapper->destId(), (DestId{0xFFFFFFFF, 0xFFFF, 0xFFFFFFFE}));
  wrapper->intfIdResPtrIs(nullptr);
  EXPECT_EQ(wrapper->destId(), (DestId{0xFFFF, 0, 0}));
}

TEST_F(FecTableInfraTypesTest, TheResolvedFieldsAreSetAndNothingElseChanges) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  wrapper->intfIdResPtrIs(resource({0xFFFFFFFF, 0xFFFF, 9}));
  wrapper->setResolvedFields();
  FecTableDataModelEntry expected = someEntry();
  expected.resolvedDest = {.first = 0xFFFFFFFF, .second = 0xFFFF, .third = 9};
  EXPECT_THAT(wrapper->entry(), IsEq(expected));
}

TEST_F(FecTableInfraTypesTest, WithoutAResourceTheResolvedFieldsBecomeTheUnsetOnes) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  wrapper->setResolvedFields();
  FecTableDataModelEntry expected = someEntry();
  expected.resolvedDest = FecDestination();
  EXPECT_THAT(wrapper->entry(), IsEq(expected));
}

TEST_F(FecTableInfraTypesTest, RetrievingClientDataDoesNothing) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  wrapper->retrieveClientData();
  EXPECT_THAT(wrapper->entry(), IsEq(someEntry()));
}

TEST_F(FecTableInfraTypesTest, AWrappersEntryCanBeReplaced) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  wrapper->entryIs(FecTableDataModelEntry());
  EXPECT_THAT(wrapper->entry(), IsEq(FecTableDataModelEntry()));
}

TEST_F(FecTableInfraTypesTest, TheRecordsNumberTheirAttributesInOrder) {
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  const Zev::TypeRecord& type = wrapper->fwkType();
  EXPECT_EQ(type.name, "LoamFec::FecTableEntryWrapper");
  EXPECT_EQ(type.attribute("entry")->id, 1);
  EXPECT_EQ(type.attribute("entryHandle")->id, 2);
  EXPECT_EQ(type.attribute("intfIdResPtr")->id, 3);
  const Zev::TypeRecord& entryType =
      fecTableResolverEntryFactory(nullptr, Asic::EntryFlags(), nullptr, wrapper)->fwkType();
  EXPECT_EQ(entryType.name, "LoamFec::FecTableResolverEntry");
  EXPECT_EQ(entryType.attribute("dependantEntryHandle")->id, 1);
  EXPECT_EQ(entryType.attribute("flags")->id, 2);
  EXPECT_EQ(entryType.attribute("swTable")->id, 3);
  EXPECT_EQ(entryType.attribute("swTableEntry")->id, 4);
}

TEST_F(FecTableInfraTypesTest, OnlyTheBasesOperationsOfAWrapperAreVirtual) {
  EXPECT_EQ(virtualSlot(&FecTableEntryWrapper::notifieeList), 0U);
  EXPECT_EQ(virtualSlot(&FecTableEntryWrapper::zeroReferencesIs), 1U);
  EXPECT_EQ(virtualSlot(&FecTableEntryWrapper::fwkType), 2U);
  EXPECT_EQ(virtualSlot(&FecTableResolverEntry::fwkType), 2U);
  EXPECT_EQ(virtualSlot(&FecTableResolverEntry::isResolved), 5U);
  EXPECT_EQ(virtualSlot(&FecTableResolverEntry::commitEntry), 6U);
}

// Finalising.

class FinalizeTest : public FecTableInfraTypesTest {
 protected:
  FinalizeTest() { wrapper_->intfIdResPtrIs(resource({100, 200, 300})); }

  FecHarness harness_;
  Pell::Ptr<RecordingHelper> helper_ = Zev::makeObject<RecordingHelper>();
  Pell::Ptr<FecTableSwTable> table_ = harness_.makeTable(0, false, helper_);
  Pell::Ptr<FecTableEntryWrapper> wrapper_ = fecTableEntryWrapperFactory(someEntry(), nullptr);
};

TEST_F(FinalizeTest, SuccessOfAWriteSetsTheResolvedFieldsAndThenTellsTheHelper) {
  wrapper_->finalizeOnSuccess(table_, false);
  EXPECT_THAT(helper_->calls, ElementsAre(Call("success", 5, false)));
  EXPECT_EQ(helper_->wrapper, wrapper_.get());
  EXPECT_EQ(helper_->seen.resolvedDest.first, 100U);
  EXPECT_EQ(helper_->seen.resolvedDest.second, 200U);
  EXPECT_EQ(helper_->seen.resolvedDest.third, 300U);
  EXPECT_EQ(helper_->seen.clientDest.first, 1U);
}

TEST_F(FinalizeTest, SuccessOfARemoveLeavesTheDestinationFieldsUnchanged) {
  wrapper_->finalizeOnSuccess(table_, true);
  EXPECT_THAT(helper_->calls, ElementsAre(Call("success", 5, true)));
  EXPECT_THAT(wrapper_->entry(), IsEq(someEntry()));
}

TEST_F(FinalizeTest, FailureLeavesTheDestinationFieldsAndReturnsTheHelpersAnswer) {
  for (const bool answer : {false, true}) {
    for (const bool isDeleted : {false, true}) {
      helper_->answer = answer;
      helper_->calls.clear();
      EXPECT_EQ(wrapper_->finalizeOnFailure(table_, isDeleted), answer);
      EXPECT_THAT(helper_->calls, ElementsAre(Call("failure", 5, isDeleted)));
      EXPECT_EQ(helper_->table, table_.get());
      EXPECT_EQ(helper_->wrapper, wrapper_.get());
      EXPECT_THAT(wrapper_->entry(), IsEq(someEntry()));
    }
  }
}

TEST_F(FinalizeTest, BothTraceTheirKeyAndTheirAnswer) {
  const TraceRecorder traces({"FecTableEntryWrapper"});
  wrapper_->finalizeOnSuccess(table_, true);
  wrapper_->finalizeOnFailure(table_, false);
  ASSERT_EQ(traces.records().size(), 3U);
  const auto expectRecord = [&](std::size_t at, int level, const char* function,
                                const char* message) {
    const TraceRecorder::Record& record = traces.records()[at];
    EXPECT_EQ(record.level, level);
    EXPECT_EQ(record.function, function);
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(record.file, "FecTableInfraTypes");
    EXPECT_EQ(record.className, "FecTableEntryWrapper");
  };
  expectRecord(0, 8, "finalizeOnSuccess", " key: 5 isDeleted: true");
  expectRecord(1, 8, "finalizeOnFailure", " key: 5 isDeleted: false");
  expectRecord(2, 3, "finalizeOnFailure", " retVal: false");
}

// Helper that puts the default one in its place.
class Replacing : public FecTableSwTableHelperBase {
 public:
  static constexpr const char* kTypeName = "Replacing";
  explicit Replacing(FecTableSwTable& table) : table_(table) {}
  bool finalizeOnFailure(Pell::Ptr<FecTableEntryWrapper> const& /*entry*/, bool /*isDelete*/,
                         Pell::Ptr<FecTableSwTable> const& /*swTable*/) override {
    table_.swTableHelperIs(fecTableSwTableHelperBaseFactory());
    return answer;
  }
  bool answer = true;

 private:
  FecTableSwTable& table_;
};

TEST_F(FinalizeTest, AHookMayReplaceTheHelperThatItIsCalledOn) {
  table_->swTableHelperIs(Zev::makeObject<Replacing>(*table_));
  EXPECT_TRUE(wrapper_->finalizeOnFailure(table_, false));
  EXPECT_FALSE(wrapper_->finalizeOnFailure(table_, false));
}

// The resolver entry.

TEST_F(FecTableInfraTypesTest, AResolverEntryHoldsItsWrapperAndItsDependencyButNotItsTable) {
  FecHarness harness;
  const auto table = harness.makeTable();
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), someHandle());
  const auto dependency = Zev::makeObject<FakeDependency>();
  const auto tableReferences = table->references();
  const auto entry = fecTableResolverEntryFactory(dependency, Asic::EntryFlags::entryDelete(),
                                                  table.get(), wrapper);
  EXPECT_EQ(table->references(), tableReferences);
  EXPECT_EQ(wrapper->references(), 2U);
  EXPECT_EQ(dependency->references(), 2U);
  EXPECT_EQ(entry->swTable(), table.get());
  EXPECT_EQ(entry->swTableEntry(), wrapper);
  EXPECT_EQ(entry->dependantEntryHandle(), dependency);
  EXPECT_TRUE(entry->isEntryDeleted());
  EXPECT_FALSE(entry->isTableDeleted());
}

TEST_F(FecTableInfraTypesTest, AResolverEntryAsksItsTableAndHasItCommit) {
  FecHarness harness;
  auto& table = harness.table();
  const auto handle =
      FecTableSwTable::entryHandleFactory(Asic::EntryVersion(0, 0), FecHarness::key(5), &table);
  const auto dependency = Zev::makeObject<FakeDependency>();
  FecTableDataModelEntry written;
  written.key = FecHarness::key(5);
  const auto entry = fecTableResolverEntryFactory(dependency, Asic::EntryFlags::write(), &table,
                                                  fecTableEntryWrapperFactory(written, handle));
  EXPECT_FALSE(entry->isResolved());
  EXPECT_EQ(entry->references(), 1U);
  dependency->stateIs(EntryState::done);
  EXPECT_TRUE(entry->isResolved());
  entry->commitEntry(entry);
  EXPECT_EQ(handle->entryState(), EntryState::hwWritePending);
  EXPECT_EQ(handle->logVersion(), Asic::LogVersion(1));
  EXPECT_TRUE(table.entryHas(FecHarness::key(5)));
}

TEST_F(FecTableInfraTypesTest, AResolverEntryPassesOnThePointerThatItIsGiven) {
  FecHarness harness;
  auto& table = harness.table();
  const auto entryOf = [&table](std::uint32_t fecId) {
    FecTableDataModelEntry written;
    written.key = FecHarness::key(fecId);
    const auto handle =
        FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), written.key, &table);
    return fecTableResolverEntryFactory(nullptr, Asic::EntryFlags::write(), &table,
                                        fecTableEntryWrapperFactory(written, handle));
  };
  entryOf(5)->commitEntry(entryOf(6));
  EXPECT_FALSE(table.entryHas(FecHarness::key(5)));
  EXPECT_TRUE(table.entryHas(FecHarness::key(6)));
}

// The hooks.

TEST_F(FecTableInfraTypesTest, TheDefaultHooksDoNothing) {
  FecHarness harness;
  const auto table = harness.makeTable();
  const auto helper = fecTableSwTableHelperBaseFactory();
  const auto wrapper = fecTableEntryWrapperFactory(someEntry(), nullptr);
  for (const bool flag : {false, true}) {
    helper->finalizeOnSuccess(wrapper, flag);
    EXPECT_FALSE(helper->finalizeOnFailure(wrapper, flag, table));
    EXPECT_TRUE(helper->finalizeOnResourceUpdate(wrapper, table, flag));
    helper->handleHwError(wrapper, flag ? 1 : 0);
  }
  EXPECT_THAT(wrapper->entry(), IsEq(someEntry()));
}

TEST_F(FecTableInfraTypesTest, TheHooksStandInTheirSlotsBehindTheDestructor) {
  using Helper = FecTableSwTableHelperBase;
  EXPECT_EQ(virtualSlot(&Helper::notifieeList), 0U);
  EXPECT_EQ(virtualSlot(&Helper::zeroReferencesIs), 1U);
  EXPECT_EQ(virtualSlot(&Helper::fwkType), 2U);
  EXPECT_EQ(virtualSlot(&Helper::finalizeOnSuccess), 5U);
  EXPECT_EQ(virtualSlot(&Helper::finalizeOnFailure), 6U);
  EXPECT_EQ(virtualSlot(&Helper::finalizeOnResourceUpdate), 7U);
  EXPECT_EQ(virtualSlot(&Helper::handleHwError), 8U);
}

TEST_F(FecTableInfraTypesTest, TheHooksAreKnownByNameWithTheirParameterNames) {
  const Zev::TypeRecord& type = fecTableSwTableHelperBaseFactory()->fwkType();
  EXPECT_EQ(type.name, "LoamFec::FecTableSwTableHelperBase");
  EXPECT_THAT(type.attributes, IsEmpty());
  EXPECT_THAT(type.operation("finalizeOnSuccess")->parameters, ElementsAre("entry", "isDelete"));
  EXPECT_THAT(type.operation("finalizeOnFailure")->parameters,
              ElementsAre("entry", "isDelete", "swTable"));
  EXPECT_THAT(type.operation("finalizeOnResourceUpdate")->parameters,
              ElementsAre("entry", "swTable", "someResourceHasFailed"));
  EXPECT_THAT(type.operation("handleHwError")->parameters, ElementsAre("entry", "errorCode"));
}

class HelperInTableTest : public FecTableInfraTypesTest {
 protected:
  // A write whose interface has failed.
  void failingWrite(std::uint32_t key) {
    harness_.resources().destinationFailed(Wirex::IntfId::fromName("eth1"));
    harness_.table().entryWriteWithResponseHandler(FecHarness::key(key), FecHarness::entry("eth1"),
                                                   nullptr, harness_.recordResponse());
    harness_.run();
  }

  FecHarness harness_;
};

TEST_F(HelperInTableTest, ATableWithoutAPlatformHelperFinalizesThroughTheDefaultHooks) {
  failingWrite(1);
  ASSERT_EQ(harness_.responses.size(), 1U);
  EXPECT_EQ(harness_.responses[0].state, EntryState::commitFailed);
  harness_.table().entryWrite(FecHarness::key(2), FecHarness::entry(""), nullptr);
  harness_.run();
  EXPECT_EQ(harness_.log().tableVersion(), Asic::LogVersion(1));
}

TEST_F(HelperInTableTest, AReplacedHelperChangesTheOperationsThatAreFinalizedAfterwardsOnly) {
  failingWrite(1);
  const auto helper = Zev::makeObject<RecordingHelper>();
  helper->answer = true;
  harness_.makeTable(0, false, helper);
  EXPECT_THAT(helper->calls, IsEmpty());
  EXPECT_EQ(harness_.log().tableVersion(), Asic::LogVersion());
  failingWrite(2);
  EXPECT_THAT(helper->calls, ElementsAre(Call("failure", 2, false)));
  EXPECT_EQ(harness_.log().tableVersion(), Asic::LogVersion(1));
  harness_.makeTable(0, false, fecTableSwTableHelperBaseFactory());
  failingWrite(3);
  EXPECT_THAT(helper->calls, ElementsAre(Call("failure", 2, false)));
  EXPECT_EQ(harness_.log().tableVersion(), Asic::LogVersion(1));
}

// Helper that also counts the calls of the hooks that are for the platform to call.
class CountingHelper : public RecordingHelper {
 public:
  static constexpr const char* kTypeName = "CountingHelper";

  bool finalizeOnResourceUpdate(Pell::Ptr<FecTableEntryWrapper> const& /*entry*/,
                                Pell::Ptr<FecTableSwTable> const& /*swTable*/,
                                bool /*someResourceHasFailed*/) override {
    ++platformCalls;
    return true;
  }
  void handleHwError(Pell::Ptr<FecTableEntryWrapper> const& /*entry*/,
                     unsigned int /*errorCode*/) override {
    ++platformCalls;
  }

  int platformCalls = 0;
};

TEST_F(HelperInTableTest, ATableCallsTheHooksOfACommitForWritesAndThoseOfThePlatformNever) {
  const auto helper = Zev::makeObject<CountingHelper>();
  harness_.makeTable(0, false, helper);
  harness_.destinationIs("eth1", 100);
  harness_.table().entryWrite(FecHarness::key(1), FecHarness::entry("eth1"), nullptr);
  harness_.run();
  harness_.reportAll();
  harness_.destinationIs("eth1", 200);
  ASSERT_EQ(harness_.log().tableVersion(), LogVersion(2)) << "driven again";
  harness_.reportAll();
  harness_.resources().destinationFailed(Wirex::IntfId::fromName("eth1"));
  harness_.run();
  ASSERT_EQ(harness_.log().tableVersion(), LogVersion(3)) << "and again";
  failingWrite(2);
  harness_.table().entryRemove(FecHarness::key(1), nullptr);
  harness_.table().entryRemoveAll(nullptr);
  harness_.run();
  ASSERT_EQ(harness_.log().tableVersion(), LogVersion(5));
  EXPECT_THAT(helper->calls, ElementsAre(Call("success", 1, false), Call("failure", 2, false)));
  EXPECT_EQ(helper->platformCalls, 0);
}

TEST_F(HelperInTableTest, AQueuedOperationIsFinalizedByTheHelperOfItsCommit) {
  harness_.table().entryWrite(FecHarness::key(1), FecHarness::entry(""), nullptr);
  const auto helper = Zev::makeObject<RecordingHelper>();
  harness_.makeTable(0, false, helper);
  harness_.run();
  EXPECT_THAT(helper->calls, ElementsAre(Call("success", 1, false)));
}

}  // namespace
