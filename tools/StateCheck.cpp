// SPDX-License-Identifier: Apache-2.0

// The check: each table by the verifier that mounts share, the files against each other, and the
// rows against each other (StateRules.cpp).

#include "tools/StateCheck.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "StateRules.h"
#include "offline/Verify.h"

namespace Tools {

namespace {

class Check {
 public:
  explicit Check(const StateImage& image) : image_(image) {
    report_.folder = image.folder();
    report_.writer = image.writer();
    report_.looks = image.looks();
  }

  StateReport run() {
    for (const TableFile& file : image_.tables()) {
      if (file.unreadable) {
        cannotTell(file);
      } else if (!file.fault.empty()) {
        report_.findings.push_back({"unusable_table", file.name, file.fault});
      } else {
        verify(file);
      }
    }
    for (const TableRole role : image_.missingTables()) {
      report_.findings.push_back({"missing_table", fileNameOf(role), StateImage::kMissingTable});
    }
    for (const Judgement& judgement : judge(readRows(image_))) {
      (judgement.isFinding ? report_.findings : report_.notes)
          .push_back({judgement.kind, judgement.file, judgement.text});
    }
    noteOtherFiles();
    return std::move(report_);
  }

 private:
  void cannotTell(const TableFile& file) {
    report_.cannotTell +=
        fmt::format("{}{}: {}", report_.cannotTell.empty() ? "" : "; ", file.name, file.fault);
  }

  void verify(const TableFile& file) {
    const Glint::TableView& view = file.image->view();
    const Glint::Verification found = Glint::verifyTable(view);
    for (TableFinding& finding : findingsOf(file, found)) {
      report_.findings.push_back({finding.kind, file.name, std::move(finding.text)});
    }
    if (found.changeInFlight) {
      report_.notes.push_back({"change_in_flight", file.name,
                               "a change was cut short; the next start finishes or undoes it"});
    }
    if (found.retiredSlots > 0 || found.corruptionCount > 0) {
      report_.notes.push_back({"earlier_damage", file.name,
                               fmt::format("{} since the table was made, {} out of use for good",
                                           counted(found.corruptionCount, "corruption"),
                                           counted(found.retiredSlots, "slot"))});
    }
    report_.tables.push_back({.file = file.name,
                              .rows = found.liveRows,
                              .capacity = view.fixed().nominalCapacity,
                              .slotsInUse = found.slotsInUse,
                              .freeSlots = found.freeSlots,
                              .retiredSlots = found.retiredSlots,
                              .scratchpad = found.scratchpad,
                              .corruptions = found.corruptionCount});
  }

  void noteOtherFiles() {
    for (const std::string& name : image_.unfinished()) {
      report_.notes.push_back(
          {"unfinished_file", name, "a kill cut the making of this file short"});
    }
    for (const std::string& name : image_.kept()) {
      report_.notes.push_back(
          {"kept_copy", name, "kept by a repair; remove it when nobody needs it any more"});
    }
  }

  const StateImage& image_;
  StateReport report_;
};

std::string linesOf(const char* label, const std::vector<Remark>& remarks, std::size_t limit) {
  const std::size_t shown = limit == 0 ? remarks.size() : std::min(limit, remarks.size());
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    text += fmt::format("{:<8} {}: {}\n", label, remarks[i].file, remarks[i].text);
  }
  if (shown < remarks.size()) {
    text += fmt::format("{:<8} ... {} more; --limit 0 shows all\n", label, remarks.size() - shown);
  }
  return text;
}

std::string verdictOf(const StateReport& report) {
  if (!report.findings.empty()) {
    return "findings";
  }
  return report.cannotTell.empty() ? "clean" : "cannot_tell";
}

nlohmann::ordered_json jsonOf(const std::vector<Remark>& remarks) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Remark& remark : remarks) {
    list.push_back({{"kind", remark.kind}, {"file", remark.file}, {"text", remark.text}});
  }
  return list;
}

}  // namespace

StateReport checkState(const StateImage& image) { return Check(image).run(); }

StateReport checkState(const std::string& folder) {
  try {
    return checkState(StateImage(folder));
  } catch (const CannotTell& why) {
    StateReport report;
    report.folder = folder;
    report.cannotTell = why.what();
    return report;
  }
}

std::string reportText(const StateReport& report, std::size_t limit) {
  std::string text = linesOf("finding", report.findings, limit);
  text += linesOf("note", report.notes, limit);
  if (!report.tables.empty()) {
    text +=
        fmt::format("{:<44}  {:>8}  {:>8}  {:>8}  {:>8}  {:>7}  {:>11}  {:>10}\n", "table", "rows",
                    "capacity", "slots", "free", "retired", "corruptions", "scratchpad");
  }
  for (const TableFigures& table : report.tables) {
    text += fmt::format("{:<44}  {:>8}  {:>8}  {:>8}  {:>8}  {:>7}  {:>11}  {:>10}\n", table.file,
                        table.rows, table.capacity, table.slotsInUse, table.freeSlots,
                        table.retiredSlots, table.corruptions, table.scratchpad);
  }
  if (!report.cannotTell.empty()) {
    text += fmt::format("cannot check: {}\n", report.cannotTell);
  }
  if (report.looks > 0) {
    text += fmt::format(
        "{}: {}, {}, {}; {}\n", report.folder, counted(report.tables.size(), "table"),
        counted(report.findings.size(), "finding"), counted(report.notes.size(), "note"),
        report.writer ? "in use by " + *report.writer : "no agent uses it");
  }
  return text;
}

std::string reportJson(const StateReport& report) {
  nlohmann::ordered_json tables = nlohmann::ordered_json::array();
  for (const TableFigures& table : report.tables) {
    tables.push_back({{"file", table.file},
                      {"rows", table.rows},
                      {"capacity", table.capacity},
                      {"slots_in_use", table.slotsInUse},
                      {"free_slots", table.freeSlots},
                      {"retired_slots", table.retiredSlots},
                      {"corruptions", table.corruptions},
                      {"scratchpad", table.scratchpad}});
  }
  const nlohmann::ordered_json all = {
      {"state", report.folder},
      {"verdict", verdictOf(report)},
      {"cannot_tell", report.cannotTell},
      {"writer", report.writer ? nlohmann::ordered_json(*report.writer) : nullptr},
      {"looks", report.looks},
      {"findings", jsonOf(report.findings)},
      {"notes", jsonOf(report.notes)},
      {"tables", tables}};
  return jsonText(all);
}

std::string counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string jsonText(const nlohmann::ordered_json& json) {
  return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace Tools
