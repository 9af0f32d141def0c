// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StateRows.h"

namespace Tools {

// One step that brings the rows of a state back into agreement.
struct Mend {
  enum class What : std::uint8_t {
    dropConfigRow,       // unit, number: FEC identifier
    dropLogRow,          // number: version
    dropGroupRow,        // number: sequence
    raiseLogVersion,     // number: the log's scratchpad, if that is lower
    raiseGroupSequence,  // number: the group log's scratchpad, if that is lower
  };

  What what = What::dropConfigRow;
  std::uint64_t number = 0;
  std::uint16_t unit = 0;
};

// A finding or a note about the rows of a state, compared with each other.
//
// A finding is a state that no kill of an agent leaves. A note is a state that a kill may leave, or
// an unfinished change: nothing is wrong, and the next start or the next report of the hardware
// deals with it.
struct Judgement {
  bool isFinding = false;
  std::string kind;  // stable, for machines
  std::string file;
  std::string text;
  // The steps by which a repair mends it; empty: none is needed.
  std::vector<Mend> mends;
  std::string remedy;  // the same in words
};

// Compares configuration rows, log rows, group rows, applied versions and the two scratchpads.
//
// Every change is written in the order configuration rows, log row, log's scratchpad, group row,
// group log's scratchpad, and every clean-up in the order log row, configuration row, applied
// version, group rows; a kill cuts either anywhere, and the version of a change that did not reach
// the scratchpad is given again. So, with S the log's scratchpad and A the applied version:
//
//   configuration rows  version at most S + 1
//   log rows            version at most S + 1; of a version up to S, the entry has a configuration
//                       row that is newer, or of that version and equal; missing only if a version
//                       above is missing in the log too (its deletion, cleaned up)
//   group rows          sequence at most the scratchpad + 1, but for further rows of that same
//                       operation; of each table, versions rise; of the FEC table, version at most
//                       S; a row that goes on with an operation follows one of it, unless applied
//   A                   at most S
//
// Parts that could not be read are left out.
std::vector<Judgement> judge(const StateRows& rows);

// Carries out the step on the rows in memory.
void apply(const Mend& mend, StateRows& rows);

}  // namespace Tools
