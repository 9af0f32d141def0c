// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <lmdb.h>

#include "Vanta/EntityManager.h"
#include "records/FecSharedTables.h"
#include "testing/TemporaryRoot.h"

// Tables of configuration rows that do the same: put rows, take them off, look them up, walk.

namespace bench {

using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using ConfigKey = LoamFec::FecTableDataModelEntryKey;

// Keys 1 to scale().residentKeys, in their order or in one that is random but always the same.
enum class Order { sequential, random };
std::vector<ConfigKey> keysIn(Order order);
// A row of each key, whose contents follow from key and mark.
std::vector<ConfigRow> rowsIn(Order order, std::uint32_t mark);
// What a reader sums up to show that it has seen the rows.
inline std::uint64_t markIn(const ConfigRow& row) { return row.logEntry().opaqueA; }

// The shared table, mounted by its writer; a forked process may mount it for reading.
class SharedTable {
 public:
  SharedTable();

  void put(std::span<const ConfigRow> rows);
  void remove(std::span<const ConfigKey> keys);
  std::uint64_t walk();
  std::uint32_t rows();

  // A mount of its own, for another process.
  class Reader {
   public:
    explicit Reader(const SharedTable& table);
    std::uint64_t find(const ConfigKey& key);

   private:
    Pell::Ptr<Vanta::EntityManager> entityManager_;
    Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config_;
  };

 private:
  testing_support::TemporaryRoot root_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config_;
};

// LMDB, never synced, written through a shared mapping of a file in /dev/shm.
class LmdbTable {
 public:
  // kOperations in one transaction.
  explicit LmdbTable(std::size_t operationsInATransaction);
  LmdbTable(const LmdbTable&) = delete;
  LmdbTable& operator=(const LmdbTable&) = delete;
  ~LmdbTable();

  void put(std::span<const ConfigRow> rows);
  void remove(std::span<const ConfigKey> keys);
  std::uint64_t walk();
  std::uint32_t rows();

  // An environment of its own; a read transaction a lookup.
  class Reader {
   public:
    explicit Reader(const LmdbTable& table);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader();
    std::uint64_t find(const ConfigKey& key);

   private:
    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    MDB_dbi table_ = 0;
  };

 private:
  template <typename Item, typename Step>
  void inTransactions(std::span<const Item> items, Step&& step);

  testing_support::TemporaryRoot root_;
  std::size_t operations_;
  MDB_env* environment_ = nullptr;
  MDB_dbi table_ = 0;
};

// The floor: rows copied to and from their places in an array. No index, no checksum, no protocol.
class CopyTable {
 public:
  CopyTable();

  void put(std::span<const ConfigRow> rows);
  void remove(std::span<const ConfigKey> keys);
  std::uint64_t walk();
  std::uint32_t rows();

  // For a process that was forked off: what it finds does not change any more.
  class Reader {
   public:
    explicit Reader(const CopyTable& table) : rows_(&table.rows_) {}
    std::uint64_t find(const ConfigKey& key);

   private:
    const std::vector<ConfigRow>* rows_;
  };

 private:
  std::vector<ConfigRow> rows_;
};

}  // namespace bench
