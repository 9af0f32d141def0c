// SPDX-License-Identifier: Apache-2.0

#include "TableContenders.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <stdexcept>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Glint/Guarded.h"
#include "Glint/SharedMemEntityManager.h"
#include "Workload.h"
#include "records/FecTableConstants.h"

namespace bench {

namespace {

constexpr Asic::UnitId kUnit{0};
constexpr std::size_t kMapBytes = std::size_t{256} << 20U;

using Config = LoamFec::FecTableDataModelConfigGlint;

Pell::Ptr<Config> mountConfig(const Pell::Ptr<Vanta::EntityManager>& entityManager,
                              ZevGlint::ZevGlintType type) {
  return ZevSharedMem::mountEntity<Config>(
      entityManager, LoamFec::FecTableConstants::configGlintPath(kUnit), type, Config::kCapacity);
}

void check(int result, const char* operation) {
  if (result != MDB_SUCCESS) {
    throw std::runtime_error(fmt::format("{}: {}", operation, mdb_strerror(result)));
  }
}

MDB_env* openEnvironment(const Pell::String& folder, unsigned flags) {
  MDB_env* environment = nullptr;
  check(mdb_env_create(&environment), "mdb_env_create");
  check(mdb_env_set_mapsize(environment, kMapBytes), "mdb_env_set_mapsize");
  check(mdb_env_open(environment, folder.c_str(), flags, 0600), "mdb_env_open");
  return environment;
}

ConfigRow rowIn(const MDB_val& value) {
  ConfigRow row;
  std::memcpy(static_cast<void*>(&row), value.mv_data, sizeof row);
  return row;
}

}  // namespace

std::vector<ConfigKey> keysIn(Order order) {
  std::vector<std::uint32_t> numbers(scale().residentKeys);
  std::iota(numbers.begin(), numbers.end(), 1U);
  if (order == Order::random) {
    std::mt19937_64 random(Workload::kSeed);
    std::shuffle(numbers.begin(), numbers.end(), random);
  }
  return {numbers.begin(), numbers.end()};
}

std::vector<ConfigRow> rowsIn(Order order, std::uint32_t mark) {
  std::vector<ConfigRow> rows;
  for (const ConfigKey& key : keysIn(order)) {
    LoamFec::FecTableDataModelLogEntry entry;
    entry.key = key;
    entry.opaqueA = mark;
    rows.push_back({entry, {Workload::interfaceOf(key.fecId())}, Asic::LogVersion(mark), false});
  }
  return rows;
}

// ---- shared table

SharedTable::SharedTable()
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(root_.path())),
      config_(mountConfig(entityManager_, ZevGlint::ZevGlintType::writer)) {}

void SharedTable::put(std::span<const ConfigRow> rows) {
  auto& table = config_->swTableEntries();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    table.fetchAhead(rows[std::min(i + 1, rows.size() - 1)].key());
    table.rowIs(rows[i]);
  }
}

void SharedTable::remove(std::span<const ConfigKey> keys) {
  for (const ConfigKey& key : keys) {
    config_->swTableEntries().rowDel(key);
  }
}

std::uint64_t SharedTable::walk() {
  std::uint64_t sum = 0;
  const bool sawAll = Glint::walkOverDamage(config_->swTableEntries(),
                                            [&](const ConfigRow& row) { sum += markIn(row); });
  return sawAll ? sum : 0;
}

std::uint32_t SharedTable::rows() { return config_->swTableEntries().rowCount(); }

SharedTable::Reader::Reader(const SharedTable& table)
    : entityManager_(Zev::makeObject<Vanta::EntityManager>(table.root_.path())),
      config_(mountConfig(entityManager_, ZevGlint::ZevGlintType::reader)) {}

std::uint64_t SharedTable::Reader::find(const ConfigKey& key) {
  const auto row = config_->swTableEntries().row(key);
  return row ? markIn(*row) : 0;
}

// ---- LMDB

LmdbTable::LmdbTable(std::size_t operationsInATransaction)
    : operations_(operationsInATransaction),
      environment_(openEnvironment(root_.path(), MDB_NOSYNC | MDB_WRITEMAP)) {
  MDB_txn* transaction = nullptr;
  check(mdb_txn_begin(environment_, nullptr, 0, &transaction), "mdb_txn_begin");
  check(mdb_dbi_open(transaction, nullptr, MDB_CREATE | MDB_INTEGERKEY, &table_), "mdb_dbi_open");
  check(mdb_txn_commit(transaction), "mdb_txn_commit");
}

LmdbTable::~LmdbTable() { mdb_env_close(environment_); }

template <typename Item, typename Step>
void LmdbTable::inTransactions(std::span<const Item> items, Step&& step) {
  for (std::size_t at = 0; at < items.size(); at += operations_) {
    MDB_txn* transaction = nullptr;
    check(mdb_txn_begin(environment_, nullptr, 0, &transaction), "mdb_txn_begin");
    for (const Item& item : items.subspan(at, std::min(operations_, items.size() - at))) {
      step(transaction, item);
    }
    check(mdb_txn_commit(transaction), "mdb_txn_commit");
  }
}

void LmdbTable::put(std::span<const ConfigRow> rows) {
  inTransactions(rows, [this](MDB_txn* transaction, const ConfigRow& row) {
    std::uint32_t fecId = row.key().fecId();
    MDB_val key{sizeof fecId, &fecId};
    MDB_val value{sizeof row, const_cast<ConfigRow*>(&row)};
    check(mdb_put(transaction, table_, &key, &value, 0), "mdb_put");
  });
}

void LmdbTable::remove(std::span<const ConfigKey> keys) {
  inTransactions(keys, [this](MDB_txn* transaction, const ConfigKey& removed) {
    std::uint32_t fecId = removed.fecId();
    MDB_val key{sizeof fecId, &fecId};
    check(mdb_del(transaction, table_, &key, nullptr), "mdb_del");
  });
}

std::uint64_t LmdbTable::walk() {
  MDB_txn* transaction = nullptr;
  MDB_cursor* cursor = nullptr;
  check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction), "mdb_txn_begin");
  check(mdb_cursor_open(transaction, table_, &cursor), "mdb_cursor_open");
  std::uint64_t sum = 0;
  MDB_val key{};
  MDB_val value{};
  while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
    sum += markIn(rowIn(value));
  }
  mdb_cursor_close(cursor);
  mdb_txn_abort(transaction);
  return sum;
}

std::uint32_t LmdbTable::rows() {
  MDB_stat stat{};
  check(mdb_env_stat(environment_, &stat), "mdb_env_stat");
  return static_cast<std::uint32_t>(stat.ms_entries);
}

LmdbTable::Reader::Reader(const LmdbTable& table)
    : environment_(openEnvironment(table.root_.path(), MDB_RDONLY)) {
  check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction_), "mdb_txn_begin");
  check(mdb_dbi_open(transaction_, nullptr, MDB_INTEGERKEY, &table_), "mdb_dbi_open");
  mdb_txn_reset(transaction_);
}

LmdbTable::Reader::~Reader() {
  mdb_txn_abort(transaction_);
  mdb_env_close(environment_);
}

std::uint64_t LmdbTable::Reader::find(const ConfigKey& key) {
  check(mdb_txn_renew(transaction_), "mdb_txn_renew");
  std::uint32_t fecId = key.fecId();
  MDB_val asked{sizeof fecId, &fecId};
  MDB_val value{};
  const bool found = mdb_get(transaction_, table_, &asked, &value) == MDB_SUCCESS;
  const std::uint64_t mark = found ? markIn(rowIn(value)) : 0;
  mdb_txn_reset(transaction_);
  return mark;
}

// ---- copies

CopyTable::CopyTable() : rows_(scale().residentKeys + 1) {}

void CopyTable::put(std::span<const ConfigRow> rows) {
  for (const ConfigRow& row : rows) {
    ConfigRow& place = rows_[row.key().fecId()];
    std::memcpy(static_cast<void*>(&place), &row, sizeof row);
    benchmark::DoNotOptimize(place);
  }
}

void CopyTable::remove(std::span<const ConfigKey> keys) {
  for (const ConfigKey& key : keys) {
    ConfigRow& place = rows_[key.fecId()];
    place = ConfigRow();
    benchmark::DoNotOptimize(place);
  }
}

std::uint64_t CopyTable::Reader::find(const ConfigKey& key) {
  ConfigRow copy;
  std::memcpy(static_cast<void*>(&copy), &(*rows_)[key.fecId()], sizeof copy);
  benchmark::DoNotOptimize(copy);
  return markIn(copy);
}

std::uint64_t CopyTable::walk() {
  std::uint64_t sum = 0;
  for (const ConfigRow& row : rows_) {
    ConfigRow copy;
    std::memcpy(static_cast<void*>(&copy), &row, sizeof row);
    benchmark::DoNotOptimize(copy);
    sum += markIn(copy);
  }
  return sum;
}

std::uint32_t CopyTable::rows() {
  return static_cast<std::uint32_t>(std::count_if(
      rows_.begin(), rows_.end(), [](const ConfigRow& row) { return row.key().fecId() != 0; }));
}

}  // namespace bench
