// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/FecAgent.h"
#include "agent/FecClient.h"
#include "captures/Snapshot.h"

namespace Replay {

// The result of one snapshot, over all units.
struct Report {
  std::uint64_t nextHops = 0;    // of the snapshot that are FEC entries
  std::uint64_t unchanged = 0;   // entries already as the snapshot wants them
  std::uint64_t writes = 0;      // requests made
  std::uint64_t removes = 0;     // requests made
  std::uint64_t programmed = 0;  // requests answered: the hardware has it
  std::uint64_t failed = 0;      // requests answered: refused, or no room
  std::uint64_t superseded = 0;  // requests answered: a newer one took their place
  std::uint64_t waiting = 0;     // requests without an answer, of this snapshot and earlier ones
  std::map<std::string, std::uint64_t> waitingFor;     // writes among them, by what they wait for
  std::map<std::string, std::uint64_t> skippedByKind;  // next hops that are not FEC entries
  std::uint64_t skippedLinks = 0;
  std::uint64_t logVersions = 0;  // handed out meanwhile
  std::uint64_t entries = 0;      // committed in the units' tables at the end
  bool hardwareEqual = false;     // the hardware holds exactly those
  std::chrono::nanoseconds time{0};

  std::uint64_t asked() const { return writes + removes; }
};

// The effects of a change of destinations, over all units.
struct Redrive {
  std::uint64_t entries = 0;      // that were logged again
  std::uint64_t logVersions = 0;  // handed out meanwhile
  std::chrono::nanoseconds time{0};
};

// One request, when it is made or when the hardware has carried it out.
struct ObservedRequest {
  enum class Moment : std::uint8_t { asked, carriedOut };

  Moment moment = Moment::asked;
  Asic::UnitId unit;
  Agent::FecClient::Key key;
  std::optional<Agent::FecClient::Entry> entry;  // as asked for; nothing: a remove
  Asic::LogVersion version;  // 0: not logged yet, or a remove that found nothing
};

// Makes the FEC tables of some units equal to snapshots of a Linux system, one after the other:
// each link that is up has a destination, each next hop is an entry.
//
// Kind: object with identity.
// Ownership: refers to the agent, which outlives it.
// Threads: one; runs the agent's loop.
class Replayer {
 public:
  // The units are the agent's. Shows a progress bar on standard error if that is a terminal and
  // showProgress is true.
  Replayer(Agent::FecAgent& agent, const std::vector<Asic::UnitId>& units, bool showProgress);

  // Returns when every request is answered or waits for an interface.
  Report apply(const Captures::Snapshot& snapshot, const std::string& label);

  // The links' destinations fail, and the entries that use them lose theirs in the hardware.
  Redrive takeDown(const std::vector<Wirex::IntfId>& links);
  // The links have new destinations.
  Redrive bringUp(const std::vector<Wirex::IntfId>& links);
  // Whether each unit's hardware table holds exactly the committed entries.
  bool hardwareEqual() const;

  // Called with each request before it is made, and again from a turn of the agent's loop when the
  // hardware has carried it out.
  using Observer = std::function<void(const ObservedRequest&)>;
  void observerIs(Observer observer) { observer_ = std::move(observer); }

 private:
  struct Unit {
    Unit(Asic::UnitId unitId, Agent::FecAgent& agent);
    Asic::UnitId id;
    Agent::FecClient client;
  };

  void setDestinations(const std::vector<Captures::Link>& links);
  std::uint32_t newDestination() { return ++lastDestination_; }
  void makeRequests(const Captures::Snapshot& snapshot, Report& report);
  void removeVanished(Unit& unit, const Captures::Snapshot& snapshot, Report& report);
  void writeWanted(Unit& unit, const Captures::Snapshot& snapshot, Report& report);
  void runUntilIdle(const Report& report, const std::string& label);
  void countWaiting(const std::vector<Captures::Link>& links, Report& report) const;
  Agent::FecClient::AnswerHandler countAnswer(const ObservedRequest& request);
  void observe(const ObservedRequest& request) const;
  template <typename Change>
  Redrive redrive(Change&& change);
  std::uint64_t entriesAbove(Asic::LogVersion version) const;

  Agent::FecAgent& agent_;
  bool showProgress_;
  std::list<Unit> units_;
  // Destination number of each interface that was ever named.
  std::map<std::uint64_t, std::uint32_t> destinations_;
  std::uint32_t lastDestination_ = 0;
  Observer observer_;
  Report* counted_ = nullptr;  // the report that answers count for
};

}  // namespace Replay
