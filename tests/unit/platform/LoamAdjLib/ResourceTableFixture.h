// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <ostream>
#include <vector>

#include <fmt/format.h>

#include "Asic/NeededEntry.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "Vanta/EntityManager.h"
#include "testing/Interfaces.h"
#include "testing/LeakCheck.h"
#include "testing/ManualEventLoop.h"
#include "testing/RecordingResources.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"

namespace resource_table_test {

using testing_support::FakeDependency;
using testing_support::intf;
using testing_support::ResourceTable;
using Handle = ResourceTable::ResourceHandle;
using HandlePtr = Pell::Ptr<Handle const>;
using LoamAdjLib::DestId;
using Needed = Pell::Ptr<Asic::NeededEntry const>;

// The table whose operations acknowledgements name, and another one of the group.
inline constexpr Asic::SwTableId kTable{0x03010805};
inline constexpr Asic::SwTableId kOtherTable{0x03010806};

inline constexpr DestId kFirst{100, 1, 11};
inline constexpr DestId kSecond{200, 2, 22};
inline constexpr DestId kThird{300, 3, 33};

inline ResourceTable::Key key(const char* name) { return ResourceTable::Key(intf(name)); }

inline Needed needed(std::initializer_list<Asic::TableVersion> versions) {
  const auto made = Zev::makeObject<Asic::NeededEntry>();
  for (const Asic::TableVersion& version : versions) {
    made->add(version);
  }
  return made;
}

// Records what a handle shows whenever it publishes.
class HandleWatch {
 public:
  struct Seen {
    short attributeId;
    Asic::EntryState state;
    DestId destId;
    std::uint32_t updateNumber;
    friend void PrintTo(const Seen& one, std::ostream* out) {
      *out << fmt::format("attribute {}, state {}, destination {}, update {}", one.attributeId,
                          one.state, one.destId.first, one.updateNumber);
    }
  };

  explicit HandleWatch(HandlePtr handle)
      : handle_(std::move(handle)),
        subscriber_([this](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*,
                           const void*) {
          seen.push_back(
              {attributeId, handle_->entryState(), handle_->destId(), handle_->updateNumber()});
        }) {
    handle_->publisher().subscriberAdd(subscriber_);
  }
  HandleWatch(const HandleWatch&) = delete;
  HandleWatch& operator=(const HandleWatch&) = delete;
  ~HandleWatch() { handle_->publisher().subscriberRemove(subscriber_); }

  std::vector<Seen> seen;

 private:
  HandlePtr handle_;
  Pell::Subscriber subscriber_;
};

// Resolver entry that never resolves and counts how often it is asked.
class AskedEntry : public Zev::Typed<AskedEntry, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "resource_table_test::AskedEntry";

  AskedEntry() : Typed(nullptr, Asic::EntryFlags::write()) {}
  bool isResolved() override {
    ++asked;
    return false;
  }
  void commitEntry(const Pell::Ptr<Asic::ResolverEntry>& /*resolverEntry*/) override {}

  int asked = 0;
};

// A resource table with its loop, resolver and group log, and one client.
class ResourceTableTest : public testing_support::LeakCheckedTest {
 protected:
  struct Freed {
    Wirex::IntfId intfId;
    DestId destId;
    friend bool operator==(const Freed&, const Freed&) = default;
    friend void PrintTo(const Freed& freed, std::ostream* out) {
      *out << fmt::format("{} at {}", freed.intfId, freed.destId.first);
    }
  };

  ResourceTableTest() {
    entityManager_ = Zev::makeObject<Vanta::EntityManager>(root_.path());
    resolver_ = Zev::makeObject<Asic::GroupResolver>(loop_);
    groupLog_ = Zev::makeObject<Asic::GroupLog>(entityManager_, "LoamAdj", "LoamAdj");
    table_ = Zev::makeObject<ResourceTable>(loop_, resolver_, groupLog_);
    client_ = table_->makeClientInstance();
    table_->freedHandlerIs([this](Wirex::IntfId intfId, const DestId& destId) {
      freed_.push_back({intfId, destId});
    });
  }

  void run() { loop_.runUntilIdle(); }
  void destinationIs(const char* name, const DestId& destination, const Needed& needs = nullptr) {
    table_->destinationIs(intf(name), destination, needs);
    run();
  }
  HandlePtr request(const char* name = "eth1") { return client_->request(key(name), nullptr); }

  // The client uses the handle as it is, by way of the operation.
  void ack(const HandlePtr& handle, const ResourceTable::Dependency& operation = nullptr) {
    client_->ackUpdate(handle, handle->updateNumber(), operation);
    run();
  }
  static Pell::Ptr<FakeDependency> operation(std::uint64_t version,
                                             Asic::SwTableId tableId = kTable) {
    return Zev::makeObject<FakeDependency>(Asic::TableVersion(tableId, Asic::LogVersion(version)));
  }
  void applied(std::uint64_t version, Asic::SwTableId tableId = kTable) {
    groupLog_->tableVersionIs({tableId, Asic::LogVersion(version)});
    run();
  }
  // Flips one bit of the only applied version that is recorded, in the file.
  void damageAppliedVersion() {
    testing_support::damageRow(groupLog_->versionsMap().filePath(), 0);
  }

  testing_support::TemporaryRoot root_;
  testing_support::ManualEventLoop loop_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<Asic::GroupResolver> resolver_;
  Pell::Ptr<Asic::GroupLog> groupLog_;
  Pell::Ptr<ResourceTable> table_;
  Pell::Ptr<ResourceTable::ClientInstance> client_;
  std::vector<Freed> freed_;
};

}  // namespace resource_table_test
