// SPDX-License-Identifier: Apache-2.0

#include "Zev/AllocationTracker.h"

namespace Zev {

namespace {

std::vector<const AllocationTracker*>& registry() {
  static std::vector<const AllocationTracker*> trackers;
  return trackers;
}

}  // namespace

AllocationTracker::AllocationTracker(std::string_view typeName) : typeName_(typeName) {
  registry().push_back(this);
}

const std::vector<const AllocationTracker*>& AllocationTracker::all() { return registry(); }

std::int64_t AllocationTracker::liveOfAllTypes() {
  std::int64_t live = 0;
  for (const AllocationTracker* tracker : all()) {
    live += tracker->live();
  }
  return live;
}

}  // namespace Zev
