// SPDX-License-Identifier: Apache-2.0

// One class goes over the rows kind by kind. A note that applies to many rows is made once, with a
// few examples.

#include "StateRules.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <iterator>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "Asic/GroupLogFollower.h"
#include "records/FecTableConstants.h"
#include "tools/StateCheck.h"

namespace Tools {

namespace {

using LoamFec::FecTableConstants;
using LoamFec::FecTableDataModelLogEntry;

constexpr std::size_t kExamples = 5;
constexpr std::size_t kIsDeletedAt = ConfigRow::Layout::kIsDeleted;
constexpr std::uint32_t kFecTable = FecTableConstants::kTableId.value();

// Things of one kind that are told together.
class Gathered {
 public:
  void add(std::string example) {
    if (count_++ < kExamples) {
      examples_ += (examples_.empty() ? "" : ", ") + std::move(example);
    }
  }
  bool any() const { return count_ > 0; }
  // "3 rows (FEC 1, FEC 2, FEC 9)" of what is called "row".
  std::string text(const char* what) const {
    return fmt::format("{} ({}{})", counted(count_, what), examples_,
                       count_ > kExamples ? ", ..." : "");
  }

 private:
  std::size_t count_ = 0;
  std::string examples_;
};

// What is asked often about one unit's configuration rows.
struct UnitFacts {
  std::uint64_t lowestVersion = UINT64_MAX;
  std::set<std::uint64_t> liveVersions;
};

class Judge {
 public:
  explicit Judge(const StateRows& rows) : rows_(rows), last_(rows.logScratchpad) {
    if (rows.applied) {
      const auto found = rows.applied->find(kFecTable);
      applied_ = found == rows.applied->end() ? 0 : found->second;
      hasApplied_ = found != rows.applied->end();
    }
    findCompleteTail();
  }

  std::vector<Judgement> run() {
    for (const auto& [unit, configRows] : rows_.units) {
      if (configRows) {
        judgeConfig(unit, *configRows);
      }
    }
    if (rows_.log) {
      judgeLog(*rows_.log);
    }
    if (rows_.group) {
      judgeGroup(*rows_.group);
    }
    judgeApplied();
    judgeUnannounced();
    return std::move(judgements_);
  }

 private:
  using Mends = std::vector<Mend>;

  void finding(const char* kind, std::string file, std::string text, Mends mends,
               const char* remedy) {
    judgements_.push_back({true, kind, std::move(file), std::move(text), std::move(mends), remedy});
  }
  void note(const char* kind, std::string file, std::string text, Mends mends = {},
            const char* remedy = "") {
    judgements_.push_back(
        {false, kind, std::move(file), std::move(text), std::move(mends), remedy});
  }
  void aboveLog(const std::string& file, const std::string& what, std::uint64_t version) {
    finding("above_log", file,
            fmt::format("{} has version {}, but the log's last is {}", what, version, *last_),
            {{Mend::What::raiseLogVersion, version}}, "raise the log's last version");
  }

  // Versions from completeFrom_ up to the scratchpad all have their log rows.
  void findCompleteTail() {
    completeFrom_ = last_ ? *last_ + 1 : UINT64_MAX;
    while (rows_.log && last_ && completeFrom_ > 1 && rows_.log->contains(completeFrom_ - 1)) {
      --completeFrom_;
    }
  }

  // ---- configuration rows

  void judgeConfig(std::uint16_t unit, const StateRows::ConfigRows& configRows) {
    const std::string file = fileNameOf(TableRole::config, Asic::UnitId(unit));
    UnitFacts& facts = facts_[unit];
    Gathered ahead;
    Gathered orphans;
    Gathered passedOver;
    Mends orphanMends;
    for (const auto& [fecId, row] : configRows) {
      const std::uint64_t version = row.version().value();
      facts.lowestVersion = std::min(facts.lowestVersion, version);
      if (!row.isDeleted()) {
        facts.liveVersions.insert(version);
      }
      const std::string name = fmt::format("FEC {}", fecId);
      const Mend drop{Mend::What::dropConfigRow, fecId, unit};
      if (const auto flag = std::bit_cast<std::array<std::uint8_t, sizeof row>>(row)[kIsDeletedAt];
          version == 0 || flag > 1) {
        finding("implausible_row", file,
                fmt::format("{} has version {} and deletion mark {}", name, version, flag), {drop},
                "drop the row");
      } else if (!last_) {
        continue;
      } else if (version > *last_ + 1) {
        aboveLog(file, name, version);
      } else if (version == *last_ + 1) {
        ahead.add(name);
      } else if (row.isDeleted() && !spokenFor(unit, row)) {
        orphans.add(name);
        orphanMends.push_back(drop);
      } else if (!row.isDeleted() && givenAgain(unit, row)) {
        passedOver.add(name);
      }
    }
    if (ahead.any()) {
      note("unlogged_change", file,
           fmt::format("{} one version ahead of the log: a change was cut short, and the version "
                       "is given again",
                       ahead.text("row")));
    }
    if (orphans.any()) {
      note("orphan", file,
           fmt::format("{} without a log row: fecd sweeps such rows at a start, and they take "
                       "room until then",
                       orphans.text("deleted row")),
           std::move(orphanMends), "remove such rows");
    }
    if (passedOver.any()) {
      note("version_given_again", file,
           fmt::format("{} whose change was cut short and whose version was given again",
                       passedOver.text("row")));
    }
  }

  // Whether the log row of the row's version is about the row.
  static bool isAbout(const LogRow& logRow, std::uint16_t unit, const ConfigRow& row) {
    return logRow.unitId().value() == unit &&
           (logRow.operation() == LogRow::kTableDeleted || logRow.logEntry().key == row.key());
  }
  const LogRow* logRowOf(const ConfigRow& row) const {
    const auto found = rows_.log->find(row.version().value());
    return found == rows_.log->end() ? nullptr : &found->second;
  }
  // Without a log nothing is known of what it said.
  bool spokenFor(std::uint16_t unit, const ConfigRow& row) const {
    if (!rows_.log) {
      return true;
    }
    const LogRow* logRow = logRowOf(row);
    return logRow != nullptr && isAbout(*logRow, unit, row);
  }
  bool givenAgain(std::uint16_t unit, const ConfigRow& row) const {
    const LogRow* logRow = rows_.log ? logRowOf(row) : nullptr;
    return logRow != nullptr && !isAbout(*logRow, unit, row);
  }

  // ---- log rows

  void judgeLog(const std::map<std::uint64_t, LogRow>& log) {
    const std::string file = fileNameOf(TableRole::log);
    Gathered appliedRows;
    Mends appliedMends;
    std::map<std::uint16_t, Mends> withoutUnit;
    for (const auto& [version, row] : log) {
      const std::uint16_t unit = row.unitId().value();
      const Mend drop{Mend::What::dropLogRow, version};
      if (version == 0 || row.operation() > LogRow::kTableDeleted ||
          row.operation() == (LogRow::kEntryDeleted | LogRow::kTableDeleted)) {
        finding("implausible_row", file,
                fmt::format("version {} has operation {}", version, row.operation()), {drop},
                "drop the row");
      } else if (last_ && version > *last_ + 1) {
        aboveLog(file, "a log row", version);
      } else if (last_ && version == *last_ + 1) {
        note("unfinished_log_row", file,
             fmt::format("version {} is logged but not yet the log's last: a change was cut short, "
                         "and the next one replaces the row",
                         version));
      } else if (!rows_.hasUnit(unit)) {
        withoutUnit[unit].push_back(drop);
      } else if (last_) {
        judgeLogRow(version, row, drop);
      }
      if (hasApplied_ && version <= applied_ && version > 0) {
        appliedRows.add(fmt::format("version {}", version));
        appliedMends.push_back(drop);
      }
    }
    for (auto& [unit, drops] : withoutUnit) {
      const std::string rows = counted(drops.size(), "row");
      finding(
          "missing_table", file,
          fmt::format("unit {} has no configuration table, but the log has {} of it", unit, rows),
          std::move(drops), "drop what the log has of it");
    }
    if (appliedRows.any()) {
      note("applied_log_row", file,
           fmt::format("{} not above the applied version {}: the next start drops such rows",
                       appliedRows.text("row"), applied_),
           std::move(appliedMends), "drop such rows");
    }
  }

  // Of a version that the scratchpad has reached; the unit has a configuration table.
  void judgeLogRow(std::uint64_t version, const LogRow& row, const Mend& drop) {
    const std::uint16_t unit = row.unitId().value();
    const auto& configRows = rows_.units.at(unit);
    if (!configRows) {
      return;
    }
    const std::string difference = row.operation() == LogRow::kTableDeleted
                                       ? tableDeletionDifference(version, facts_[unit])
                                       : entryDifference(version, row, *configRows);
    if (!difference.empty()) {
      finding("log_and_configuration", fileNameOf(TableRole::log),
              fmt::format("version {}, unit {}: {}", version, unit, difference), {drop},
              "drop the log row; the configuration counts");
    }
  }

  static std::string tableDeletionDifference(std::uint64_t version, const UnitFacts& facts) {
    if (facts.lowestVersion < version) {
      return fmt::format("the table was deleted, but it has a row of version {}",
                         facts.lowestVersion);
    }
    return facts.liveVersions.contains(version)
               ? "the table was deleted, but a row of that version is not marked"
               : "";
  }

  std::string entryDifference(std::uint64_t version, const LogRow& row,
                              const StateRows::ConfigRows& configRows) const {
    const std::uint32_t fecId = row.logEntry().key.fecId();
    const auto found = configRows.find(fecId);
    if (found == configRows.end()) {
      return version + 1 < completeFrom_ ? ""
                                         : fmt::format("FEC {} has no configuration row", fecId);
    }
    const ConfigRow& config = found->second;
    if (config.version().value() < version) {
      return fmt::format("the configuration row of FEC {} has the older version {}", fecId,
                         config.version().value());
    }
    if (config.version().value() > version) {
      return {};
    }
    if (config.isDeleted() != (row.operation() == LogRow::kEntryDeleted)) {
      return fmt::format("FEC {} is deleted in log or configuration, but not in both", fecId);
    }
    return FecTableDataModelLogEntry::isEq(config.logEntry(), row.logEntry())
               ? ""
               : fmt::format("the entries of FEC {} in log and configuration differ", fecId);
  }

  // ---- group rows

  using GroupRows = std::map<std::uint64_t, Asic::GroupLogRow>;

  void judgeGroup(const GroupRows& group) {
    const std::string file = fileNameOf(TableRole::groupLog);
    Gathered appliedRows;
    Mends appliedMends;
    std::map<std::uint32_t, std::uint64_t> lastOfTable;
    const Asic::GroupLogRow* before = nullptr;
    bool headless = false;  // the row goes on with an operation whose first row is not there
    for (const auto& [sequence, row] : group) {
      const std::uint32_t table = row.tableVersion().tableId().value();
      const std::uint64_t version = row.tableVersion().logVersion().value();
      const Mend drop{Mend::What::dropGroupRow, sequence};
      const bool goesOn = before != nullptr && goesOnFrom(*before, row);
      headless = row.isContinuation() && (!goesOn || headless);
      before = &row;
      if (sequence == 0 || version == 0 || !row.isPlausible()) {
        finding("implausible_row", file,
                fmt::format("sequence {} has version {} and {} needed versions", sequence, version,
                            row.neededCount()),
                {drop}, "drop the row");
        continue;
      }
      judgeSequence(file, row, goesOn);
      if (!goesOn && version <= lastOfTable[table]) {
        finding("group_order", file,
                fmt::format("sequence {} has version {} of table {}, but an earlier one has {}",
                            sequence, version, tableIdText(table), lastOfTable[table]),
                {drop}, "drop the row");
        continue;
      }
      lastOfTable[table] = version;
      if (table == kFecTable && last_ && version > *last_) {
        aboveLog(file, fmt::format("sequence {}", sequence), version);
      }
      if (version <= appliedOf(table)) {
        appliedRows.add(fmt::format("sequence {}", sequence));
        appliedMends.push_back(drop);
      } else if (headless) {
        finding("broken_announcement", file,
                fmt::format("sequence {} continues version {} of table {}, but the row before "
                            "it is missing",
                            sequence, version, tableIdText(table)),
                {drop}, "drop the row; readers do so as well");
      }
    }
    judgeAnnouncements(file, group);
    if (appliedRows.any()) {
      note("applied_group_row", file,
           fmt::format("{} whose version has been applied: the next report drops such rows",
                       appliedRows.text("row")),
           std::move(appliedMends), "drop such rows");
    }
    if (rows_.groupScratchpad == 0U && last_ && *last_ > 1) {
      finding("lost_group_log", file,
              fmt::format("nothing has ever been announced, but the log is at version {}", *last_),
              {{Mend::What::raiseGroupSequence, *last_}}, "go on with a sequence above that");
    }
  }

  // Whether the row is the next one of the same operation.
  static bool goesOnFrom(const Asic::GroupLogRow& before, const Asic::GroupLogRow& row) {
    return before.isContinued() && row.isContinuation() &&
           row.sequence() == before.sequence() + 1 && row.tableVersion() == before.tableVersion();
  }

  // What readers make of the rows: operations that are announced, and parts of some that are not.
  void judgeAnnouncements(const std::string& file, const GroupRows& group) {
    Asic::AnnouncementCollector collector;
    Gathered cutShort;
    for (auto at = group.begin(); at != group.end(); ++at) {
      const Asic::GroupLogRow& row = at->second;
      if (!row.isPlausible()) {
        continue;
      }
      if (collector.take(row) && row.tableVersion().tableId().value() == kFecTable) {
        announced_.insert(row.tableVersion().logVersion().value());
      }
      const auto next = std::next(at);
      const bool isApplied = row.tableVersion().logVersion().value() <=
                             appliedOf(row.tableVersion().tableId().value());
      if (!isApplied && row.isContinued() &&
          (next == group.end() || !goesOnFrom(row, next->second))) {
        cutShort.add(fmt::format("sequence {}", row.sequence()));
      }
    }
    if (cutShort.any()) {
      note("cut_short_announcement", file,
           fmt::format("{} at which an announcement was cut short: readers drop such an operation, "
                       "and a report of its version removes its rows",
                       cutShort.text("row")));
    }
  }

  // Several rows of one operation may be ahead: the scratchpad goes to the last of them at once.
  void judgeSequence(const std::string& file, const Asic::GroupLogRow& row, bool goesOn) {
    const std::uint64_t sequence = row.sequence();
    if (!rows_.groupScratchpad || sequence <= *rows_.groupScratchpad) {
      return;
    }
    if (sequence == *rows_.groupScratchpad + 1 || (goesOn && unfinished_ == sequence - 1)) {
      unfinished_ = sequence;
      note("unfinished_group_row", file,
           fmt::format("sequence {} is written but not yet the last: a change was cut short there; "
                       "the row counts",
                       sequence));
    } else {
      finding("above_group_log", file,
              fmt::format("a row has sequence {}, but the last is {}", sequence,
                          *rows_.groupScratchpad),
              {{Mend::What::raiseGroupSequence, sequence}}, "raise the last sequence");
    }
  }

  std::uint64_t appliedOf(std::uint32_t table) const {
    if (!rows_.applied) {
      return 0;
    }
    const auto found = rows_.applied->find(table);
    return found == rows_.applied->end() ? 0 : found->second;
  }

  // ---- versions

  void judgeApplied() {
    if (hasApplied_ && last_ && applied_ > *last_) {
      aboveLog(fileNameOf(TableRole::applied), "the applied version of the FEC table", applied_);
    }
    if (!hasApplied_ || !last_ || !rows_.log || applied_ > *last_) {
      return;
    }
    const auto inLog = static_cast<std::uint64_t>(
        std::distance(rows_.log->upper_bound(applied_), rows_.log->upper_bound(*last_)));
    if (const std::uint64_t gap = *last_ - applied_ - inLog; gap > 0) {
      note("unfinished_cleanup", fileNameOf(TableRole::log),
           fmt::format("{} without a row above the applied version {}: a clean-up was cut short, "
                       "and the next report continues it",
                       counted(gap, "version"), applied_));
    }
  }

  // Logged, not applied, and in no group row. A kill leaves one of them at most, so there is more
  // than one only after several.
  void judgeUnannounced() {
    if (!rows_.group || !rows_.log || !last_ || !rows_.applied) {
      return;
    }
    Gathered missing;
    for (auto at = rows_.log->upper_bound(applied_); at != rows_.log->end() && at->first <= *last_;
         ++at) {
      if (!announced_.contains(at->first)) {
        missing.add(fmt::format("version {}", at->first));
      }
    }
    if (missing.any()) {
      note("unannounced", fileNameOf(TableRole::groupLog),
           fmt::format("{} logged but not announced to the group: such a change was cut short, and "
                       "is applied with the next one or by the next start",
                       missing.text("change")));
    }
  }

  const StateRows& rows_;
  std::optional<std::uint64_t> last_;
  std::uint64_t applied_ = 0;
  bool hasApplied_ = false;
  std::uint64_t completeFrom_ = UINT64_MAX;
  std::map<std::uint16_t, UnitFacts> facts_;
  std::set<std::uint64_t> announced_;
  std::uint64_t unfinished_ = 0;  // the last sequence that is rightly above the scratchpad
  std::vector<Judgement> judgements_;
};

}  // namespace

std::vector<Judgement> judge(const StateRows& rows) { return Judge(rows).run(); }

void apply(const Mend& mend, StateRows& rows) {
  const auto raise = [&](std::optional<std::uint64_t>& scratchpad) {
    scratchpad = std::max(scratchpad.value_or(0), mend.number);
  };
  switch (mend.what) {
    case Mend::What::dropConfigRow:
      rows.units.at(mend.unit)->erase(static_cast<std::uint32_t>(mend.number));
      return;
    case Mend::What::dropLogRow:
      rows.log->erase(mend.number);
      return;
    case Mend::What::dropGroupRow:
      rows.group->erase(mend.number);
      return;
    case Mend::What::raiseLogVersion:
      raise(rows.logScratchpad);
      return;
    case Mend::What::raiseGroupSequence:
      raise(rows.groupScratchpad);
      return;
  }
}

}  // namespace Tools
