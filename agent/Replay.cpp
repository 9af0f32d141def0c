// A snapshot is applied in three strokes: destinations of the links, removes of what the snapshot
// no longer has, writes of what it has anew or otherwise. Then the loop runs until no turn is left;
// what is not answered then waits for an interface.

#include "agent/Replay.h"

#include <algorithm>
#include <set>
#include <unordered_set>

#include "agent/NextHopEntry.h"
#include "agent/Progress.h"

namespace Agent {

Replay::Replay(FecAgent& agent, Asic::UnitId unitId, bool showProgress)
    : agent_(agent),
      unitId_(unitId),
      showProgress_(showProgress),
      client_(agent.loop(), agent.fec().swTable(unitId)) {}

ReplayReport Replay::apply(const Snapshot& snapshot, const std::string& label) {
  const auto started = std::chrono::steady_clock::now();
  const auto& log = agent_.fec().entryLog();
  const std::uint64_t firstVersion = log->tableVersion().value();
  ReplayReport report;
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
  report.entries = log->entrys(unitId_);
  report.hardwareEqual = agent_.hardwareEqualsTable(unitId_);
  return report;
}

void Replay::setDestinations(const std::vector<Link>& links) {
  std::unordered_set<std::uint64_t> up;
  for (const Link& link : links) {
    const auto next = static_cast<std::uint32_t>(destinations_.size() + 1);
    const std::uint32_t number = destinations_.try_emplace(link.intf.value(), next).first->second;
    if (link.isUp) {
      up.insert(link.intf.value());
      agent_.resourceTable().destinationIs(link.intf, {number, 0, 0});
    }
  }
  for (const auto& [intf, number] : destinations_) {
    if (!up.contains(intf)) {
      agent_.resourceTable().destinationDel(Wirex::IntfId::fromValue(intf));
    }
  }
}

void Replay::makeRequests(const Snapshot& snapshot, ReplayReport& report) {
  report.nextHops = snapshot.nextHops.size();
  std::unordered_set<std::uint32_t> wanted;
  for (const NextHop& nextHop : snapshot.nextHops) {
    wanted.insert(nextHop.id);
  }
  std::vector<FecClient::Key> vanished;
  client_.forEachIntended([&](const FecClient::Entry& entry) {
    if (!wanted.contains(entry.key.fecId())) {
      vanished.push_back(entry.key);
    }
  });
  std::sort(vanished.begin(), vanished.end());
  for (const FecClient::Key& key : vanished) {
    ++report.removes;
    client_.remove(key, countAnswer());
  }
  for (const NextHop& nextHop : snapshot.nextHops) {
    const FecClient::Entry entry = entryOf(nextHop);
    const auto held = client_.intended(entry.key);
    if (held && asksTheSame(*held, entry)) {
      ++report.unchanged;
      continue;
    }
    ++report.writes;
    if (!client_.write(entry.key, entry, countAnswer())) {
      ++report.failed;
    }
  }
}

// An answer counts for the snapshot during which it comes.
FecClient::AnswerHandler Replay::countAnswer() {
  return [this](Answer answer) {
    switch (answer) {
      case Answer::programmed:
        ++counted_->programmed;
        break;
      case Answer::failed:
        ++counted_->failed;
        break;
      case Answer::superseded:
        ++counted_->superseded;
        break;
    }
  };
}

void Replay::runUntilIdle(const ReplayReport& report, const std::string& label) {
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

void Replay::countWaiting(const std::vector<Link>& links, ReplayReport& report) const {
  report.waiting = client_.unanswered();
  std::set<std::uint64_t> known;
  for (const Link& link : links) {
    known.insert(link.intf.value());
  }
  client_.forEachUnansweredWrite([&](const FecClient::Entry& entry) {
    const bool isKnown = known.contains(entry.intfId.value());
    ++report.waitingFor[entry.intfId.name() + (isKnown ? " is down" : " is not among the links")];
  });
}

}  // namespace Agent
