// SPDX-License-Identifier: Apache-2.0

// A snapshot is applied in three strokes: destinations of the links, removes of what the snapshot
// no longer has, writes of what it has anew or otherwise. Then the loop runs until no turn is left;
// what is not answered then waits for an interface.

#include "replay/Replayer.h"

#include <algorithm>
#include <set>
#include <unordered_set>

#include "Progress.h"
#include "captures/NextHopEntry.h"

namespace Replay {

Replayer::Unit::Unit(Asic::UnitId unitId, Agent::FecAgent& agent)
    : id(unitId), client(agent.loop(), agent.fec().swTable(unitId)) {}

Replayer::Replayer(Agent::FecAgent& agent, const std::vector<Asic::UnitId>& units,
                   bool showProgress)
    : agent_(agent), showProgress_(showProgress) {
  for (const Asic::UnitId unit : units) {
    units_.emplace_back(unit, agent);
  }
}

Report Replayer::apply(const Captures::Snapshot& snapshot, const std::string& label) {
  const auto started = std::chrono::steady_clock::now();
  const auto& log = agent_.fec().entryLog();
  const std::uint64_t firstVersion = log->tableVersion().value();
  Report report;
  counted_ = &report;
  report.skippedByKind = snapshot.skippedByKind;
  report.skippedLinks = snapshot.skippedLinks;
  setDestinations(snapshot.links);
  agent_.loop().runUntilIdle();
  makeRequests(snapshot, report);
  runUntilIdle(report, label);
  counted_ = nullptr;
  countWaiting(snapshot.links, report);
  report.logVersions = log->tableVersion().value() - firstVersion;
  report.time = std::chrono::steady_clock::now() - started;
  for (const Unit& unit : units_) {
    report.entries += log->entrys(unit.id);
  }
  report.hardwareEqual = hardwareEqual();
  return report;
}

bool Replayer::hardwareEqual() const {
  return std::all_of(units_.begin(), units_.end(),
                     [this](const Unit& unit) { return agent_.hardwareEqualsTable(unit.id); });
}

void Replayer::setDestinations(const std::vector<Captures::Link>& links) {
  std::unordered_set<std::uint64_t> up;
  for (const Captures::Link& link : links) {
    const auto [known, isNew] = destinations_.try_emplace(link.intf.value());
    if (isNew) {
      known->second = newDestination();
    }
    if (link.isUp) {
      up.insert(link.intf.value());
      agent_.resourceTable().destinationIs(link.intf, {known->second, 0, 0});
    }
  }
  for (const auto& [intf, number] : destinations_) {
    if (!up.contains(intf)) {
      agent_.resourceTable().destinationDel(Wirex::IntfId::fromValue(intf));
    }
  }
}

void Replayer::makeRequests(const Captures::Snapshot& snapshot, Report& report) {
  report.nextHops = snapshot.nextHops.size();
  for (Unit& unit : units_) {
    removeVanished(unit, snapshot, report);
    writeWanted(unit, snapshot, report);
  }
}

void Replayer::removeVanished(Unit& unit, const Captures::Snapshot& snapshot, Report& report) {
  std::unordered_set<std::uint32_t> wanted;
  for (const Captures::NextHop& nextHop : snapshot.nextHops) {
    wanted.insert(nextHop.id);
  }
  std::vector<Agent::FecClient::Key> vanished;
  unit.client.forEachIntended([&](const Agent::FecClient::Entry& entry) {
    if (!wanted.contains(entry.key.fecId())) {
      vanished.push_back(entry.key);
    }
  });
  std::sort(vanished.begin(), vanished.end());
  for (const Agent::FecClient::Key& key : vanished) {
    const ObservedRequest request{.unit = unit.id, .key = key, .entry = {}, .version = {}};
    ++report.removes;
    observe(request);
    unit.client.remove(key, countAnswer(request));
  }
}

void Replayer::writeWanted(Unit& unit, const Captures::Snapshot& snapshot, Report& report) {
  for (const Captures::NextHop& nextHop : snapshot.nextHops) {
    const Agent::FecClient::Entry entry = Captures::entryOf(nextHop);
    const auto held = unit.client.intended(entry.key);
    if (held && Captures::asksTheSame(*held, entry)) {
      ++report.unchanged;
      continue;
    }
    const ObservedRequest request{.unit = unit.id, .key = entry.key, .entry = entry, .version = {}};
    ++report.writes;
    observe(request);
    if (!unit.client.write(entry.key, entry, countAnswer(request))) {
      ++report.failed;
    }
  }
}

// An answer counts for the snapshot during which it comes.
Agent::FecClient::AnswerHandler Replayer::countAnswer(const ObservedRequest& request) {
  return [this, request](Agent::Answer answer, Asic::LogVersion version) {
    switch (answer) {
      case Agent::Answer::programmed:
        ++counted_->programmed;
        observe({ObservedRequest::Moment::carriedOut, request.unit, request.key, request.entry,
                 version});
        break;
      case Agent::Answer::failed:
        ++counted_->failed;
        break;
      case Agent::Answer::superseded:
        ++counted_->superseded;
        break;
    }
  };
}

void Replayer::observe(const ObservedRequest& request) const {
  if (observer_) {
    observer_(request);
  }
}

// ---- changes of destinations

Redrive Replayer::takeDown(const std::vector<Wirex::IntfId>& links) {
  return redrive([&] {
    for (const Wirex::IntfId link : links) {
      agent_.resourceTable().destinationFailed(link);
    }
  });
}

Redrive Replayer::bringUp(const std::vector<Wirex::IntfId>& links) {
  return redrive([&] {
    for (const Wirex::IntfId link : links) {
      const std::uint32_t number = newDestination();
      destinations_[link.value()] = number;
      agent_.resourceTable().destinationIs(link, {number, 0, 0});
    }
  });
}

template <typename Change>
Redrive Replayer::redrive(Change&& change) {
  const auto started = std::chrono::steady_clock::now();
  const auto& log = agent_.fec().entryLog();
  const Asic::LogVersion before = log->tableVersion();
  Report answeredMeanwhile;  // what had waited for one of the links
  counted_ = &answeredMeanwhile;
  change();
  agent_.loop().runUntilIdle();
  counted_ = nullptr;
  const auto time = std::chrono::steady_clock::now() - started;
  return {entriesAbove(before), log->tableVersion().value() - before.value(), time};
}

std::uint64_t Replayer::entriesAbove(Asic::LogVersion version) const {
  std::uint64_t count = 0;
  for (const Unit& unit : units_) {
    // A damaged row is no entry any more.
    (void)agent_.fec().swTable(unit.id)->forEachCommitted(
        [&](const LoamFec::FecTableSwTable::Row& row) {
          count += row.version() > version ? 1U : 0U;
        });
  }
  return count;
}

void Replayer::runUntilIdle(const Report& report, const std::string& label) {
  if (!showProgress_) {
    agent_.loop().runUntilIdle();
    return;
  }
  Progress progress(label, report.asked(), stderr);
  while (agent_.loop().runOne()) {
    progress.update(report.programmed + report.failed + report.superseded);
  }
  progress.finish();
}

void Replayer::countWaiting(const std::vector<Captures::Link>& links, Report& report) const {
  std::set<std::uint64_t> known;
  for (const Captures::Link& link : links) {
    known.insert(link.intf.value());
  }
  for (const Unit& unit : units_) {
    report.waiting += unit.client.unanswered();
    unit.client.forEachUnansweredWrite([&](const Agent::FecClient::Entry& entry) {
      const bool isKnown = known.contains(entry.intfId.value());
      ++report.waitingFor[entry.intfId.name() + (isKnown ? " is down" : " is not among the links")];
    });
  }
}

}  // namespace Replay
