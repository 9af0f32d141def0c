// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include <fmt/format.h>

#include "Pell/String.h"

// Traces: named handles, as a rule one per class; levels enabled per handle; one replaceable sink.
//
//   ZEV_TRACE(traceHandle(), 3, "FecTableSwTable", "key: {}", key);
//
// The level is checked before anything is formatted; an argument is evaluated only for a level
// that is on. Arguments beyond the placeholders are accepted and not printed.

namespace Zev {

// Levels in use: 1 failures, 2 milestones, 3 notable conditions, 8 per-call detail, 9 most
// detailed.
inline constexpr int kHighestTraceLevel = 9;

struct TraceRecord {
  int level;
  std::string_view file;  // module name: the source file's name without folder and extension
  std::string_view function;
  int line;
  std::string_view className;
  std::string_view message;  // valid during the sink's call only
};

// Kind: object with static lifetime, made on first use of its name.
// Threads: as the process's traces: one.
class TraceHandle {
 public:
  explicit TraceHandle(std::string_view name) : name_(name) {}
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const Pell::String& name() const { return name_; }
  bool enabled(int level) const { return (levels_ >> level & 1U) != 0; }
  // Bit n enables level n.
  std::uint32_t levels() const { return levels_; }
  void levelsIs(std::uint32_t levels) { levels_ = levels; }

 private:
  Pell::String name_;
  std::uint32_t levels_ = 0;
};

// The handle of that name, made on first use with the levels that the trace settings give it. The
// reference stays good for the process's life.
TraceHandle& traceHandle(std::string_view name);

// Sets levels by name. A setting is a comma-separated list of NAME=LEVELS; NAME is a handle's name
// or * for every handle; LEVELS is one or more of N, N-M and *, joined with '+': for instance
//   FecTableSwTable=1-3+8,FecTableEntryLog=*
// Handles that do not exist yet get their levels when they are made. Throws std::invalid_argument
// that says what is wrong; nothing changes then. The environment variable LOAM_TRACE holds a
// setting that is in force from the start; an empty one is none.
void traceSettingIs(std::string_view setting);

// Where records go; an empty sink restores the default. A sink may replace itself.
//
// The default sink writes one line per record to stderr:
//
//   2026-11-22T06:38:53.123456Z 8123.654321 8 FecTableSwTable:105 FecTableSwTable::entryRead key: 7
//
// wall clock (UTC, ISO 8601), monotonic clock (seconds, CLOCK_MONOTONIC), both with microseconds;
// level, module, source line, class, function and, if there is one, the message. The clocks are
// read when the line is written, so a level that is off costs none of it.
using TraceSink = std::function<void(const TraceRecord&)>;
const TraceSink& traceSink();
void traceSinkIs(TraceSink sink);

void emitTrace(const TraceRecord& record);

// "src/fec/FecTableSwTable.cpp" gives "FecTableSwTable".
constexpr std::string_view moduleName(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view file = slash == std::string_view::npos ? path : path.substr(slash + 1);
  return file.substr(0, file.rfind('.'));
}

}  // namespace Zev

#define ZEV_TRACE(handle, level, className, ...) \
  ZEV_TRACE_AS(handle, level, className, static_cast<const char*>(__func__), __VA_ARGS__)

// ZEV_TRACE under the name of another function.
#define ZEV_TRACE_AS(handle, level, className, functionName, ...)                        \
  do {                                                                                   \
    if ((handle).enabled(level)) [[unlikely]] {                                          \
      static constexpr std::string_view kModule = ::Zev::moduleName(__FILE__);           \
      const ::Pell::String zevMessage = ::fmt::format(__VA_ARGS__);                      \
      ::Zev::emitTrace({level, kModule, functionName, __LINE__, className, zevMessage}); \
    }                                                                                    \
  } while (false)
