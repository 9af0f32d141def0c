#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Pell/Exceptions.h"

// Lookups and walks for callers who go on when shared memory turns out to be corrupt: the map is
// told, and the row counts as absent. What a visitor throws is its own and goes through.

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
template <typename Map, typename Key>
auto guardedRow(Map& map, const Key& key) {
  decltype(map.row(key)) row;
  guarded(map, [&] { row = map.row(key); });
  return row;
}

// Visits every row that is not damaged, in slot order, and goes on behind what is; visit(row) is
// given a copy and may insert, replace and delete rows. True: it has met every row that stayed.
// False: damage has hidden some, so a row that was not met need not be absent. A reader goes on no
// further when it cannot tell where the slots end.
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

// The same, but the first damage ends the walk: visits the rows before it. True: there was none.
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

// Visits every row; visit(row) is given a copy and may delete or replace the row it stands for.
// Corruption ends the walk.
template <typename Map, typename Visit>
void forEachRow(Map& map, Visit&& visit) {
  guarded(map, [&] {
    for (auto at = map.iterator(); at.valid(); at.advance()) {
      const auto row = at.row();
      visit(row);
    }
  });
}

// What pick(row) makes of each row that is not damaged, in slot order; rows of which it makes
// nothing are left out. Damage ends a walk, and the writer has it out of use then, so its next walk
// comes further; there is no more damage than slots. A reader gets what lies before the damage.
template <typename Item, typename Map, typename Pick>
std::vector<Item> pickRows(Map& map, Pick&& pick) {
  for (std::uint32_t walks = 0;; ++walks) {
    std::vector<Item> picked;
    const bool whole = guarded(map, [&] {
      for (auto at = map.iterator(); at.valid(); at.advance()) {
        if (std::optional<Item> item = pick(at.row())) {
          picked.push_back(*std::move(item));
        }
      }
    });
    if (whole || !map.isWriter() || walks == map.slotCount()) {
      return picked;
    }
  }
}

}  // namespace Glint
