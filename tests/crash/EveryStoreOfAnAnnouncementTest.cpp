// SPDX-License-Identifier: Apache-2.0

// A writer of a group log is stopped at every state in which its stores leave the files, in the
// middle of operations that take several rows. At each one a reader must find whole operations
// only, all that had been announced by then, in order; and a next writer must go on so that readers
// still do.

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Asic/GroupLogFollower.h"
#include "Glint/SharedMemEntityManager.h"
#include "testing/SingleStep.h"
#include "testing/TemporaryRoot.h"

namespace Asic {
// How a failed test prints it.
inline void PrintTo(const Announcement& announcement, std::ostream* out) {
  *out << fmt::format("{} that needs [{}]", announcement.tableVersion,
                      fmt::join(announcement.needed, " "));
}
}  // namespace Asic

namespace {

using Asic::Announcement;
using Asic::GroupLog;
using Asic::GroupLogFollower;
using Asic::GroupLogGlint;
using Asic::GroupLogRow;
using Asic::LogVersion;
using Asic::SwTableId;
using Asic::TableVersion;
using ::testing::IsEmpty;
using ::testing::Not;
using testing_support::SteppedState;
using testing_support::SteppedWork;
using testing_support::TemporaryRoot;

constexpr SwTableId kTable{0x03010805};

// Tables that each operation needs, in the order of the operations.
const std::vector<std::uint32_t> kNeeds = {0, 17, 9, 8, 24, 1};

Pell::Ptr<GroupLog> writerIn(const std::string& root) {
  return Zev::makeObject<GroupLog>(Zev::makeObject<Vanta::EntityManager>(root), "agent", "group");
}

// The operation of that version, which needs that many tables.
void announce(GroupLog& log, std::uint64_t version, std::uint32_t tables) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  for (std::uint32_t table = 0; table < tables; ++table) {
    needed->add({SwTableId(table), LogVersion(100 * version + table)});
  }
  log.addGroupLogEntry(kTable, LogVersion(version), needed);
}

bool isWhole(const Announcement& announcement, std::uint64_t version, std::uint32_t tables) {
  bool whole = announcement.tableVersion == TableVersion(kTable, LogVersion(version)) &&
               announcement.needed.size() == tables;
  for (std::uint32_t table = 0; whole && table < tables; ++table) {
    whole = announcement.needed[table] ==
            TableVersion(SwTableId(table), LogVersion(100 * version + table));
  }
  return whole;
}
// The operation of that version, which needs that many tables.
MATCHER_P2(IsWhole, version, tables, "") { return isWhole(arg, version, tables); }

Pell::Ptr<GroupLogGlint> readerIn(const std::string& root) {
  return ZevSharedMem::mountForReading<GroupLogGlint>(
      Zev::makeObject<Vanta::EntityManager>(root),
      Asic::Constants::groupLogGlintPath("agent", "group"));
}

// The scratchpad goes from the end of one operation to the end of the next.
bool scratchpadIsAtAnEnd(const std::string& root) {
  const Pell::Ptr<GroupLogGlint> reader = readerIn(root);
  auto& rows = reader->groupLog();
  const std::uint64_t last = rows.control().scratchpad();
  const auto row = rows.row(last);
  return last == 0 || (row && !row->isContinued());
}

std::vector<Announcement> standingIn(const std::string& root, bool& sawAll) {
  GroupLogFollower follower(readerIn(root));
  std::vector<Announcement> standing;
  sawAll = follower.startOver(standing);
  return standing;
}

// What is wrong with a state; empty if nothing.
class Judge {
 public:
  explicit Judge(const SteppedState& state) : state_(state) { state.folder.copyTo(root_.path()); }

  std::string finding() const {
    bool sawAll = false;
    const std::vector<Announcement> before = standingIn(root_.path(), sawAll);
    if (!sawAll) {
      return "damage";
    }
    if (!scratchpadIsAtAnEnd(root_.path())) {
      return "the scratchpad is in the middle of an operation";
    }
    if (before.size() < state_.acknowledged || before.size() > state_.begun) {
      return fmt::format("{} operations, of {} begun and {} done", before.size(), state_.begun,
                         state_.acknowledged);
    }
    for (std::size_t at = 0; at < before.size(); ++at) {
      if (!isWhole(before[at], at + 1, kNeeds[at])) {
        return fmt::format("operation {} is not whole", at + 1);
      }
    }
    return findingBehindTheNextWriter(before.size());
  }

 private:
  // The next writer announces one operation more. An operation whose rows all stood counts then.
  std::string findingBehindTheNextWriter(std::size_t seenBefore) const {
    const Pell::Ptr<GroupLog> log = writerIn(root_.path());
    announce(*log, 50, 17);
    bool sawAll = false;
    const std::vector<Announcement> after = standingIn(root_.path(), sawAll);
    if (!sawAll || after.size() <= seenBefore || after.size() > state_.begun + 1) {
      return fmt::format("{} operations behind the next writer, {} before it", after.size(),
                         seenBefore);
    }
    for (std::size_t at = 0; at + 1 < after.size(); ++at) {
      if (!isWhole(after[at], at + 1, kNeeds[at])) {
        return fmt::format("operation {} is not whole behind the next writer", at + 1);
      }
    }
    if (!isWhole(after.back(), 50, 17)) {
      return "the next writer's operation is not whole";
    }
    log->tableVersionIs({kTable, LogVersion(50)});
    return log->logMap().rowCount() == 0 ? "" : "rows stay for ever";
  }

  const SteppedState& state_;
  TemporaryRoot root_;
};

TEST(EveryStoreOfAnAnnouncement, LeavesReadersWithWholeOperationsOnly) {
  if (const std::string why = testing_support::whyNoStepping(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const TemporaryRoot root;
  { const auto made = writerIn(root.path()); }
  const auto work = [&](SteppedWork& stepped) {
    const auto log = writerIn(root.path());
    stepped.begin();
    for (std::size_t at = 0; at < kNeeds.size(); ++at) {
      stepped.operationBegins();
      announce(*log, at + 1, kNeeds[at]);
      stepped.operationDone();
    }
    stepped.end();
    return 0;
  };
  std::uint64_t looks = 0;
  const auto look = [&](const SteppedState& state) {
    ++looks;
    const std::string finding = Judge(state).finding();
    EXPECT_EQ(finding, "") << "state " << state.number;
    return finding.empty();
  };
  const testing_support::SteppedRun run =
      stepThrough(root.path(), testing_support::Stepping::everyStore, work, look);
  EXPECT_EQ(run.fault, "");
  std::uint64_t rows = 0;
  for (const std::uint32_t tables : kNeeds) {
    rows += GroupLogRow::rowsFor(tables);
  }
  EXPECT_GT(looks, rows) << "states within each row";
}

TEST(EveryStoreOfAReport, LeavesReadersWithWholeOperationsOnly) {
  if (const std::string why = testing_support::whyNoStepping(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const TemporaryRoot root;
  {
    const auto made = writerIn(root.path());
    announce(*made, 1, 24);
    announce(*made, 2, 17);
    announce(*made, 3, 9);
  }
  const auto work = [&](SteppedWork& stepped) {
    const auto log = writerIn(root.path());
    stepped.begin();
    log->tableVersionIs({kTable, LogVersion(2)});
    stepped.end();
    return 0;
  };
  const auto look = [&](const SteppedState& state) {
    const TemporaryRoot copy;
    state.folder.copyTo(copy.path());
    bool sawAll = false;
    const std::vector<Announcement> standing = standingIn(copy.path(), sawAll);
    EXPECT_TRUE(sawAll);
    EXPECT_THAT(standing, Not(IsEmpty())) << "state " << state.number;
    if (!standing.empty()) {
      EXPECT_THAT(standing.back(), IsWhole(3U, 9U)) << "state " << state.number;
    }
    for (const Announcement& announcement : standing) {
      const std::uint64_t version = announcement.tableVersion.logVersion().value();
      const std::uint32_t tables = version == 1 ? 24 : version == 2 ? 17 : 9;
      EXPECT_THAT(announcement, IsWhole(version, tables)) << "state " << state.number;
    }
    const auto next = writerIn(copy.path());
    next->tableVersionIs({kTable, LogVersion(2)});
    EXPECT_EQ(next->logMap().rowCount(), 2U) << "state " << state.number;
    return !::testing::Test::HasFailure();
  };
  const testing_support::SteppedRun run =
      stepThrough(root.path(), testing_support::Stepping::everyStore, work, look);
  EXPECT_EQ(run.fault, "");
  EXPECT_GT(run.states, 5U) << "one for each row that goes";
}

}  // namespace
