// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <string>

#include "Asic/GroupLog.h"
#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"

// The state folder whose files stand, byte by byte, in tests/format/golden/<format version>/: each
// row type with rows that were inserted, replaced, removed, and damaged and retired.

namespace format_test {

using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using LogRow = LoamFec::FecTableDataModelLogGlintEntry;

inline constexpr Asic::UnitId kGoldenUnit{3};
inline constexpr std::array<const char*, 4> kGoldenFiles = {
    "LoamAdj.FecTable.unit3.config.table", "LoamAdj.LoamAdj.FecTable.log.table",
    "LoamAdj.LoamAdj.grouplog.table", "LoamAdj.LoamAdj.applied.table"};

// The FEC tables of a state folder as one process mounts them; dropping it is its end.
//
// Kind: value, made for the length of a test's step.
struct FecTables {
  FecTables(const std::string& root, ZevGlint::ZevGlintType type);

  Pell::Ptr<Vanta::EntityManager> entityManager;
  Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> configEntity;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> logEntity;
  Pell::Ptr<Asic::GroupLogGlint> groupEntity;
  Pell::Ptr<Asic::GroupVersionsGlint> appliedEntity;

  Glint::GlintMap<ConfigRow>& config() const { return configEntity->swTableEntries(); }
  Glint::GlintMap<LogRow>& log() const { return logEntity->entryLogConfig(); }
  Glint::GlintMap<Asic::GroupLogRow>& group() const { return groupEntity->groupLog(); }
  Glint::GlintMap<Asic::GroupVersionRow>& applied() const {
    return appliedEntity->appliedVersions();
  }
};

// Writes the state below `root` by the operations of the tables.
void writeGoldenState(const std::string& root);

// What the checked-in file of a table says, for fromText().
std::string goldenText(const std::string& fileName);

// Makes the checked-in files below `root`.
void restoreGoldenState(const std::string& root);

// A log entry whose every field differs from every other and follows from `seed`.
LoamFec::FecTableDataModelLogEntry logEntry(std::uint32_t fecId, std::uint32_t seed);

}  // namespace format_test
