#pragma once

#include <string>
#include <vector>

#include "agent/Replay.h"

namespace Agent {

// One snapshot's report under its label (the file of its next hops).
struct LabelledReport {
  std::string label;
  ReplayReport report;
};

// The sum of the reports; waiting, entries and hardwareEqual are those of the last one.
ReplayReport total(const std::vector<LabelledReport>& reports);

// A table for people: one column a snapshot and, of more than one, the total.
std::string reportTable(const std::vector<LabelledReport>& reports);

// The same for machines: one JSON object, {"snapshots": [...], "total": {...}}, with stable keys.
// Times are in seconds.
std::string reportJson(const std::vector<LabelledReport>& reports);

}  // namespace Agent
