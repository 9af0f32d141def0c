// SPDX-License-Identifier: Apache-2.0

// What a change of destinations costs, in whole and in its longest turn: many interfaces that
// change together, and one interface that several full units use. Beside it the removal of
// subscribers, few and many, which is what the end of many requests that wait is made of.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Pell/Publisher.h"
#include "Workload.h"
#include "testing/FecHarness.h"

namespace {

using testing_support::FecHarness;

// Of the full figures and of the tiny ones.
struct Figures {
  std::int64_t manyInterfaces;
  std::int64_t units;
  std::int64_t manySubscribers;
};
Figures figures() {
  const bool tiny = bench::scale().residentKeys < 65536;
  return tiny ? Figures{200, 2, 500} : Figures{60000, 16, 80000};
}

// Turns until none is left.
struct Turns {
  double longest = 0;
  double all = 0;
  std::uint64_t count = 0;

  explicit Turns(FecHarness& agent) {
    bool ran = true;
    while (ran) {
      const double taken = bench::timed([&] { ran = agent.loop().runOne(); });
      longest = std::max(longest, taken);
      all += taken;
      count += ran ? 1U : 0U;
    }
  }
};

Wirex::IntfId interface(std::int64_t number) {
  return Wirex::IntfId::fromName(fmt::format("Ethernet{}", number));
}

void reportAll(FecHarness& agent) {
  agent.run();
  agent.reportAll();
  agent.run();
}

void write(FecHarness& agent, std::uint16_t unit, std::uint32_t fecId, std::int64_t intf) {
  LoamFec::FecTableDataModelEntry entry;
  entry.intfId = interface(intf);
  agent.table(unit).entryWrite(FecHarness::key(fecId), entry, nullptr);
}

// Changes the destination of that many interfaces, again and again, and measures the turns in which
// the entries follow.
void changeDestinations(benchmark::State& state, FecHarness& agent, std::int64_t interfaces,
                        std::uint64_t entries) {
  double longest = 0;
  double turns = 0;
  std::uint32_t destination = 1;
  for ([[maybe_unused]] const auto iteration : state) {
    ++destination;
    for (std::int64_t number = 1; number <= interfaces; ++number) {
      agent.resources().destinationIs(interface(number), {destination, 0, 0});
    }
    const std::uint64_t before = agent.log().tableVersion().value();
    const Turns taken(agent);
    if (agent.log().tableVersion().value() - before != entries) {
      state.SkipWithError("not every entry was logged again once");
      return;
    }
    state.SetIterationTime(taken.all);
    longest = std::max(longest, taken.longest);
    turns += static_cast<double>(taken.count);
    reportAll(agent);
  }
  state.counters["longest_turn_ms"] = longest * 1e3;
  state.counters["turns"] = turns / static_cast<double>(state.iterations());
}

void InterfacesThatChangeTogether(benchmark::State& state) {
  FecHarness agent;
  for (std::int64_t number = 1; number <= state.range(0); ++number) {
    agent.resources().destinationIs(interface(number), {1, 0, 0});
    write(agent, 0, static_cast<std::uint32_t>(number), number);
  }
  reportAll(agent);
  changeDestinations(state, agent, state.range(0), static_cast<std::uint64_t>(state.range(0)));
}

void UnitsOnOneInterface(benchmark::State& state) {
  FecHarness agent;
  agent.resources().destinationIs(interface(1), {1, 0, 0});
  const std::uint32_t entries = bench::scale().residentKeys;
  const auto units = static_cast<std::uint16_t>(state.range(0));
  for (std::uint16_t unit = 0; unit < units; ++unit) {
    for (std::uint32_t fecId = 1; fecId <= entries; ++fecId) {
      write(agent, unit, fecId, 1);
    }
    reportAll(agent);
  }
  changeDestinations(state, agent, 1, std::uint64_t{units} * entries);
}

// All subscribers of one publisher go, in an order that is random but the same in every run.
void SubscriberRemoval(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Pell::Subscriber>> subscribers;
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), 0U);
  std::shuffle(order.begin(), order.end(), std::mt19937_64(bench::Workload::kSeed));
  for (std::size_t i = 0; i < count; ++i) {
    subscribers.push_back(std::make_unique<Pell::Subscriber>(
        [](Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {}));
  }
  Pell::Publisher publisher;
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    for (const auto& subscriber : subscribers) {
      publisher.subscriberAdd(*subscriber);
    }
    const double taken = bench::timed([&] {
      for (const std::size_t at : order) {
        publisher.subscriberRemove(*subscribers[at]);
      }
    });
    state.SetIterationTime(taken);
    seconds += taken;
  }
  if (!publisher.idle()) {
    state.SkipWithError("subscribers are left");
  }
  state.counters["ns_per_removal"] =
      seconds * 1e9 / (static_cast<double>(count) * static_cast<double>(state.iterations()));
}

void asManyInterfaces(benchmark::internal::Benchmark* benchmark) {
  const std::int64_t many = figures().manyInterfaces;
  benchmark->ArgName("interfaces")->Arg(many / 10)->Arg(many);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);
}
void asManyUnits(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("units")->Arg(1)->Arg(figures().units);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(2);
}
void asManySubscribers(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("subscribers")->Arg(figures().manySubscribers / 80);
  benchmark->Arg(figures().manySubscribers);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(7);
}
BENCHMARK(InterfacesThatChangeTogether)->Apply(asManyInterfaces);
BENCHMARK(UnitsOnOneInterface)->Apply(asManyUnits);
BENCHMARK(SubscriberRemoval)->Apply(asManySubscribers);

}  // namespace

BENCHMARK_MAIN();
