// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Asic/GroupLog.h"
#include "PlainContenders.h"
#include "Workload.h"
#include "records/FecSharedTables.h"
#include "testing/TemporaryRoot.h"

namespace bench {

// The three rows of a commit, made beforehand, put into their shared tables: an update at a random
// place of the configuration table, an insert at the end of the log and of the group log. What a
// commit costs the shared tables, and nothing else. finish() removes the log rows of the batch.
class SharedRows {
 public:
  explicit SharedRows(const Workload& workload);

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch);
  // Row after row, as they come.
  void write();
  void finish();
  Pell::String finding(const Workload& workload);

 protected:
  void write(const Rows& rows);

  std::vector<Rows> batch_;
  testing_support::TemporaryRoot root_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config_;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log_;
  Pell::Ptr<Asic::GroupLogGlint> group_;
  std::uint64_t version_ = 0;
};

// The same by a writer who has the whole batch in hand, and so knows the keys that come next.
class SharedRowsInBatch : public SharedRows {
 public:
  using SharedRows::SharedRows;
  void write();
};

}  // namespace bench
