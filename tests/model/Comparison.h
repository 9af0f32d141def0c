// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Model.h"

// Two sides are compared value by value; what differs is a text, not a failed assertion, so that a
// sequence can be run again and again while it is made shorter.

namespace fec_model {

inline std::string show(const std::string& text) { return text; }
inline std::string show(const Entry& entry) { return print(entry); }
template <typename Number>
  requires std::is_arithmetic_v<Number> std::string show(Number number) {
    return fmt::format("{}", number);
  }
inline std::string show(const LogRow& row) {
  return fmt::format("operation {} unit {} {}", row.operation, row.unit, print(row.entry));
}
inline std::string show(const ConfigRow& row) {
  return fmt::format("{} version {}{}", print(row.entry), row.version,
                     row.isDeleted ? " deleted" : "");
}
template <typename T>
std::string show(const std::optional<T>& value);
template <typename A, typename B>
std::string show(const std::pair<A, B>& pair);

template <typename Range>
std::string showEach(const Range& range) {
  std::string text;
  for (const auto& item : range) {
    text += (text.empty() ? "" : "; ") + show(item);
  }
  return "[" + text + "]";
}
template <typename T>
std::string show(const std::vector<T>& items) {
  return showEach(items);
}
template <typename T>
std::string show(const std::list<T>& items) {
  return showEach(items);
}
template <typename K, typename V>
std::string show(const std::map<K, V>& items) {
  return showEach(items);
}
inline std::string show(const GroupRow& row) {
  return fmt::format("version {} needs {}", row.version, show(row.needed));
}
template <typename T>
std::string show(const std::optional<T>& value) {
  return value ? show(*value) : "nothing";
}
template <typename A, typename B>
std::string show(const std::pair<A, B>& pair) {
  return show(pair.first) + ": " + show(pair.second);
}

// Keeps the first difference.
class Comparison {
 public:
  template <typename T>
  void same(const char* what, const std::type_identity_t<T>& real, const T& model) {
    if (found_.empty() && !(real == model)) {
      found_ = fmt::format("{}: the table has {}, the model {}", what, show(real), show(model));
    }
  }
  // "" is no failure.
  void failed(const std::string& text) {
    if (found_.empty()) {
      found_ = text;
    }
  }
  bool clean() const { return found_.empty(); }
  const std::string& found() const { return found_; }

 private:
  std::string found_;
};

}  // namespace fec_model
