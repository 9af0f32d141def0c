// SPDX-License-Identifier: Apache-2.0

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "FecTableFixture.h"
#include "Zev/Exceptions.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

template <typename T>
std::int64_t live() {
  return Zev::trackerOf<T>().live();
}

class FecTableSwTableTest : public FecTableFixture {
 protected:
  // A table that nobody else knows: no linkage, no place in the group's set.
  Pell::Ptr<FecTableSwTable> looseTable() {
    return LoamFec::fecTableSwTableFactory(name_, tableId_, Asic::UnitId(7), status_,
                                           agent_.fec().entryLog(), table().groupResolver());
  }
  static Pell::Ptr<FecTableEntryWrapper> wrapper(
      FecTableSwTable& table, std::uint32_t fecId, std::uint64_t version = 0,
      const FecTableSwTable::ResponseHandler& handler = {}) {
    const auto handle =
        FecTableSwTable::entryHandleFactory(Asic::EntryVersion(version, 0), key(fecId), &table);
    handle->responseHandlerIs(handler);
    FecTableDataModelEntry entry;
    entry.key = key(fecId);
    return FecTableEntryWrapper::FecTableEntryWrapperIs(entry, handle);
  }

  const Asic::SwTableId tableId_{0x03010805};
  Pell::Ptr<Asic::CanonicalTableName const> name_ = Zev::makeObject<Asic::CanonicalTableName>(
      Asic::OrderedTableType::orderedSwTable, "LoamAdj", "FecTable");
  Pell::Ptr<Asic::OrderedSwTableStatus> status_ =
      Zev::makeObject<Asic::OrderedSwTableStatus>(tableId_);
};

// Construction.

TEST_F(FecTableSwTableTest, ANewTableHasADefaultHelperNoLinkageAndNothingPending) {
  const auto made = looseTable();
  const Pell::Ptr<FecTableSwTableHelperBase> helper = made->swTableHelper();
  ASSERT_TRUE(helper);
  const FecTableSwTableHelperBase& installed = *helper;
  EXPECT_STREQ(typeid(installed).name(), typeid(FecTableSwTableHelperBase).name());
  EXPECT_FALSE(made->intfIdToDestIdLinkage());
  EXPECT_THAT(made->transientAddEntry(), IsEmpty());
  EXPECT_THAT(made->transientRemoveEntry(), IsEmpty());
  EXPECT_THAT(made->transientVersionForKey(), IsEmpty());
  EXPECT_FALSE(made->transientRemoveAllVersion().valid());
  EXPECT_EQ(made->transientRemoveAllVersion().value(), kInvalid);
  EXPECT_EQ(made->entryHandlesInLog(), 0U);
  EXPECT_FALSE(made->entryHandleInLogFront());
  EXPECT_FALSE(made->entryHandleInLogBack());
  EXPECT_FALSE(made->entryHandleInLogHas(1));
}

TEST_F(FecTableSwTableTest, ATableKeepsWhatItWasMadeOf) {
  const auto made = looseTable();
  EXPECT_EQ(made->tableName(), name_);
  EXPECT_EQ(made->tableId(), tableId_);
  EXPECT_EQ(made->unitId(), Asic::UnitId(7));
  EXPECT_EQ(made->status(), status_);
  EXPECT_EQ(made->entryLog(), agent_.fec().entryLog());
  EXPECT_EQ(made->groupResolver(), table().groupResolver());
}

TEST_F(FecTableSwTableTest, BothFactoriesCountTheTableAndMakeItNotificationActive) {
  const std::int64_t before = live<FecTableSwTable>();
  const auto made = looseTable();
  const auto madeUnderIs = FecTableSwTable::FecTableSwTableIs(
      name_, tableId_, Asic::UnitId(8), status_, agent_.fec().entryLog(), table().groupResolver());
  EXPECT_EQ(live<FecTableSwTable>(), before + 2);
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_TRUE(madeUnderIs->hasNotificationActive());
  EXPECT_EQ(made->references(), 1U);
}

TEST_F(FecTableSwTableTest, InitialisationIsTracedUnderItsName) {
  const TraceRecorder traces({"FecTableSwTable"});
  const auto made = looseTable();
  ASSERT_EQ(traces.records().size(), 1U);
  const TraceRecorder::Record& record = traces.records().front();
  EXPECT_EQ(record.level, 8);
  EXPECT_EQ(record.function, "handleInitialized");
  EXPECT_EQ(record.message, "");
  EXPECT_EQ(record.className, "FecTableSwTable");
  EXPECT_EQ(record.file, "FecTableSwTable");
}

TEST_F(FecTableSwTableTest, AConstructionThatFailsReleasesWhatItTook) {
  const std::uint32_t statusReferences = status_->references();
  const std::uint32_t logReferences = agent_.fec().entryLog()->references();
  const std::uint32_t resolverReferences = resolver().references();
  const std::int64_t before = live<FecTableSwTable>();
  const TraceRecorder traces({"FecTableSwTable"});
  Zev::traceSinkIs([](const Zev::TraceRecord&) { throw std::runtime_error("no room"); });
  EXPECT_THROW(looseTable(), std::runtime_error);
  EXPECT_EQ(status_->references(), statusReferences);
  EXPECT_EQ(agent_.fec().entryLog()->references(), logReferences);
  EXPECT_EQ(resolver().references(), resolverReferences);
  EXPECT_EQ(live<FecTableSwTable>(), before);
}

TEST_F(FecTableSwTableTest, AnEntryHandleIsMadeOfVersionKeyAndTable) {
  const auto handle =
      FecTableSwTable::entryHandleFactory(Asic::EntryVersion(3, 9), key(5), &table());
  EXPECT_THAT(handle->version(), IsEq(Asic::EntryVersion(3, 9)));
  EXPECT_EQ(handle->key(), key(5));
  EXPECT_EQ(handle->table(), &table());
  EXPECT_EQ(handle->entryState(), State::notResolved);
  EXPECT_EQ(handle->logVersion(), Asic::LogVersion());
  EXPECT_FALSE(handle->responseHandler());
  EXPECT_TRUE(handle->hasNotificationActive());
  EXPECT_EQ(handle->references(), 1U);
  EXPECT_STREQ(FecTableSwTable::EntryHandle::kTypeName, "LoamFec::FecTableSwTable::EntryHandle");
}

TEST_F(FecTableSwTableTest, AnEntryHandleTellsItsTableVersionAfterItsTableHasGone) {
  auto made = looseTable();
  const auto handle = FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(5), made.get());
  handle->logVersionIs(Asic::LogVersion(12));
  EXPECT_EQ(made->references(), 1U) << "the handle does not hold the table";
  made = nullptr;
  EXPECT_EQ(handle->entryTableVersion(), Asic::TableVersion(tableId_, Asic::LogVersion(12)));
}

// The class.

TEST_F(FecTableSwTableTest, VirtualOperationsStandInTheirSlots) {
  using Key = FecTableDataModelEntryKey;
  using IteratorFromKey = LoamFec::FecTableDataModelEntryIteratorConst (Table::*)(const Key&) const;
  using Iterator = LoamFec::FecTableDataModelEntryIteratorConst (Table::*)() const;
  EXPECT_EQ(virtualSlot(&Table::notifieeList), 0);
  EXPECT_EQ(virtualSlot(&Table::zeroReferencesIs), 1);
  EXPECT_EQ(virtualSlot(&Table::fwkType), 2);  // the destructor stands in slots 3 and 4
  EXPECT_EQ(virtualSlot(&Table::nameString), 5);
  EXPECT_EQ(virtualSlot(&Table::handleParent), 6);
  EXPECT_EQ(virtualSlot(&Table::doCreateHwTable), 7);
  EXPECT_EQ(virtualSlot(&Table::doCreateHwTableResponse), 8);
  EXPECT_EQ(virtualSlot(&Table::tableStatusVersion), 9);
  EXPECT_EQ(virtualSlot(&Table::entryWrite), 10);
  EXPECT_EQ(virtualSlot(&Table::entryWriteWithResponseHandler), 11);
  EXPECT_EQ(virtualSlot(&Table::entryRemove), 12);
  EXPECT_EQ(virtualSlot(&Table::entryRemoveWithResponseHandler), 13);
  EXPECT_EQ(virtualSlot(&Table::entryRemoveAll), 14);
  EXPECT_EQ(virtualSlot(&Table::entryRemoveAllWithResponseHandler), 15);
  EXPECT_EQ(virtualSlot(&Table::entryRead), 16);
  EXPECT_EQ(virtualSlot(&Table::entry), 17);
  EXPECT_EQ(virtualSlot(&Table::entryHas), 18);
  EXPECT_EQ(virtualSlot(&Table::entrys), 19);
  EXPECT_EQ(virtualSlot(static_cast<IteratorFromKey>(&Table::entryIteratorConst)), 20);
  EXPECT_EQ(virtualSlot(static_cast<Iterator>(&Table::entryIteratorConst)), 21);
  EXPECT_EQ(virtualSlot(&Table::initIterState), 22);
  EXPECT_EQ(virtualSlot(&Table::initIterStateFromKey), 23);
}

TEST_F(FecTableSwTableTest, TableAndHandleHaveTheFrameworksBases) {
  EXPECT_TRUE((std::is_base_of_v<LoamFec::FecTableDataModelSwTableBase, FecTableSwTable>));
  EXPECT_TRUE((std::is_base_of_v<Asic::OrderedSwTable, FecTableSwTable>));
  EXPECT_TRUE((std::is_base_of_v<Zev::PtrInterface, FecTableSwTable>));
  EXPECT_TRUE((std::is_base_of_v<LoamFec::FecTableDataModelSwTableBase::EntryHandle,
                                 FecTableSwTable::EntryHandle>));
  EXPECT_TRUE((std::is_base_of_v<Asic::OrderedSwTable::EntryHandle, FecTableSwTable::EntryHandle>));
  EXPECT_TRUE((std::is_base_of_v<Asic::SwTableBase::EntryHandle, FecTableSwTable::EntryHandle>));
  EXPECT_EQ(sizeof(FecTableSwTable::EntryHandle),
            sizeof(LoamFec::FecTableDataModelSwTableBase::EntryHandle));
}

TEST_F(FecTableSwTableTest, AttributeIdentifiersFollowTheOrderOfTheAttributes) {
  std::vector<std::pair<std::string, short>> attributes;
  for (const auto& attribute : table().fwkType().attributes) {
    attributes.emplace_back(attribute.name, attribute.id);
  }
  using Named = std::pair<std::string, short>;
  EXPECT_EQ(table().fwkType().name, "LoamFec::FecTableSwTable");
  EXPECT_THAT(
      attributes,
      ElementsAre(Named("swTableHelper", kHelper), Named("transientAddEntry", kAdd),
                  Named("transientRemoveEntry", kRemove), Named("transientVersionForKey", kVersion),
                  Named("transientRemoveAllVersion", kRemoveAll), Named("entryLog", 6),
                  Named("groupResolver", 7), Named("entryHandleInLog", 8),
                  Named("intfIdToDestIdLinkage", kLinkage)));
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    EXPECT_EQ(attributes[i].second, static_cast<short>(i + 1));
  }
}

TEST_F(FecTableSwTableTest, EachTransientMapHashesWithItsOwnSalt) {
  using Key = FecTableDataModelEntryKey;
  using Wrapper = Pell::Ptr<FecTableEntryWrapper>;
  EXPECT_TRUE((std::is_same_v<FecTableSwTable::TransientAddEntries,
                              Pell::HashMap<Key, Wrapper, LoamFec::FecKeyHash<0xaead84da>>>));
  EXPECT_TRUE((std::is_same_v<FecTableSwTable::TransientRemoveEntries,
                              Pell::HashMap<Key, Wrapper, LoamFec::FecKeyHash<0x1f3dfceb>>>));
  EXPECT_TRUE(
      (std::is_same_v<FecTableSwTable::TransientVersions,
                      Pell::HashMap<Key, Asic::EntryVersion, LoamFec::FecKeyHash<0x4554b525>>>));
  const std::uint32_t seed = Zev::HashHelper::hashSeed32();
  const std::uint32_t fecId = 4711;
  EXPECT_EQ(LoamFec::FecKeyHash<0xaead84da>()(key(fecId)),
            Zev::hashSingleAttr(seed ^ 0xaead84daU, fecId));
  EXPECT_EQ(LoamFec::FecKeyHash<0x1f3dfceb>()(key(fecId)),
            Zev::hashSingleAttr(seed ^ 0x1f3dfcebU, fecId));
  EXPECT_EQ(LoamFec::FecKeyHash<0x4554b525>()(key(fecId)),
            Zev::hashSingleAttr(seed ^ 0x4554b525U, fecId));
}

TEST_F(FecTableSwTableTest, AFecTableHasNoHardwareTableOfItsOwn) {
  const TraceRecorder traces({"FecTableSwTable", "FecTableEntryLog"});
  const TableObserver observer(table());
  const std::uint64_t before = logVersion();
  table().doCreateHwTable();
  table().doCreateHwTableResponse();
  table().handleParent(nullptr);
  EXPECT_THAT(traces.texts(), IsEmpty());
  EXPECT_THAT(observer.changes(), IsEmpty());
  EXPECT_EQ(logVersion(), before);
  EXPECT_EQ(table().nameString(), table().name());
}

// Wiring.

TEST_F(FecTableSwTableTest, SettingTheSameHelperTwicePublishesOneChange) {
  const auto helper = Zev::makeObject<ScriptedHelper>();
  const TableObserver observer(table());
  table().swTableHelperIs(helper);
  table().swTableHelperIs(helper);
  EXPECT_EQ(table().swTableHelper(), helper);
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kHelper}));
}

TEST_F(FecTableSwTableTest, SettingTheSameLinkageTwicePublishesOneChange) {
  const auto linkage = LoamFec::fecTableIntfIdToDestIdLinkageFactory(
      &table(), Zev::makeObject<RecordingResourceClient>());
  const TableObserver observer(table());
  table().intfIdToDestIdLinkageIs(linkage);
  table().intfIdToDestIdLinkageIs(linkage);
  EXPECT_EQ(table().intfIdToDestIdLinkage(), linkage);
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kLinkage}));
}

// Transient collections.

TEST_F(FecTableSwTableTest, APendingWriteIsPublishedWhenItIsStoredReplacedAndRemoved) {
  const auto first = wrapper(table(), 5);
  const auto second = wrapper(table(), 5);
  const TableObserver observer(table());
  table().transientAddEntryIs(first);
  table().transientAddEntryIs(first);
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kAdd, 5})) << "the same wrapper again";
  table().transientAddEntryIs(second);
  EXPECT_EQ(pendingWrite(5), second.get());
  EXPECT_EQ(table().transientAddEntry().size(), 1U);
  table().transientAddEntryDel(key(6));
  table().transientAddEntryDel(key(5));
  table().transientAddEntryDel(key(5));
  EXPECT_THAT(table().transientAddEntry(), IsEmpty());
  EXPECT_THAT(observer.changes(),
              ElementsAre(TableChange{kAdd, 5}, TableChange{kAdd, 5}, TableChange{kAdd, 5}));
}

TEST_F(FecTableSwTableTest, APendingRemoveIsPublishedWhenItIsStoredReplacedAndRemoved) {
  const auto first = wrapper(table(), 5);
  const auto second = wrapper(table(), 5);
  const TableObserver observer(table());
  table().transientRemoveEntryIs(first);
  table().transientRemoveEntryIs(first);
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kRemove, 5})) << "the same wrapper again";
  table().transientRemoveEntryIs(second);
  EXPECT_EQ(pendingRemove(5), second.get());
  table().transientRemoveEntryDel(key(6));
  table().transientRemoveEntryDel(key(5));
  table().transientRemoveEntryDel(key(5));
  EXPECT_THAT(table().transientRemoveEntry(), IsEmpty());
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kRemove, 5}, TableChange{kRemove, 5},
                                              TableChange{kRemove, 5}));
}

TEST_F(FecTableSwTableTest, AnEqualVersionLeavesTheMapAndItsObserversUntouched) {
  const TableObserver observer(table());
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(0, 0));
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kVersion, 5})) << "zero is a version";
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(0, 0));
  EXPECT_EQ(observer.changes().size(), 1U);
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(0, 1));
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(1, 1));
  EXPECT_EQ(observer.changes().size(), 3U) << "either part makes another version";
  EXPECT_EQ(pendingVersion(5), 1U);
}

TEST_F(FecTableSwTableTest, RemovingAVersionIsPublishedOnlyForAKeyThatHasOne) {
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(1, 0));
  const TableObserver observer(table());
  table().transientVersionForKeyDel(key(6));
  table().transientVersionForKeyDel(key(5));
  table().transientVersionForKeyDel(key(5));
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kVersion, 5}));
  EXPECT_FALSE(pendingVersion(5));
}

TEST_F(FecTableSwTableTest, EmptyingAMapPublishesEachKeyThatAnObserverCouldSee) {
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    table().transientAddEntryIs(wrapper(table(), fecId));
    table().transientRemoveEntryIs(wrapper(table(), fecId + 10));
    table().transientVersionForKeyIs(key(fecId + 20), Asic::EntryVersion(7, 0));
  }
  TableObserver observer(table());
  table().transientAddEntryDelAll();
  EXPECT_THAT(observer.changes(), UnorderedElementsAre(TableChange{kAdd, 1}, TableChange{kAdd, 2},
                                                       TableChange{kAdd, 3}));
  observer.clear();
  table().transientRemoveEntryDelAll();
  EXPECT_THAT(observer.changes(),
              UnorderedElementsAre(TableChange{kRemove, 11}, TableChange{kRemove, 12},
                                   TableChange{kRemove, 13}));
  observer.clear();
  table().transientVersionForKeyDelAll();
  EXPECT_THAT(observer.changes(),
              UnorderedElementsAre(TableChange{kVersion, 21}, TableChange{kVersion, 22},
                                   TableChange{kVersion, 23}));
  observer.clear();
  table().transientAddEntryDelAll();
  table().transientRemoveEntryDelAll();
  table().transientVersionForKeyDelAll();
  EXPECT_THAT(observer.changes(), IsEmpty()) << "there was nothing left to remove";
}

TEST_F(FecTableSwTableTest, EmptyingAMapThatNobodyObservesReleasesEveryWrapper) {
  const std::int64_t before = live<FecTableEntryWrapper>();
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    table().transientAddEntryIs(wrapper(table(), fecId));
    table().transientRemoveEntryIs(wrapper(table(), fecId));
    table().transientVersionForKeyIs(key(fecId), Asic::EntryVersion(7, 0));
  }
  EXPECT_EQ(live<FecTableEntryWrapper>(), before + 6);
  table().transientAddEntryDelAll();
  table().transientRemoveEntryDelAll();
  table().transientVersionForKeyDelAll();
  EXPECT_EQ(live<FecTableEntryWrapper>(), before);
  EXPECT_THAT(table().transientAddEntry(), IsEmpty());
  EXPECT_THAT(table().transientRemoveEntry(), IsEmpty());
  EXPECT_THAT(table().transientVersionForKey(), IsEmpty());
}

TEST_F(FecTableSwTableTest, TheRemoveAllVersionIsPublishedWithItsOldValueWhenItChanges) {
  const TableObserver observer(table());
  table().transientRemoveAllVersionIs(Asic::MajorVersion());
  EXPECT_THAT(observer.changes(), IsEmpty());
  table().transientRemoveAllVersionIs(Asic::MajorVersion(4));
  table().transientRemoveAllVersionIs(Asic::MajorVersion(4));
  table().transientRemoveAllVersionIs(Asic::MajorVersion());
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kRemoveAll, std::nullopt, kInvalid},
                                              TableChange{kRemoveAll, std::nullopt, 4}));
}

TEST_F(FecTableSwTableTest, ANullPendingWriteIsRefusedByNameAndChangesNothing) {
  table().transientAddEntryIs(wrapper(table(), 5));
  const TableObserver observer(table());
  try {
    table().transientAddEntryIs(nullptr);
    FAIL() << "a null wrapper was taken";
  } catch (const Zev::MutatorArgNullPointerException& refused) {
    EXPECT_THAT(refused.what(), HasSubstr("transientAddEntry"));
  }
  EXPECT_EQ(table().transientAddEntry().size(), 1U);
  EXPECT_THAT(observer.changes(), IsEmpty());
}

TEST_F(FecTableSwTableTest, ANullPendingRemoveIsRefusedByNameAndChangesNothing) {
  table().transientRemoveEntryIs(wrapper(table(), 5));
  const TableObserver observer(table());
  try {
    table().transientRemoveEntryIs(nullptr);
    FAIL() << "a null wrapper was taken";
  } catch (const Zev::MutatorArgNullPointerException& refused) {
    EXPECT_THAT(refused.what(), HasSubstr("transientRemoveEntry"));
  }
  EXPECT_EQ(table().transientRemoveEntry().size(), 1U);
  EXPECT_THAT(observer.changes(), IsEmpty());
}

TEST_F(FecTableSwTableTest, AnObserverSeesEachAttributeAlreadyChanged) {
  std::vector<bool> seen;
  const TableObserver observer(table(), [&](const TableChange& change) {
    switch (change.attribute) {
      case kAdd:
        seen.push_back(pendingWrite(5) != nullptr);
        break;
      case kRemove:
        seen.push_back(pendingRemove(5) != nullptr);
        break;
      case kVersion:
        seen.push_back(pendingVersion(5).has_value());
        break;
      default:
        seen.push_back(table().transientRemoveAllVersion().valid());
    }
  });
  table().transientAddEntryIs(wrapper(table(), 5));
  table().transientAddEntryDel(key(5));
  table().transientRemoveEntryIs(wrapper(table(), 5));
  table().transientRemoveEntryDel(key(5));
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion());
  table().transientVersionForKeyDel(key(5));
  table().transientRemoveAllVersionIs(Asic::MajorVersion(0));
  table().transientRemoveAllVersionIs(Asic::MajorVersion());
  EXPECT_THAT(seen, ElementsAre(true, false, true, false, true, false, true, false));
}

TEST_F(FecTableSwTableTest, AKeyThatStandsInWhatIsRemovedIsPublishedWhole) {
  table().transientAddEntryIs(wrapper(table(), 5));
  table().transientRemoveEntryIs(wrapper(table(), 6));
  const TableObserver observer(table());
  table().transientAddEntryDel(pendingWrite(5)->key());
  table().transientRemoveEntryDel(pendingRemove(6)->key());
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kAdd, 5}, TableChange{kRemove, 6}));
}

// Destruction.

// Says when the last copy of a closure that holds it goes.
std::shared_ptr<void> farewell(std::vector<std::string>& order, const std::string& text) {
  return {nullptr, [&order, text](std::nullptr_t) { order.push_back(text); }};
}

FecTableSwTable::ResponseHandler holding(std::shared_ptr<void> what) {
  return [held = std::move(what)](const auto&) { FAIL() << "a handler was called"; };
}

// An object of the table that says when it goes.
template <typename Base>
class Farewell : public Base {
 public:
  template <typename... Arguments>
  explicit Farewell(std::shared_ptr<void> said, Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...), said_(std::move(said)) {}

 private:
  std::shared_ptr<void> said_;
};

TEST_F(FecTableSwTableTest, DestructionReleasesEachPartInItsTurn) {
  using Client = RecordingResourceClient;
  using Helper = ScriptedHelper;
  std::vector<std::string> order;
  auto& entityManager = log().entityManager();
  const auto said = [&order](const char* text) { return farewell(order, text); };
  {
    // Another table's name, so that its log is mounted beside the agent's.
    const TemporaryRoot root;
    const auto elsewhere = Zev::makeObject<Vanta::EntityManager>(root.path());
    EXPECT_NE(elsewhere, entityManager);
    auto made = LoamFec::fecTableSwTableFactory(
        Zev::makeObject<Farewell<Asic::CanonicalTableName>>(
            said("name"), Asic::OrderedTableType::orderedSwTable, "LoamAdj", "FecTable"),
        tableId_, Asic::UnitId(7),
        Zev::makeObject<Farewell<Asic::OrderedSwTableStatus>>(said("status"), tableId_),
        Zev::makeObject<Farewell<FecTableEntryLog>>(said("log"), tableId_, elsewhere,
                                                    log().groupLogInterface()),
        Zev::makeObject<Farewell<Asic::GroupResolver>>(said("resolver"), agent_.loop()));
    made->swTableHelperIs(Zev::makeObject<Farewell<Helper>>(said("helper")));
    made->transientAddEntryIs(wrapper(*made, 1, 0, holding(said("pending write"))));
    made->transientRemoveEntryIs(wrapper(*made, 2, 0, holding(said("pending remove"))));
    for (const char* text : {"first in log", "second in log"}) {
      const auto handle =
          FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(3), made.get());
      handle->responseHandlerIs(holding(said(text)));
      made->entryHandleInLogEnq(handle);
    }
    made->intfIdToDestIdLinkageIs(LoamFec::fecTableIntfIdToDestIdLinkageFactory(
        made.get(), Zev::makeObject<Farewell<Client>>(said("linkage"))));
    ASSERT_THAT(order, IsEmpty());
    made = nullptr;
  }
  EXPECT_THAT(order, ElementsAre("linkage", "first in log", "second in log", "resolver", "log",
                                 "pending remove", "pending write", "helper", "status", "name"));
}

TEST_F(FecTableSwTableTest, DestructionReleasesEveryWrapperAndHandleOnce) {
  const std::int64_t wrappers = live<FecTableEntryWrapper>();
  const std::int64_t handles = live<FecTableSwTable::EntryHandle>();
  auto made = looseTable();
  for (std::uint32_t fecId = 0; fecId < 20; ++fecId) {
    made->transientAddEntryIs(wrapper(*made, fecId, 0, holding(nullptr)));
    made->transientRemoveEntryIs(wrapper(*made, fecId + 100, 0, holding(nullptr)));
    made->transientVersionForKeyIs(key(fecId), Asic::EntryVersion(fecId, 0));
    const auto inLog =
        FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(fecId), made.get());
    inLog->responseHandlerIs(holding(nullptr));
    made->entryHandleInLogEnq(inLog);
  }
  EXPECT_EQ(live<FecTableEntryWrapper>(), wrappers + 40);
  EXPECT_EQ(live<FecTableSwTable::EntryHandle>(), handles + 60);
  const auto kept = made->entryHandleInLog(3);
  made = nullptr;
  EXPECT_EQ(live<FecTableEntryWrapper>(), wrappers);
  EXPECT_EQ(live<FecTableSwTable::EntryHandle>(), handles + 1);
  EXPECT_EQ(kept->references(), 1U);
  EXPECT_EQ(kept->entryState(), State::notResolved);
}

TEST_F(FecTableSwTableTest, NoDestructorThrows) {
  EXPECT_TRUE(std::is_nothrow_destructible_v<FecTableSwTable>);
  EXPECT_TRUE(std::is_nothrow_destructible_v<FecTableSwTable::EntryHandle>);
  EXPECT_TRUE(std::is_nothrow_destructible_v<FecTableSwTableHelperBase>);
  EXPECT_TRUE(std::is_nothrow_destructible_v<FecTableEntryWrapper>);
}

TEST_F(FecTableSwTableTest, DestructionPublishesNothing) {
  auto made = looseTable();
  made->transientAddEntryIs(wrapper(*made, 1));
  made->transientRemoveEntryIs(wrapper(*made, 2));
  made->transientVersionForKeyIs(key(1), Asic::EntryVersion());
  made->entryHandleInLogEnq(
      FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(3), made.get()));
  TableObserver observer(*made);
  made = nullptr;
  observer.release();
  EXPECT_THAT(observer.changes(), IsEmpty());
}

TEST_F(FecTableSwTableTest, WhatTheQueueReleasesFindsItsTableMarkedAndTheQueueEmpty) {
  auto made = looseTable();
  FecTableSwTable* const plain = made.get();
  std::vector<bool> seen;
  const auto look = [plain, &seen](std::nullptr_t) {
    seen = {plain->hasNotificationActive(), plain->isBeingDestroyed(),
            plain->entryHandlesInLog() == 0, plain->entryHandleInLogHas(1),
            static_cast<bool>(plain->entryHandleInLogFront())};
  };
  for (const bool looks : {true, false}) {
    const auto handle = FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(3), plain);
    handle->responseHandlerIs(
        holding(looks ? std::shared_ptr<void>(nullptr, look) : std::shared_ptr<void>()));
    made->entryHandleInLogEnq(handle);
  }
  ASSERT_THAT(seen, IsEmpty());
  made = nullptr;
  EXPECT_THAT(seen, ElementsAre(false, true, true, false, false));
}

}  // namespace
