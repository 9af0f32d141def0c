// SPDX-License-Identifier: Apache-2.0

// What an FEC write costs in this process, and what its commit costs, beside what the same would
// cost otherwise. Every contender gets the same writes; rounds of the contenders are interleaved at
// random, so that a machine that slows down does so for all. Each round begins with a fresh
// contender and ends with a look at what it holds.

#include <benchmark/benchmark.h>

#include "FecContenders.h"
#include "InterleavedRun.h"
#include "LmdbCommit.h"
#include "PlainContenders.h"
#include "SharedRows.h"
#include "Summary.h"
#include "Workload.h"

namespace {

using bench::Summary;

constexpr int kPasses = 4;  // over all resident keys, a round

template <typename Contender>
void measure(benchmark::State& state) {
  bench::Workload workload;
  Contender contender(workload);
  double seconds = 0;
  double secondsAfter = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    contender.prepare(workload.nextBatch());
    const double taken = bench::timed([&] { contender.write(); });
    secondsAfter += bench::timed([&] { contender.finish(); });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  const auto entries = static_cast<double>(workload.written());
  state.counters[Summary::kNanoseconds] = seconds * 1e9 / entries;
  state.counters[Summary::kNanosecondsAfter] = secondsAfter * 1e9 / entries;
  if (const auto finding = contender.finding(workload); !finding.empty()) {
    state.SkipWithError(finding.c_str());
  }
}

template <typename Contender>
void add(const char* name) {
  benchmark::RegisterBenchmark(name, measure<Contender>)
      ->UseManualTime()
      ->Iterations(kPasses * bench::scale().residentKeys / bench::scale().batch);
}

}  // namespace

int main(int argc, char** argv) {
  Summary summary;
  return bench::runInterleaved(argc, argv, summary, [] {
    add<bench::Road>("Road");
    add<bench::HeapRoad>("RoadOnHeap");
    add<bench::Commit>("Commit");
    add<bench::SharedRows>("CommitRows");
    add<bench::SharedRowsInBatch>("CommitRowsInBatch");
    add<bench::RowCopies>("CommitAsMemcpy");
    add<bench::LmdbCommit>("CommitInLmdb");
    add<bench::OneMiss>("OneMiss");
  });
}
