#pragma once

#include "Pell/Exceptions.h"

// Lookups and walks for callers who go on when shared memory turns out to be corrupt: the map is
// told, and the row counts as absent.

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

}  // namespace Glint
