// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Asic/HardwareSide.h"
#include "Asic/OrderedTableInterface.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTable.h"
#include "Zev/Entity.h"
#include "agent/AsioEventLoop.h"
#include "fec/FecTableInterface.h"
#include "hardware/HardwareTurns.h"

namespace Agent {

// How an agent begins.
struct AgentStart {
  // Begin with empty tables: the units' entries in the state folder are deleted, by an operation
  // like any other.
  bool reset = false;
  // Hardware that an earlier agent left, to be brought in line with the tables; null: the agent has
  // new hardware made.
  std::unique_ptr<Asic::HardwareSide> hardware = nullptr;
};

// The forwarding agent's inside: the loop, the state folder, the FEC table of each unit, the
// resource table and the hardware side, made and wired in the order in which they need each other.
//
// Kind: object with identity, one per process.
// Ownership: holds everything; its end is the process's orderly end, and the contents of the state
// folder stay. Every singleton of the process ends with it, and also when it cannot be made.
// Threads: one.
class FecAgent {
 public:
  using ResourceTable = LoamAdjLib::IntfIdToDestIdResourceTableResourceTable;

  // Mounts (creates, if there are none) the tables below the state folder, restores what they hold,
  // and brings the hardware in line, all in this call: no turn runs before. `makeHardware` is
  // called when the tables are there, unless `start` brings the hardware. Throws
  // ZevGlint::MountException, and what FecTableInterface::makeSwTable() throws. The state folder is
  // free then, and the process may make another agent.
  FecAgent(const Pell::String& stateFolder, const std::vector<Asic::UnitId>& unitIds,
           const Asic::HardwareMaker& makeHardware, AgentStart start = {});
  FecAgent(const FecAgent&) = delete;
  FecAgent& operator=(const FecAgent&) = delete;

  AsioEventLoop& loop() { return loop_; }
  ResourceTable& resourceTable() { return *resourceTable_; }
  LoamFec::FecTableInterface& fec() { return *fec_; }
  const Asic::HardwareSide& hardware() const { return *hardware_; }
  // How the hardware that was handed over differed from the tables; zeros without one, and when it
  // did not take all at once.
  const Asic::Resynchronisation& resynchronisation() const { return resynchronisation_; }

  // Whether the unit's hardware table holds exactly the unit's committed entries.
  bool hardwareEqualsTable(Asic::UnitId unitId) const;

 private:
  // The process's registry holds the tables, and the tables refer to the loop: nothing may find
  // them there when the loop has ended.
  struct Registrations {
    Registrations() = default;
    Registrations(const Registrations&) = delete;
    Registrations& operator=(const Registrations&) = delete;
    ~Registrations() { Zev::Entity::singletonDelAll(); }
  };

  Asic::LogVersion appliedVersion() const;

  AsioEventLoop loop_;
  Registrations registrations_;  // goes right before the loop, also when the constructor throws
  Pell::Ptr<Asic::OrderedTableInterface> orderedTables_;
  Pell::Ptr<Asic::GroupInterface> group_;
  Pell::Ptr<ResourceTable> resourceTable_;
  Pell::Ptr<LoamFec::FecTableInterface> fec_;
  std::unique_ptr<Asic::HardwareSide> hardware_;
  Asic::Resynchronisation resynchronisation_;
  std::unique_ptr<Hardware::HardwareTurns> hardwareTurns_;
};

}  // namespace Agent
