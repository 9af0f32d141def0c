// SPDX-License-Identifier: Apache-2.0

#include "GoldenState.h"

#include <vector>

#include <fmt/format.h>

#include "SparseText.h"
#include "testing/TableFile.h"
#include "testing/TextFile.h"

namespace format_test {

namespace {

using Asic::LogVersion;
using Asic::SwTableId;
using LoamFec::FecTableConstants;
using ZevGlint::ZevGlintType;

constexpr SwTableId otherTable(std::uint32_t number) { return SwTableId(0x03010805 + number); }

template <typename Entity>
Pell::Ptr<Entity> mounted(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                          const Pell::String& path, ZevGlintType type) {
  return ZevSharedMem::mountEntity<Entity>(entityManager, path, type, Entity::kCapacity);
}

LoamFec::FecTableDataModelResourceKeys interface(const char* name) {
  return {Wirex::IntfId::fromName(name)};
}

std::vector<Asic::TableVersion> needs(std::uint32_t tables, std::uint64_t version) {
  std::vector<Asic::TableVersion> needed;
  for (std::uint32_t table = 1; table <= tables; ++table) {
    needed.emplace_back(otherTable(table), LogVersion(version + table));
  }
  return needed;
}

// In each table the fifth row is the one that is damaged afterwards.
void writeConfig(Glint::GlintMap<ConfigRow>& rows) {
  rows.rowIs({logEntry(7, 1), interface("eth7"), LogVersion(1), false});
  rows.rowIs({logEntry(8, 2), interface("Ethernet3/1/2.100"), LogVersion(2), false});
  rows.rowIs({LoamFec::FecTableDataModelLogEntry{}, {}, LogVersion(3), false});
  rows.rowIs({logEntry(10, 4), interface("uplink-a"), LogVersion(4), false});
  rows.rowIs({logEntry(11, 5), interface("lo"), LogVersion(5), false});
  rows.rowIs({logEntry(7, 6), interface("eth70"), LogVersion(6), false});
  rows.rowIs({logEntry(8, 2), interface("Ethernet3/1/2.100"), LogVersion(7), true});
  rows.rowDel(LoamFec::FecTableDataModelEntryKey(10));
}

void writeLog(Glint::GlintMap<LogRow>& rows) {
  rows.rowIs({LogVersion(1), LogRow::kEntryWritten, kGoldenUnit, logEntry(7, 1)});
  rows.rowIs({LogVersion(2), LogRow::kEntryDeleted, kGoldenUnit, logEntry(8, 2)});
  rows.rowIs({LogVersion(3), LogRow::kEntryWritten, Asic::UnitId(4), logEntry(9, 3)});
  rows.rowIs({LogVersion(4), LogRow::kTableDeleted, Asic::UnitId(5), {}});
  rows.rowIs({LogVersion(5), LogRow::kEntryWritten, kGoldenUnit, logEntry(11, 5)});
  rows.rowIs({LogVersion(3), LogRow::kEntryWritten, kGoldenUnit, logEntry(9, 6)});
  rows.rowDel(LogVersion(1));
  rows.control().scratchpadIs(5);
}

void writeGroup(Glint::GlintMap<Asic::GroupLogRow>& rows) {
  const SwTableId fec = FecTableConstants::kTableId;
  rows.rowIs({1, {fec, LogVersion(1)}});
  rows.rowIs({2, {fec, LogVersion(2)}, needs(1, 20)});
  rows.rowIs({3, {otherTable(1), LogVersion(3)}, needs(8, 30)});
  rows.rowIs({4, {fec, LogVersion(4)}});
  rows.rowIs({5, {fec, LogVersion(5)}});
  rows.rowIs({2, {fec, LogVersion(2)}, needs(2, 60)});
  rows.rowDel(1);
  rows.control().scratchpadIs(5);
}

void writeApplied(Glint::GlintMap<Asic::GroupVersionRow>& rows) {
  for (std::uint32_t table = 0; table < 5; ++table) {
    rows.rowIs(Asic::GroupVersionRow({otherTable(table), LogVersion(100 + table)}));
  }
  rows.rowIs(Asic::GroupVersionRow({otherTable(0), LogVersion(0x123456789)}));
  rows.rowDel(otherTable(3));
}

}  // namespace

FecTables::FecTables(const std::string& root, ZevGlintType type)
    : entityManager(Zev::makeObject<Vanta::EntityManager>(root)),
      configEntity(mounted<LoamFec::FecTableDataModelConfigGlint>(
          entityManager, FecTableConstants::configGlintPath(kGoldenUnit), type)),
      logEntity(mounted<LoamFec::FecTableDataModelEntryLogGlint>(
          entityManager, FecTableConstants::entryLogGlintPath(), type)),
      groupEntity(mounted<Asic::GroupLogGlint>(entityManager,
                                               FecTableConstants::groupLogGlintPath(), type)),
      appliedEntity(mounted<Asic::GroupVersionsGlint>(
          entityManager, FecTableConstants::groupVersionsGlintPath(), type)) {}

LoamFec::FecTableDataModelLogEntry logEntry(std::uint32_t fecId, std::uint32_t seed) {
  LoamFec::FecTableDataModelLogEntry entry;
  entry.key = LoamFec::FecTableDataModelEntryKey(fecId);
  entry.flagA = static_cast<std::uint8_t>(0x10 + seed);
  entry.clientDest = {.first = 0x20212200 + seed,
                      .second = static_cast<std::uint16_t>(0x2400 + seed),
                      .third = 0x28292a00 + seed};
  entry.opaqueA = 0x30313200 + seed;
  entry.opaqueB = 0x40414200 + seed;
  entry.flagB = static_cast<std::uint8_t>(0x50 + seed);
  entry.resolvedDest = {.first = 0x60616200 + seed,
                        .second = static_cast<std::uint16_t>(0x6400 + seed),
                        .third = 0x68696a00 + seed};
  return entry;
}

void writeGoldenState(const std::string& root) {
  {
    const FecTables tables(root, ZevGlintType::writer);
    writeConfig(tables.config());
    writeLog(tables.log());
    writeGroup(tables.group());
    writeApplied(tables.applied());
  }
  for (const char* file : kGoldenFiles) {
    testing_support::damageRow(root + "/" + file, 4);
  }
  const FecTables retiring(root, ZevGlintType::writer);
}

std::string goldenText(const std::string& fileName) {
  return testing_support::textOf(std::string(GOLDEN_DIR) + "/1/" + fileName + ".txt");
}

void restoreGoldenState(const std::string& root) {
  for (const std::string file : kGoldenFiles) {
    fromText(goldenText(file), fmt::format("{}/{}", root, file));
  }
}

}  // namespace format_test
