// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <initializer_list>
#include <utility>
#include <vector>

#include "FecTableFixture.h"

namespace fec_test {

// An agent with one table over a recording resource client, seen from the table's linkage.
class LinkageFixture : public FecTableFixture {
 protected:
  using Linkage = LoamFec::FecTableIntfIdToDestIdLinkage;
  using Record = Linkage::LocalUsageUpdateSm;
  using Wrapper = FecTableEntryWrapper;
  using WrapperPtr = Pell::Ptr<Wrapper>;

  using FecTableFixture::FecTableFixture;

  static constexpr const char* kTrace = "FecTableIntfIdToDestIdLinkage";

  Linkage& linkage() { return *table().intfIdToDestIdLinkage(); }
  RecordingResourceClient& client() { return agent_.client(); }
  Pell::Ptr<ScriptedResourceHandle> handle(const Pell::String& intf = "eth1") {
    return client().handle(intf);
  }
  static ResourceTable::Key resKey(const Pell::String& intf) {
    return ResourceTable::Key(Wirex::IntfId::fromName(intf));
  }
  Pell::Ptr<Record> record(const Pell::String& intf = "eth1") {
    return linkage().entryUsageSm(resKey(intf));
  }

  // A wrapper as a request makes it, which nothing queues.
  WrapperPtr wrapper(std::uint32_t fecId, const Pell::String& intf = "eth1") {
    FecTableDataModelEntry entry = FecHarness::entry(intf);
    entry.key = key(fecId);
    return LoamFec::fecTableEntryWrapperFactory(
        entry, Table::entryHandleFactory(Asic::EntryVersion(), key(fecId), &table()));
  }
  WrapperPtr wrapperInState(State state) {
    WrapperPtr made = wrapper(5);
    handle()->contentsAre(state, {100, 0, 0});
    made->intfIdResPtrIs(handle());
    return made;
  }
  static Asic::TableVersion tableVersion(std::uint16_t table, std::uint64_t version) {
    return {Asic::SwTableId(0x03010000U + table), Asic::LogVersion(version)};
  }
  static Pell::Ptr<Asic::NeededEntry> neededSet(
      std::initializer_list<Asic::TableVersion> versions) {
    auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (const Asic::TableVersion& version : versions) {
      needed->add(version);
    }
    return needed;
  }

  // Commits writes of entries on interfaces that have a destination.
  void commitOn(const Pell::String& intf, std::initializer_list<std::uint32_t> fecIds) {
    if (handle(intf)->entryState() != State::done) {
      handle(intf)->contentsAre(State::done, {100, 0, 0});
    }
    for (const std::uint32_t fecId : fecIds) {
      write(fecId, intf);
    }
    agent_.run();
  }
  // The resource changes and says so.
  void resourceChanges(const Pell::String& intf, State state, std::uint32_t destination) {
    handle(intf)->contentsAre(state, {destination, 0, 0});
    handle(intf)->publish();
  }
  std::vector<std::uint32_t> usersOf(const Pell::String& intf) {
    std::vector<std::uint32_t> users;
    if (const Pell::Ptr<Record> held = record(intf)) {
      held->entryUsage().forEach(
          [&](const FecTableDataModelEntryKey& user, bool) { users.push_back(user.fecId()); });
    }
    return users;
  }
};

}  // namespace fec_test
