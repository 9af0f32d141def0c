#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/FecAgent.h"
#include "agent/FecClient.h"
#include "agent/ReplayInput.h"

namespace Agent {

// What came of one snapshot.
struct ReplayReport {
  std::uint64_t nextHops = 0;    // of the snapshot that are FEC entries
  std::uint64_t unchanged = 0;   // of those, already as the snapshot wants them
  std::uint64_t writes = 0;      // requests made
  std::uint64_t removes = 0;     // requests made
  std::uint64_t programmed = 0;  // requests answered: the hardware has it
  std::uint64_t failed = 0;      // requests answered: refused, or no room
  std::uint64_t superseded = 0;  // requests answered: a newer one took their place
  std::uint64_t waiting = 0;     // requests without an answer, of this snapshot and earlier ones
  std::map<std::string, std::uint64_t> waitingFor;     // writes among them, by what they wait for
  std::map<std::string, std::uint64_t> skippedByKind;  // next hops that are no FEC entries
  std::uint64_t skippedLinks = 0;
  std::uint64_t logVersions = 0;  // handed out meanwhile
  std::uint64_t entries = 0;      // committed in the unit's table at the end
  bool hardwareEqual = false;     // the hardware holds exactly those
  std::chrono::nanoseconds time{0};

  std::uint64_t asked() const { return writes + removes; }
};

// Makes one unit's FEC table equal to snapshots of a Linux system, one after the other: each link
// that is up has a destination, each next hop is an entry.
//
// Kind: object with identity.
// Ownership: refers to the agent, which outlives it.
// Threads: one; runs the agent's loop.
class Replay {
 public:
  // With a progress bar on standard error if that is a terminal and showProgress says so.
  Replay(FecAgent& agent, Asic::UnitId unitId, bool showProgress);

  // Returns when nothing moves any more: every request is answered or waits for an interface.
  ReplayReport apply(const Snapshot& snapshot, const std::string& label);

 private:
  void setDestinations(const std::vector<Link>& links);
  void makeRequests(const Snapshot& snapshot, ReplayReport& report);
  void runUntilIdle(const ReplayReport& report, const std::string& label);
  void countWaiting(const std::vector<Link>& links, ReplayReport& report) const;
  FecClient::AnswerHandler countAnswer();

  FecAgent& agent_;
  Asic::UnitId unitId_;
  bool showProgress_;
  FecClient client_;
  // Destination number of each interface that was ever up; kept for good.
  std::map<std::uint64_t, std::uint32_t> destinations_;
  ReplayReport* counted_ = nullptr;  // the report that answers count for
};

}  // namespace Agent
