// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <vector>

#include "Asic/OrderedTableInterface.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "fec/FecTableInterface.h"
#include "testing/ManualEventLoop.h"
#include "testing/RecordingResources.h"
#include "testing/TemporaryRoot.h"

namespace testing_support {

// A call of a response handler, in the order of the calls.
struct Response {
  LoamFec::FecTableDataModelEntryKey key;
  Asic::EntryState state = Asic::EntryState::notResolved;
  Asic::LogVersion version;
};
void PrintTo(const Response& response, std::ostream* out);

// A whole agent without its program: loop, state folder, group, resource table and FEC table, made
// by hand and driven turn by turn.
//
// Kind: object with identity.
// Ownership: holds everything; restart() and the destructor take it down as a process's end would,
// except that counted references end.
class FecHarness {
 public:
  // The FEC table over the platform's resource table, or over a recording client.
  enum class Resources { real, recording };

  explicit FecHarness(Resources resources = Resources::real);
  FecHarness(const FecHarness&) = delete;
  FecHarness& operator=(const FecHarness&) = delete;
  ~FecHarness();

  // Makes the unit's table (see FecTableInterface::makeSwTable).
  Pell::Ptr<LoamFec::FecTableSwTable> makeTable(
      std::uint16_t unit = 0, bool reset = false,
      const Pell::Ptr<LoamFec::FecTableSwTableHelperBase>& helper = nullptr);
  // The unit's table, made on first use.
  LoamFec::FecTableSwTable& table(std::uint16_t unit = 0);

  // Ends every object and begins again on the same state folder, with a fresh loop and fresh
  // resources.
  void restart();
  // Ends every object.
  void stop();

  // Runs turns until none is left.
  void run() { loop().runUntilIdle(); }
  // The hardware reports the FEC table applied up to the version, in this call.
  void report(std::uint64_t version) const;
  // Reports everything logged so far.
  void reportAll();

  ManualEventLoop& loop() { return *loop_; }
  const Pell::String& stateFolder() const { return root_.path(); }
  Asic::OrderedTableInterface& orderedTables() { return *orderedTables_; }
  const Pell::Ptr<Asic::OrderedTableInterface>& orderedTablesPtr() { return orderedTables_; }
  Pell::Ptr<Asic::GroupInterface> group() const;
  LoamFec::FecTableInterface& fec() { return *fec_; }
  LoamFec::FecTableEntryLog& log() { return *fec_->entryLog(); }
  // With Resources::real.
  ResourceTable& resources() { return *resources_; }
  // With Resources::recording: the client of the table that was made last.
  RecordingResourceClient& client() { return *client_; }
  // With Resources::recording: called with each client before its table asks it anything.
  using OnClient = std::function<void(RecordingResourceClient&)>;
  OnClient onClient;
  // False while there is no FEC table interface: before its start-up is done, and after stop().
  bool started() const { return static_cast<bool>(fec_); }

  // A handler that records its calls in responses.
  LoamFec::FecTableSwTable::ResponseHandler recordResponse();
  std::vector<Response> responses;

  static LoamFec::FecTableDataModelEntryKey key(std::uint32_t fecId) {
    return LoamFec::FecTableDataModelEntryKey(fecId);
  }
  // An entry that leaves through the interface, null for an empty name; opaqueA is its mark.
  static LoamFec::FecTableDataModelEntry entry(const Pell::String& intfName,
                                               std::uint32_t mark = 0);
  // Gives the interface a destination (Resources::real) and lets the handle follow.
  void destinationIs(const Pell::String& intfName, std::uint32_t destination);

 private:
  void start();

  Resources kind_;
  TemporaryRoot root_;
  std::optional<ManualEventLoop> loop_;
  Pell::Ptr<Asic::OrderedTableInterface> orderedTables_;
  Pell::Ptr<ResourceTable> resources_;
  Pell::Ptr<RecordingResourceClient> client_;
  Pell::Ptr<LoamFec::FecTableInterface> fec_;
};

}  // namespace testing_support
