// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>
#include <vector>

namespace Zev {

// The runtime's description of a class: its name, its attributes with their identifiers, and the
// operations that can be called by name, with their parameter names.
//
// Kind: immutable value with static lifetime, one per class.
struct TypeRecord {
  struct Attribute {
    std::string_view name;
    short id;
  };
  struct Operation {
    std::string_view name;
    std::vector<std::string_view> parameters;
  };

  std::string_view name;
  std::vector<Attribute> attributes = {};
  std::vector<Operation> operations = {};

  // Null when the class has none of that name.
  const Attribute* attribute(std::string_view attributeName) const;
  const Operation* operation(std::string_view operationName) const;
};

}  // namespace Zev
