// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

#include "Glint/GlintMapBase.h"
#include "Glint/MountSite.h"
#include "Glint/TableLayout.h"

namespace Glint {

// The properties of its rows that a map must know, specialised beside each row type:
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

// The layout of a file that holds these rows. A capacity of 0 means any. The layout refers to the
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

// A collection of rows in shared memory, each found by its key. Its code stands in the one file
// that instantiates it beside the row type's traits, see table/GlintMapDefinition.h.
//
// Kind, ownership: as GlintMapBase. Rows are trivially copyable and travel by value.
// Threads: one; any number of processes may read the table at the same time.
// Invariants: one row per key. A change is made at one store: another process, or the next writer
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

  // Walks the slots: every row that exists from before the walk until after it is yielded exactly
  // once, whatever is inserted, replaced or removed meanwhile, even the current row. Rows inserted
  // during the walk may be yielded or not. The map outlives its iterators.
  class Iterator {
   public:
    // False before the first row, at the end, and after an exception.
    bool valid() const { return row_.has_value(); }
    // A copy made when the iterator came to the row; it stays as it was. Valid iterators only.
    const Row& row() const { return *row_; }
    // Moves to the next row; after an exception, to the first row behind the damaged slot, if
    // canGoOn().
    void advance();
    // Like advance(), but looks at no more than `slots` slots (at least 1). When it returns false
    // and is not valid, it found no row in them, and the next call goes on behind them.
    bool advanceWithin(std::uint32_t slots);
    // Reads the slot again: the copy becomes its present row, or the next row if the slot is empty.
    // Valid iterators only.
    void refresh();
    // After an exception: false when the end of the slots is not known.
    bool canGoOn() const { return slot_ != kNowhere; }

   private:
    friend class GlintMap;
    // One before slot 0, and no slot's number: a table has fewer.
    static constexpr std::uint32_t kBeforeFirst = UINT32_MAX;
    static constexpr std::uint32_t kNowhere = UINT32_MAX - 1;

    explicit Iterator(const GlintMap& map) : map_(&map) {}

    bool moveTo(std::uint32_t from, std::uint32_t slots);

    const GlintMap* map_;
    std::uint32_t slot_ = kBeforeFirst;
    std::optional<Row> row_;
  };

  // Mounts the collection; throws ZevGlint::MountException.
  explicit GlintMap(const ZevGlint::MountSite& site);

  std::optional<Row> row(const Key& key) const;
  bool has(const Key& key) const;

  // The key will be looked up or written soon: has its row fetched towards the processor meanwhile.
  // A hint only; never throws.
  void fetchAhead(const Key& key) const;

  // Inserts, or replaces the row of that key. A row that cannot be stored stops the process.
  void rowIs(const Row& row);
  // False if the key has no row.
  bool rowDel(const Key& key);

  // Before the first row, wherever that is: advance() leads there. Never throws.
  Iterator beforeFirst() const { return Iterator(*this); }
  // At the first row; not valid if there is none.
  Iterator iterator() const;
  // At the key's row; not valid if it has none.
  Iterator iteratorAt(const Key& key) const;

 private:
  struct Inside;
};

}  // namespace Glint
