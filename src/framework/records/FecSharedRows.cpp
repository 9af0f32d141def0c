// SPDX-License-Identifier: Apache-2.0

#include "records/FecSharedRows.h"

#include <type_traits>

namespace LoamFec {

// What stands in shared memory is copied as bytes.
static_assert(std::is_trivially_copyable_v<FecTableDataModelLogGlintEntry>);
static_assert(std::is_trivially_copyable_v<FecTableDataModelConfigGlintEntry>);

}  // namespace LoamFec
