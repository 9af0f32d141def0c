// SPDX-License-Identifier: Apache-2.0

// The repair. A plan is made from an image of the folder, as the check looks at it: what is the
// matter with each file, then what the rows that are good have against each other, round by round,
// because dropping one row can leave another without its speaker. Carrying it out makes the tables
// mountable first (Glint's table/Mend.cpp and the mount itself) and then makes the plan of the rows
// afresh, from what the tables hold by then.

#include "tools/StateRepair.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Glint/GlintMap.h"
#include "StateRules.h"
#include "folder/FolderUpkeep.h"
#include "offline/Verify.h"
#include "records/FecTableConstants.h"
#include "table/Table.h"

namespace Tools {

namespace {

using Outcome = RepairReport::Outcome;

// Mends lead to other mends at most in a chain: scratchpad, log row, configuration row, log row.
constexpr int kRounds = 8;

// ---- the plan

// Up to which version anything in the folder has got, besides the log's scratchpad.
std::uint64_t highestVersion(const StateRows& rows) {
  std::uint64_t highest = 0;
  const auto take = [&](std::uint64_t version) { highest = std::max(highest, version); };
  for (const auto& [unit, configRows] : rows.units) {
    if (configRows) {
      for (const auto& [fecId, row] : *configRows) {
        take(row.version().value());
      }
    }
  }
  if (rows.log && !rows.log->empty()) {
    take(rows.log->rbegin()->first);
  }
  const std::uint32_t fecTable = LoamFec::FecTableConstants::kTableId.value();
  if (rows.applied && rows.applied->contains(fecTable)) {
    take(rows.applied->at(fecTable));
  }
  if (rows.group) {
    for (const auto& [sequence, row] : *rows.group) {
      if (row.tableVersion().tableId().value() == fecTable) {
        take(row.tableVersion().logVersion().value());
      }
    }
  }
  return highest;
}

// A lost group log goes on above anything that it can have announced.
std::uint64_t highestSequence(const StateRows& rows) {
  const std::uint64_t inRows = rows.group && !rows.group->empty() ? rows.group->rbegin()->first : 0;
  return std::max(inRows, rows.logScratchpad.value_or(0));
}

struct RowPlan {
  std::vector<RepairStep> steps;
  std::vector<Mend> mends;
  std::set<std::string> damagedFiles;  // that the mends of findings change
};

std::string fileOf(const Mend& mend) {
  switch (mend.what) {
    case Mend::What::dropConfigRow:
      return fileNameOf(TableRole::config, Asic::UnitId(mend.unit));
    case Mend::What::dropLogRow:
    case Mend::What::raiseLogVersion:
      return fileNameOf(TableRole::log);
    case Mend::What::dropGroupRow:
    case Mend::What::raiseGroupSequence:
      break;
  }
  return fileNameOf(TableRole::groupLog);
}

RowPlan planRows(StateRows rows) {
  RowPlan plan;
  bool changed = true;
  for (int round = 0; round < kRounds && changed; ++round) {
    changed = false;
    for (const Judgement& judgement : judge(rows)) {
      if (judgement.mends.empty()) {
        continue;
      }
      changed = true;
      plan.steps.push_back(
          {judgement.kind, judgement.file, judgement.text, judgement.remedy, false});
      for (const Mend& mend : judgement.mends) {
        apply(mend, rows);
        plan.mends.push_back(mend);
        if (judgement.isFinding) {
          plan.damagedFiles.insert(fileOf(mend));
        }
      }
    }
  }
  return plan;
}

struct Plan {
  std::vector<RepairStep> steps;
  std::vector<Remark> left;
  std::string unreadable;  // a file of which nothing is known, and why; empty if there is none
  std::set<std::string> keepCopies;  // of damaged files that are mended in place
  std::set<std::string> setAside;    // file names
  std::vector<std::string> unfinished;
  std::set<TableRole> lost;  // an empty table takes the place

  bool isLost(TableRole role) const { return lost.contains(role); }
};

class Planner {
 public:
  explicit Planner(const StateImage& image) : image_(image), rows_(readRows(image)) {}

  Plan run() {
    for (const TableFile& file : image_.tables()) {
      if (file.unreadable) {
        plan_.unreadable = file.name + ": " + file.fault;
      } else {
        planFile(file);
      }
    }
    for (const TableRole role : image_.missingTables()) {
      step("missing_table", fileNameOf(role), StateImage::kMissingTable,
           "put an empty table in its place");
      lost(role);
    }
    planLost();
    RowPlan rowPlan = planRows(rows_);
    std::move(rowPlan.steps.begin(), rowPlan.steps.end(), std::back_inserter(plan_.steps));
    for (const std::string& name : rowPlan.damagedFiles) {
      if (!plan_.setAside.contains(name) && isThere(name)) {
        plan_.keepCopies.insert(name);
      }
    }
    for (const std::string& name : image_.unfinished()) {
      step("unfinished_file", name, "a kill cut the making of this file short", "remove it");
    }
    plan_.unfinished = image_.unfinished();
    return std::move(plan_);
  }

 private:
  void step(const char* kind, const std::string& file, std::string text, const char* remedy,
            bool losesTable = false) {
    plan_.steps.push_back({kind, file, std::move(text), remedy, losesTable});
  }

  bool isThere(const std::string& name) const {
    return std::any_of(image_.tables().begin(), image_.tables().end(),
                       [&](const TableFile& file) { return file.name == name; });
  }

  void planFile(const TableFile& file) {
    const bool isOurs = file.role != TableRole::other;
    if (!file.fault.empty()) {
      if (isOurs) {
        step("unusable_table", file.name, file.fault,
             "set it aside and put an empty table in its place: ALL ITS ROWS ARE LOST", true);
        plan_.setAside.insert(file.name);
      } else {
        plan_.left.push_back({"unusable_table", file.name, file.fault});
      }
      return;
    }
    const Glint::Verification found = Glint::verifyTable(file.image->view());
    if (!isOurs) {
      for (const std::string& finding : found.findings) {
        plan_.left.push_back({"other_table", file.name, finding});
      }
      return;
    }
    planVerified(file, found);
  }

  static const char* remedyOf(std::string_view kind) {
    return kind == "damaged_row"         ? "drop the row and take its slot out of use"
           : kind == "damaged_structure" ? "keep the good rows and build the index anew"
                                         : "count anew";
  }

  void planVerified(const TableFile& file, const Glint::Verification& found) {
    for (TableFinding& finding : findingsOf(file, found)) {
      step(finding.kind, file.name, std::move(finding.text), remedyOf(finding.kind));
    }
    if (!found.clean()) {
      plan_.keepCopies.insert(file.name);
    }
    if (found.changeInFlight) {
      step("change_in_flight", file.name, "a change was cut short", "finish or undo it");
    }
  }

  void planLost() {
    for (const TableFile& file : image_.tables()) {
      if (!plan_.setAside.contains(file.name)) {
        continue;
      }
      if (file.role == TableRole::config) {
        rows_.units[file.unit.value()] = StateRows::ConfigRows();
      } else {
        lost(file.role);
      }
    }
    if (image_.table(TableRole::log) != nullptr || plan_.isLost(TableRole::log)) {
      rows_.logScratchpad = rows_.logScratchpad.value_or(highestVersion(rows_));
    }
    if (image_.table(TableRole::groupLog) != nullptr || plan_.isLost(TableRole::groupLog)) {
      rows_.groupScratchpad = rows_.groupScratchpad.value_or(highestSequence(rows_));
    }
  }

  void lost(TableRole role) {
    plan_.lost.insert(role);
    if (role == TableRole::log) {
      rows_.log.emplace();
    } else if (role == TableRole::groupLog) {
      rows_.group.emplace();
    } else {
      rows_.applied.emplace();
    }
  }

  const StateImage& image_;
  StateRows rows_;
  Plan plan_;
};

RepairReport reportOf(const std::string& folder, const Plan& plan) {
  RepairReport report;
  report.folder = folder;
  report.steps = plan.steps;
  report.left = plan.left;
  report.outcome = plan.steps.empty() ? Outcome::nothingToDo : Outcome::planned;
  if (!plan.unreadable.empty()) {
    report.outcome = Outcome::cannot;
    report.why = plan.unreadable;
  } else if (plan.steps.empty() && !plan.left.empty()) {
    report.outcome = Outcome::cannot;
    report.why = "the faults are in tables that this program does not know";
  }
  return report;
}

RepairReport cannot(const std::string& folder, const std::string& why) {
  RepairReport report;
  report.folder = folder;
  report.outcome = Outcome::cannot;
  report.why = why;
  return report;
}

// ---- carrying it out

template <typename Row>
using Map = Glint::GlintMap<Row>;

// The tables of a state folder, mounted for writing, whatever state they were in.
class MendedTables {
 public:
  // Those that are there, and those whose place an empty one takes.
  MendedTables(std::shared_ptr<Glint::RootFolder> root, const StateImage& image, const Plan& plan)
      : root_(std::move(root)) {
    const StateRows before = readRows(image);
    const auto wanted = [&](TableRole role) {
      return plan.isLost(role) || image.table(role) != nullptr;
    };
    for (const TableFile& file : image.tables()) {
      if (file.role == TableRole::config) {
        units_.emplace(file.unit.value(), open<ConfigRow>(TableRole::config, 0, file.unit));
      }
    }
    if (wanted(TableRole::applied)) {
      applied_ = open<Asic::GroupVersionRow>(TableRole::applied, 0);
    }
    if (wanted(TableRole::groupLog)) {
      group_ = open<Asic::GroupLogRow>(TableRole::groupLog, highestSequence(before));
    }
    if (wanted(TableRole::log)) {
      log_ = open<LogRow>(TableRole::log, highestVersion(before));
    }
  }

  void apply(const Mend& mend) {
    switch (mend.what) {
      case Mend::What::dropConfigRow:
        units_.at(mend.unit)->rowDel(
            LoamFec::FecTableDataModelEntryKey(static_cast<std::uint32_t>(mend.number)));
        return;
      case Mend::What::dropLogRow:
        log_->rowDel(Asic::LogVersion(mend.number));
        return;
      case Mend::What::dropGroupRow:
        group_->rowDel(mend.number);
        return;
      case Mend::What::raiseLogVersion:
        raise(*log_, mend.number);
        return;
      case Mend::What::raiseGroupSequence:
        raise(*group_, mend.number);
        return;
    }
  }

 private:
  template <typename Row>
  std::unique_ptr<Map<Row>> open(TableRole role, std::uint64_t scratchpadFloor,
                                 Asic::UnitId unit = Asic::UnitId()) {
    const Glint::TableLayout layout = *layoutOf(role);
    const std::string name = fileNameOf(role, unit);
    Glint::Table::mend(root_, name, layout, scratchpadFloor);
    ZevGlint::MountInfo info(ZevGlint::ZevGlintType::writer);
    info.collectionInfoIs({std::string(layout.collectionName), layout.nominalCapacity});
    const ZevGlint::MountSite site(name, info, [&](const Glint::TableLayout& wanted) {
      return Glint::Table::mountWriter(root_, name, wanted);
    });
    return std::make_unique<Map<Row>>(site);
  }

  template <typename Row>
  static void raise(Map<Row>& map, std::uint64_t value) {
    if (map.control().scratchpad() < value) {
      map.control().scratchpadIs(value);
    }
  }

  std::shared_ptr<Glint::RootFolder> root_;
  std::map<std::uint16_t, std::unique_ptr<Map<ConfigRow>>> units_;
  std::unique_ptr<Map<Asic::GroupVersionRow>> applied_;
  std::unique_ptr<Map<Asic::GroupLogRow>> group_;
  std::unique_ptr<Map<LogRow>> log_;
};

// Copies first: if one cannot be made, nothing has been changed.
void keepCopies(const std::string& folder, const Plan& plan, RepairReport& report) {
  try {
    for (const std::string& name : plan.keepCopies) {
      report.kept.push_back(Glint::keepCopy(folder, name));
    }
  } catch (const ZevGlint::MountException&) {
    for (const std::string& name : report.kept) {
      ::unlink(fmt::format("{}/{}", folder, name).c_str());
    }
    report.kept.clear();
    throw;
  }
  for (const std::string& name : plan.setAside) {
    report.kept.push_back(Glint::setAside(folder, name));
  }
}

// What shows only when the tables have been made mountable: rows of a table whose slots could not
// be told before. It is told as well, and the files that it changes are kept as well.
void addLateSteps(const std::string& folder, const StateImage& image, const Plan& plan,
                  const RowPlan& rowPlan, RepairReport& report) {
  const std::vector<RepairStep> planned = report.steps;
  for (const RepairStep& late : rowPlan.steps) {
    if (std::none_of(planned.begin(), planned.end(), [&](const RepairStep& step) {
          return step.file == late.file && step.text == late.text;
        })) {
      report.steps.push_back(late);
    }
  }
  for (const TableFile& file : image.tables()) {
    if (rowPlan.damagedFiles.contains(file.name) && !plan.keepCopies.contains(file.name) &&
        !plan.setAside.contains(file.name)) {
      report.kept.push_back(Glint::keepCopy(folder, file.name));
    }
  }
}

void carryOut(const std::shared_ptr<Glint::RootFolder>& root, const StateImage& image,
              const Plan& plan, RepairReport& report) {
  const std::string& folder = image.folder();
  keepCopies(folder, plan, report);
  for (const std::string& name : plan.unfinished) {
    ::unlink(fmt::format("{}/{}", folder, name).c_str());
  }
  MendedTables tables(root, image, plan);
  StateRows rows = readRows(StateImage::underOwnLock(folder));
  std::vector<Mend> mends;
  if (plan.isLost(TableRole::log)) {
    mends.push_back({Mend::What::raiseLogVersion, highestVersion(rows)});
    Tools::apply(mends.back(), rows);
  }
  if (plan.isLost(TableRole::groupLog)) {
    mends.push_back({Mend::What::raiseGroupSequence, highestSequence(rows)});
    Tools::apply(mends.back(), rows);
  }
  RowPlan rowPlan = planRows(rows);
  addLateSteps(folder, image, plan, rowPlan, report);
  std::move(rowPlan.mends.begin(), rowPlan.mends.end(), std::back_inserter(mends));
  for (const Mend& mend : mends) {
    tables.apply(mend);
  }
}

// Before anything is looked at: a busy agent would spoil every look.
void refuseIfInUse(const std::string& folder) {
  if (const auto writer = Glint::currentWriter(folder)) {
    throw CannotTell(fmt::format("the state folder is in use by {}; stop it first", *writer));
  }
}

}  // namespace

RepairReport planRepair(const std::string& folder) {
  try {
    refuseIfInUse(folder);
    const StateImage image(folder);
    return reportOf(folder, Planner(image).run());
  } catch (const CannotTell& why) {
    return cannot(folder, why.what());
  } catch (const ZevGlint::MountException& why) {
    return cannot(folder, why.what());
  }
}

RepairReport carryOutRepair(const std::string& folder) {
  RepairReport report = cannot(folder, "");
  try {
    refuseIfInUse(folder);
    const StateImage before(folder);  // taking the lock would make a folder
    const auto root = std::make_shared<Glint::RootFolder>(folder);
    root->lockForWriting();
    const StateImage image = StateImage::underOwnLock(folder);
    const Plan plan = Planner(image).run();
    report = reportOf(folder, plan);
    if (report.outcome != Outcome::planned) {
      return report;
    }
    carryOut(root, image, plan, report);
    StateReport after = checkState(StateImage::underOwnLock(folder));
    report.left = std::move(after.findings);
    report.outcome =
        report.left.empty() && after.cannotTell.empty() ? Outcome::done : Outcome::cannot;
    report.why =
        report.left.empty() ? after.cannotTell : "there are findings that a repair does not mend";
  } catch (const CannotTell& why) {
    report.outcome = Outcome::cannot;
    report.why = why.what();
  } catch (const ZevGlint::MountException& why) {
    report.outcome = Outcome::cannot;
    report.why = why.what();
  }
  return report;
}

// ---- what is shown

std::string repairText(const RepairReport& report, std::size_t limit) {
  const char* label = report.outcome == Outcome::planned  ? "would"
                      : report.outcome == Outcome::cannot ? "to do"
                                                          : "done";
  const std::size_t shown = limit == 0 ? report.steps.size() : std::min(limit, report.steps.size());
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    const RepairStep& step = report.steps[i];
    text += fmt::format("{:<6} {}: {}: {}\n", label, step.file, step.text, step.remedy);
  }
  if (shown < report.steps.size()) {
    text +=
        fmt::format("{:<6} ... {} more; --limit 0 shows all\n", label, report.steps.size() - shown);
  }
  for (const std::string& name : report.kept) {
    text += fmt::format("{:<6} {}\n", "kept", name);
  }
  for (const Remark& remark : report.left) {
    text += fmt::format("{:<6} {}: {}\n", "left", remark.file, remark.text);
  }
  text += report.folder + ": ";
  switch (report.outcome) {
    case Outcome::nothingToDo:
      text += "nothing to repair";
      break;
    case Outcome::planned:
      text += fmt::format("{}; nothing has been changed, --yes carries them out",
                          counted(report.steps.size(), "step"));
      break;
    case Outcome::done:
      text +=
          "repaired, and a check finds nothing; the next start of fecd brings the hardware in line";
      break;
    case Outcome::cannot:
      text += "cannot repair: " + report.why;
      break;
  }
  return text + "\n";
}

std::string repairJson(const RepairReport& report) {
  constexpr const char* kOutcomes[] = {"nothing_to_do", "planned", "done", "cannot"};
  nlohmann::ordered_json steps = nlohmann::ordered_json::array();
  for (const RepairStep& step : report.steps) {
    steps.push_back({{"kind", step.kind},
                     {"file", step.file},
                     {"text", step.text},
                     {"remedy", step.remedy},
                     {"loses_table", step.losesTable}});
  }
  nlohmann::ordered_json left = nlohmann::ordered_json::array();
  for (const Remark& remark : report.left) {
    left.push_back({{"kind", remark.kind}, {"file", remark.file}, {"text", remark.text}});
  }
  const nlohmann::ordered_json all = {
      {"state", report.folder}, {"outcome", kOutcomes[static_cast<std::size_t>(report.outcome)]},
      {"why", report.why},      {"steps", steps},
      {"kept", report.kept},    {"left", left}};
  return jsonText(all);
}

}  // namespace Tools
