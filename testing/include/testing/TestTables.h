// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <ranges>
#include <utility>

#include "Glint/SharedMemEntityManager.h"
#include "Vanta/EntityManager.h"
#include "Zev/Entity.h"
#include "table/GlintMapDefinition.h"

// Row types, entities and a state folder for the tests of shared tables.

namespace glint_test {

// 16 bytes, 64-bit keys that are mixed.
struct SmallRow {
  std::uint64_t key;
  std::uint64_t value;
  friend bool operator==(const SmallRow&, const SmallRow&) = default;
};

// 56 bytes, 64-bit keys that rise.
struct RisingRow {
  std::uint64_t key;
  std::array<std::uint64_t, 6> values;
  friend bool operator==(const RisingRow&, const RisingRow&) = default;
};

#pragma pack(push, 1)
// 61 bytes, so its last word is not full; 32-bit keys.
struct OddRow {
  std::uint32_t key;
  std::array<std::uint8_t, 57> bytes;
  friend bool operator==(const OddRow& a, const OddRow& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
  }
};
#pragma pack(pop)
static_assert(sizeof(SmallRow) == 16 && sizeof(RisingRow) == 56 && sizeof(OddRow) == 61);

template <typename Row>
struct TraitsOf {
  using Key = decltype(Row::key);
  static Key key(const Row& row) { return row.key; }
  static std::uint64_t keyBits(Key key) { return key; }
  static constexpr std::uint32_t kLayoutVersion = 1;
  static constexpr std::uint32_t physicalSlots(std::uint32_t capacity) { return 2 * capacity; }
};

// Rows whose every byte follows from key and value, so that a torn one shows.
inline SmallRow smallRow(std::uint64_t key, std::uint64_t value) { return {key, value}; }

inline RisingRow risingRow(std::uint64_t key, std::uint64_t value) {
  RisingRow row{.key = key, .values = {}};
  row.values.fill(value * 0x9E3779B97F4A7C15U + key);
  row.values.front() = value;
  return row;
}

inline OddRow oddRow(std::uint32_t key, std::uint64_t value) {
  OddRow row{.key = key, .bytes = {}};
  row.bytes.fill(static_cast<std::uint8_t>(value * 31 + key));
  std::memcpy(row.bytes.data(), &value, sizeof value);
  return row;
}

inline std::uint64_t valueOf(const OddRow& row) {
  std::uint64_t value = 0;
  std::memcpy(&value, row.bytes.data(), sizeof value);
  return value;
}

}  // namespace glint_test

template <>
struct Glint::RowTraits<glint_test::SmallRow> : glint_test::TraitsOf<glint_test::SmallRow> {
  static constexpr const char* kTypeName = "glint_test::SmallRow";
  static constexpr bool kRisingKeys = false;
};
template <>
struct Glint::RowTraits<glint_test::RisingRow> : glint_test::TraitsOf<glint_test::RisingRow> {
  static constexpr const char* kTypeName = "glint_test::RisingRow";
  static constexpr bool kRisingKeys = true;
};
template <>
struct Glint::RowTraits<glint_test::OddRow> : glint_test::TraitsOf<glint_test::OddRow> {
  static constexpr const char* kTypeName = "glint_test::OddRow";
  static constexpr bool kRisingKeys = false;
};

namespace glint_test {

// An entity with one collection.
template <typename Row>
class TestEntity : public Zev::Typed<TestEntity<Row>, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = Glint::RowTraits<Row>::kTypeName;
  static constexpr const char* kCollectionName = "rows";

  explicit TestEntity(const ZevGlint::MountSite& site)
      : TestEntity::Typed(site.path()), rows_(site) {}

  Glint::GlintMap<Row>& rows() { return rows_; }

 private:
  Glint::GlintMap<Row> rows_;
};

// One process's view of a state folder: dropping it is what the end of the process is.
class State {
 public:
  explicit State(const Pell::String& root)
      : vanta_(Zev::makeObject<Vanta::EntityManager>(root)),
        manager_(ZevSharedMem::getEntityManager(vanta_)) {}

  ZevSharedMem::EntityManager& manager() { return *manager_; }

  template <typename Row>
  Pell::Ptr<TestEntity<Row>> mount(const Pell::String& path, std::uint32_t capacity,
                                   ZevGlint::ZevGlintType type = ZevGlint::ZevGlintType::writer) {
    ZevSharedMem::entityTypeIs(TestEntity<Row>::kTypeName, [](const ZevGlint::MountSite& site) {
      return Zev::makeObject<TestEntity<Row>>(site);
    });
    return ZevSharedMem::mountEntity<TestEntity<Row>>(vanta_, path, type, capacity);
  }

  template <typename Row>
  Pell::Ptr<TestEntity<Row>> mountReader(const Pell::String& path, std::uint32_t capacity = 0) {
    return mount<Row>(path, capacity, ZevGlint::ZevGlintType::reader);
  }

 private:
  Pell::Ptr<Vanta::EntityManager> vanta_;
  Pell::Ptr<ZevSharedMem::EntityManager> manager_;
};

// What a walk yields, by key; a key that comes twice is an error of the walk and shows as a
// difference in the number of steps.
template <typename Row>
struct Walk {
  std::map<std::uint64_t, Row> rows;
  std::size_t steps = 0;
};

template <typename Row>
Walk<Row> walk(const Glint::GlintMap<Row>& map) {
  Walk<Row> result;
  for (auto it = map.iterator(); it.valid(); it.advance()) {
    result.rows.insert_or_assign(it.row().key, it.row());
    ++result.steps;
  }
  return result;
}

}  // namespace glint_test
