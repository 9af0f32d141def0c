// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Workload.h"
#include "testing/FecHarness.h"

namespace bench {

// What the two contenders that run the library share: an agent in this process, its state in shared
// memory, whose FEC table holds every key of the workload.
class FecAgent {
 protected:
  explicit FecAgent(const Workload& workload);

  // Requests every entry and runs the loop until it is idle: each is committed and logged then.
  void requestAndLog(std::span<const LoamFec::FecTableDataModelEntry> entries);
  // Reports everything logged applied, which cleans the logs up and answers the requests.
  void report();
  // Every request has been answered with success, the log is empty, each write has raised its
  // version by one, and the configuration table holds exactly the workload's keys and marks.
  Pell::String agentFinding(const Workload& workload);

  testing_support::FecHarness harness_;
  Pell::Ptr<LoamFec::FecTableSwTable> table_;

 private:
  std::uint64_t requested_ = 0;
  std::uint64_t done_ = 0;
  Asic::LogVersion firstVersion_;
};

// The whole in-process road of a write: request, resource, resolver turn, commit, logged. What
// comes after, the cleanup of the logs and the answer, is finish().
class Road : private FecAgent {
 public:
  explicit Road(const Workload& workload) : FecAgent(workload) {}

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch) { batch_ = batch; }
  void write();
  void finish() { report(); }
  Pell::String finding(const Workload& workload) { return agentFinding(workload); }

 private:
  std::span<const LoamFec::FecTableDataModelEntry> batch_;
};

// The commit alone: configuration row, log row, scratchpad and group log row of each entry, without
// request, resolver and resource. The cleanup of the logs is finish().
class Commit : private FecAgent {
 public:
  explicit Commit(const Workload& workload);

  void prepare(std::span<const LoamFec::FecTableDataModelEntry> batch);
  void write();
  void finish() { report(); }
  Pell::String finding(const Workload& workload) { return agentFinding(workload); }

 private:
  struct Change {
    LoamFec::FecTableDataModelLogEntry logEntry;
    LoamFec::FecTableDataModelResourceKeys resourceKeys;
  };

  std::vector<Change> batch_;
  Pell::Ptr<Asic::NeededEntry> needed_;
};

}  // namespace bench
