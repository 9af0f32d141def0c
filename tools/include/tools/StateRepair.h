// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/StateCheck.h"

namespace Tools {

// One thing that a repair does, or would do.
struct RepairStep {
  std::string kind;  // stable, for machines
  std::string file;
  std::string text;         // what is the matter
  std::string remedy;       // what is done about it
  bool losesTable = false;  // every row of the table is lost
};

// What a repair has done, or would do.
//
// Kind: value type.
struct RepairReport {
  // How a state folder came out of it.
  enum class Outcome : std::uint8_t {
    nothingToDo,
    planned,  // nothing has been changed
    done,
    cannot,  // why says what keeps it; what could be done before that is in steps
  };

  std::string folder;
  Outcome outcome = Outcome::nothingToDo;
  std::string why;
  std::vector<RepairStep> steps;
  std::vector<std::string> kept;  // names of the copies that were made, below the folder
  std::vector<Remark> left;       // findings that a repair does not mend
};

// What a repair would do. Changes nothing, and takes no lock.
RepairReport planRepair(const std::string& folder);

// Repairs a state folder under its writer lock: keeps a copy of each damaged file, drops damaged
// rows, rebuilds damaged indexes, finishes what a kill has left, brings the tables back into
// agreement. A file whose header says nothing is set aside, and an empty table takes its place;
// versions go on where the rest of the folder shows them to be.
//
// Configuration rows count: where a log row contradicts them it is dropped, and the next start of
// the agent brings the hardware in line with the configuration.
//
// May be killed at any moment, and run again.
RepairReport carryOutRepair(const std::string& folder);

// For people: at most `limit` steps (0: all), then what became of it.
std::string repairText(const RepairReport& report, std::size_t limit);
// One JSON object with stable keys, everything in it.
std::string repairJson(const RepairReport& report);

}  // namespace Tools
