// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/StateCheck.h"

namespace Tools {

// One step that a repair takes, or would take.
struct RepairStep {
  std::string kind;  // stable, for machines
  std::string file;
  std::string text;         // what is wrong
  std::string remedy;       // how it is repaired
  bool losesTable = false;  // every row of the table is lost
};

// The steps that a repair has taken, or would take, and their outcome.
//
// Kind: value type.
struct RepairReport {
  // The outcome for a state folder.
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

// Finds the steps that a repair would take. Changes nothing, and takes no lock.
RepairReport planRepair(const std::string& folder);

// Repairs a state folder under its writer lock: keeps a copy of each damaged file, drops damaged
// rows, rebuilds damaged indexes, finishes changes that a kill cut short, brings the tables back
// into agreement. A file without a usable header is set aside, and an empty table takes its place;
// versions go on above those that the rest of the folder shows.
//
// Configuration rows decide: a log row that contradicts them is dropped, and the next start of the
// agent brings the hardware in line with the configuration.
//
// May be killed at any moment, and run again.
RepairReport carryOutRepair(const std::string& folder);

// For people: at most `limit` steps (0: all), then the outcome.
std::string repairText(const RepairReport& report, std::size_t limit);
// One JSON object with stable keys, everything in it.
std::string repairJson(const RepairReport& report);

}  // namespace Tools
