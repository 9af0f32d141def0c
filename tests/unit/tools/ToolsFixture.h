// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Glint/SharedMemEntityManager.h"
#include "records/FecSharedTables.h"
#include "records/FecTableConstants.h"
#include "testing/ChildProcess.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/StateFiles.h"
#include "testing/TemporaryRoot.h"
#include "tools/StateCheck.h"
#include "tools/TableRole.h"

namespace Tools {
// How a failed test prints it.
inline void PrintTo(const StateReport& report, std::ostream* out) {
  *out << "the report\n" << reportText(report, 0);
}
}  // namespace Tools

namespace tools_test {

using testing_support::FecHarness;
using Tools::fileNameOf;
using Tools::TableRole;

// For the report that a check has given.
MATCHER(IsClean, "") { return arg.clean(); }

// The tables of a state folder, mounted for writing, to be changed behind the agent's back.
struct RawTables {
  explicit RawTables(const std::string& folder)
      : manager(Zev::makeObject<Vanta::EntityManager>(folder)) {
    using Constants = LoamFec::FecTableConstants;
    group =
        ZevSharedMem::mountForWriting<Asic::GroupLogGlint>(manager, Constants::groupLogGlintPath());
    applied = ZevSharedMem::mountForWriting<Asic::GroupVersionsGlint>(
        manager, Constants::groupVersionsGlintPath());
    log = ZevSharedMem::mountForWriting<LoamFec::FecTableDataModelEntryLogGlint>(
        manager, Constants::entryLogGlintPath());
    config = ZevSharedMem::mountForWriting<LoamFec::FecTableDataModelConfigGlint>(
        manager, Constants::configGlintPath(Asic::UnitId(0)));
  }

  std::uint64_t lastVersion() const { return log->entryLogConfig().control().scratchpad(); }

  Pell::Ptr<Vanta::EntityManager> manager;
  Pell::Ptr<Asic::GroupLogGlint> group;
  Pell::Ptr<Asic::GroupVersionsGlint> applied;
  Pell::Ptr<LoamFec::FecTableDataModelEntryLogGlint> log;
  Pell::Ptr<LoamFec::FecTableDataModelConfigGlint> config;
};

// A state folder that an agent has left: units 0 and 1, thirty entries each that are applied, and
// behind them on the log a deletion, a change and a new entry that are not.
class StateFolderTest : public testing_support::LeakCheckedTest {
 protected:
  static constexpr std::uint32_t kEntries = 30;

  StateFolderTest() {
    FecHarness agent;
    agent.makeTable(0);
    agent.makeTable(1);
    agent.destinationIs("eth1", 7);
    for (std::uint32_t fecId = 1; fecId <= kEntries; ++fecId) {
      for (const std::uint16_t unit : {std::uint16_t{0}, std::uint16_t{1}}) {
        agent.table(unit).entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1", fecId),
                                     nullptr);
      }
    }
    agent.run();
    agent.reportAll();
    agent.run();
    agent.table().entryRemove(FecHarness::key(3), nullptr);
    agent.table().entryWrite(FecHarness::key(4), FecHarness::entry("eth1", 400), nullptr);
    agent.table().entryWrite(FecHarness::key(99), FecHarness::entry("eth1", 99), nullptr);
    agent.run();
    agent.stop();
    testing_support::copyState(agent.stateFolder(), folder());
  }

  const std::string& folder() const { return folder_; }
  std::string path(TableRole role, std::uint16_t unit = 0) const {
    return folder_ + "/" + fileNameOf(role, Asic::UnitId(unit));
  }

  // Damages the row that stands in the n-th slot that holds one.
  void damageRow(TableRole role, std::size_t number, std::uint64_t byte = 20) const {
    const testing_support::TablePlaces places(path(role));
    testing_support::damageRow(path(role), places.liveSlots().at(number), byte);
  }

  static std::vector<std::string> kindsOf(const std::vector<Tools::Remark>& remarks) {
    std::vector<std::string> kinds;
    for (const Tools::Remark& remark : remarks) {
      kinds.push_back(remark.kind);
    }
    return kinds;
  }

  testing_support::TemporaryRoot parent_;
  std::string folder_ = parent_.path() + "/state";
};

// Leaves this process room for small tables and none for the group log's file.
inline bool leaveLittleMemory() {
  constexpr rlim_t kRoom = rlim_t{150} << 20U;
  std::ifstream statm("/proc/self/statm");
  rlim_t pages = 0;
  statm >> pages;
  const rlim_t bytes = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + kRoom;
  const rlimit limit{bytes, bytes};
  return pages > 0 && ::setrlimit(RLIMIT_AS, &limit) == 0;
}

}  // namespace tools_test
