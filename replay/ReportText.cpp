// SPDX-License-Identifier: Apache-2.0

#include "replay/ReportText.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Replay {

namespace {

double seconds(const Report& report) { return std::chrono::duration<double>(report.time).count(); }

double requestsPerSecond(const Report& report) {
  return seconds(report) > 0 ? static_cast<double>(report.asked()) / seconds(report) : 0;
}

std::uint64_t skipped(const Report& report) {
  std::uint64_t sum = 0;
  for (const auto& [kind, count] : report.skippedByKind) {
    sum += count;
  }
  return sum;
}

std::string fileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// One line of the table: a name, and the value of each column.
class TableText {
 public:
  explicit TableText(const std::vector<LabelledReport>& columns) : columns_(columns) {
    for (const LabelledReport& column : columns_) {
      widths_.push_back(std::max<std::size_t>(kNarrowest, column.label.size()));
    }
  }

  template <typename Value>
  void line(const std::string& name, Value&& valueOf) {
    text_ += fmt::format("{:<{}}", name, kNameWidth);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      text_ += fmt::format("  {:>{}}", valueOf(columns_[i]), widths_[i]);
    }
    text_ += '\n';
  }
  template <typename Count>
  void count(const std::string& name, Count&& countOf) {
    line(name, [&](const LabelledReport& column) { return countOf(column.report); });
  }
  const std::string& text() const { return text_; }

 private:
  static constexpr std::size_t kNameWidth = 34;
  static constexpr std::size_t kNarrowest = 10;

  const std::vector<LabelledReport>& columns_;
  std::vector<std::size_t> widths_;
  std::string text_;
};

// Every key that any column has, with the counts of all.
template <typename Map>
void breakdown(TableText& table, const std::vector<LabelledReport>& columns, Map&& mapOf) {
  std::set<std::string> keys;
  for (const LabelledReport& column : columns) {
    for (const auto& counted : mapOf(column.report)) {
      keys.insert(counted.first);
    }
  }
  for (const std::string& key : keys) {
    table.count("    " + key, [&](const Report& report) -> std::uint64_t {
      const auto& counts = mapOf(report);
      const auto found = counts.find(key);
      return found == counts.end() ? 0 : found->second;
    });
  }
}

nlohmann::ordered_json toJson(const Report& report) {
  return {{"next_hops", report.nextHops},
          {"unchanged", report.unchanged},
          {"asked", report.asked()},
          {"writes", report.writes},
          {"removes", report.removes},
          {"programmed", report.programmed},
          {"failed", report.failed},
          {"superseded", report.superseded},
          {"waiting", report.waiting},
          {"waiting_for", report.waitingFor},
          {"skipped", skipped(report)},
          {"skipped_by_kind", report.skippedByKind},
          {"skipped_links", report.skippedLinks},
          {"log_versions", report.logVersions},
          {"entries", report.entries},
          {"hardware_equal", report.hardwareEqual},
          {"seconds", seconds(report)},
          {"requests_per_second", requestsPerSecond(report)}};
}

// Name and value, in the columns of the table below it.
std::string line(const std::string& name, const std::string& value) {
  return fmt::format("{:<36}{}\n", name, value);
}

std::string milliseconds(std::chrono::nanoseconds time) {
  return fmt::format("{:.1f} ms", std::chrono::duration<double>(time).count() * 1000);
}

const char* yesOrNo(bool value) { return value ? "yes" : "NO"; }

std::string snapshotTable(const std::vector<LabelledReport>& reports) {
  std::vector<LabelledReport> columns;
  columns.reserve(reports.size() + 1);
  for (const LabelledReport& report : reports) {
    columns.push_back({fileName(report.label), report.report});
  }
  if (columns.size() > 1) {
    columns.push_back({"total", total(reports)});
  }
  TableText table(columns);
  table.line("snapshot", [](const LabelledReport& column) { return column.label; });
  table.count("next hops", [](const Report& r) { return r.nextHops; });
  table.count("  unchanged", [](const Report& r) { return r.unchanged; });
  table.count("asked", [](const Report& r) { return r.asked(); });
  table.count("  writes", [](const Report& r) { return r.writes; });
  table.count("  removes", [](const Report& r) { return r.removes; });
  table.count("programmed", [](const Report& r) { return r.programmed; });
  table.count("failed", [](const Report& r) { return r.failed; });
  table.count("superseded", [](const Report& r) { return r.superseded; });
  table.count("waiting", [](const Report& r) { return r.waiting; });
  breakdown(
      table, columns, [](const Report& r) -> auto& { return r.waitingFor; });
  table.count("skipped", skipped);
  breakdown(
      table, columns, [](const Report& r) -> auto& { return r.skippedByKind; });
  table.count("log versions", [](const Report& r) { return r.logVersions; });
  table.count("entries", [](const Report& r) { return r.entries; });
  table.count("hardware equals table", [](const Report& r) { return yesOrNo(r.hardwareEqual); });
  table.count("time (ms)",
              [](const Report& r) { return fmt::format("{:.1f}", seconds(r) * 1000); });
  table.count("requests per second",
              [](const Report& r) { return fmt::format("{:.0f}", requestsPerSecond(r)); });
  return table.text();
}

std::string restartText(const RestartReport& report) {
  const Asic::Resynchronisation& hardware = report.hardware;
  return line("fecd killed (SIGKILL) after", fmt::format("{} answers", report.answered)) +
         line("  log version answered, found",
              fmt::format("{}, {}", report.versionAnswered, report.versionFound)) +
         line("  answered requests lost", fmt::format("{}", report.lost)) +
         line("  entries restored",
              fmt::format("{} in {}", report.entries, milliseconds(report.time))) +
         line("  hardware at that moment",
              fmt::format("{} equal to the tables, {} missing, {} different, {} too many",
                          hardware.unchanged, hardware.added, hardware.changed, hardware.removed)) +
         line("  hardware equals table now", yesOrNo(report.hardwareEqual));
}

std::string redriveText(const Redrive& redrive) {
  return fmt::format("{} driven again in {} log versions, {}", redrive.entries, redrive.logVersions,
                     milliseconds(redrive.time));
}

std::string linkChangeTable(const std::vector<LinkChangeReport>& changes) {
  std::string text;
  for (const LinkChangeReport& change : changes) {
    text += fmt::format("after {}: {}\n", fileName(change.after), fmt::join(change.links, ", "));
    text += line("  entries when they went down", redriveText(change.down));
    text += line("  entries when they came up", redriveText(change.up));
    text += line("  hardware equals table", yesOrNo(change.hardwareEqual));
  }
  return text;
}

nlohmann::ordered_json toJson(const RestartReport& report) {
  return {{"answered", report.answered},
          {"lost", report.lost},
          {"log_version_answered", report.versionAnswered},
          {"log_version_found", report.versionFound},
          {"entries", report.entries},
          {"seconds", std::chrono::duration<double>(report.time).count()},
          {"hardware",
           {{"unchanged", report.hardware.unchanged},
            {"added", report.hardware.added},
            {"changed", report.hardware.changed},
            {"removed", report.hardware.removed}}},
          {"hardware_equal", report.hardwareEqual}};
}

nlohmann::ordered_json toJson(const Redrive& redrive) {
  return {{"entries", redrive.entries},
          {"log_versions", redrive.logVersions},
          {"seconds", std::chrono::duration<double>(redrive.time).count()}};
}

nlohmann::ordered_json toJson(const LinkChangeReport& change) {
  return {{"after", change.after},
          {"links", change.links},
          {"down", toJson(change.down)},
          {"up", toJson(change.up)},
          {"hardware_equal", change.hardwareEqual}};
}

}  // namespace

Report total(const std::vector<LabelledReport>& reports) {
  Report sum;
  for (const auto& [label, report] : reports) {
    sum.nextHops += report.nextHops;
    sum.unchanged += report.unchanged;
    sum.writes += report.writes;
    sum.removes += report.removes;
    sum.programmed += report.programmed;
    sum.failed += report.failed;
    sum.superseded += report.superseded;
    sum.skippedLinks += report.skippedLinks;
    sum.logVersions += report.logVersions;
    sum.time += report.time;
    for (const auto& [kind, count] : report.skippedByKind) {
      sum.skippedByKind[kind] += count;
    }
    sum.waiting = report.waiting;
    sum.waitingFor = report.waitingFor;
    sum.entries = report.entries;
    sum.hardwareEqual = report.hardwareEqual;
  }
  return sum;
}

bool Outcome::good() const {
  return (!restart || restart->nothingLost()) &&
         std::all_of(linkChanges.begin(), linkChanges.end(),
                     [](const LinkChangeReport& change) { return change.hardwareEqual; }) &&
         std::all_of(snapshots.begin(), snapshots.end(), [](const LabelledReport& snapshot) {
           return snapshot.report.failed == 0 && snapshot.report.hardwareEqual;
         });
}

std::string outcomeText(const Outcome& outcome) {
  std::string text;
  if (outcome.restart) {
    text += restartText(*outcome.restart) + '\n';
  }
  text += snapshotTable(outcome.snapshots);
  if (!outcome.linkChanges.empty()) {
    text += '\n' + linkChangeTable(outcome.linkChanges);
  }
  return text;
}

std::string outcomeJson(const Outcome& outcome) {
  nlohmann::ordered_json all;
  if (outcome.restart) {
    all["restart"] = toJson(*outcome.restart);
  }
  if (!outcome.linkChanges.empty()) {
    all["link_changes"] = nlohmann::ordered_json::array();
    for (const LinkChangeReport& change : outcome.linkChanges) {
      all["link_changes"].push_back(toJson(change));
    }
  }
  all["snapshots"] = nlohmann::ordered_json::array();
  for (const auto& [label, report] : outcome.snapshots) {
    nlohmann::ordered_json one = {{"snapshot", label}};
    one.update(toJson(report));
    all["snapshots"].push_back(one);
  }
  all["total"] = toJson(total(outcome.snapshots));
  return all.dump(2) + "\n";
}

}  // namespace Replay
