// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#include "Glint/GlintMap.h"
#include "Pell/Assert.h"
#include "Pell/Exceptions.h"
#include "table/RowAccess.h"

// What GlintMap.h declares, for the one file of each row type that says
//
//   template class Glint::GlintMap<Row>;
//
// beside the row's traits. Everything else includes GlintMap.h alone and knows nothing of slots,
// chains and checksums.

namespace Glint {

// How a map of these rows reaches its table.
template <typename Row>
struct GlintMap<Row>::Inside {
  using Access = RowAccess<sizeof(Row), sizeof(Key),
                           Traits::kRisingKeys ? KeyHash::identity : KeyHash::mixing>;
  using Words = typename Access::Row;

  static TableLayout layout(const ZevGlint::MountSite& site) {
    return tableLayout<Row>(site.collection().name(), site.collection().capacity());
  }

  static Words toWords(const Row& row) {
    Words words{};
    std::memcpy(words.words.data(), &row, sizeof row);
    return words;
  }

  static Row toRow(const Words& words) { return rowOfWords<Row>(words.words.data()); }

  static Access access(const GlintMap& map) { return Access(map.table()); }

  // Each failed attempt retires a slot or mends the index, so there are at most as many failures as
  // slots, plus one.
  template <typename Change>
  static void change(GlintMap& map, Change&& change) {
    Table& table = map.table();
    PELL_ASSERT_MESSAGE(table.isWriter(), "the table is mounted for writing", table.filePath());
    for (std::uint32_t failures = 0;; ++failures) {
      PELL_ASSERT_MESSAGE(failures <= table.view().fixed().slotCount, "damage comes to an end",
                          table.filePath());
      Access rows(table);
      try {
        change(rows);
        return;
      } catch (const Pell::CorruptionDetectedException& damage) {
        map.doCorruptionDetected(damage.what());
      }
    }
  }
};

template <typename Row>
GlintMap<Row>::GlintMap(const ZevGlint::MountSite& site)
    : GlintMapBase(site.table(Inside::layout(site))) {}

template <typename Row>
std::optional<Row> GlintMap<Row>::row(const Key& key) const {
  typename Inside::Words words{};
  if (!Inside::access(*this).find(Traits::keyBits(key), words)) {
    return std::nullopt;
  }
  return Inside::toRow(words);
}

template <typename Row>
bool GlintMap<Row>::has(const Key& key) const {
  typename Inside::Words words{};
  return Inside::access(*this).find(Traits::keyBits(key), words).has_value();
}

template <typename Row>
void GlintMap<Row>::fetchAhead(const Key& key) const {
  Inside::access(*this).fetchAhead(Traits::keyBits(key));
}

template <typename Row>
void GlintMap<Row>::rowIs(const Row& row) {
  using Access = typename Inside::Access;
  typename Inside::Words words = Inside::toWords(row);
  PELL_ASSERT(Access::keyBits(words) == Traits::keyBits(Traits::key(row)),
              "the row begins with its key");
  Inside::change(*this, [&](Access& rows) { rows.write(words); });
  if (tracesStores()) [[unlikely]] {
    traceRowWritten(Access::keyBits(words));
  }
}

template <typename Row>
bool GlintMap<Row>::rowDel(const Key& key) {
  bool removed = false;
  Inside::change(
      *this, [&](typename Inside::Access& rows) { removed = rows.remove(Traits::keyBits(key)); });
  if (tracesStores() && removed) [[unlikely]] {
    traceRowRemoved(Traits::keyBits(key));
  }
  return removed;
}

template <typename Row>
typename GlintMap<Row>::Iterator GlintMap<Row>::iterator() const {
  Iterator result(*this);
  result.advance();
  return result;
}

template <typename Row>
typename GlintMap<Row>::Iterator GlintMap<Row>::iteratorAt(const Key& key) const {
  Iterator result(*this);
  typename Inside::Words words{};
  if (const auto slot = Inside::access(*this).find(Traits::keyBits(key), words)) {
    result.slot_ = *slot;
    result.row_ = Inside::toRow(words);
  }
  return result;
}

template <typename Row>
void GlintMap<Row>::Iterator::advance() {
  moveTo(slot_ + 1, UINT32_MAX);
}

template <typename Row>
bool GlintMap<Row>::Iterator::advanceWithin(std::uint32_t slots) {
  return moveTo(slot_ + 1, slots);
}

template <typename Row>
void GlintMap<Row>::Iterator::refresh() {
  moveTo(slot_, UINT32_MAX);
}

template <typename Row>
bool GlintMap<Row>::Iterator::moveTo(std::uint32_t from, std::uint32_t slots) {
  row_.reset();
  slot_ = kNowhere;
  const std::uint32_t last = map_->table().slotsInUse();
  const std::uint32_t end = from < last ? from + std::min(slots, last - from) : last;
  slot_ = from;
  typename Inside::Words words{};
  if (Inside::access(*map_).nextRow(slot_, end, words)) {
    row_ = Inside::toRow(words);
  } else if (end < last) {
    slot_ = end - 1;
    return false;
  }
  return true;
}

}  // namespace Glint
