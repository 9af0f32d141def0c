// SPDX-License-Identifier: Apache-2.0

// What an agent's start on existing state costs for one unit, for units of different sizes: the
// mount of its tables and the restore of its entries. Beside it, on the same files, what no start
// can do without (each row looked at once, checksum included) and the floor: their bytes copied
// once.

#include <algorithm>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "Glint/Guarded.h"
#include "Workload.h"
#include "format/Format.h"
#include "testing/FecHarness.h"

namespace {

using testing_support::FecHarness;

constexpr std::uint16_t kUnit = 0;

std::uint32_t rowsOf(const benchmark::State& state) {
  return static_cast<std::uint32_t>(state.range(0));
}

// A state folder whose unit holds that many entries, on the workload's interfaces.
class FilledState {
 public:
  explicit FilledState(std::uint32_t rows) {
    setDestinations();
    for (std::uint32_t fecId = 1; fecId <= rows; ++fecId) {
      LoamFec::FecTableDataModelEntry entry;
      entry.intfId = bench::Workload::interfaceOf(fecId);
      agent_.table(kUnit).entryWrite(FecHarness::key(fecId), entry, nullptr);
    }
    reportAll();
  }

  FecHarness& agent() { return agent_; }
  Glint::GlintMap<LoamFec::FecTableDataModelConfigGlintEntry>& rows() {
    return agent_.log().tableConfigGlint(Asic::UnitId(kUnit))->swTableEntries();
  }

  // The end of one agent and the beginning of the next, whose resource table knows the interfaces
  // already; the unit's table is not made yet.
  void restartWithoutTable() {
    agent_.restart();
    setDestinations();
  }

 private:
  void setDestinations() {
    for (std::uint32_t i = 0; i < bench::Workload::kInterfaces; ++i) {
      agent_.resources().destinationIs(bench::Workload::interfaceOf(i), {i, 0, 0});
    }
    agent_.run();
  }
  void reportAll() {
    agent_.run();
    agent_.reportAll();
    agent_.run();
  }

  FecHarness agent_;
};

void setRowCounter(benchmark::State& state, double seconds) {
  const double rows = static_cast<double>(rowsOf(state)) * static_cast<double>(state.iterations());
  state.counters["ns_per_row"] = seconds * 1e9 / rows;
}

// Mount, restore, and the turns in which the entries are brought in line with their destinations.
void Restore(benchmark::State& state) {
  FilledState filled(rowsOf(state));
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    filled.restartWithoutTable();
    const double taken = bench::timed([&] {
      filled.agent().makeTable(kUnit);
      filled.agent().run();
    });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  if (filled.agent().log().entrys(Asic::UnitId(kUnit)) != rowsOf(state)) {
    state.SkipWithError("entries were lost");
  }
  setRowCounter(state, seconds);
}

// A client's walk over the software table.
void Iteration(benchmark::State& state) {
  FilledState filled(rowsOf(state));
  std::uint64_t entries = 0;
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    const double taken = bench::timed([&] {
      for (auto at = filled.agent().table(kUnit).entryIteratorConst(); at; ++at) {
        entries += at->key.fecId() != 0 ? 1U : 0U;
      }
    });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  if (entries != static_cast<std::uint64_t>(state.iterations()) * rowsOf(state)) {
    state.SkipWithError("the walk missed entries");
  }
  setRowCounter(state, seconds);
}

void VerifiedWalk(benchmark::State& state) {
  FilledState filled(rowsOf(state));
  std::uint64_t live = 0;
  bool sawAll = true;
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    const double taken = bench::timed([&] {
      const auto count = [&](const LoamFec::FecTableDataModelConfigGlintEntry& row) {
        live += row.isDeleted() ? 0U : 1U;
      };
      sawAll = Glint::walkOverDamage(filled.rows(), count) && sawAll;
    });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  if (!sawAll || live != static_cast<std::uint64_t>(state.iterations()) * rowsOf(state)) {
    state.SkipWithError("the walk missed rows");
  }
  setRowCounter(state, seconds);
}

// The configuration rows' bytes as they lie in memory, copied once.
void CopyOfTheBytes(benchmark::State& state) {
  const std::size_t bytes =
      Glint::slotBytes(sizeof(LoamFec::FecTableDataModelConfigGlintEntry)) * rowsOf(state);
  const std::vector<char> from(bytes, 'x');
  std::vector<char> to(bytes);
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    const double taken = bench::timed([&] {
      std::copy(from.begin(), from.end(), to.begin());
      benchmark::DoNotOptimize(to.data());
      benchmark::ClobberMemory();
    });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  setRowCounter(state, seconds);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  const std::uint32_t all = bench::scale().residentKeys;
  benchmark->ArgName("rows")->Arg(all / 4)->Arg(all / 2)->Arg(all);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(7);
}
BENCHMARK(Restore)->Apply(sizes);
BENCHMARK(Iteration)->Apply(sizes);
BENCHMARK(VerifiedWalk)->Apply(sizes);
BENCHMARK(CopyOfTheBytes)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
