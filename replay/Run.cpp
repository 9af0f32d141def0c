// SPDX-License-Identifier: Apache-2.0

#include "replay/Run.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

namespace Replay {

namespace {

// The flapping links that are up in the snapshot.
std::vector<Captures::Link> flapping(const Plan& plan, const Captures::Snapshot& snapshot) {
  std::vector<Captures::Link> links;
  for (const Captures::Link& link : snapshot.links) {
    const bool flaps =
        std::find(plan.flaps.begin(), plan.flaps.end(), link.intf) != plan.flaps.end();
    if (flaps && link.isUp) {
      links.push_back(link);
    }
  }
  return links;
}

LinkChangeReport flap(Replayer& replay, const std::vector<Captures::Link>& links,
                      const std::string& after) {
  LinkChangeReport report;
  report.after = after;
  std::vector<Wirex::IntfId> interfaces;
  for (const Captures::Link& link : links) {
    report.links.push_back(link.name);
    interfaces.push_back(link.intf);
  }
  report.down = replay.takeDown(interfaces);
  report.hardwareEqual = replay.hardwareEqual();
  report.up = replay.bringUp(interfaces);
  report.hardwareEqual = replay.hardwareEqual() && report.hardwareEqual;
  return report;
}

// The snapshots from that one on; `begun` is called before each, with its position.
void applySnapshots(const Plan& plan, Replayer& replay, std::size_t first, Outcome& outcome,
                    const std::function<void(std::size_t)>& begun) {
  for (std::size_t at = first; at < plan.snapshots.size(); ++at) {
    const auto& [label, snapshot] = plan.snapshots[at];
    begun(at);
    outcome.snapshots.push_back({label, replay.apply(snapshot, label)});
    const std::vector<Captures::Link> links = flapping(plan, snapshot);
    if (!links.empty() && at + 1 < plan.snapshots.size()) {
      outcome.linkChanges.push_back(flap(replay, links, label));
    }
  }
}

KilledAgent killedAgent(const Plan& plan) {
  return runUntilKilled(
      plan.stateFolder, plan.units, *plan.killAfter, plan.makeHardware, [&plan](const auto& tell) {
        Agent::FecAgent agent(plan.stateFolder, plan.units, plan.makeHardware,
                              {.reset = plan.reset, .hardware = nullptr});
        Replayer replay(agent, plan.units, false);
        std::size_t stage = 0;
        replay.observerIs([&](const ObservedRequest& request) { tell(stage, request); });
        Outcome nobodys;
        applySnapshots(plan, replay, 0, nobodys, [&](std::size_t at) { stage = at; });
      });
}

}  // namespace

Outcome carryOut(const Plan& plan) {
  Outcome outcome;
  std::unique_ptr<Agent::FecAgent> agent;
  std::size_t first = 0;
  if (plan.killAfter) {
    KilledAgent killed = killedAgent(plan);
    first = killed.stage;
    agent = restart(plan.stateFolder, plan.units, plan.makeHardware, std::move(killed),
                    outcome.restart.emplace());
  } else {
    agent = std::make_unique<Agent::FecAgent>(
        plan.stateFolder, plan.units, plan.makeHardware,
        Agent::AgentStart{.reset = plan.reset, .hardware = nullptr});
  }
  Replayer replay(*agent, plan.units, plan.showProgress);
  applySnapshots(plan, replay, first, outcome, [](std::size_t) {});
  return outcome;
}

}  // namespace Replay
