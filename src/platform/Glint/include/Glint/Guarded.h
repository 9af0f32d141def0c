// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Pell/Exceptions.h"

// Lookups and walks for callers who go on when shared memory turns out to be corrupt: the map is
// told, and the row counts as absent. An exception of a visitor passes through.

namespace Glint {

// Runs the lookup; when it meets corruption the map is told and false is returned.
template <typename Map, typename Lookup>
bool guarded(Map& map, Lookup&& lookup) {
  try {
    lookup();
    return true;
  } catch (const Pell::CorruptionDetectedException& corruption) {
    map.doCorruptionDetected(corruption.message());
    return false;
  }
}

// The row of the key; nothing when it is absent or corrupt.
template <typename Map>
auto guardedRow(Map& map, const typename Map::Key& key) {
  decltype(map.row(key)) row;
  guarded(map, [&] { row = map.row(key); });
  return row;
}

// Visits every row that is not damaged, in slot order, and goes on behind damaged ones. visit(row)
// gets a copy and may insert, replace and delete rows. True: it has met every row that stayed.
// False: damage has hidden some rows, so a row that was not met need not be absent. A reader stops
// when it does not know where the slots end.
template <typename Map, typename Visit>
[[nodiscard]] bool walkOverDamage(Map& map, Visit&& visit) {
  auto at = map.beforeFirst();
  bool sawAll = true;
  for (;;) {
    if (!guarded(map, [&] { at.advance(); })) {
      sawAll = false;
      if (!at.canGoOn()) {
        return false;
      }
    } else if (at.valid()) {
      visit(at.row());
    } else {
      return sawAll;
    }
  }
}

// Visits the rows before the first damaged one, in slot order. True: there was no damage.
template <typename Map, typename Visit>
[[nodiscard]] bool walkToDamage(Map& map, Visit&& visit) {
  auto at = map.beforeFirst();
  while (guarded(map, [&] { at.advance(); })) {
    if (!at.valid()) {
      return true;
    }
    visit(at.row());
  }
  return false;
}

}  // namespace Glint
