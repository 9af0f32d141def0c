// SPDX-License-Identifier: Apache-2.0

// The group comes first, because the resource table belongs to it and the FEC table wants both; the
// hardware side comes last, because it reads what the others have mounted.

#include "agent/FecAgent.h"

#include <cstddef>
#include <span>
#include <utility>

#include "Asic/CanonicalTableName.h"
#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Vanta/EntityManager.h"

namespace Agent {

namespace {

using LoamFec::FecTableConstants;

}  // namespace

FecAgent::FecAgent(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds,
                   const Asic::HardwareMaker& makeHardware, AgentStart start)
    : hardware_(std::move(start.hardware)) {
  const auto entityManager = Zev::makeObject<Vanta::EntityManager>(stateFolder);
  orderedTables_ = Zev::makeObject<Asic::OrderedTableInterface>(loop_, entityManager);
  orderedTables_->makeGroupIntf(FecTableConstants::kAgentName, FecTableConstants::kGroupName,
                                FecTableConstants::kTableId.agentAndGroupId());
  group_ = orderedTables_->groupIntf(Asic::Constants::canonicalizeGroupName(
      FecTableConstants::kAgentName, FecTableConstants::kGroupName));
  resourceTable_ =
      Zev::makeObject<ResourceTable>(loop_, group_->groupResolver(), group_->groupLog());
  const auto name = Zev::makeObject<Asic::CanonicalTableName>(
      Asic::OrderedTableType::resourceTable, "", "IntfIdToDestIdResourceTable.LoamAdj");
  orderedTables_->resourceTableIs(name->name(), resourceTable_);
  fec_ = LoamFec::FecTableInterface::getIntf(orderedTables_);
  for (const Asic::UnitId unitId : unitIds) {
    fec_->makeSwTable(unitId, nullptr, start.reset);
  }
  if (hardware_) {
    resynchronisation_ = hardware_->resynchronise();
  } else {
    hardware_ = makeHardware(stateFolder, unitIds, Asic::Writer::onThisThread);
  }
  for (const Asic::UnitId unitId : unitIds) {
    sweepOrphans(unitId);
  }
  hardwareTurns_ =
      std::make_unique<Hardware::HardwareTurns>(loop_, group_, fec_->swTableStatus(), *hardware_);
  hardwareTurns_->resume();
}

// A deletion's log row may be cleaned up while its unit's configuration table is not mounted, or
// just before the process dies: the row it marked then has nothing left that would remove it. The
// hardware has taken it, though perhaps nobody lived to record that. When damage hides whether
// there is a log row, the marked one stays.
void FecAgent::sweepOrphans(Asic::UnitId unitId) {
  const auto unit = fec_->entryLog()->tableConfigGlint(unitId);
  auto& entries = unit->swTableEntries();
  auto& log = fec_->entryLog()->tableEntryLog()->entryLogConfig();
  const Asic::LogVersion applied = hardware_->appliedVersion(FecTableConstants::kTableId);
  (void)Glint::walkOverDamage(entries, [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
    if (!row.isDeleted() || row.version() > applied) {
      return;
    }
    bool hasLogRow = true;
    Glint::guarded(log, [&] { hasLogRow = log.has(row.version()); });
    if (!hasLogRow) {
      unit->swTableEntriesDel(row.key());
    }
  });
}

bool FecAgent::hardwareEqualsTable(Asic::UnitId unitId) const {
  auto& entries = fec_->entryLog()->tableConfigGlint(unitId)->swTableEntries();
  std::uint32_t live = 0;
  bool equal = true;
  const auto compare = [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
    if (row.isDeleted()) {
      return;
    }
    ++live;
    LoamFec::FecTableDataModelLogEntry held;
    equal = equal &&
            hardware_->entry(FecTableConstants::kTableId, unitId, row.key().fecId(),
                             std::as_writable_bytes(std::span(&held, 1))) &&
            LoamFec::FecTableDataModelLogEntry::isEq(held, row.logEntry());
  };
  const bool sawAll = Glint::walkOverDamage(entries, compare);
  return sawAll && equal && live == hardware_->entries(FecTableConstants::kTableId, unitId);
}

}  // namespace Agent
