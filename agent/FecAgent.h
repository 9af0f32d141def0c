#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Asic/OrderedTableInterface.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "agent/AsioEventLoop.h"
#include "asic/HardwareSide.h"
#include "fec/FecTableInterface.h"

namespace Agent {

// The forwarding agent's inside: the loop, the state folder, the FEC table of each unit, the
// resource table and the hardware side, made and wired in the order in which they need each other.
//
// Kind: object with identity, one a process.
// Ownership: holds everything; its end is the process's orderly end: what is in the state folder
// stays.
// Threads: one.
class FecAgent {
 public:
  using ResourceTable = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable;

  // Mounts (creates, if there are none) the tables below the state folder and restores what they
  // hold. Throws ZevGlint::MountException.
  FecAgent(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds);
  FecAgent(const FecAgent&) = delete;
  FecAgent& operator=(const FecAgent&) = delete;
  ~FecAgent();

  AsioEventLoop& loop() { return loop_; }
  ResourceTable& resourceTable() { return *resourceTable_; }
  LoamFec::FecTableInterface& fec() { return *fec_; }
  const SimAsic::SimulatedAsic& hardware() const { return *hardware_; }

  // Whether the unit's hardware table holds exactly what is committed for the unit.
  bool hardwareEqualsTable(Asic::UnitId unitId) const;

 private:
  void sweepOrphans(Asic::UnitId unitId);

  AsioEventLoop loop_;
  Pell::Ptr<Asic::OrderedTableInterface> orderedTables_;
  Pell::Ptr<Asic::GroupInterface> group_;
  Pell::Ptr<ResourceTable> resourceTable_;
  Pell::Ptr<LoamFec::FecTableInterface> fec_;
  std::unique_ptr<SimAsic::SimulatedAsic> hardware_;
  std::unique_ptr<SimAsic::HardwareSide> hardwareSide_;
};

}  // namespace Agent
