// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

#include "Asic/Constants.h"
#include "Asic/Versions.h"
#include "Glint/GlintMap.h"
#include "records/FecRecords.h"

// Shared-memory rows of the FEC table. Little-endian, fixed offsets; other processes read them.
// Members at unaligned offsets are private and read by value.

namespace LoamFec {

// One row of the entry log, keyed by its version.
//
// Layout: 56 bytes: version 0, operation 8, unit 10, log entry 12.
class FecTableDataModelLogGlintEntry {
 public:
  // Operations; readers test entryDeleted and tableDeleted as bits.
  static constexpr std::uint16_t kEntryWritten = 0;
  static constexpr std::uint16_t kEntryDeleted = 1;
  static constexpr std::uint16_t kTableDeleted = 2;

  FecTableDataModelLogGlintEntry() = default;
  FecTableDataModelLogGlintEntry(Asic::LogVersion version, std::uint16_t operation,
                                 Asic::UnitId unitId, const FecTableDataModelLogEntry& logEntry)
      : version_(version.value()),
        operation_(operation),
        unitId_(unitId.value()),
        logEntry_(logEntry) {}

  Asic::LogVersion version() const { return Asic::LogVersion(version_); }
  std::uint16_t operation() const { return operation_; }
  Asic::UnitId unitId() const { return Asic::UnitId(unitId_); }
  // The default log entry for a table deletion.
  const FecTableDataModelLogEntry& logEntry() const { return logEntry_; }

  struct Layout;

 private:
  std::uint64_t version_ = 0;
  std::uint16_t operation_ = 0;
  std::uint16_t unitId_ = 0;
  FecTableDataModelLogEntry logEntry_;
};

struct FecTableDataModelLogGlintEntry::Layout {
  static constexpr std::size_t kVersion = offsetof(FecTableDataModelLogGlintEntry, version_);
  static constexpr std::size_t kOperation = offsetof(FecTableDataModelLogGlintEntry, operation_);
  static constexpr std::size_t kUnitId = offsetof(FecTableDataModelLogGlintEntry, unitId_);
  static constexpr std::size_t kLogEntry = offsetof(FecTableDataModelLogGlintEntry, logEntry_);
};
static_assert(sizeof(FecTableDataModelLogGlintEntry) == 56);
static_assert(FecTableDataModelLogGlintEntry::Layout::kVersion == 0 &&
              FecTableDataModelLogGlintEntry::Layout::kOperation == 8 &&
              FecTableDataModelLogGlintEntry::Layout::kUnitId == 10 &&
              FecTableDataModelLogGlintEntry::Layout::kLogEntry == 12);

#pragma pack(push, 4)
// One row of a unit's configuration table, keyed by the entry's key: the entry as last committed.
//
// Layout: 64 bytes: log entry 0, resource keys 44, version 52, isDeleted 60, zero 61.
class FecTableDataModelConfigGlintEntry {
 public:
  FecTableDataModelConfigGlintEntry() = default;
  FecTableDataModelConfigGlintEntry(const FecTableDataModelLogEntry& logEntry,
                                    const FecTableDataModelResourceKeys& rsrcKeys,
                                    Asic::LogVersion version, bool isDeleted)
      : logEntry_(logEntry),
        rsrcKeys_(rsrcKeys.intfId.value()),
        version_(version.value()),
        isDeleted_(isDeleted ? 1 : 0) {}

  FecTableDataModelEntryKey key() const { return logEntry_.key; }
  const FecTableDataModelLogEntry& logEntry() const { return logEntry_; }
  FecTableDataModelResourceKeys rsrcKeys() const { return {Wirex::IntfId::fromValue(rsrcKeys_)}; }
  // The version of the last change of this row.
  Asic::LogVersion version() const { return Asic::LogVersion(version_); }
  // True from the entry's deletion until the deletion is cleaned up.
  bool isDeleted() const { return isDeleted_ != 0; }

  struct Layout;

 private:
  FecTableDataModelLogEntry logEntry_;
  std::uint64_t rsrcKeys_ = 0;
  std::uint64_t version_ = 0;
  std::uint8_t isDeleted_ = 0;
  [[maybe_unused]] std::uint8_t zero61_[3] = {};
};
#pragma pack(pop)

struct FecTableDataModelConfigGlintEntry::Layout {
  static constexpr std::size_t kLogEntry = offsetof(FecTableDataModelConfigGlintEntry, logEntry_);
  static constexpr std::size_t kRsrcKeys = offsetof(FecTableDataModelConfigGlintEntry, rsrcKeys_);
  static constexpr std::size_t kVersion = offsetof(FecTableDataModelConfigGlintEntry, version_);
  static constexpr std::size_t kIsDeleted = offsetof(FecTableDataModelConfigGlintEntry, isDeleted_);
};
static_assert(sizeof(FecTableDataModelConfigGlintEntry) == 64);
static_assert(FecTableDataModelConfigGlintEntry::Layout::kLogEntry == 0 &&
              FecTableDataModelConfigGlintEntry::Layout::kRsrcKeys == 44 &&
              FecTableDataModelConfigGlintEntry::Layout::kVersion == 52 &&
              FecTableDataModelConfigGlintEntry::Layout::kIsDeleted == 60);

}  // namespace LoamFec

template <>
struct Glint::RowTraits<LoamFec::FecTableDataModelLogGlintEntry> {
  using Key = Asic::LogVersion;
  static Key key(const LoamFec::FecTableDataModelLogGlintEntry& row) { return row.version(); }
  static std::uint64_t keyBits(Key key) { return key.value(); }
  static constexpr bool kRisingKeys = true;
  static constexpr const char* kTypeName = "LoamFec::FecTableDataModelLogGlintEntry";
  static constexpr std::uint32_t kLayoutVersion = 1;
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) {
    return capacity + Asic::Constants::kRedriveRows;
  }
};

template <>
struct Glint::RowTraits<LoamFec::FecTableDataModelConfigGlintEntry> {
  using Key = LoamFec::FecTableDataModelEntryKey;
  static Key key(const LoamFec::FecTableDataModelConfigGlintEntry& row) { return row.key(); }
  static std::uint64_t keyBits(Key key) { return key.fecId(); }
  static constexpr bool kRisingKeys = false;
  static constexpr const char* kTypeName = "LoamFec::FecTableDataModelConfigGlintEntry";
  static constexpr std::uint32_t kLayoutVersion = 1;
  // Deleted rows wait for their cleanup beside the live ones.
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) { return 2 * capacity; }
};
