// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Asic/Versions.h"
#include "captures/Snapshot.h"
#include "records/FecSharedTables.h"

namespace Tools {

// One unit's FEC table as it is in a state folder, read as any process may read it.
struct FecTableView {
  std::vector<LoamFec::FecTableDataModelConfigGlintEntry> rows;  // not deleted, by key
  std::uint64_t deletedRows = 0;                                 // deletions not cleaned up yet
  Asic::LogVersion logVersion;                                   // last version handed out
  std::uint32_t logRows = 0;                                     // logged, not reported applied
};

// Throws ZevGlint::MountException when the folder does not hold the table, and
// Pell::CorruptionDetectedException when it is damaged. Works whether an agent runs or not.
FecTableView readFecTable(const std::string& stateFolder, Asic::UnitId unitId);

// How a table differs from a snapshot. Next hops whose interface is not up may be absent.
struct Comparison {
  std::uint64_t equal = 0;
  std::uint64_t waiting = 0;             // absent, and the interface is not up
  std::vector<std::string> differences;  // one line each
};
Comparison compare(const FecTableView& view, const Captures::Snapshot& snapshot);

// A table for people, at most `limit` rows of it; 0 for all.
std::string fecTableText(const FecTableView& view, std::size_t limit);
// One JSON object, {"entries": [...], ...}, with stable keys.
std::string fecTableJson(const FecTableView& view);

}  // namespace Tools
