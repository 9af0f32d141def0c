// SPDX-License-Identifier: Apache-2.0

#include "Asic/CanonicalTableName.h"

#include <utility>

namespace Asic {

CanonicalTableName::CanonicalTableName(OrderedTableType type, Pell::String first,
                                       Pell::String second)
    : type_(type), first_(std::move(first)), second_(std::move(second)) {}

}  // namespace Asic
