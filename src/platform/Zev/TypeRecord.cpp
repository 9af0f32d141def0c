// SPDX-License-Identifier: Apache-2.0

#include "Zev/TypeRecord.h"

#include <algorithm>

namespace Zev {

namespace {

template <typename Members>
auto findByName(const Members& members, std::string_view name) {
  const auto found = std::find_if(members.begin(), members.end(),
                                  [name](const auto& member) { return member.name == name; });
  return found == members.end() ? nullptr : &*found;
}

}  // namespace

const TypeRecord::Attribute* TypeRecord::attribute(std::string_view attributeName) const {
  return findByName(attributes, attributeName);
}

const TypeRecord::Operation* TypeRecord::operation(std::string_view operationName) const {
  return findByName(operations, operationName);
}

}  // namespace Zev
