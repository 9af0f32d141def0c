// SPDX-License-Identifier: Apache-2.0

#include "LmdbCommit.h"

#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

namespace bench {

namespace {

constexpr std::size_t kMapBytes = std::size_t{256} << 20U;

void check(int result, const char* operation) {
  if (result != MDB_SUCCESS) {
    throw std::runtime_error(fmt::format("{}: {}", operation, mdb_strerror(result)));
  }
}

template <typename T>
MDB_val bytesOf(const T& value) {
  return {sizeof value, const_cast<T*>(&value)};
}

template <typename Key, typename Row>
void put(MDB_txn* transaction, MDB_dbi table, Key key, const Row& row, unsigned flags) {
  MDB_val keyBytes = bytesOf(key);
  MDB_val rowBytes = bytesOf(row);
  check(mdb_put(transaction, table, &keyBytes, &rowBytes, flags), "mdb_put");
}

std::size_t rowCount(MDB_txn* transaction, MDB_dbi table) {
  MDB_stat stat{};
  check(mdb_stat(transaction, table, &stat), "mdb_stat");
  return stat.ms_entries;
}

}  // namespace

template <typename Steps>
void LmdbCommit::inTransaction(unsigned flags, Steps&& steps) const {
  MDB_txn* transaction = nullptr;
  check(mdb_txn_begin(environment_, nullptr, flags, &transaction), "mdb_txn_begin");
  steps(transaction);
  check(mdb_txn_commit(transaction), "mdb_txn_commit");
}

LmdbCommit::LmdbCommit(const Workload& workload) {
  check(mdb_env_create(&environment_), "mdb_env_create");
  check(mdb_env_set_maxdbs(environment_, 3), "mdb_env_set_maxdbs");
  check(mdb_env_set_mapsize(environment_, kMapBytes), "mdb_env_set_mapsize");
  check(mdb_env_open(environment_, root_.path().c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0600),
        "mdb_env_open");
  inTransaction(0, [&](MDB_txn* transaction) {
    constexpr unsigned kFlags = MDB_CREATE | MDB_INTEGERKEY;
    check(mdb_dbi_open(transaction, "config", kFlags, &config_), "mdb_dbi_open");
    check(mdb_dbi_open(transaction, "log", kFlags, &log_), "mdb_dbi_open");
    check(mdb_dbi_open(transaction, "group", kFlags, &group_), "mdb_dbi_open");
    for (const Rows& rows : rowsOf(workload.everyEntry(), 1)) {
      put(transaction, config_, rows.config.key().fecId(), rows.config, MDB_APPEND);
    }
  });
}

LmdbCommit::~LmdbCommit() { mdb_env_close(environment_); }

void LmdbCommit::prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) {
  batch_ = rowsOf(batch, version_ + 1);
}

void LmdbCommit::write() {
  for (const Rows& rows : batch_) {
    inTransaction(0, [&](MDB_txn* transaction) {
      put(transaction, config_, rows.config.key().fecId(), rows.config, 0);
      put(transaction, log_, rows.log.version().value(), rows.log, MDB_APPEND);
      put(transaction, group_, rows.group.sequence(), rows.group, MDB_APPEND);
    });
  }
}

void LmdbCommit::finish() {
  version_ += batch_.size();
  inTransaction(0, [&](MDB_txn* transaction) {
    for (const Rows& rows : batch_) {
      const std::uint64_t version = rows.log.version().value();
      MDB_val key = bytesOf(version);
      check(mdb_del(transaction, log_, &key, nullptr), "mdb_del");
      check(mdb_del(transaction, group_, &key, nullptr), "mdb_del");
    }
  });
}

Pell::String LmdbCommit::finding(const Workload& workload) const {
  Pell::String result;
  inTransaction(MDB_RDONLY, [&](MDB_txn* transaction) {
    if (rowCount(transaction, config_) != scale().residentKeys ||
        rowCount(transaction, log_) != 0 || rowCount(transaction, group_) != 0) {
      result = "the tables do not hold the rows that they should";
    }
    for (std::uint32_t fecId = 1; fecId <= scale().residentKeys; ++fecId) {
      MDB_val key = bytesOf(fecId);
      MDB_val value{};
      check(mdb_get(transaction, config_, &key, &value), "mdb_get");
      LoamFec::FecTableDataModelConfigGlintEntry row;
      std::memcpy(static_cast<void*>(&row), value.mv_data, sizeof row);
      if (row.logEntry().opaqueA != workload.markOf(fecId)) {
        result = fmt::format("the row of {} is wrong", fecId);
      }
    }
  });
  return result;
}

}  // namespace bench
