// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "testing/FolderImage.h"
#include "testing/LongForm.h"

// A child process that works on the shared tables of a folder is stopped at every state that it
// leaves the files in, as a kill there would leave them.

namespace testing_support {

// The work's own process as the work sees it.
//
// Kind: object of the child; its counters are shared with the tracer.
class SteppedWork {
 public:
  struct Progress {
    std::atomic<std::uint64_t> begun = 0;
    std::atomic<std::uint64_t> acknowledged = 0;
  };

  explicit SteppedWork(Progress& progress) : progress_(progress) {}

  // From begin() to end() every state is looked at; outside of it nothing is. Any number of times.
  void begin();
  void end();
  // Around each operation: from operationBegins() on its effect may show, from operationDone() on
  // it must.
  void operationBegins() { ++progress_.begun; }
  void operationDone() { ++progress_.acknowledged; }

 private:
  Progress& progress_;
};

// One state of the folder's files, which the next one differs from.
struct SteppedState {
  std::uint64_t number = 0;        // of states before it
  std::uint64_t acknowledged = 0;  // operations that were done at the latest moment of this state
  std::uint64_t begun = 0;         // operations that had begun at the earliest
  const FolderImage& folder;
};

enum class Stepping {
  everyInstruction,  // the processor's trap flag: a stop behind each instruction
  everyStore,        // a stop at each store to a mapped table and at each system call: the same
                     // states some hundred times faster, but for what only the first way can show
};

// A test's long form, with LOAMFEC_EVERY_INSTRUCTION in the environment, and how it steps.
inline bool longForm() { return times("LOAMFEC_EVERY_INSTRUCTION", 0) != 0; }
inline Stepping stepping() {
  return longForm() ? Stepping::everyInstruction : Stepping::everyStore;
}

// The statistics of one run.
struct SteppedRun {
  std::uint64_t instructions = 0;  // stepped one by one; 0 with everyStore
  std::uint64_t states = 0;        // distinct ones, each differing from the one before
  std::string fault;               // of the harness or of the work; empty: the work ended with 0
};

// Why this process cannot trace a child; empty if it can.
std::string whyNoStepping();

// Forks a child that does the work, and calls look() with each state; look() answers whether to go
// on. Nothing may be locked or mounted for writing here. `folder` is absolute and exists.
SteppedRun stepThrough(const std::string& folder, Stepping stepping,
                       const std::function<int(SteppedWork&)>& work,
                       const std::function<bool(const SteppedState&)>& look);

}  // namespace testing_support
