#include "agent/ReplayReportText.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Agent {

namespace {

double seconds(const ReplayReport& report) {
  return std::chrono::duration<double>(report.time).count();
}

double requestsPerSecond(const ReplayReport& report) {
  return seconds(report) > 0 ? static_cast<double>(report.asked()) / seconds(report) : 0;
}

std::uint64_t skipped(const ReplayReport& report) {
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
    table.count("    " + key, [&](const ReplayReport& report) -> std::uint64_t {
      const auto& counts = mapOf(report);
      const auto found = counts.find(key);
      return found == counts.end() ? 0 : found->second;
    });
  }
}

nlohmann::ordered_json toJson(const ReplayReport& report) {
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

}  // namespace

ReplayReport total(const std::vector<LabelledReport>& reports) {
  ReplayReport sum;
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

std::string reportTable(const std::vector<LabelledReport>& reports) {
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
  table.count("next hops", [](const ReplayReport& r) { return r.nextHops; });
  table.count("  unchanged", [](const ReplayReport& r) { return r.unchanged; });
  table.count("asked", [](const ReplayReport& r) { return r.asked(); });
  table.count("  writes", [](const ReplayReport& r) { return r.writes; });
  table.count("  removes", [](const ReplayReport& r) { return r.removes; });
  table.count("programmed", [](const ReplayReport& r) { return r.programmed; });
  table.count("failed", [](const ReplayReport& r) { return r.failed; });
  table.count("superseded", [](const ReplayReport& r) { return r.superseded; });
  table.count("waiting", [](const ReplayReport& r) { return r.waiting; });
  breakdown(
      table, columns, [](const ReplayReport& r) -> auto& { return r.waitingFor; });
  table.count("skipped", skipped);
  breakdown(
      table, columns, [](const ReplayReport& r) -> auto& { return r.skippedByKind; });
  table.count("log versions", [](const ReplayReport& r) { return r.logVersions; });
  table.count("entries", [](const ReplayReport& r) { return r.entries; });
  table.count("hardware equals table",
              [](const ReplayReport& r) { return r.hardwareEqual ? "yes" : "NO"; });
  table.count("time (ms)",
              [](const ReplayReport& r) { return fmt::format("{:.1f}", seconds(r) * 1000); });
  table.count("requests per second",
              [](const ReplayReport& r) { return fmt::format("{:.0f}", requestsPerSecond(r)); });
  return table.text();
}

std::string reportJson(const std::vector<LabelledReport>& reports) {
  nlohmann::ordered_json snapshots = nlohmann::ordered_json::array();
  for (const auto& [label, report] : reports) {
    nlohmann::ordered_json one = {{"snapshot", label}};
    one.update(toJson(report));
    snapshots.push_back(one);
  }
  const nlohmann::ordered_json all = {{"snapshots", snapshots}, {"total", toJson(total(reports))}};
  return all.dump(2) + "\n";
}

}  // namespace Agent
