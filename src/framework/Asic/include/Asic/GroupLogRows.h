// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "Asic/Constants.h"
#include "Asic/NeededEntry.h"
#include "Glint/GlintMap.h"
#include "Zev/Entity.h"

// Shared-memory rows of a group of tables, and the entities that hold them. Little-endian, packed,
// fixed offsets: other processes read them.

namespace Asic {

// One operation of one table, in the order in which the group must see it, keyed by its place in
// that order (from 1). An operation that needs more versions than a row holds takes several rows
// with consecutive sequences, all of the same table and version.
//
// Layout: 120 bytes: sequence 0, version 8, tableId 16, needed count and marks 20, needed versions
// from 24 on, each 12 bytes: table id 0, version 4. Elements at and beyond the count are zero.
class GroupLogRow {
 public:
  static constexpr std::uint32_t kNeededPerRow = 8;
  // Marks, in the same word as the count. Of the rows of one operation, all but the last are marked
  // as continued and all but the first as continuations, so that what is left of an incomplete
  // operation is not taken for another one.
  static constexpr std::uint32_t kContinued = 1U << 31;
  static constexpr std::uint32_t kContinuation = 1U << 30;

  // Number of rows for that many needed versions, at least 1.
  static constexpr std::uint64_t rowsFor(std::uint64_t neededVersions) {
    return neededVersions == 0 ? 1 : (neededVersions + kNeededPerRow - 1) / kNeededPerRow;
  }

  GroupLogRow() = default;
  // More than kNeededPerRow versions in one row stop the process.
  GroupLogRow(std::uint64_t sequence, TableVersion tableVersion,
              std::span<const TableVersion> needed, std::uint32_t marks);
  // An operation of one row.
  GroupLogRow(std::uint64_t sequence, TableVersion tableVersion,
              std::span<const TableVersion> needed = {})
      : GroupLogRow(sequence, tableVersion, needed, 0) {}

  std::uint64_t sequence() const { return sequence_; }
  TableVersion tableVersion() const { return {SwTableId(tableId_), LogVersion(version_)}; }
  // More of what the operation needs stands in the next row.
  bool isContinued() const { return (countAndMarks_ & kContinued) != 0; }
  // The row belongs to the operation of the row before.
  bool isContinuation() const { return (countAndMarks_ & kContinuation) != 0; }
  // False for a count that no writer leaves; needed() must not be called then.
  bool isPlausible() const { return neededCount() <= kNeededPerRow; }
  std::uint32_t neededCount() const { return countAndMarks_ & ~(kContinued | kContinuation); }
  TableVersion needed(std::uint32_t at) const {
    return {SwTableId(needed_[at].tableId), LogVersion(needed_[at].version)};
  }

 private:
#pragma pack(push, 4)
  struct Needed {
    std::uint32_t tableId = 0;
    std::uint64_t version = 0;
  };
#pragma pack(pop)
  static_assert(sizeof(Needed) == 12);

  std::uint64_t sequence_ = 0;
  std::uint64_t version_ = 0;
  std::uint32_t tableId_ = 0;
  std::uint32_t countAndMarks_ = 0;
  std::array<Needed, kNeededPerRow> needed_ = {};
};
static_assert(sizeof(GroupLogRow) == 120);

// The version up to which the hardware has applied one table of the group, keyed by the table id.
//
// Layout: 16 bytes: tableId 0, zero 4, version 8.
class GroupVersionRow {
 public:
  GroupVersionRow() = default;
  explicit GroupVersionRow(TableVersion tableVersion)
      : tableId_(tableVersion.tableId().value()), version_(tableVersion.logVersion().value()) {}

  TableVersion tableVersion() const { return {SwTableId(tableId_), LogVersion(version_)}; }

 private:
  std::uint32_t tableId_ = 0;
  [[maybe_unused]] std::uint32_t zero4_ = 0;
  std::uint64_t version_ = 0;
};
static_assert(sizeof(GroupVersionRow) == 16);

}  // namespace Asic

template <>
struct Glint::RowTraits<Asic::GroupLogRow> {
  using Key = std::uint64_t;
  static Key key(const Asic::GroupLogRow& row) { return row.sequence(); }
  static std::uint64_t keyBits(Key key) { return key; }
  static constexpr bool kRisingKeys = true;
  static constexpr const char* kTypeName = "Asic::GroupLogRow";
  static constexpr std::uint32_t kLayoutVersion = 1;
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) {
    return capacity + Asic::Constants::kRedriveRows;
  }
};

template <>
struct Glint::RowTraits<Asic::GroupVersionRow> {
  using Key = Asic::SwTableId;
  static Key key(const Asic::GroupVersionRow& row) { return row.tableVersion().tableId(); }
  static std::uint64_t keyBits(Key key) { return key.value(); }
  static constexpr bool kRisingKeys = false;
  static constexpr const char* kTypeName = "Asic::GroupVersionRow";
  static constexpr std::uint32_t kLayoutVersion = 1;
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) { return 2 * capacity; }
};
