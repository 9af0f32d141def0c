// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

#include "Glint/GlintMapBase.h"
#include "Glint/MountSite.h"
#include "Glint/RowAccess.h"
#include "Pell/Assert.h"
#include "Pell/Exceptions.h"

namespace Glint {

// What a map must know about its rows; specialised beside each row type:
//
//   template <>
//   struct Glint::RowTraits<Row> {
//     using Key = ...;                       // of 4 or 8 bytes, which are the row's first bytes
//     static constexpr const char* kTypeName = "LoamFec::Row";
//     static constexpr std::uint32_t kLayoutVersion = 1;  // raised whenever a field changes: files
//                                                         // of another version are refused
//     static constexpr bool kRisingKeys = true;   // keys that rise by one: buckets in key order
//     static Key key(const Row&);
//     static std::uint64_t keyBits(const Key&);   // the key's bytes as a number
//     static constexpr std::uint32_t physicalSlots(std::uint32_t nominalCapacity);
//   };
template <typename Row>
struct RowTraits;

// What a file that holds these rows looks like. A capacity of 0 is any. The layout refers to the
// collection's name.
template <typename Row>
constexpr TableLayout tableLayout(std::string_view collectionName, std::uint32_t capacity) {
  using Traits = RowTraits<Row>;
  return {.rowTypeName = Traits::kTypeName,
          .layoutVersion = Traits::kLayoutVersion,
          .collectionName = collectionName,
          .rowBytes = sizeof(Row),
          .keyBytes = sizeof(typename Traits::Key),
          .keyHash = Traits::kRisingKeys ? KeyHash::identity : KeyHash::mixing,
          .nominalCapacity = capacity,
          .slotCount = Traits::physicalSlots(capacity)};
}

// A collection of rows in shared memory, each found by its key.
//
// Kind, ownership: as GlintMapBase. Rows are trivially copyable and travel by value.
// Threads: one; any number of processes may read the table at the same time.
// Invariants: one row a key. A change is made at one store: another process, or the next writer
// after a kill, sees the row as it was or as it is.
//
// Lookups, and iterators when they are made or advanced, throw Pell::CorruptionDetectedException;
// the caller hands its message to doCorruptionDetected() and takes the row for absent. Mutators
// never throw: damage that they meet goes to doCorruptionDetected() at once. Mutators are for
// writer mounts only (asserted).
template <typename Row>
class GlintMap : public GlintMapBase {
  using Traits = RowTraits<Row>;

 public:
  using Key = typename Traits::Key;

  static_assert(std::is_trivially_copyable_v<Row>);
  static_assert(sizeof(Key) == 4 || sizeof(Key) == 8, "a key is the first 4 or 8 bytes of its row");

 private:
  using Access = RowAccess<sizeof(Row), sizeof(Key),
                           Traits::kRisingKeys ? KeyHash::identity : KeyHash::mixing>;
  using Words = typename Access::Row;

 public:
  // Walks the slots: every row that is there from before the walk to after it is yielded exactly
  // once, whatever is inserted, replaced or removed meanwhile, the current row included; rows
  // inserted during the walk may or may not be. The map outlives its iterators.
  class Iterator {
   public:
    // False before the first row, at the end, and after an exception.
    bool valid() const { return row_.has_value(); }
    // A copy made when the iterator came to the row; it stays as it was. Valid iterators only.
    const Row& row() const { return *row_; }
    // To the next row. After an exception: to the first one behind the damaged slot, if
    // canGoOn().
    void advance() { moveTo(slot_ + 1, UINT32_MAX); }
    // The same, but past no more than that many slots (at least 1). False, and not valid: it has
    // looked at as many and found no row; the next call goes on behind them.
    bool advanceWithin(std::uint32_t slots) { return moveTo(slot_ + 1, slots); }
    // Reads the row's place again: the copy is then of the row that stands there now, or, when
    // there is none any more, of the next one. Valid iterators only.
    void refresh() { moveTo(slot_, UINT32_MAX); }
    // After an exception: false when it cannot be told where the slots end.
    bool canGoOn() const { return slot_ != kNowhere; }

   private:
    friend class GlintMap;
    // One before slot 0, and no slot's number: a table has fewer.
    static constexpr std::uint32_t kBeforeFirst = UINT32_MAX;
    static constexpr std::uint32_t kNowhere = UINT32_MAX - 1;

    explicit Iterator(const GlintMap& map) : map_(&map) {}

    bool moveTo(std::uint32_t from, std::uint32_t slots) {
      row_.reset();
      slot_ = kNowhere;
      const std::uint32_t last = map_->table().slotsInUse();
      const std::uint32_t end = from < last ? from + std::min(slots, last - from) : last;
      slot_ = from;
      Words words{};
      if (map_->access().nextRow(slot_, end, words)) {
        row_ = toRow(words);
      } else if (end < last) {
        slot_ = end - 1;
        return false;
      }
      return true;
    }

    const GlintMap* map_;
    std::uint32_t slot_ = kBeforeFirst;
    std::optional<Row> row_;
  };

  // Mounts the collection; throws ZevGlint::MountException.
  explicit GlintMap(const ZevGlint::MountSite& site) : GlintMapBase(site.table(layout(site))) {}

  std::optional<Row> row(const Key& key) const {
    Words words{};
    if (!access().find(Traits::keyBits(key), words)) {
      return std::nullopt;
    }
    return toRow(words);
  }

  bool has(const Key& key) const {
    Words words{};
    return access().find(Traits::keyBits(key), words).has_value();
  }

  // The key will be looked up or written soon: has its row fetched towards the processor meanwhile.
  // A hint only; never throws.
  void fetchAhead(const Key& key) const { access().fetchAhead(Traits::keyBits(key)); }

  // Inserts, or replaces the row of that key. A row that cannot be stored stops the process.
  void rowIs(const Row& row) {
    Words words = toWords(row);
    PELL_ASSERT(Access::keyBits(words) == Traits::keyBits(Traits::key(row)),
                "the row begins with its key");
    change([&](Access& rows) { rows.write(words); });
    if (tracesStores()) [[unlikely]] {
      traceRowWritten(Access::keyBits(words));
    }
  }

  // False if the key has no row.
  bool rowDel(const Key& key) {
    bool removed = false;
    change([&](Access& rows) { removed = rows.remove(Traits::keyBits(key)); });
    if (tracesStores() && removed) [[unlikely]] {
      traceRowRemoved(Traits::keyBits(key));
    }
    return removed;
  }

  // Before the first row, wherever that is: advance() leads there. Never throws.
  Iterator beforeFirst() const { return Iterator(*this); }

  // At the first row; not valid if there is none.
  Iterator iterator() const {
    Iterator result(*this);
    result.advance();
    return result;
  }

  // At the key's row; not valid if it has none.
  Iterator iteratorAt(const Key& key) const {
    Iterator result(*this);
    Words words{};
    if (const std::optional<std::uint32_t> slot = access().find(Traits::keyBits(key), words)) {
      result.slot_ = *slot;
      result.row_ = toRow(words);
    }
    return result;
  }

 private:
  static TableLayout layout(const ZevGlint::MountSite& site) {
    return tableLayout<Row>(site.collection().name(), site.collection().capacity());
  }

  static Words toWords(const Row& row) {
    Words words{};
    std::memcpy(words.words.data(), &row, sizeof row);
    return words;
  }

  static Row toRow(const Words& words) {
    std::array<std::byte, sizeof(Row)> bytes{};
    std::memcpy(bytes.data(), words.words.data(), sizeof bytes);
    return std::bit_cast<Row>(bytes);
  }

  Access access() const { return Access(table()); }

  // Each attempt that fails retires a slot or mends the index, so there can be no more failures
  // than slots and one.
  template <typename Change>
  void change(Change&& change) {
    PELL_ASSERT_MESSAGE(isWriter(), "the table is mounted for writing", filePath());
    for (std::uint32_t failures = 0;; ++failures) {
      PELL_ASSERT_MESSAGE(failures <= table().view().fixed().slotCount, "damage comes to an end",
                          filePath());
      Access rows = access();
      try {
        change(rows);
        return;
      } catch (const Pell::CorruptionDetectedException& damage) {
        doCorruptionDetected(damage.what());
      }
    }
  }
};

}  // namespace Glint
