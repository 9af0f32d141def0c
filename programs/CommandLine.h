// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <optional>

#include <CLI/CLI.hpp>

namespace Programs {

// Where the tables are without --state.
inline constexpr const char* kDefaultStateFolder = "/dev/shm/loam-fec";

// For a program that was started with closed standard streams: the next files that it opens would
// take their numbers, and with them what it says. Now nothing can be read there or written.
inline void holdClosedStreams() {
  int descriptor = -1;
  do {
    descriptor = ::open("/dev/null", O_RDONLY);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) {
    ::close(descriptor);
  }
}

// Parses the arguments of a program. Returns the exit code if the program must end: 0 after help or
// version, `badUsage` after arguments that cannot be parsed and an error message. The message names
// an unknown word rather than a missing option, because the word may be meant for it.
inline std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv, int badUsage) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::RequiredError& error) {
    const auto unknown = app.remaining(true);
    unknown.empty() ? app.exit(error) : app.exit(CLI::ExtrasError(unknown));
    return badUsage;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : badUsage;
  }
}

}  // namespace Programs
