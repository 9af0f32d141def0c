// SPDX-License-Identifier: Apache-2.0

#include "testing/TraceRecorder.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include <fmt/format.h>

namespace testing_support {

namespace {

template <typename Accepts>
std::vector<std::string> textsWhere(const std::vector<TraceRecorder::Record>& records,
                                    Accepts accepts) {
  std::vector<std::string> texts;
  for (const TraceRecorder::Record& record : records) {
    if (accepts(record)) {
      texts.push_back(record.message);
    }
  }
  return texts;
}

}  // namespace

TraceRecorder::TraceRecorder(std::initializer_list<std::string_view> handles, std::uint32_t levels)
    : savedSink_(Zev::traceSink()) {
  for (const std::string_view name : handles) {
    Zev::TraceHandle& handle = Zev::traceHandle(name);
    savedLevels_.push_back({&handle, handle.levels()});
    handle.levelsIs(levels);
  }
  Zev::traceSinkIs([this](const Zev::TraceRecord& record) {
    records_.push_back({record.level, std::string(record.file), std::string(record.function),
                        record.line, std::string(record.className), std::string(record.message)});
  });
}

TraceRecorder::~TraceRecorder() {
  Zev::traceSinkIs(std::move(savedSink_));
  // Backwards, so that a handle named twice gets its first levels back.
  std::for_each(savedLevels_.rbegin(), savedLevels_.rend(),
                [](const SavedLevels& saved) { saved.handle->levelsIs(saved.levels); });
}

std::vector<std::string> TraceRecorder::texts() const {
  return textsWhere(records_, [](const Record&) { return true; });
}

std::vector<std::string> TraceRecorder::texts(int level) const {
  return textsWhere(records_, [level](const Record& record) { return record.level == level; });
}

std::vector<std::string> TraceRecorder::textsOf(std::string_view function) const {
  return textsWhere(records_,
                    [function](const Record& record) { return record.function == function; });
}

std::vector<std::string> TraceRecorder::lines(int highestLevel) const {
  std::vector<std::string> lines;
  for (const Record& record : records_) {
    if (record.level <= highestLevel) {
      lines.push_back(fmt::format("{} {}::{} {}", record.level, record.className, record.function,
                                  record.message));
    }
  }
  return lines;
}

std::size_t TraceRecorder::count(int level, std::string_view text) const {
  return static_cast<std::size_t>(
      std::count_if(records_.begin(), records_.end(), [level, text](const Record& record) {
        return record.level == level && record.message == text;
      }));
}

const TraceRecorder::Record* TraceRecorder::find(std::string_view text) const {
  const auto found = std::find_if(records_.begin(), records_.end(),
                                  [text](const Record& record) { return record.message == text; });
  return found == records_.end() ? nullptr : &*found;
}

std::ostream& operator<<(std::ostream& out, const TraceRecorder::Record& record) {
  return out << record.level << ' ' << record.file << ':' << record.line << ' ' << record.className
             << "::" << record.function << " \"" << record.message << '"';
}

std::ostream& operator<<(std::ostream& out, const TraceRecorder& recorder) {
  out << recorder.records().size() << " traces";
  for (const TraceRecorder::Record& record : recorder.records()) {
    out << "\n  " << record;
  }
  return out;
}

}  // namespace testing_support
