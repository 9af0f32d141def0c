// SPDX-License-Identifier: Apache-2.0

#include "Summary.h"

#include <algorithm>
#include <ostream>

#include <fmt/format.h>

#include "Median.h"
#include "Workload.h"

namespace bench {

bool Summary::ReportContext(const Context& /*context*/) {
  GetOutputStream() << fmt::format(
      "{} resident keys, written in random order (seed {:#x}) in batches of {}\n",
      scale().residentKeys, Workload::kSeed, scale().batch);
  return true;
}

void Summary::ReportRuns(const std::vector<Run>& reports) {
  for (const Run& run : reports) {
    if (run.error_occurred) {
      failed_ = true;
      GetOutputStream() << fmt::format("{} ERROR OCCURRED: {}\n", run.run_name.function_name,
                                       run.error_message);
    } else if (run.run_type == Run::RT_Iteration) {
      Rounds& rounds = rounds_[run.run_name.function_name];
      rounds.nanoseconds.push_back(run.counters.at(kNanoseconds));
      rounds.nanosecondsAfter.push_back(run.counters.at(kNanosecondsAfter));
    }
  }
}

void Summary::Finalize() {
  GetOutputStream() << fmt::format("\n{:<20}{:>10}{:>10}{:>10}{:>10}{:>14}\n", "processor ns",
                                   "median", "least", "most", "rounds", "afterwards");
  for (const auto& [contender, rounds] : rounds_) {
    const auto [least, most] =
        std::minmax_element(rounds.nanoseconds.begin(), rounds.nanoseconds.end());
    GetOutputStream() << fmt::format("{:<20}{:>10.0f}{:>10.0f}{:>10.0f}{:>10}{:>14.0f}\n",
                                     contender, medianOf(rounds.nanoseconds), *least, *most,
                                     rounds.nanoseconds.size(), medianOf(rounds.nanosecondsAfter));
  }
  GetOutputStream() << '\n';
  printRatio("LMDB over commit", "CommitInLmdb", "Commit");
  printRatio("commit over memcpy", "Commit", "CommitAsMemcpy");
  printRatio("LMDB over rows", "CommitInLmdb", "CommitRows");
  printRatio("rows in batch over memcpy", "CommitRowsInBatch", "CommitAsMemcpy");
  printRatio("rows over one miss", "CommitRows", "OneMiss");
  printRatio("road over commit", "Road", "Commit");
  printRatio("road over the heap's", "Road", "RoadOnHeap");
}

void Summary::printRatio(const char* text, const char* over, const char* under) const {
  const auto above = rounds_.find(over);
  const auto below = rounds_.find(under);
  if (above != rounds_.end() && below != rounds_.end()) {
    const double ratio = medianOf(above->second.nanoseconds) / medianOf(below->second.nanoseconds);
    GetOutputStream() << fmt::format("{:<26}{:>10.2f}\n", text, ratio);
  }
}

}  // namespace bench
