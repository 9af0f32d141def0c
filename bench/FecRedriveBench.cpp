// What the longest turn costs when every entry of a full unit is concerned: an interface's change
// of destination, which drives them all again, and a remove-all. Processor time of the turn, as
// other turns wait so long. Beside it the floor: the same rows written to the shared tables by
// hand.

#include <algorithm>
#include <cstdint>
#include <functional>

#include <benchmark/benchmark.h>

#include "Workload.h"
#include "testing/FecHarness.h"

namespace {

using LoamFec::FecTableDataModelLogGlintEntry;
using testing_support::FecHarness;

constexpr const char* kInterface = "eth1";

// One unit with that many entries, all of one interface, in hardware.
class FullUnit {
 public:
  explicit FullUnit(std::uint32_t rows) : rows_(rows) {
    agent_.destinationIs(kInterface, ++destination_);
    fill();
  }

  FecHarness& agent() { return agent_; }
  LoamFec::FecTableSwTable& table() { return agent_.table(); }
  void fill() {
    const auto entry = FecHarness::entry(kInterface);
    for (std::uint32_t fecId = 1; fecId <= rows_; ++fecId) {
      table().entryWrite(FecHarness::key(fecId * 0x9E3779B1U), entry, nullptr);
    }
    agent_.run();
    settle();
  }
  // Asks for another destination; the re-drive comes in a turn.
  void changeDestination() {
    agent_.resources().destinationIs(Wirex::IntfId::fromName(kInterface), {++destination_, 0, 0});
  }
  // The hardware takes everything.
  void settle() {
    agent_.reportAll();
    agent_.run();
  }
  // Processor time of the longest turn until nothing is left to do.
  double longestTurn() {
    double longest = 0;
    while (agent_.loop().pending() > 0) {
      const double started = bench::processorSeconds();
      agent_.loop().runOne();
      longest = std::max(longest, bench::processorSeconds() - started);
    }
    return longest;
  }
  // Writes each row of a re-drive as the log does, and nothing else.
  double rowsByHand() {
    auto& log = agent_.log();
    auto& config = *log.tableConfigGlint(table().unitId());
    auto& rows = *log.tableEntryLog();
    std::uint64_t version = log.tableVersion().value();
    const double started = bench::processorSeconds();
    for (std::uint32_t fecId = 1; fecId <= rows_; ++fecId) {
      LoamFec::FecTableDataModelLogEntry entry;
      entry.key = FecHarness::key(fecId * 0x9E3779B1U);
      const Asic::LogVersion at(++version);
      config.swTableEntriesIs({entry, {}, at, false});
      rows.entryLogConfigIs(
          {at, FecTableDataModelLogGlintEntry::kEntryWritten, table().unitId(), entry});
      rows.entryLogConfig().control().scratchpadIs(version);
    }
    return bench::processorSeconds() - started;
  }

 private:
  std::uint32_t rows_;
  std::uint32_t destination_ = 0;
  FecHarness agent_;
};

void measure(benchmark::State& state, const std::function<double(FullUnit&)>& once) {
  FullUnit unit(static_cast<std::uint32_t>(state.range(0)));
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    const double taken = once(unit);
    state.SetIterationTime(taken);
    seconds += taken;
  }
  const double rows = static_cast<double>(state.range(0)) * static_cast<double>(state.iterations());
  state.counters["ns_per_row"] = seconds * 1e9 / rows;
}

void Redrive(benchmark::State& state) {
  measure(state, [&state](FullUnit& unit) {
    const std::uint64_t before = unit.agent().log().tableVersion().value();
    unit.changeDestination();
    const double taken = unit.longestTurn();
    if (unit.agent().log().tableVersion().value() - before !=
        static_cast<std::uint64_t>(state.range(0))) {
      state.SkipWithError("entries were not driven again");
    }
    unit.settle();
    return taken;
  });
}

void RemoveAll(benchmark::State& state) {
  measure(state, [](FullUnit& unit) {
    unit.table().entryRemoveAll(nullptr);
    const double taken = unit.longestTurn();
    unit.settle();
    unit.fill();
    return taken;
  });
}

void RowsByHand(benchmark::State& state) {
  FullUnit unit(static_cast<std::uint32_t>(state.range(0)));
  for ([[maybe_unused]] const auto iteration : state) {
    state.SetIterationTime(unit.rowsByHand());
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("rows")->Arg(bench::scale().residentKeys);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
}
BENCHMARK(Redrive)->Apply(sizes);
BENCHMARK(RemoveAll)->Apply(sizes);
BENCHMARK(RowsByHand)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
