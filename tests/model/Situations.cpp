// SPDX-License-Identifier: Apache-2.0

#include "Situations.h"

#include <fmt/format.h>

namespace fec_model {

namespace {

// In the order of the enumeration.
constexpr std::array<const char*, Situations::kCount> kNames = {
    "sameKeyChain",
    "overtaken",
    "failedDependency",
    "waitingDependency",
    "failedResource",
    "failedResourceLogged",
    "unresolvedResource",
    "logFull",
    "suspendOn",
    "suspendOff",
    "splitWalk",
    "cursorMovedBack",
    "reportRepeated",
    "reportBehind",
    "reportRefused",
    "ignoredDelete",
    "deletedAgain",
    "restartWithPending",
    "restartWithUnapplied",
    "restartWithChanged",
    "orphanedDeletion",
    "ringQueueGrown",
    "tableDelete",
    "tableDeleteThenWrite",
    "failedRemoveAll",
    "hiddenByRemoveAll",
    "reset",
    "clearedReleasing",
    "staleUsage",
    "redriven",
    "redrivenUnchanged",
    "redrivenUnresolved",
    "coalescedChange",
    "liveChange",
    "liveChangeHeldBack",
    "destinationFreed",
    "severalUnitsRedriven",
    "lastUserReleased",
    "handlerRequested",
    "handlerRequestedInWalk",
    "nestedReport",
    "hookRequested",
    "walkAcrossTurns",
    "walkMovedToCommitted",
};

}  // namespace

const char* Situations::name(Situation situation) {
  return kNames[static_cast<std::size_t>(situation)];
}

void Situations::add(const Situations& other) {
  for (std::size_t at = 0; at < kCount; ++at) {
    counts_[at] += other.counts_[at];
  }
}

std::vector<std::string> Situations::missing() const {
  std::vector<std::string> names;
  for (std::size_t at = 0; at < kCount; ++at) {
    if (counts_[at] == 0) {
      names.emplace_back(kNames[at]);
    }
  }
  return names;
}

std::string Situations::report() const {
  std::string text;
  for (std::size_t at = 0; at < kCount; ++at) {
    text += fmt::format("  {:<24}{:>12}\n", kNames[at], counts_[at]);
  }
  return text;
}

}  // namespace fec_model
