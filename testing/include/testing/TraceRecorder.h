// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "Zev/Trace.h"

namespace testing_support {

// Collects trace records instead of printing them.
//
// Kind: scope guard: it takes the trace sink when it is made, and gives back the sink and the
// levels that it found when it goes. Recorders nest.
// Threads: those of the traces (one).
class TraceRecorder {
 public:
  // A trace record that owns its texts.
  struct Record {
    int level;
    std::string file;
    std::string function;
    int line;
    std::string className;
    std::string message;
  };

  static constexpr std::uint32_t kAllLevels = (1U << (Zev::kHighestTraceLevel + 1)) - 1;

  // Enables the levels (bit n: level n) of the named handles and no other ones; handles that are
  // not named keep theirs, and what they emit is recorded too.
  explicit TraceRecorder(std::initializer_list<std::string_view> handles,
                         std::uint32_t levels = kAllLevels);
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;
  ~TraceRecorder();

  // Everything recorded since construction or clear(), oldest first.
  const std::vector<Record>& records() const { return records_; }
  void clear() { records_.clear(); }

  // The messages alone: of all records, or of one level, or of one function.
  std::vector<std::string> texts() const;
  std::vector<std::string> texts(int level) const;
  std::vector<std::string> textsOf(std::string_view function) const;
  // The records up to that level, each as "level class::function message".
  std::vector<std::string> lines(int highestLevel = Zev::kHighestTraceLevel) const;

  // Messages are compared whole, blanks included.
  std::size_t count(int level, std::string_view text) const;
  // The oldest record of that message; null when there is none.
  const Record* find(std::string_view text) const;

 private:
  struct SavedLevels {
    Zev::TraceHandle* handle;
    std::uint32_t levels;
  };

  std::vector<Record> records_;
  std::vector<SavedLevels> savedLevels_;
  Zev::TraceSink savedSink_;
};

// For failure messages; the message stands between quotes so that its blanks show.
std::ostream& operator<<(std::ostream& out, const TraceRecorder::Record& record);
// Every record, in a line of its own.
std::ostream& operator<<(std::ostream& out, const TraceRecorder& recorder);

// A recorder that has recorded that message on that level.
MATCHER_P2(HasTrace, level, text, "") { return arg.count(level, text) != 0; }

}  // namespace testing_support
