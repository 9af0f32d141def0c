// SPDX-License-Identifier: Apache-2.0

// What the operations of a shared table cost beside LMDB, with one operation per transaction and
// with 64, and beside plain copies of the rows. Rounds of all contenders are interleaved at random.
//
// Columns: the shared table; LMDB; LMDB with 64 operations per transaction; copies of the rows. All
// hold the same 65536 configuration rows of 64 bytes.

#include <array>
#include <atomic>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Comparison.h"
#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "InterleavedRun.h"
#include "TableContenders.h"
#include "Workload.h"
#include "format/Format.h"
#include "format/SharedWord.h"
#include "testing/ChildProcess.h"

namespace {

using bench::Comparison;
using bench::ConfigKey;
using bench::ConfigRow;
using bench::CopyTable;
using bench::LmdbTable;
using bench::Order;
using bench::SharedTable;

constexpr int kPasses = 3;  // over all keys, a round

struct Lmdb1 : LmdbTable {
  Lmdb1() : LmdbTable(1) {}
};
struct Lmdb64 : LmdbTable {
  Lmdb64() : LmdbTable(64) {}
};

// Runs the timed step once per pass, with the untimed one before it, and sets the counter to the
// processor time an operation.
template <typename Before, typename Timed>
void passes(benchmark::State& state, std::size_t operations, Before&& before, Timed&& timed) {
  double seconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    before();
    const double taken = bench::timed(timed);
    state.SetIterationTime(taken);
    seconds += taken;
  }
  state.counters[Comparison::kNanoseconds] =
      seconds * 1e9 / (static_cast<double>(operations) * static_cast<double>(state.iterations()));
}

template <typename Table>
void expectRows(benchmark::State& state, Table& table, std::size_t rows) {
  if (table.rows() != rows) {
    state.SkipWithError(fmt::format("{} rows, {} there should be", table.rows(), rows).c_str());
  }
}

template <typename Table, Order order>
void insert(benchmark::State& state) {
  Table table;
  const auto rows = rowsIn(order, 1);
  const auto keys = keysIn(Order::sequential);
  table.put(rows);  // so that its memory is there
  passes(
      state, rows.size(), [&] { table.remove(keys); }, [&] { table.put(rows); });
  expectRows(state, table, rows.size());
}

template <typename Table, Order order>
void update(benchmark::State& state) {
  Table table;
  std::uint32_t mark = 1;
  auto rows = rowsIn(order, mark);
  table.put(rows);
  passes(
      state, rows.size(), [&] { rows = rowsIn(order, ++mark); }, [&] { table.put(rows); });
  if (table.walk() != std::uint64_t{mark} * rows.size()) {
    state.SkipWithError("not every row has its last mark");
  }
}

template <typename Table, Order order>
void remove(benchmark::State& state) {
  Table table;
  const auto rows = rowsIn(Order::sequential, 1);
  const auto keys = keysIn(order);
  passes(
      state, rows.size(), [&] { table.put(rows); }, [&] { table.remove(keys); });
  expectRows(state, table, 0);
}

template <typename Table>
void walk(benchmark::State& state) {
  Table table;
  const auto rows = rowsIn(Order::random, 1);
  table.put(rows);
  std::uint64_t sum = 0;
  passes(
      state, rows.size(), [] {}, [&] { sum += table.walk(); });
  if (sum != rows.size() * static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("the walk missed rows");
  }
}

// ---- lookups in a second process

struct Board {
  std::atomic<std::uint64_t> puts{0};  // of the writer so far
  std::atomic<double> nanoseconds{0};
  std::atomic<std::uint64_t> missed{0};
  std::atomic<bool> over{false};
};

// At least so many passes, and no fewer than it takes until a busy writer has put a row meanwhile:
// where the processor is short, that may be the next time that the writer gets it.
template <typename Table>
int lookUpAll(const Table& table, Board& board, const std::vector<ConfigKey>& keys,
              bool writerIsBusy) {
  typename Table::Reader reader(table);
  const std::uint64_t putsBefore = board.puts;
  std::uint64_t missed = 0;
  int passes = 0;
  const double seconds = bench::timed([&] {
    while (passes < kPasses || (writerIsBusy && board.puts == putsBefore)) {
      for (const ConfigKey& key : keys) {
        missed += reader.find(key) == 0 ? 1U : 0U;
      }
      ++passes;
    }
  });
  board.missed = missed;
  board.nanoseconds = seconds * 1e9 / (static_cast<double>(keys.size()) * passes);
  board.over = true;
  return 0;
}

// The writer puts all rows, in their order and again, while the reader looks them up at random: it
// has nothing else to do, and its rows are made beforehand.
template <typename Table, bool writerIsBusy>
void lookUp(benchmark::State& state) {
  Table table;
  const auto keys = keysIn(Order::random);
  const std::array<std::vector<ConfigRow>, 2> rows = {rowsIn(Order::sequential, 1),
                                                      rowsIn(Order::sequential, 2)};
  table.put(rows[0]);
  double nanoseconds = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    const testing_support::Shared<Board> board;
    testing_support::ForkedChild reader(
        [&] { return lookUpAll(table, *board, keys, writerIsBusy); });
    std::uint64_t puts = 0;
    for (std::size_t at = 0; writerIsBusy && !board->over; at = (at + 1) % rows[0].size()) {
      table.put(std::span(rows[puts / rows[0].size() % 2]).subspan(at, 1));
      board->puts.store(++puts, std::memory_order_relaxed);
    }
    if (reader.wait() != testing_support::Ending::exited(0) || board->missed != 0) {
      state.SkipWithError(fmt::format("{} rows were missed", board->missed.load()).c_str());
      return;
    }
    nanoseconds += board->nanoseconds;
    state.SetIterationTime(board->nanoseconds * 1e-9);
  }
  state.counters[Comparison::kNanoseconds] = nanoseconds / static_cast<double>(state.iterations());
}

// ---- what only the shared table has

// The removal of log rows one version after the other, as the hardware reports them.
void cleanLog(benchmark::State& state) {
  const testing_support::TemporaryRoot root;
  const auto entityManager = Zev::makeObject<Vanta::EntityManager>(root.path());
  const auto log = ZevSharedMem::mountForWriting<LoamFec::FecTableDataModelEntryLogGlint>(
      entityManager, "/bench/log");
  auto& rows = log->entryLogConfig();
  const std::uint64_t count = bench::scale().residentKeys;
  std::uint64_t first = 1;
  passes(
      state, count,
      [&] {
        for (std::uint64_t version = first; version < first + count; ++version) {
          rows.rowIs({Asic::LogVersion(version), 0, Asic::UnitId(0), {}});
        }
      },
      [&] {
        for (const std::uint64_t end = first + count; first < end; ++first) {
          const Asic::LogVersion version(first);
          if (Glint::guardedRow(rows, version)) {
            rows.rowDel(version);
          }
        }
      });
  if (rows.rowCount() != 0) {
    state.SkipWithError("log rows are left");
  }
}

// The checksum of one configuration row.
void checksum(benchmark::State& state) {
  constexpr std::size_t kRowWords = Glint::rowWords(sizeof(ConfigRow));
  const auto rows = rowsIn(Order::random, 1);
  std::vector<Glint::SealedRow<kRowWords>> sealed(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::memcpy(sealed[i].words.data(), &rows[i], sizeof rows[i]);
    sealed[i].words[kRowWords] = i;
  }
  std::uint64_t sum = 0;
  passes(
      state, rows.size(), [] {},
      [&] {
        for (const auto& row : sealed) {
          sum += row.checksum();
        }
      });
  benchmark::DoNotOptimize(sum);
}

// A writer's mount of a full unit and a full log, every row verified; per mount.
void mount(benchmark::State& state) {
  const testing_support::TemporaryRoot root;
  using Log = LoamFec::FecTableDataModelEntryLogGlint;
  using Config = LoamFec::FecTableDataModelConfigGlint;
  const auto mountBoth = [&] {
    const auto entityManager = Zev::makeObject<Vanta::EntityManager>(root.path());
    return std::pair(ZevSharedMem::mountForWriting<Config>(entityManager, "/bench/config"),
                     ZevSharedMem::mountForWriting<Log>(entityManager, "/bench/log"));
  };
  const std::uint32_t logRows = bench::scale().logRows;
  {
    const auto [config, log] = mountBoth();
    for (const ConfigRow& row : rowsIn(Order::random, 1)) {
      config->swTableEntries().rowIs(row);
    }
    for (std::uint64_t version = 1; version <= logRows; ++version) {
      log->entryLogConfig().rowIs({Asic::LogVersion(version), 0, Asic::UnitId(0), {}});
    }
  }
  std::uint32_t rows = 0;
  passes(
      state, 1, [&] { rows = 0; },
      [&] {
        const auto [config, log] = mountBoth();
        rows = config->swTableEntries().rowCount() + log->entryLogConfig().rowCount();
      });
  if (rows != logRows + bench::scale().residentKeys) {
    state.SkipWithError("the mount missed rows");
  }
}

// What a mount has to read at least: the slots of that many rows, copied.
void copySlots(benchmark::State& state) {
  const std::size_t bytes =
      Glint::slotBytes(sizeof(ConfigRow)) * bench::scale().residentKeys +
      Glint::slotBytes(sizeof(LoamFec::FecTableDataModelLogGlintEntry)) * bench::scale().logRows;
  const std::vector<char> slots(bytes, 'x');
  std::vector<char> copied(bytes);
  passes(
      state, 1, [&] { copied.front() = '\0'; },
      [&] {
        std::memcpy(copied.data(), slots.data(), bytes);
        benchmark::DoNotOptimize(copied.data());
      });
  if (copied != slots) {
    state.SkipWithError("the copy is not equal");
  }
}

void add(const std::string& name, void (*function)(benchmark::State&)) {
  benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime()->Iterations(kPasses);
}

template <typename Table>
void addWrites(const std::string& contender) {
  add("insert in order/" + contender, insert<Table, Order::sequential>);
  add("insert at random/" + contender, insert<Table, Order::random>);
  add("update in order/" + contender, update<Table, Order::sequential>);
  add("update at random/" + contender, update<Table, Order::random>);
  add("remove in order/" + contender, remove<Table, Order::sequential>);
  add("remove at random/" + contender, remove<Table, Order::random>);
  add("walk, a row/" + contender, walk<Table>);
}

template <typename Table>
void addLookups(const std::string& contender) {
  add("lookup, writer idle/" + contender, lookUp<Table, false>);
  add("lookup, writer busy/" + contender, lookUp<Table, true>);
}

}  // namespace

int main(int argc, char** argv) {
  Comparison comparison({"shared table", "LMDB", "LMDB, 64 a transaction", "copies"});
  return bench::runInterleaved(argc, argv, comparison, [] {
    addWrites<SharedTable>("shared table");
    addWrites<Lmdb1>("LMDB");
    addWrites<Lmdb64>("LMDB, 64 a transaction");
    addWrites<CopyTable>("copies");
    addLookups<SharedTable>("shared table");
    addLookups<Lmdb1>("LMDB");
    add("lookup, writer idle/copies", lookUp<CopyTable, false>);
    add("log cleanup, a row/shared table", cleanLog);
    add("checksum of a row/shared table", checksum);
    add("mount, full unit and log/shared table", mount);
    add("mount, full unit and log/copies", copySlots);
  });
}
