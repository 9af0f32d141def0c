// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Glint/Guarded.h"
#include "Zev/WorkMeter.h"
#include "records/FecTableConstants.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/StateFiles.h"
#include "testing/TestHardware.h"

namespace hardware_test {

using LoamFec::FecTableConstants;
using testing_support::FakeDependency;
using testing_support::FecHarness;

constexpr std::uint32_t kPlenty = 1'000'000;
const Asic::UnitId kUnit0(0);
const Asic::SwTableId kOther(0x03010806);
const Asic::SwTableId kThird(0x03010807);

using ConfigRows = Glint::GlintMap<LoamFec::FecTableDataModelConfigGlintEntry>;

// A whole agent, and a simulated ASIC that a test steps by hand. Entries are known by their mark.
class HardwareFixture : public testing_support::LeakCheckedTest {
 protected:
  HardwareFixture() {
    harness_.table();
    harness_.destinationIs("eth1", 100);
    start();
  }

  // A new ASIC in the place of the one that is there.
  void start(Asic::Writer writer = Asic::Writer::onThisThread) { startWith({kUnit0}, writer); }
  void startWith(const std::vector<Asic::UnitId>& units,
                 Asic::Writer writer = Asic::Writer::onThisThread) {
    asic_.reset();
    asic_.emplace(harness_.stateFolder(), units, std::make_unique<Hardware::SimulatedAsic>(),
                  writer);
  }

  void write(std::uint32_t fecId, std::uint32_t mark = 0) {
    harness_.table().entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1", mark), nullptr);
    harness_.run();
  }
  // A write without interface that needs a version of another table, announced or not.
  void writeThatNeeds(std::uint32_t fecId, std::uint32_t mark, Asic::SwTableId table,
                      std::uint64_t version) {
    const auto dependency =
        Zev::makeObject<FakeDependency>(Asic::TableVersion(table, Asic::LogVersion(version)));
    dependency->stateIs(Asic::EntryState::hwWritePending);
    harness_.table().entryWrite(FecHarness::key(fecId), FecHarness::entry("", mark), dependency);
    harness_.run();
  }
  void remove(std::uint32_t fecId) {
    harness_.table().entryRemove(FecHarness::key(fecId), nullptr);
    harness_.run();
  }
  void removeAll() {
    harness_.table().entryRemoveAll(nullptr);
    harness_.run();
  }
  // An operation of another table.
  void announce(Asic::SwTableId table, std::uint64_t version,
                const std::vector<Asic::TableVersion>& needed = {}) {
    const auto set = Zev::makeObject<Asic::NeededEntry>();
    for (const Asic::TableVersion& one : needed) {
      set->add(one);
    }
    harness_.group()->groupLog()->addGroupLogEntry(table, Asic::LogVersion(version), set);
  }
  static Asic::TableVersion fec(std::uint64_t version) {
    return {FecTableConstants::kTableId, Asic::LogVersion(version)};
  }
  // The hardware of somebody else reports.
  void reportedElsewhere(Asic::SwTableId table, std::uint64_t version) {
    harness_.group()->tableVersionApplied({table, Asic::LogVersion(version)});
    harness_.run();
  }

  // What is lost, or left by a writer that was killed.
  void loseLogRow(std::uint64_t version) {
    harness_.log().tableEntryLog()->entryLogConfigDel(Asic::LogVersion(version));
  }
  void loseGroupRow(std::uint64_t sequence) {
    auto& rows =
        static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(harness_.group()->groupLog()->logMap());
    ASSERT_TRUE(rows.rowDel(sequence));
  }
  ConfigRows& config(std::uint16_t unit = 0) {
    return harness_.log().tableConfigGlint(Asic::UnitId(unit))->swTableEntries();
  }
  static LoamFec::FecTableDataModelLogEntry logEntry(std::uint32_t fecId, std::uint32_t mark) {
    LoamFec::FecTableDataModelLogEntry entry;
    entry.key = FecHarness::key(fecId);
    entry.opaqueA = mark;
    return entry;
  }
  void configRow(std::uint32_t fecId, std::uint32_t mark, std::uint64_t version,
                 bool isDeleted = false) {
    config().rowIs({logEntry(fecId, mark), {}, Asic::LogVersion(version), isDeleted});
  }
  void logRow(std::uint32_t fecId, std::uint32_t mark, std::uint64_t version) {
    harness_.log().tableEntryLog()->entryLogConfigIs(
        {Asic::LogVersion(version), 0, kUnit0, logEntry(fecId, mark)});
  }
  void logScratchpad(std::uint64_t version) {
    harness_.log().tableEntryLog()->entryLogConfig().control().scratchpadIs(version);
  }
  // The damage is unseen by those that have it mounted; the writer's next change makes it whole.
  void damageLogScratchpad() {
    const std::string path = harness_.log().tableEntryLog()->entryLogConfig().filePath();
    for (const std::uint64_t copy : {0U, 1U}) {
      testing_support::flipBit(
          path, 8 * (offsetof(Glint::Header, scratchpad) + offsetof(Glint::ScratchpadSlot, copies) +
                     copy * sizeof(Glint::ScratchpadSlot::Copy)));
    }
  }

  std::uint64_t applied(Asic::SwTableId table = FecTableConstants::kTableId) const {
    return asic_->appliedVersion(table).value();
  }
  // Null when the hardware has no such entry. Good until it is asked for again.
  const LoamFec::FecTableDataModelLogEntry* held(std::uint32_t fecId) {
    const auto entry = testing_support::heldEntry(*asic_, kUnit0, fecId);
    return entry ? &(held_[fecId] = *entry) : nullptr;
  }
  // Key and mark of all that the unit's hardware holds.
  std::map<std::uint32_t, std::uint32_t> hardware(std::uint16_t unit = 0) const {
    std::map<std::uint32_t, std::uint32_t> content;
    testing_support::forEachHeld(*asic_, Asic::UnitId(unit), [&](const auto& entry) {
      content[entry.key.fecId()] = entry.opaqueA;
    });
    return content;
  }
  // Key and mark of all that is committed for the unit.
  std::map<std::uint32_t, std::uint32_t> committed(std::uint16_t unit = 0) {
    std::map<std::uint32_t, std::uint32_t> content;
    EXPECT_TRUE(Glint::walkOverDamage(config(unit), [&](const auto& row) {
      if (!row.isDeleted()) {
        content[row.key().fecId()] = row.logEntry().opaqueA;
      }
    }));
    return content;
  }

  FecHarness harness_;
  std::optional<Hardware::LogDrivenHardware> asic_;
  std::map<std::uint32_t, LoamFec::FecTableDataModelLogEntry> held_;
};

using Content = std::map<std::uint32_t, std::uint32_t>;

}  // namespace hardware_test
