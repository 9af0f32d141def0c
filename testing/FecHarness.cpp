// SPDX-License-Identifier: Apache-2.0

#include "testing/FecHarness.h"

#include <ostream>

#include <fmt/format.h>

#include "Asic/Constants.h"
#include "Asic/SwTableInterfacesSingleton.h"
#include "Vanta/EntityManager.h"

namespace testing_support {

namespace {

// Resource table that hands one recording client to each software table.
class RecordingResourceTable : public ResourceTable {
 public:
  RecordingResourceTable(Zev::EventLoop& loop, const Pell::Ptr<Asic::GroupResolver>& groupResolver,
                         const Pell::Ptr<Asic::GroupLog>& groupLog,
                         Pell::Ptr<RecordingResourceClient>& client,
                         const FecHarness::OnClient& onClient)
      : IntfIdToDestIdResourceTableResourceTable(loop, groupResolver, groupLog),
        client_(client),
        onClient_(onClient) {}

  Pell::Ptr<ClientInstance> makeClientInstance() override {
    client_ = Zev::makeObject<RecordingResourceClient>();
    if (onClient_) {
      onClient_(*client_);
    }
    return client_;
  }

 private:
  Pell::Ptr<RecordingResourceClient>& client_;
  const FecHarness::OnClient& onClient_;
};

}  // namespace

FecHarness::FecHarness(Resources resources) : kind_(resources) { start(); }

FecHarness::~FecHarness() { stop(); }

void FecHarness::start() {
  using LoamFec::FecTableConstants;
  loop_.emplace();
  const auto entityManager = Zev::makeObject<Vanta::EntityManager>(root_.path());
  orderedTables_ = Zev::makeObject<Asic::OrderedTableInterface>(*loop_, entityManager);
  orderedTables_->makeGroupIntf(FecTableConstants::kAgentName, FecTableConstants::kGroupName,
                                FecTableConstants::kTableId.agentAndGroupId());
  const auto& resolver = group()->groupResolver();
  const auto& groupLog = group()->groupLog();
  if (kind_ == Resources::real) {
    resources_ = Zev::makeObject<ResourceTable>(*loop_, resolver, groupLog);
  } else {
    resources_ =
        Zev::makeObject<RecordingResourceTable>(*loop_, resolver, groupLog, client_, onClient);
  }
  orderedTables_->resourceTableIs(LoamFec::FecTableInterface::resourceTableName(), resources_);
  fec_ = LoamFec::FecTableInterface::getIntf(orderedTables_);
}

void FecHarness::stop() {
  fec_ = nullptr;
  Zev::Entity::singletonDelAll();
  client_ = nullptr;
  resources_ = nullptr;
  orderedTables_ = nullptr;
}

void FecHarness::restart() {
  stop();
  start();
}

Pell::Ptr<Asic::GroupInterface> FecHarness::group() const {
  using LoamFec::FecTableConstants;
  return orderedTables_->groupIntf(Asic::Constants::canonicalizeGroupName(
      FecTableConstants::kAgentName, FecTableConstants::kGroupName));
}

Pell::Ptr<LoamFec::FecTableSwTable> FecHarness::makeTable(
    std::uint16_t unit, bool reset, const Pell::Ptr<LoamFec::FecTableSwTableHelperBase>& helper) {
  return fec_->makeSwTable(Asic::UnitId(unit), helper, reset);
}

LoamFec::FecTableSwTable& FecHarness::table(std::uint16_t unit) {
  const auto held = fec_->swTable(Asic::UnitId(unit));
  return held ? *held : *makeTable(unit);
}

void FecHarness::report(std::uint64_t version) const {
  group()->tableVersionApplied({LoamFec::FecTableConstants::kTableId, Asic::LogVersion(version)});
}

void FecHarness::reportAll() { report(log().tableVersion().value()); }

LoamFec::FecTableSwTable::ResponseHandler FecHarness::recordResponse() {
  return [this](const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>& handle) {
    const auto typed = Pell::dynamicPtrCast<LoamFec::FecTableSwTable::EntryHandle const>(handle);
    responses.push_back({typed->key(), typed->entryState(), typed->logVersion()});
  };
}

LoamFec::FecTableDataModelEntry FecHarness::entry(const Pell::String& intfName,
                                                  std::uint32_t mark) {
  LoamFec::FecTableDataModelEntry entry;
  entry.intfId = Wirex::IntfId::fromName(intfName);
  entry.opaqueA = mark;
  return entry;
}

void PrintTo(const Response& response, std::ostream* out) {
  *out << fmt::format("key {}, state {}, version {}", response.key, response.state,
                      response.version);
}

void FecHarness::destinationIs(const Pell::String& intfName, std::uint32_t destination) {
  resources_->destinationIs(Wirex::IntfId::fromName(intfName), {destination, 0, 0});
  run();
}

}  // namespace testing_support
