// SPDX-License-Identifier: Apache-2.0

// The group comes first, because the resource table belongs to it and the FEC table wants both; the
// hardware side comes last, because it reads what the others have mounted.

#include "agent/FecAgent.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>

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
  orderedTables_->resourceTableIs(LoamFec::FecTableInterface::resourceTableName(), resourceTable_);
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
    fec_->entryLog()->sweepOrphans(unitId, appliedVersion());
  }
  hardwareTurns_ =
      std::make_unique<Hardware::HardwareTurns>(loop_, group_, fec_->swTableStatus(), *hardware_);
  hardwareTurns_->resume();
}

// By the hardware, or by the record of what hardware has reported before: fresh hardware that takes
// no change yet has applied nothing.
Asic::LogVersion FecAgent::appliedVersion() const {
  Asic::LogVersion applied = hardware_->appliedVersion(FecTableConstants::kTableId);
  const Pell::Ptr<Asic::GroupLog>& groupLog = group_->groupLog();
  Glint::guarded(groupLog->versionsMap(), [&] {
    if (groupLog->hasTableVersion(FecTableConstants::kTableId)) {
      applied = std::max(applied, groupLog->tableVersion(FecTableConstants::kTableId));
    }
  });
  return applied;
}

bool FecAgent::hardwareEqualsTable(Asic::UnitId unitId) const {
  std::uint32_t committed = 0;
  bool equal = true;
  const auto compare = [&](const LoamFec::FecTableSwTable::Row& row) {
    ++committed;
    LoamFec::FecTableDataModelLogEntry held;
    equal = equal &&
            hardware_->entry(FecTableConstants::kTableId, unitId, row.key().fecId(),
                             std::as_writable_bytes(std::span(&held, 1))) &&
            LoamFec::FecTableDataModelLogEntry::isEq(held, row.logEntry());
  };
  const bool sawAll = fec_->swTable(unitId)->forEachCommitted(compare);
  return sawAll && equal && committed == hardware_->entries(FecTableConstants::kTableId, unitId);
}

}  // namespace Agent
