// SPDX-License-Identifier: Apache-2.0

// What printers_test.py looks at: one object of each kind that the printers know, alive in a frame
// of main() when shown() is called.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "Asic/GroupLogRows.h"
#include "Pell/HashMap.h"
#include "records/FecSharedRows.h"
#include "records/FecTableDataModelSwTableBase.h"
#include "testing/FecHarness.h"

// Where the debugger stops.
[[gnu::noinline]] void shown() { asm volatile(""); }

namespace {

using Asic::LogVersion;
using Asic::SwTableId;
using Asic::TableVersion;
using LoamFec::FecTableDataModelConfigGlintEntry;
using LoamFec::FecTableDataModelEntryKey;
using LoamFec::FecTableDataModelLogGlintEntry;
using LoamFec::FecTableDataModelSwTableBase;
using Wirex::IntfId;

constexpr std::uint32_t kSalt = 1;
using Key = FecTableDataModelEntryKey;
using HandlePtr = Pell::Ptr<FecTableDataModelSwTableBase::FecEntryHandle const>;
using Map = Pell::HashMap<Key, std::uint32_t, LoamFec::FecKeyHash<kSalt>>;
using HandleMap = Pell::HashMap<Key, HandlePtr, LoamFec::FecKeyHash<kSalt>>;

constexpr SwTableId kTable(0x03010805);
constexpr SwTableId kOther(0x03010806);

// Kept by a pointer's own count.
struct Plain : Pell::SharedByOneThread<Plain> {
  int number = 5;
};

// As a class looks whose library has no debug information.
class Declared;
static_assert(sizeof(Pell::Ptr<Declared>) == sizeof(void*));

LoamFec::FecTableDataModelLogEntry logEntry() {
  LoamFec::FecTableDataModelLogEntry entry;
  entry.key = Key(7);
  entry.flagA = 1;
  entry.clientDest = {0x11, 2, 0, 3};
  entry.opaqueA = 44;
  entry.opaqueB = 55;
  entry.flagB = 2;
  entry.resolvedDest = {0x66, 7, 0, 8};
  return entry;
}

// Of each operation, and of one that is none.
std::vector<FecTableDataModelLogGlintEntry> ofEachOperation() {
  std::vector<FecTableDataModelLogGlintEntry> rows;
  for (std::uint16_t operation = 0; operation <= 3; ++operation) {
    rows.emplace_back(LogVersion(9), operation, Asic::UnitId(3), logEntry());
  }
  return rows;
}

// In each state, and in one that is none.
std::vector<Pell::Ptr<testing_support::FakeDependency>> inEachState() {
  std::vector<Pell::Ptr<testing_support::FakeDependency>> dependencies;
  for (std::uint8_t state = 0; state <= 6; ++state) {
    dependencies.push_back(Zev::makeObject<testing_support::FakeDependency>(TableVersion()));
    dependencies.back()->stateIs(static_cast<Asic::EntryState>(state));
  }
  return dependencies;
}

// An identifier of each prefix and of each kind of word, and values that no name has.
std::vector<IntfId> identifiers() {
  std::vector<IntfId> all{IntfId(),
                          IntfId::fromName("uplink-7"),
                          IntfId::fromName("UpLink"),
                          IntfId::fromName("Ethernet3/1/2.100"),
                          IntfId::fromName("enp3s0f0np1"),
                          IntfId::fromValue(1),
                          IntfId::fromValue(~std::uint64_t{0})};
  for (std::uint64_t row = 0; row <= 0xFF; ++row) {
    all.push_back(IntfId::fromValue(std::uint64_t{1} << 62 | row << 54 | std::uint64_t{2} << 34));
    all.push_back(IntfId::fromValue(std::uint64_t{1} << 62 | row << 54 | std::uint64_t{2} << 34 |
                                    std::uint64_t{4} << 26 | std::uint64_t{6} << 19 |
                                    std::uint64_t{8} << 13 | 10));
  }
  return all;
}

// For the test to compare what the printer makes of each with.
void printNames(const std::vector<IntfId>& all) {
  for (const IntfId id : all) {
    std::printf("name %s\n", id.name().c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int main() {
  // Pointers.
  const HandlePtr noHandle;
  testing_support::FecHarness agent;
  const HandlePtr handle =
      agent.table().entryWrite(Key(7), testing_support::FecHarness::entry(""), nullptr);
  agent.table().entryWrite(Key(6), testing_support::FecHarness::entry("eth1", 44), nullptr);
  agent.run();
  const Pell::Ptr<LoamFec::FecTableEntryWrapper> waiting =
      *agent.table().transientAddEntry().find(Key(6));
  const auto committed = LoamFec::FecTableEntryWrapper::FecTableEntryWrapperIs(
      testing_support::FecHarness::entry("eth1", 44), nullptr);
  const Pell::Ptr<Asic::DependencyEntryHandle const> asDependency(handle);
  const auto unlogged = Zev::makeObject<FecTableDataModelSwTableBase::FecEntryHandle>(
      Asic::EntryVersion(2, 3), Key(8), nullptr);
  [[maybe_unused]] const auto dependencies = inEachState();
  const auto resource = Zev::makeObject<testing_support::ScriptedResourceHandle>(
      LoamAdjLib::IntfIdToDestIdResourceTableEntryKey(IntfId::fromName("eth1")));
  resource->contentsAre(Asic::EntryState::done, {200, 2, 22});
  resource->contentsAre(Asic::EntryState::done, {100, 1, 11});
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  const Pell::Ptr<Plain> plain(new Plain);
  [[maybe_unused]] const auto& declared =
      reinterpret_cast<const Pell::Ptr<Declared>&>(plain);  // seen by the debugger alone

  // Maps: one with more than two chunks of slots and a hole.
  const Map emptyMap;
  Map map;
  for (std::uint32_t fecId = 100; fecId < 130; ++fecId) {
    map.insertOrAssign(Key(fecId), fecId + 1000);
  }
  map.erase(Key(101));
  HandleMap handles;
  handles.insertOrAssign(Key(7), handle);
  handles.insertOrAssign(Key(8), nullptr);

  // Rows.
  [[maybe_unused]] const auto logRows = ofEachOperation();
  const FecTableDataModelConfigGlintEntry configRow(logEntry(), {IntfId::fromName("eth1")},
                                                    LogVersion(9), true);
  const std::array needs{TableVersion(kOther, LogVersion(4)), TableVersion(kTable, LogVersion(5))};
  const Asic::GroupLogRow groupRow(12, {kTable, LogVersion(9)}, needs,
                                   Asic::GroupLogRow::kContinued);
  const Asic::GroupLogRow lastGroupRow(13, {kTable, LogVersion(9)}, {},
                                       Asic::GroupLogRow::kContinuation);
  const std::array<TableVersion, Asic::GroupLogRow::kNeededPerRow> most{};
  [[maybe_unused]] const Asic::GroupLogRow fullGroupRow(14, {kTable, LogVersion(9)}, most);
  Asic::GroupLogRow damagedGroupRow = lastGroupRow;
  constexpr std::uint32_t kOneTooMany = Asic::GroupLogRow::kNeededPerRow + 1;
  std::memcpy(reinterpret_cast<std::byte*>(&damagedGroupRow) + 20, &kOneTooMany,
              sizeof kOneTooMany);
  const Asic::GroupVersionRow appliedRow({kOther, LogVersion(4)});
  [[maybe_unused]] const auto entry =
      LoamFec::FecTableDataModelEntry::fromLog(logEntry(), configRow.rsrcKeys());

  // Values.
  [[maybe_unused]] const Key key(7);
  [[maybe_unused]] const LoamFec::FecTableDataModelResourceKeys resourceKeys{
      IntfId::fromName("swp1s0")};
  const LogVersion logVersion(9);
  [[maybe_unused]] const Asic::MajorVersion majorVersion(6);
  [[maybe_unused]] const Asic::EntryVersion entryVersion(2, 3);
  [[maybe_unused]] const TableVersion tableVersion(kTable, logVersion);
  [[maybe_unused]] const Asic::UnitId unitId(3);
  [[maybe_unused]] const LoamAdjLib::DestId destId{100, 1, 11};
  const std::vector<IntfId> ids = identifiers();
  printNames(ids);
  shown();
  return noHandle || map.has(Key(101)) || !emptyMap.empty() ? 1 : 0;
}
