// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <lmdb.h>

#include "PlainContenders.h"
#include "Workload.h"
#include "testing/TemporaryRoot.h"

namespace bench {

// The same commit in LMDB: the three rows, made beforehand, in one transaction per entry, never
// synced, written through a shared mapping of a file in /dev/shm. finish() removes the log rows of
// the batch in one transaction.
class LmdbCommit {
 public:
  explicit LmdbCommit(const Workload& workload);
  LmdbCommit(const LmdbCommit&) = delete;
  LmdbCommit& operator=(const LmdbCommit&) = delete;
  ~LmdbCommit();

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch);
  void write();
  void finish();
  Pell::String finding(const Workload& workload) const;

 private:
  template <typename Steps>
  void inTransaction(unsigned flags, Steps&& steps) const;

  testing_support::TemporaryRoot root_;
  MDB_env* environment_ = nullptr;
  MDB_dbi config_ = 0;
  MDB_dbi log_ = 0;
  MDB_dbi group_ = 0;
  std::vector<Rows> batch_;
  std::uint64_t version_ = 0;
};

}  // namespace bench
