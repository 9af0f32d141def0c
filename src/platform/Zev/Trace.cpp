// SPDX-License-Identifier: Apache-2.0

// The registry maps names to handles and remembers the settings, so that a handle made later gets
// the levels that were asked for earlier. Handles are never destroyed: classes keep references.

#include "Zev/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fmt/chrono.h>

namespace Zev {

namespace {

constexpr std::uint32_t kAllLevels = (1U << (kHighestTraceLevel + 1)) - 1;

struct Setting {
  Pell::String name;  // "*": every handle
  std::uint32_t levels;

  bool appliesTo(const Pell::String& handleName) const { return name == "*" || name == handleName; }
};

[[noreturn]] void badSetting(std::string_view part, std::string_view why) {
  throw std::invalid_argument(fmt::format(
      "trace setting \"{}\": {}; write NAME=LEVELS,... with LEVELS as in 1-3+8 or *", part, why));
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(at + 1);
  }
}

int parseLevel(std::string_view text, std::string_view part) {
  int level = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (error != std::errc() || end != text.data() + text.size() || level < 0 ||
      level > kHighestTraceLevel) {
    badSetting(part, fmt::format("\"{}\" is not a level from 0 to {}", text, kHighestTraceLevel));
  }
  return level;
}

std::uint32_t parseLevels(std::string_view text, std::string_view part) {
  std::uint32_t levels = 0;
  for (const std::string_view range : split(text, '+')) {
    if (range == "*") {
      levels |= kAllLevels;
      continue;
    }
    const std::size_t dash = range.find('-');
    const int from = parseLevel(range.substr(0, dash), part);
    const int to = dash == std::string_view::npos ? from : parseLevel(range.substr(dash + 1), part);
    if (to < from) {
      badSetting(part, fmt::format("\"{}\" runs backwards", range));
    }
    for (int level = from; level <= to; ++level) {
      levels |= 1U << level;
    }
  }
  return levels;
}

std::vector<Setting> parseSettings(std::string_view text) {
  std::vector<Setting> settings;
  for (const std::string_view part : split(text, ',')) {
    const std::size_t equals = part.find('=');
    if (equals == std::string_view::npos || equals == 0) {
      badSetting(part, "a name or '=' is missing");
    }
    settings.push_back(
        {Pell::String(part.substr(0, equals)), parseLevels(part.substr(equals + 1), part)});
  }
  return settings;
}

timespec now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return time;
}

constexpr long microseconds(const timespec& time) { return time.tv_nsec / 1000; }

void writeToStderr(const TraceRecord& record) {
  const timespec wall = now(CLOCK_REALTIME);
  const timespec monotonic = now(CLOCK_MONOTONIC);
  Pell::String line =
      fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z {}.{:06} {} {}:{} {}::{}{}{}",
                  fmt::gmtime(wall.tv_sec), microseconds(wall), monotonic.tv_sec,
                  microseconds(monotonic), record.level, record.file, record.line, record.className,
                  record.function, record.message.empty() ? "" : " ", record.message);
  std::replace(line.begin(), line.end(), '\n', ' ');  // such as a driver's text may have
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

class Registry {
 public:
  Registry() {
    if (const char* setting = std::getenv("LOAM_TRACE"); setting != nullptr && *setting != '\0') {
      try {
        settings_ = parseSettings(setting);
      } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "LOAM_TRACE ignored: %s\n", error.what());
      }
    }
  }

  TraceHandle& handle(std::string_view name) {
    const auto found = handles_.find(name);
    if (found != handles_.end()) {
      return *found->second;
    }
    auto handle = std::make_unique<TraceHandle>(name);
    for (const Setting& setting : settings_) {
      apply(setting, *handle);
    }
    return *handles_.emplace(name, std::move(handle)).first->second;
  }

  void settingIs(std::string_view text) {
    for (Setting& setting : parseSettings(text)) {
      for (const auto& [name, handle] : handles_) {
        apply(setting, *handle);
      }
      std::erase_if(settings_,
                    [&setting](const Setting& earlier) { return setting.appliesTo(earlier.name); });
      settings_.push_back(std::move(setting));
    }
  }

  TraceSink sink = writeToStderr;

 private:
  static void apply(const Setting& setting, TraceHandle& handle) {
    if (setting.appliesTo(handle.name())) {
      handle.levelsIs(setting.levels);
    }
  }

  std::map<Pell::String, std::unique_ptr<TraceHandle>, std::less<>> handles_;
  std::vector<Setting> settings_;  // oldest first; none that a later one overrules everywhere
};

Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

}  // namespace

TraceHandle& traceHandle(std::string_view name) { return registry().handle(name); }

void traceSettingIs(std::string_view setting) { registry().settingIs(setting); }

const TraceSink& traceSink() { return registry().sink; }

void traceSinkIs(TraceSink sink) {
  registry().sink = sink ? std::move(sink) : TraceSink(writeToStderr);
}

void emitTrace(const TraceRecord& record) {
  const TraceSink sink = registry().sink;
  sink(record);
}

}  // namespace Zev
