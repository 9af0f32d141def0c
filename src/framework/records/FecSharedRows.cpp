// SPDX-License-Identifier: Apache-2.0

#include "records/FecSharedRows.h"

#include <type_traits>

#include "table/GlintMapDefinition.h"

namespace LoamFec {

// What stands in shared memory is copied as bytes.
static_assert(std::is_trivially_copyable_v<FecTableDataModelLogGlintEntry>);
static_assert(std::is_trivially_copyable_v<FecTableDataModelConfigGlintEntry>);

}  // namespace LoamFec

template class Glint::GlintMap<LoamFec::FecTableDataModelLogGlintEntry>;
template class Glint::GlintMap<LoamFec::FecTableDataModelConfigGlintEntry>;
