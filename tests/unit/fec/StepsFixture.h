// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FecTestNames.h"
#include "testing/StepRecorder.h"

namespace fec_test {

using testing_support::StepHelper;
using testing_support::StepRecorder;

// An agent with the table of unit 7 over a recording resource client, every step of which is
// recorded. The log's versions begin above 32 bits, and the low half of the keys' identifiers is
// the same.
class StepsFixture : public LeakCheckedTest {
 protected:
  using Handle = Pell::Ptr<FecTableSwTable::EntryHandle const>;
  using Dependency = FecTableSwTable::Dependency;
  using State = Asic::EntryState;
  using Resource = Pell::Ptr<ScriptedResourceHandle>;

  static constexpr std::uint16_t kUnit = 7;
  // The log's version before the first request.
  static constexpr std::uint64_t kBase = 5'000'000'000;
  static constexpr std::uint32_t kKey = 0x1'0001;       // 65537
  static constexpr std::uint32_t kOther = 0xFFFF'0001;  // 4294901761
  static constexpr std::uint32_t kThird = 0x8000'0001;  // 2147483649

  StepsFixture() { startAt(kBase); }

  // A new process whose log goes on behind that version.
  void startAt(std::uint64_t version) {
    agent_.log().tableEntryLog()->entryLogConfig().control().scratchpadIs(version);
    stop();
    agent_.restart();
    recorder_.emplace(agent_);
    makeTable();
    take();
  }
  // A new process on the same state folder, recorded from its first step on; the unit's table is
  // yet to be made.
  void restart() {
    stop();
    recorder_.emplace(agent_);
    agent_.restart();
  }
  void makeTable(bool reset = false) {
    helper_ = Zev::makeObject<StepHelper>(*recorder_);
    agent_.makeTable(kUnit, reset, helper_);
    recorder_->watch(table());
  }
  void stop() {
    helper_ = nullptr;
    if (recorder_) {
      recorder_->letGo();
    }
    agent_.stop();
    recorder_.reset();
  }

  FecTableSwTable& table() { return agent_.table(kUnit); }
  FecTableEntryLog& log() { return agent_.log(); }
  Asic::GroupResolver& resolver() { return *table().groupResolver(); }
  RecordingResourceClient& client() { return agent_.client(); }
  Resource resource(const Pell::String& intf) { return client().handle(intf); }
  static FecTableDataModelEntryKey key(std::uint32_t fecId) { return FecHarness::key(fecId); }

  // The interface has that destination, and entries that use it need those versions.
  void destinationIs(const Pell::String& intf, std::uint32_t destination,
                     const std::vector<Asic::TableVersion>& needed = {}) {
    stateIs(intf, State::done, destination, needed);
  }
  void stateIs(const Pell::String& intf, State state, std::uint32_t destination = 0xFFFF,
               const std::vector<Asic::TableVersion>& needed = {}) {
    auto set = Zev::makeObject<Asic::NeededEntry>();
    for (const Asic::TableVersion& version : needed) {
      set->add(version);
    }
    resource(intf)->contentsAre(state, {destination, 21, 31}, set);
  }
  static Asic::TableVersion tableVersion(std::uint32_t table, std::uint64_t version) {
    return {Asic::SwTableId(0x03010000U + table), LogVersion(version)};
  }
  static Pell::Ptr<FakeDependency> dependency(State state, std::uint64_t version = 1) {
    auto made = Zev::makeObject<FakeDependency>(tableVersion(0x806, version));
    made->stateIs(state);
    return made;
  }

  Handle write(std::uint32_t fecId, const Pell::String& intf = "",
               const Dependency& other = nullptr) {
    return table().entryWriteWithResponseHandler(key(fecId), FecHarness::entry(intf, 5), other,
                                                 recorder_->handler("of the write"));
  }
  Handle remove(std::uint32_t fecId, const Dependency& other = nullptr) {
    return table().entryRemoveWithResponseHandler(key(fecId), other,
                                                  recorder_->handler("of the remove"));
  }
  void removeAll(const Dependency& other = nullptr) {
    table().entryRemoveAllWithResponseHandler(other, recorder_->handler("of the remove-all"));
    recorder_->watchQueued();
  }
  // What the resolver does with what waits; nothing before that is recorded.
  std::string generation() {
    take();
    agent_.run();
    return take();
  }
  // Commits writes of entries that leave through the interface.
  void commitOn(const Pell::String& intf, std::initializer_list<std::uint32_t> fecIds) {
    if (!intf.empty() && resource(intf)->entryState() != State::done) {
      destinationIs(intf, 100);
    }
    for (const std::uint32_t fecId : fecIds) {
      write(fecId, intf);
    }
    agent_.run();
    take();
  }
  Pell::Ptr<FecTableResolverEntry> lastQueued() {
    Pell::Ptr<FecTableResolverEntry> last;
    resolver().resolverQueueDelIf([&last](const Asic::ResolverEntry& entry) {
      const auto& typed = dynamic_cast<const FecTableResolverEntry&>(entry);
      last = Pell::Ptr<FecTableResolverEntry>(const_cast<FecTableResolverEntry*>(&typed));
      return false;
    });
    return last;
  }
  // The steps of the resolution check of what was queued last, and its answer.
  std::string resolutionOfTheLast() {
    const auto entry = lastQueued();
    take();
    const bool resolved = entry->isResolved();
    recorder_->step(resolved ? "resolved" : "not resolved");
    return take();
  }

  std::string take() { return recorder_->take(); }

  FecHarness agent_{FecHarness::Resources::recording};
  std::optional<StepRecorder> recorder_;
  Pell::Ptr<StepHelper> helper_;
};

}  // namespace fec_test
