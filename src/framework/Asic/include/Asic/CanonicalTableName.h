// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Asic/Versions.h"
#include "Zev/PtrInterface.h"

namespace Asic {

// Name under which a table is known to the framework, made of its kind and its names.
//
// Kind: immutable object.
// The framework keys its maps by the strings that it is given; name() belongs to the system whose
// tables are named, and is defined there.
class CanonicalTableName : public Zev::Typed<CanonicalTableName> {
 public:
  static constexpr const char* kTypeName = "Asic::CanonicalTableName";

  // first: the group part, used by orderedSwTable only; second: the table part.
  CanonicalTableName(OrderedTableType type, Pell::String first, Pell::String second);

  // A new string: "OrderedSwTable.<first>.<second>", "PartiallyOrderedSwTable.<second>" or
  // "ResourceTable.<second>". Any other type stops the process.
  Pell::String name() const;

 private:
  OrderedTableType type_;
  Pell::String first_;
  Pell::String second_;
};

}  // namespace Asic
