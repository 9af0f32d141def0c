// SPDX-License-Identifier: Apache-2.0

#include "Comparison.h"

#include <algorithm>
#include <ostream>

#include <fmt/format.h>

#include "Median.h"

namespace bench {

bool Comparison::ReportContext(const Context& /*context*/) { return true; }

void Comparison::ReportRuns(const std::vector<Run>& reports) {
  for (const Run& run : reports) {
    const std::string& name = run.run_name.function_name;
    if (run.error_occurred) {
      failed_ = true;
      GetOutputStream() << fmt::format("{} ERROR OCCURRED: {}\n", name, run.error_message);
      continue;
    }
    if (run.run_type != Run::RT_Iteration) {
      continue;
    }
    const std::size_t slash = name.find('/');
    const std::string operation = name.substr(0, slash);
    if (!rounds_.contains(operation)) {
      operations_.push_back(operation);
    }
    rounds_[operation][name.substr(slash + 1)].push_back(run.counters.at(kNanoseconds));
  }
}

void Comparison::Finalize() {
  std::sort(operations_.begin(), operations_.end());
  GetOutputStream() << fmt::format("{:<28}", "ns: median [least-most]");
  for (const std::string& contender : contenders_) {
    GetOutputStream() << fmt::format("{:>26}", contender);
  }
  GetOutputStream() << "   over the first\n";
  for (const std::string& operation : operations_) {
    std::string line = fmt::format("{:<28}", operation);
    std::string ratios;
    double first = 0;
    for (const std::string& contender : contenders_) {
      const Rounds& rounds = rounds_[operation][contender];
      if (rounds.empty()) {
        line += fmt::format("{:>26}", "-");
        ratios += fmt::format("{:>8}", "-");
        continue;
      }
      const auto [least, most] = std::minmax_element(rounds.begin(), rounds.end());
      const double median = medianOf(rounds);
      first = first == 0 ? median : first;
      line += fmt::format("{:>26}", fmt::format("{:.0f} [{:.0f}-{:.0f}]", median, *least, *most));
      ratios += fmt::format("{:>8.2f}", median / first);
    }
    GetOutputStream() << line << ratios << '\n';
  }
}

}  // namespace bench
