// SPDX-License-Identifier: Apache-2.0

// What the longest turn costs when every entry of a full unit is concerned: an interface's change
// of destination, which drives them all again, of one unit or of as many as an agent may have, and
// a remove-all. Processor time of the turn, as other turns wait so long. Beside it the floor: the
// same rows written to the shared tables by hand.

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

// Units with that many entries each, all of one interface, in hardware.
class FullUnits {
 public:
  FullUnits(std::uint32_t rows, std::uint16_t units) : rows_(rows), units_(units) {
    agent_.destinationIs(kInterface, ++destination_);
    fill();
  }

  FecHarness& agent() { return agent_; }
  LoamFec::FecTableSwTable& table() { return agent_.table(); }
  void fill() {
    const auto entry = FecHarness::entry(kInterface);
    for (std::uint16_t unit = 0; unit < units_; ++unit) {
      for (std::uint32_t fecId = 1; fecId <= rows_; ++fecId) {
        agent_.table(unit).entryWrite(FecHarness::key(fecId * 0x9E3779B1U), entry, nullptr);
      }
      agent_.run();
      settle();
    }
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
  // Writes each row of a re-drive as the log does, and nothing else; processor time of the unit
  // that takes longest.
  double rowsByHand() {
    double longest = 0;
    for (std::uint16_t unit = 0; unit < units_; ++unit) {
      longest = std::max(longest, rowsByHandOf(Asic::UnitId(unit)));
    }
    return longest;
  }

 private:
  double rowsByHandOf(Asic::UnitId unit) {
    auto& log = agent_.log();
    auto& config = *log.tableConfigGlint(unit);
    auto& rows = *log.tableEntryLog();
    std::uint64_t& version = lastByHand_;
    version = std::max(version, log.tableVersion().value());
    const double started = bench::processorSeconds();
    for (std::uint32_t fecId = 1; fecId <= rows_; ++fecId) {
      LoamFec::FecTableDataModelLogEntry entry;
      entry.key = FecHarness::key(fecId * 0x9E3779B1U);
      const Asic::LogVersion at(++version);
      config.swTableEntriesIs({entry, {}, at, false});
      rows.entryLogConfigIs({at, FecTableDataModelLogGlintEntry::kEntryWritten, unit, entry});
      rows.entryLogConfig().control().scratchpadIs(version);
    }
    return bench::processorSeconds() - started;
  }

  std::uint32_t rows_;
  std::uint16_t units_;
  std::uint32_t destination_ = 0;
  std::uint64_t lastByHand_ = 0;
  FecHarness agent_;
};

std::uint32_t rowsOf(const benchmark::State& state) {
  return static_cast<std::uint32_t>(state.range(0));
}

std::uint16_t unitsOf(const benchmark::State& state) {
  return static_cast<std::uint16_t>(state.range(1));
}

void measure(benchmark::State& state, const std::function<double(FullUnits&)>& once) {
  FullUnits unit(rowsOf(state), unitsOf(state));
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
  measure(state, [&state](FullUnits& unit) {
    const std::uint64_t before = unit.agent().log().tableVersion().value();
    unit.changeDestination();
    const double taken = unit.longestTurn();
    if (unit.agent().log().tableVersion().value() - before !=
        std::uint64_t{rowsOf(state)} * unitsOf(state)) {
      state.SkipWithError("entries were not driven again");
    }
    unit.settle();
    return taken;
  });
}

void RemoveAll(benchmark::State& state) {
  measure(state, [](FullUnits& unit) {
    unit.table().entryRemoveAll(nullptr);
    const double taken = unit.longestTurn();
    unit.settle();
    unit.fill();
    return taken;
  });
}

void RowsByHand(benchmark::State& state) {
  FullUnits unit(rowsOf(state), unitsOf(state));
  for ([[maybe_unused]] const auto iteration : state) {
    state.SetIterationTime(unit.rowsByHand());
  }
}

void oneUnit(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"rows", "units"})->Args({bench::scale().residentKeys, 1});
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
}
void allUnits(benchmark::internal::Benchmark* benchmark) {
  oneUnit(benchmark);
  benchmark->Args({bench::scale().residentKeys, LoamFec::FecTableConstants::kMaxUnits});
}
BENCHMARK(Redrive)->Apply(allUnits);
BENCHMARK(RemoveAll)->Apply(oneUnit);
BENCHMARK(RowsByHand)->Apply(allUnits);

}  // namespace

BENCHMARK_MAIN();
