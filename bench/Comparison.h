// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

// Reporter of benchmarks that are named "operation/contender": when all rounds are over, a table
// with one line per operation and one column per contender, each its median with the least and the
// most of its rounds, and behind them how many times the first contender each other one takes. A
// round that failed is shown at once.
//
// Kind: object, lives as long as the run.
// Threads: one.
// Every round must have set the counter.
class Comparison : public benchmark::BenchmarkReporter {
 public:
  // Nanoseconds an operation.
  static constexpr const char* kNanoseconds = "ns";

  // The columns, in this order.
  explicit Comparison(std::vector<std::string> contenders) : contenders_(std::move(contenders)) {}

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& reports) override;
  void Finalize() override;

  // True once a round has ended with an error.
  bool failed() const { return failed_; }

 private:
  using Rounds = std::vector<double>;

  std::vector<std::string> contenders_;
  std::vector<std::string> operations_;  // in the order in which they were first seen
  std::map<std::string, std::map<std::string, Rounds>> rounds_;
  bool failed_ = false;
};

}  // namespace bench
