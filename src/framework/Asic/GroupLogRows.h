#pragma once

#include <array>
#include <cstdint>

#include "Asic/NeededEntry.h"
#include "Glint/GlintMap.h"
#include "Zev/Entity.h"

// Shared-memory rows of a group of tables, and the entities that hold them. Little-endian, packed,
// fixed offsets: other processes read them.

namespace Asic {

// One operation of one table, in the order in which the group must see it, keyed by its place in
// that order (from 1).
//
// Layout: 120 bytes: sequence 0, version 8, tableId 16, neededCount 20, needed versions from 24 on,
// each 12 bytes: table id 0, version 4. Elements at and beyond neededCount are zero.
class GroupLogRow {
 public:
  GroupLogRow() = default;
  GroupLogRow(std::uint64_t sequence, TableVersion tableVersion,
              const Pell::Ptr<NeededEntry const>& needed);

  std::uint64_t sequence() const { return sequence_; }
  TableVersion tableVersion() const { return {SwTableId(tableId_), LogVersion(version_)}; }
  std::uint32_t neededCount() const { return neededCount_; }
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
  std::uint32_t neededCount_ = 0;
  std::array<Needed, NeededEntry::kMaxTables> needed_ = {};
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
  // A re-drive of every entry of every unit may come on top of a full log.
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) {
    return capacity + 65536 * 16;
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
