// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <concepts>
#include <string_view>

#include <fmt/format.h>

#include "Pell/String.h"

// A type is printable when a function valueToStrep(value), found through the type's namespace,
// gives its text form; "{}" in every message then prints that text.

namespace Pell {

template <typename T>
concept HasStrep = requires(const T& value) {
  { valueToStrep(value) } -> std::convertible_to<String>;
};

}  // namespace Pell

template <Pell::HasStrep T>
struct fmt::formatter<T, char> : fmt::formatter<std::string_view> {
  template <typename Context>
  auto format(const T& value, Context& context) const {
    return fmt::formatter<std::string_view>::format(valueToStrep(value), context);
  }
};
