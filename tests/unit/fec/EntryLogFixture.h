// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "FecTestNames.h"
#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "fec/FecTableEntryLog.h"
#include "testing/TableFile.h"

// An entry log without the rest of an agent, and ways to look at what it leaves in shared memory
// and to damage that.

namespace fec_test {

using Key = FecTableDataModelEntryKey;
using LogEntry = FecTableDataModelLogEntry;
using ResourceKeys = LoamFec::FecTableDataModelResourceKeys;
using LogRow = FecTableDataModelLogGlintEntry;
using ConfigRow = FecTableDataModelConfigGlintEntry;
using LogEntity = LoamFec::FecTableDataModelEntryLogGlint;
using ConfigEntity = LoamFec::FecTableDataModelConfigGlint;
using LogRows = Glint::GlintMap<LogRow>;
using ConfigRows = Glint::GlintMap<ConfigRow>;
using Needed = Pell::Ptr<const Asic::NeededEntry>;

inline constexpr UnitId kUnit{0};
inline constexpr UnitId kOtherUnit{1};
inline const Pell::String kLogPath = FecTableConstants::entryLogGlintPath();

// The mark tells two contents of one key apart.
inline LogEntry logEntry(std::uint32_t fecId, std::uint32_t mark = 0) {
  LogEntry entry;
  entry.key = Key(fecId);
  entry.opaqueA = mark;
  return entry;
}
inline ResourceKeys resourceKeys(const Pell::String& intfName) {
  return {Wirex::IntfId::fromName(intfName)};
}

// Group log that keeps what is announced; onAnnounce may look around.
class RecordingGroupLog : public Zev::Typed<RecordingGroupLog, Asic::GroupLogInterface> {
 public:
  static constexpr const char* kTypeName = "fec_test::RecordingGroupLog";
  struct Announcement {
    Asic::SwTableId tableId;
    LogVersion version;
    Needed needed;
  };

  void addGroupLogEntry(Asic::SwTableId tableId, LogVersion version,
                        const Needed& neededEntry) override {
    announced.push_back({tableId, version, neededEntry});
    if (onAnnounce) {
      onAnnounce(version);
    }
  }

  bool hasRoomFor(const Needed& neededEntry) const override {
    askedRoomFor.push_back(neededEntry);
    return hasRoom;
  }

  std::vector<Announcement> announced;
  std::function<void(LogVersion)> onAnnounce;
  bool hasRoom = true;
  mutable std::vector<Needed> askedRoomFor;
};

// The tables as another process sees them.
class Reader {
 public:
  explicit Reader(const Pell::String& root)
      : entityManager_(Zev::makeObject<Vanta::EntityManager>(root)) {}

  Pell::Ptr<LogEntity> log() const {
    return ZevSharedMem::mountForReading<LogEntity>(entityManager_, kLogPath);
  }
  Pell::Ptr<ConfigEntity> config(UnitId unit) const {
    return ZevSharedMem::mountForReading<ConfigEntity>(entityManager_,
                                                       FecTableConstants::configGlintPath(unit));
  }

 private:
  Pell::Ptr<Vanta::EntityManager> entityManager_;
};

// The file behind a collection, for damage done under the eyes of those that have mounted it.
template <typename Row>
class RowFile {
  using Traits = Glint::RowTraits<Row>;

 public:
  explicit RowFile(const Glint::GlintMap<Row>& rows) : path_(rows.filePath()), offsets_(path_) {}

  const Pell::String& path() const { return path_; }
  const testing_support::Offsets& offsets() const { return offsets_; }

  // The slot that holds the key's row; the key must have one.
  std::uint32_t slotOf(const typename Traits::Key& key) const {
    const auto inUse =
        testing_support::wordAt<std::uint32_t>(path_, offsetof(Glint::Header, slotsInUse));
    for (std::uint32_t slot = 0; slot < inUse; ++slot) {
      const Glint::Seq seq(testing_support::wordAt(path_, offsets_.slot(slot)));
      const auto word = testing_support::wordAt(path_, offsets_.row(slot, seq.copy()));
      if (seq.live() && Glint::keyBitsOf(word, sizeof key) == Traits::keyBits(key)) {
        return slot;
      }
    }
    ADD_FAILURE() << "no row of key " << Traits::keyBits(key);
    return 0;
  }
  // One bit of the row's contents, behind its key.
  void damageRow(const typename Traits::Key& key) const {
    testing_support::damageRow(path_, slotOf(key));
  }
  // One bit of the word that says what the slot holds: every reader that meets it is told.
  void damageSlot(std::uint32_t slot) const {
    testing_support::flipBit(path_, 8 * offsets_.slot(slot));
  }

 private:
  Pell::String path_;
  testing_support::Offsets offsets_;
};

// One process's entry log on a state folder.
class LogProcess {
 public:
  explicit LogProcess(const Pell::String& root)
      : entityManager_(Zev::makeObject<Vanta::EntityManager>(root)),
        groupLog_(Zev::makeObject<RecordingGroupLog>()),
        log_(LoamFec::fecTableEntryLogFactory(FecTableConstants::kTableId, entityManager_,
                                              groupLog_)) {}

  FecTableEntryLog& log() { return *log_; }
  const Pell::Ptr<FecTableEntryLog>& logPtr() { return log_; }
  RecordingGroupLog& groupLog() { return *groupLog_; }
  const Pell::Ptr<RecordingGroupLog>& groupLogPtr() { return groupLog_; }
  const Pell::Ptr<Vanta::EntityManager>& entityManager() { return entityManager_; }
  LogRows& logRows() { return log_->tableEntryLog()->entryLogConfig(); }
  ConfigRows& configRows(UnitId unit = kUnit) {
    return log_->tableConfigGlint(unit)->swTableEntries();
  }

  LogVersion write(std::uint32_t fecId, std::uint32_t mark = 0, UnitId unit = kUnit) {
    return log_->entryIs(logEntry(fecId, mark), resourceKeys("eth1"), nullptr, unit);
  }
  LogVersion remove(std::uint32_t fecId, UnitId unit = kUnit) {
    return log_->entryDel(Key(fecId), nullptr, unit);
  }
  LogVersion removeAll(UnitId unit = kUnit) { return log_->tableDel(nullptr, unit); }

 private:
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<RecordingGroupLog> groupLog_;
  Pell::Ptr<FecTableEntryLog> log_;
};

// A test on one state folder, with two units mounted.
class EntryLogTest : public LeakCheckedTest {
 protected:
  EntryLogTest() { start(); }

  // As a new process finds the state folder.
  void restart() {
    process_.reset();
    start();
  }
  void start() {
    process_.emplace(root_.path());
    process_->log().mountGlintConfig(kUnit);
    process_->log().mountGlintConfig(kOtherUnit);
  }
  void stop() { process_.reset(); }

  const Pell::String& root() const { return root_.path(); }
  LogProcess& process() { return *process_; }
  FecTableEntryLog& log() { return process_->log(); }
  LogRows& logRows() { return process_->logRows(); }
  ConfigRows& configRows(UnitId unit = kUnit) { return process_->configRows(unit); }
  RecordingGroupLog& groupLog() { return process_->groupLog(); }

  LogVersion write(std::uint32_t fecId, std::uint32_t mark = 0, UnitId unit = kUnit) {
    return process_->write(fecId, mark, unit);
  }
  LogVersion remove(std::uint32_t fecId, UnitId unit = kUnit) {
    return process_->remove(fecId, unit);
  }
  LogVersion removeAll(UnitId unit = kUnit) { return process_->removeAll(unit); }

  std::vector<std::uint64_t> loggedVersions() {
    std::vector<std::uint64_t> versions;
    for (auto at = logRows().iterator(); at.valid(); at.advance()) {
      versions.push_back(at.row().version().value());
    }
    std::sort(versions.begin(), versions.end());
    return versions;
  }
  std::vector<std::uint32_t> configuredKeys(UnitId unit = kUnit) {
    std::vector<std::uint32_t> keys;
    for (auto at = configRows(unit).iterator(); at.valid(); at.advance()) {
      keys.push_back(at.row().key().fecId());
    }
    std::sort(keys.begin(), keys.end());
    return keys;
  }

 private:
  TemporaryRoot root_;
  std::optional<LogProcess> process_;
};

}  // namespace fec_test
