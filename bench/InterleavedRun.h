// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

// The main() of a benchmark whose contenders take turns: seven rounds of everything that `add`
// registers, interleaved at random, so that a machine that slows down does so for all. What the
// caller's own options say goes before that.
template <typename Reporter, typename Add>
int runInterleaved(int argc, char** argv, Reporter& reporter, Add&& add) {
  char rounds[] = "--benchmark_repetitions=7";
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  std::vector<char*> arguments(argv, argv + argc);
  arguments.insert(arguments.begin() + 1, {rounds, interleaving});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return EXIT_FAILURE;
  }
  add();
  const std::size_t run = benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return run == 0 || reporter.failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace bench
