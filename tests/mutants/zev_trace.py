# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Zev/Trace.cpp"
TESTS = ["ZevTest"]

MUTANTS = [
    ("star names one handle", 'return name == "*" || name == handleName;', "return name == handleName;"),
    ("every setting is for every handle", 'return name == "*" || name == handleName;', "return true;"),
    ("level beyond the highest is taken", "      level > kHighestTraceLevel) {\n", "      level > kHighestTraceLevel + 1) {\n"),
    ("highest level is refused", "      level > kHighestTraceLevel) {\n", "      level >= kHighestTraceLevel) {\n"),
    ("negative level is taken",
     "if (error != std::errc() || end != text.data() + text.size() || level < 0 ||",
     "if (error != std::errc() || end != text.data() + text.size() ||"),
    ("what follows a level is ignored",
     "if (error != std::errc() || end != text.data() + text.size() || level < 0 ||",
     "if (error != std::errc() || level < 0 ||"),
    ("range of levels leaves its last one out",
     "    for (int level = from; level <= to; ++level) {\n", "    for (int level = from; level < to; ++level) {\n"),
    ("range that runs backwards is taken", "    if (to < from) {\n", "    if (false) {\n"),
    ("setting without a name is taken",
     "if (equals == std::string_view::npos || equals == 0) {", "if (equals == std::string_view::npos) {"),
    ("setting does not reach handles that are there",
     "      for (const auto& [name, handle] : handles_) {\n        apply(setting, *handle);\n      }\n", ""),
    ("setting is forgotten for handles to come",
     "      settings_.push_back(std::move(setting));\n", ""),
    ("handle that is made late gets no levels",
     "    for (const Setting& setting : settings_) {\n      apply(setting, *handle);\n    }\n", ""),
    ("handle of a name is made anew",
     "    if (found != handles_.end()) {\n      return *found->second;\n    }\n", "",
     {"lives": "the map keeps the handle that it has; the new one costs time and goes"}),
    ("line's wall clock is cut to milliseconds", "return time.tv_nsec / 1000; }", "return time.tv_nsec / 1000000; }"),
    ("line's two clocks are one", "now(CLOCK_MONOTONIC);", "now(CLOCK_REALTIME);"),
    ("line of several lines stays so", "  std::replace(line.begin(), line.end(), '\\n', ' ');", " "),
    ("empty sink is no sink",
     "registry().sink = sink ? std::move(sink) : TraceSink(writeToStderr);",
     "registry().sink = std::move(sink);"),
    ("sink that replaces itself ends under its call",
     "  const TraceSink sink = registry().sink;\n  sink(record);\n", "  registry().sink(record);\n"),
]
