// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "replay/AgentRestart.h"
#include "replay/Replayer.h"

namespace Replay {

// One snapshot's report under its label (the file of its next hops).
struct LabelledReport {
  std::string label;
  Report report;
};

// The sum of the reports; waiting, entries and hardwareEqual are those of the last report.
Report total(const std::vector<LabelledReport>& reports);

// Links that were taken down and up again after a snapshot.
struct LinkChangeReport {
  std::string after;               // label of the snapshot
  std::vector<std::string> links;  // names
  Redrive down;
  Redrive up;
  bool hardwareEqual = false;  // after each of the two
};

// The result of a whole replay.
struct Outcome {
  std::optional<RestartReport> restart;
  std::vector<LinkChangeReport> linkChanges;
  std::vector<LabelledReport> snapshots;

  // Nothing failed, nothing was lost, and the hardware held what the tables did at every
  // comparison.
  bool good() const;
};

// For people: a table with one column per snapshot, and a total if there is more than one. Before
// it stands what a restart found, and after it what changes of links caused.
std::string outcomeText(const Outcome& outcome);

// The same for machines: one JSON object with stable keys, {"restart": {...}, "link_changes":
// [...], "snapshots": [...], "total": {...}}; "restart" and "link_changes" only if there were any.
// Times are in seconds.
std::string outcomeJson(const Outcome& outcome);

}  // namespace Replay
