// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ostream>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/HashMap.h"
#include "Pell/Ptr.h"
#include "Pell/Strep.h"

// How a failed test prints this system's values. A test that compares them includes this.

// GoogleTest looks for a value's printer in the namespace of its type.
namespace Asic {
template <Pell::HasStrep T>
void PrintTo(const T& value, std::ostream* out) {
  *out << valueToStrep(value);
}
}  // namespace Asic
namespace LoamAdjLib {
template <Pell::HasStrep T>
void PrintTo(const T& value, std::ostream* out) {
  *out << valueToStrep(value);
}
}  // namespace LoamAdjLib
namespace LoamFec {
template <Pell::HasStrep T>
void PrintTo(const T& value, std::ostream* out) {
  *out << valueToStrep(value);
}
template <typename T>
  requires(!Pell::HasStrep<T>)
&&requires(const T& keys) { valueToStrep(keys.intfId); }
void PrintTo(const T& keys, std::ostream* out) { *out << valueToStrep(keys.intfId); }
}  // namespace LoamFec
namespace Wirex {
template <Pell::HasStrep T>
void PrintTo(const T& value, std::ostream* out) {
  *out << valueToStrep(value);
}
}  // namespace Wirex
namespace Pell {
// The keys of the elements.
template <typename Key, typename Value, typename Hash>
void PrintTo(const HashMap<Key, Value, Hash>& map, std::ostream* out) {
  *out << "keys {";
  map.forEach([&](const Key& key, const Value&) {
    *out << ' ';
    ::testing::internal::UniversalPrint(key, out);
  });
  *out << " }";
}
// The address, which a comparison is about, and the version of what has one.
template <typename T>
void PrintTo(const Ptr<T>& pointer, std::ostream* out) {
  *out << static_cast<const void*>(pointer.get());
  if constexpr (requires { valueToStrep(pointer->version()); }) {
    if (pointer) {
      *out << ", version " << valueToStrep(pointer->version());
    }
  }
}
}  // namespace Pell

namespace testing_support {

// For the records, which are compared by a function of their own.
MATCHER_P(IsEq, expected, "") { return std::remove_cvref_t<decltype(arg)>::isEq(arg, expected); }

}  // namespace testing_support
