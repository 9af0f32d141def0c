// SPDX-License-Identifier: Apache-2.0

// Registration, the parts that all units share, and the making and wiring of each unit's table. The
// names by which the framework's tables are known are made here too.

#include "fec/FecTableInterface.h"

#include <cstdint>
#include <optional>
#include <utility>

#include "Asic/Constants.h"
#include "Asic/SwTableInterfacesSingleton.h"
#include "Glint/Guarded.h"
#include "Pell/Assert.h"
#include "Zev/Trace.h"

namespace Asic {

Pell::String CanonicalTableName::name() const {
  switch (type_) {
    case OrderedTableType::orderedSwTable:
      return "OrderedSwTable." + first_ + "." + second_;
    case OrderedTableType::partiallyOrderedSwTable:
      return "PartiallyOrderedSwTable." + second_;
    case OrderedTableType::resourceTable:
      return "ResourceTable." + second_;
  }
  PELL_ASSERT_MESSAGE(false, "\"false\" == nullptr", "Table type undefined!");
  return {};
}

}  // namespace Asic

namespace LoamFec {

namespace {

constexpr const char* kClass = "FecTableInterface";
constexpr const char* kRegisteredName = "LoamFec::FecTableInterface";
constexpr const char* kResourceTableName = "IntfIdToDestIdResourceTable.LoamAdj";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

Pell::Ptr<Asic::SwTableInterfacesSingleton> registry() {
  const Pell::String name = Asic::SwTableInterfacesSingleton::kTypeName;
  if (!Zev::Entity::singletonExists(name)) {
    Zev::Entity::singletonIs(Asic::SwTableInterfacesSingleton::make, name);
  }
  return Asic::SwTableInterfacesSingleton::instance();
}

// What the group log has on record as applied; nothing when it has nothing or that is damaged.
std::optional<Asic::LogVersion> committedVersion(const Asic::GroupLog& groupLog) {
  std::optional<Asic::LogVersion> version;
  Glint::guarded(groupLog.versionsMap(), [&] {
    if (groupLog.hasTableVersion(FecTableConstants::kTableId)) {
      version = groupLog.tableVersion(FecTableConstants::kTableId);
    }
  });
  return version;
}

}  // namespace

Pell::Ptr<FecTableInterface> FecTableInterface::getIntf(
    Pell::Ptr<Asic::OrderedTableInterface> const& ordTblIntf) {
  if (const auto registered = registry()->swTableIntf(kRegisteredName)) {
    return Pell::dynamicPtrCast<FecTableInterface>(registered);
  }
  return Zev::makeObject<FecTableInterface>(ordTblIntf);
}

Pell::String FecTableInterface::resourceTableName() {
  return Zev::makeObject<Asic::CanonicalTableName>(Asic::OrderedTableType::resourceTable, "",
                                                   kResourceTableName)
      ->name();
}

FecTableInterface::FecTableInterface(Pell::Ptr<Asic::OrderedTableInterface> const& orderedTableIntf)
    : Typed(orderedTableIntf),
      tableName_(FecTableConstants::kTableName),
      groupName_(FecTableConstants::kGroupName),
      agentName_(FecTableConstants::kAgentName) {
  handleInitialized();
}

FecTableInterface::~FecTableInterface() {
  entryLog_ = nullptr;
  swTableStatus_ = nullptr;
  swTable_.clear();
}

Zev::TypeRecord FecTableInterface::typeRecord() {
  return {kTypeName,
          {{"tableName", 1},
           {"groupName", 2},
           {"agentName", 3},
           {"entryLog", 4},
           {"swTableStatus", 5},
           {"swTable", 6}}};
}

void FecTableInterface::handleInitialized() {
  const Pell::Ptr<Asic::SwTableInterfacesSingleton> singleton = registry();
  PELL_ASSERT_MESSAGE(!singleton->swTableIntfHas(kRegisteredName),
                      "!singleton->swTableIntfHas( \"LoamFec::FecTableInterface\" )",
                      "Interface already created");
  const Asic::SwTableId tableId = FecTableConstants::kTableId;
  orderedTableIntf()->makeGroupIntf(agentName_, groupName_, tableId.agentAndGroupId());
  const Pell::Ptr<Asic::GroupInterface> group = groupIntf();
  ZEV_TRACE(trace, 8, kClass, " Creating entry log for {}", tableId);
  entryLogIs(tableId, orderedTableIntf()->entityManager(), group->groupLogInterface());
  swTableStatusIs(tableId);
  entryLog_->versionsGoOnAbove(group->groupLog()->announced(tableId));
  group->groupLog()->announcedIs({tableId, entryLog_->tableVersion()});
  cleanUpToCommittedVersion(*group);
  ZEV_TRACE(trace, 2, kClass, " Entry log created for table id: {} at version: {}", tableId,
            entryLog_->tableVersion());
  group->swTableSetIs(tableId);
  singleton->swTableIntfIs(kRegisteredName, Pell::Ptr<Asic::TableInterfaceBase>(this));
}

// Drops what the hardware had applied when the last process ended; what the log holds beyond that
// still waits for the hardware.
void FecTableInterface::cleanUpToCommittedVersion(Asic::GroupInterface& groupIntf) {
  const std::optional<Asic::LogVersion> version = committedVersion(*groupIntf.groupLog());
  if (!version) {
    return;
  }
  entryLog_->cleanupEntryLog(*version);
  ZEV_TRACE_AS(trace, 3, kClass, "handleInitialized", " Cleaned entry log until table version: {}",
               *version);
  if (entryLog_->tableVersion() > *version) {
    swTableStatus_->pendingHwWritesIs(true);
  }
}

Pell::Ptr<FecTableSwTable> FecTableInterface::makeSwTable(
    Asic::UnitId unitId, Pell::Ptr<FecTableSwTableHelperBase> const& swTableHelper, bool reset) {
  ZEV_TRACE(trace, 8, kClass, "unitId: {}", unitId);
  const Asic::SwTableId tableId = FecTableConstants::kTableId;
  const Pell::Ptr<Asic::GroupInterface> group = groupIntf();
  PELL_ASSERT(group->swTableSetHas(tableId), "groupIntf->swTableSetHas( tableId() )");
  if (Pell::Ptr<FecTableSwTable> existing = swTable(unitId)) {
    ZEV_TRACE(trace, 3, kClass, "swTable with unitId: {} exists", unitId);
    if (swTableHelper) {
      ZEV_TRACE(trace, 2, kClass, "Update software table helper");
      existing->swTableHelperIs(swTableHelper);
    }
    if (reset) {
      ZEV_TRACE(trace, 2, kClass, " Clearing entries for table id: {}", tableId);
      existing->clearTable(false);
    }
    return existing;
  }
  if (swTable_.size() >= FecTableConstants::kMaxUnits) {
    throw FecTableUnitsException(
        fmt::format("unit {}: there are {} units already, and the logs have no room for more; use "
                    "at most {} units",
                    unitId, swTable_.size(), FecTableConstants::kMaxUnits));
  }
  if (const auto former = group->swTableSet(tableId)->swTable(unitId)) {
    end(*former);
  }
  entryLog_->mountGlintConfig(unitId);
  catchUpWithReports(*group);
  const auto name = Zev::makeObject<Asic::CanonicalTableName>(
      Asic::OrderedTableType::orderedSwTable, groupName_, tableName_);
  Pell::Ptr<FecTableSwTable> table = fecTableSwTableFactory(name, tableId, unitId, swTableStatus_,
                                                            entryLog_, group->groupResolver());
  if (swTableHelper) {
    table->swTableHelperIs(swTableHelper);
  }
  table->intfIdToDestIdLinkageIs(makeLinkage(*table));
  if (reset) {
    ZEV_TRACE(trace, 2, kClass, " Clearing entries for table id: {}", tableId);
    table->clearTable(false);
  } else {
    ZEV_TRACE(trace, 2, kClass, " Restoring entries for table id: {}", tableId);
    table->restoreEntries();
  }
  swTableIs(unitId, table);
  group->swTableSet(tableId)->swTableIs(table);
  return table;
}

// Reports that came while no unit had a table found nobody who would clean the log up for them.
void FecTableInterface::catchUpWithReports(const Asic::GroupInterface& groupIntf) {
  if (!swTable_.empty()) {
    return;
  }
  const std::optional<Asic::LogVersion> version = committedVersion(*groupIntf.groupLog());
  if (!version || *version <= entryLog_->prevTableVersion()) {
    return;
  }
  entryLog_->cleanupEntryLog(*version);
  if (entryLog_->tableVersion() == *version) {
    swTableStatus_->pendingHwWritesIs(false);
  }
}

void FecTableInterface::unitDel(Asic::UnitId unitId) {
  const Pell::Ptr<FecTableSwTable> ending = swTable(unitId);
  if (!ending) {
    return;
  }
  ZEV_TRACE(trace, 2, kClass, "unitId: {}", unitId);
  groupIntf()->swTableSet(FecTableConstants::kTableId)->swTableDel(unitId);
  swTableDel(unitId);
  end(*ending);
}

// Code that holds the table may go on reading it; nothing drives it any more.
void FecTableInterface::end(Asic::OrderedSwTable& table) {
  if (auto* ending = dynamic_cast<FecTableSwTable*>(&table)) {
    const Pell::Ptr<FecTableSwTable> held(ending);
    ending->waitingRequestsDel();
    if (const Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage = ending->intfIdToDestIdLinkage()) {
      linkage->end();
    }
  }
}

Pell::Ptr<Asic::GroupInterface> FecTableInterface::groupIntf() const {
  Pell::Ptr<Asic::GroupInterface> group =
      orderedTableIntf()->groupIntf(Asic::Constants::canonicalizeGroupName(agentName_, groupName_));
  PELL_ASSERT(group, "groupIntf");
  return group;
}

Pell::Ptr<FecTableIntfIdToDestIdLinkage> FecTableInterface::makeLinkage(
    FecTableSwTable& table) const {
  using ResourceTable = FecTableIntfIdToDestIdLinkage::ResourceTable;
  const auto resTbl = orderedTableIntf()->resourceTable(resourceTableName());
  PELL_ASSERT(resTbl, "resTbl");
  const auto typedResourceTable = Pell::dynamicPtrCast<ResourceTable>(resTbl);
  PELL_ASSERT(typedResourceTable, "typedResourceTable");
  const auto client = typedResourceTable->makeClientInstance();
  Pell::Ptr<FecTableIntfIdToDestIdLinkage> linkage =
      fecTableIntfIdToDestIdLinkageFactory(&table, client);
  client->usersHandlerIs([users = linkage.get()](const ResourceTable::Key& key) {
    const auto record = users->entryUsageSm(key);
    return record ? record->entryUsage().size() : 0U;
  });
  return linkage;
}

Pell::Ptr<FecTableEntryLog> FecTableInterface::entryLogIs(
    Asic::SwTableId tableId, Pell::Ptr<Vanta::EntityManager> const& entityManager,
    Pell::Ptr<Asic::GroupLogInterface> const& groupLogInterface) {
  const bool unchanged = entryLog_ && entryLog_->tableId() == tableId &&
                         entryLog_->entityManager() == entityManager &&
                         entryLog_->groupLogInterface() == groupLogInterface;
  if (!unchanged) {
    entryLog_ = fecTableEntryLogFactory(tableId, entityManager, groupLogInterface);
  }
  return entryLog_;
}

Pell::Ptr<Asic::OrderedSwTableStatus> FecTableInterface::swTableStatusIs(Asic::SwTableId tableId) {
  if (!swTableStatus_ || swTableStatus_->tableId() != tableId) {
    swTableStatus_ = Zev::makeObject<Asic::OrderedSwTableStatus>(tableId);
  }
  return swTableStatus_;
}

void FecTableInterface::swTableIs(Asic::UnitId unitId, Pell::Ptr<FecTableSwTable> const& table) {
  swTable_.insertOrAssign(unitId, table);
}

Pell::Ptr<FecTableSwTable> FecTableInterface::swTable(Asic::UnitId unitId) const {
  const auto* held = swTable_.find(unitId);
  return held == nullptr ? nullptr : *held;
}

}  // namespace LoamFec
