// SPDX-License-Identifier: Apache-2.0

// What holds for every class that objects are made of, from the platform to the FEC table: the name
// that its type record tells, and that no notification reaches it once its end has begun.

#include <utility>

#include "Asic/Constants.h"
#include "Asic/SwTableInterfacesSingleton.h"
#include "FecTestNames.h"
#include "Glint/SharedMemEntityManager.h"
#include "fec/FecTableInterface.h"
#include "testing/ManualEventLoop.h"

namespace fec_test {

namespace {

using Asic::SwTableId;
using LoamFec::FecTableIntfIdToDestIdLinkage;

// Tells, when the first destructor of an object of class T runs, whether its notifications are on.
template <typename T>
class Watched : public T {
 public:
  template <typename... Arguments>
  explicit Watched(bool& active, Arguments&&... arguments)
      : T(std::forward<Arguments>(arguments)...), active_(active) {}
  ~Watched() override { active_ = this->hasNotificationActive(); }

 private:
  bool& active_;
};

class FecTableObjectsTest : public LeakCheckedTest {
 protected:
  FecTableObjectsTest() {
    tables_->makeGroupIntf("LoamAdj", "LoamAdj", 0x0301);
    group_ = tables_->groupIntf("LoamAdj.LoamAdj");
  }
  ~FecTableObjectsTest() override { Zev::Entity::singletonDelAll(); }

  template <typename T, typename... Arguments>
  static void holdsFor(const char* name, Arguments&&... arguments) {
    bool active = true;
    auto object = Zev::makeObject<Watched<T>>(active, std::forward<Arguments>(arguments)...);
    EXPECT_EQ(object->fwkType().name, name);
    EXPECT_EQ(Zev::trackerOf<T>().typeName(), name);
    EXPECT_TRUE(object->hasNotificationActive()) << name;
    object = nullptr;
    EXPECT_FALSE(active) << name;
  }

  // The same for what only a mount makes.
  template <typename T>
  void holdsForMounted(const char* name, const Pell::String& path) {
    const Pell::Ptr<Vanta::EntityManager> manager =
        Zev::makeObject<Vanta::EntityManager>(root_.path());
    bool active = true;
    ZevSharedMem::entityTypeIs(name, [&active](const ZevGlint::MountSite& site) {
      return Pell::Ptr<Zev::Entity>(Zev::makeObject<Watched<T>>(active, site));
    });
    auto object = ZevSharedMem::mountForReading<T>(manager, path);
    ZevSharedMem::entityTypeIs(name, [](const ZevGlint::MountSite& site) {
      return Pell::Ptr<Zev::Entity>(Zev::makeObject<T>(site));
    });
    ASSERT_TRUE(object) << name;
    EXPECT_EQ(object->fwkType().name, name);
    EXPECT_TRUE(object->hasNotificationActive()) << name;
    manager->attachmentIs(nullptr);
    object = nullptr;
    EXPECT_FALSE(active) << name;
  }

  TemporaryRoot root_;
  testing_support::ManualEventLoop loop_;
  Pell::Ptr<Asic::OrderedTableInterface> tables_ = Zev::makeObject<Asic::OrderedTableInterface>(
      loop_, Zev::makeObject<Vanta::EntityManager>(root_.path()));
  Pell::Ptr<Asic::GroupInterface> group_;
};

TEST_F(FecTableObjectsTest, PlatformObjectsTellTheirNameAndEndWithNotificationsOff) {
  using Table = ResourceTable;
  holdsFor<Vanta::EntityManager>("Vanta::EntityManager", root_.path());
  holdsFor<ZevSharedMem::EntityManager>("ZevSharedMem::EntityManager", root_.path());
  holdsFor<Table>("LoamAdjLib::IntfIdToDestIdResourceTableResourceTable", loop_,
                  group_->groupResolver(), group_->groupLog());
  holdsFor<Table::ResourceHandle>(
      "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ResourceHandle", Table::Key());
  holdsFor<Table::ClientInstance>(
      "LoamAdjLib::IntfIdToDestIdResourceTableResourceTable::ClientInstance", nullptr);
}

TEST_F(FecTableObjectsTest, FrameworkObjectsTellTheirNameAndEndWithNotificationsOff) {
  const auto& manager = tables_->entityManager();
  holdsFor<Asic::CanonicalTableName>("Asic::CanonicalTableName",
                                     Asic::OrderedTableType::orderedSwTable, "LoamAdj", "FecTable");
  holdsFor<Asic::NeededEntry>("Asic::NeededEntry");
  holdsFor<Asic::OrderedSwTableStatus>("Asic::OrderedSwTableStatus", FecTableConstants::kTableId);
  holdsFor<Asic::OrderedSwTableSet>("Asic::OrderedSwTableSet", FecTableConstants::kTableId);
  holdsFor<Asic::SwTableInterfacesSingleton>("Asic::SwTableInterfacesSingleton", "registry");
  holdsFor<Asic::GroupResolver>("Asic::GroupResolver", loop_);
  holdsFor<Asic::GroupLog>("Asic::GroupLog", manager, "LoamAdj", "Other");
  holdsForMounted<Asic::GroupLogGlint>("Asic::GroupLogGlint",
                                       Asic::Constants::groupLogGlintPath("LoamAdj", "Other"));
  holdsForMounted<Asic::GroupVersionsGlint>(
      "Asic::GroupVersionsGlint", Asic::Constants::groupVersionsGlintPath("LoamAdj", "Other"));
  holdsFor<Asic::GroupInterface>("Asic::GroupInterface", loop_, manager, "LoamAdj", "Third",
                                 std::uint16_t{0x0302});
  holdsFor<Asic::OrderedTableInterface>("Asic::OrderedTableInterface", loop_, manager);
}

TEST_F(FecTableObjectsTest, FecTableObjectsTellTheirNameAndEndWithNotificationsOff) {
  const auto& manager = tables_->entityManager();
  const SwTableId id = FecTableConstants::kTableId;
  const FecTableDataModelEntryKey key = FecHarness::key(1);
  const auto log = LoamFec::fecTableEntryLogFactory(id, manager, group_->groupLogInterface());
  const auto status = Zev::makeObject<Asic::OrderedSwTableStatus>(id);
  log->mountGlintConfig(UnitId(0));

  holdsFor<FecTableSwTable::EntryHandle>("LoamFec::FecTableSwTable::EntryHandle",
                                         Asic::EntryVersion(), key, nullptr);
  holdsFor<FecTableEntryWrapper>("LoamFec::FecTableEntryWrapper", FecTableDataModelEntry(),
                                 nullptr);
  holdsFor<FecTableResolverEntry>("LoamFec::FecTableResolverEntry", nullptr,
                                  Asic::EntryFlags::write(), nullptr, nullptr);
  holdsFor<FecTableSwTableHelperBase>("LoamFec::FecTableSwTableHelperBase");
  holdsFor<FecTableIntfIdToDestIdLinkage>("LoamFec::FecTableIntfIdToDestIdLinkage", nullptr,
                                          nullptr);
  holdsFor<FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm>(
      "LoamFec::FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm",
      Zev::makeObject<ResourceTable::ResourceHandle>(ResourceTable::Key()), nullptr);
  holdsFor<FecTableEntryLog>("LoamFec::FecTableEntryLog", id, manager, group_->groupLogInterface());
  holdsForMounted<LoamFec::FecTableDataModelEntryLogGlint>(
      "LoamFec::FecTableDataModelEntryLogGlint", FecTableConstants::entryLogGlintPath());
  holdsForMounted<LoamFec::FecTableDataModelConfigGlint>(
      "LoamFec::FecTableDataModelConfigGlint", FecTableConstants::configGlintPath(UnitId(0)));
  holdsFor<FecTableSwTable>("LoamFec::FecTableSwTable", nullptr, id, UnitId(0), status, log,
                            group_->groupResolver());
  holdsFor<LoamFec::FecTableSwTableIteratorState>("LoamFec::FecTableSwTableIteratorState", nullptr);
  holdsFor<LoamFec::SwTableEntries_py>("LoamFec::SwTableEntries_py");
}

TEST_F(FecTableObjectsTest, TheTableInterfaceTellsItsNameAndEndsWithNotificationsOff) {
  bool active = true;
  auto object = Zev::makeObject<Watched<LoamFec::FecTableInterface>>(active, tables_);
  EXPECT_EQ(object->fwkType().name, "LoamFec::FecTableInterface");
  EXPECT_TRUE(object->hasNotificationActive());
  object = nullptr;
  EXPECT_TRUE(active) << "the registry holds it";
  Zev::Entity::singletonDelAll();
  EXPECT_FALSE(active);
}

}  // namespace

}  // namespace fec_test
