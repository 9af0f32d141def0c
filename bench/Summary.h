// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

// Reporter that shows, when all rounds are over, one line per contender and then how the contenders
// compare. A round that failed is shown at once.
//
// Kind: object, lives as long as the run.
// Threads: one.
// Every round must have set both counters.
class Summary : public benchmark::BenchmarkReporter {
 public:
  // Nanoseconds of processor time an entry: what is timed, and what has to follow it (cleanup,
  // answers).
  static constexpr const char* kNanoseconds = "ns_per_entry";
  static constexpr const char* kNanosecondsAfter = "ns_per_entry_after";

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& reports) override;
  void Finalize() override;

  // True once a round has ended with an error.
  bool failed() const { return failed_; }

 private:
  struct Rounds {
    std::vector<double> nanoseconds;
    std::vector<double> nanosecondsAfter;
  };

  void printRatio(const char* text, const char* over, const char* under) const;

  std::map<std::string, Rounds> rounds_;
  bool failed_ = false;
};

}  // namespace bench
