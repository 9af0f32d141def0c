// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>

#include <CLI/CLI.hpp>

namespace Programs {

// Parses what a program was called with. Returns the exit code when it ends with that: 0 after help
// or version, `badUsage` after what cannot be parsed, which has been said then. An unknown word is
// named before what is missing, as it may be what was meant for it.
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
