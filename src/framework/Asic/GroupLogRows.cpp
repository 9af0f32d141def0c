// SPDX-License-Identifier: Apache-2.0

#include "Asic/GroupLogRows.h"

#include "Pell/Assert.h"
#include "table/GlintMapDefinition.h"

namespace Asic {

GroupLogRow::GroupLogRow(std::uint64_t sequence, TableVersion tableVersion,
                         std::span<const TableVersion> needed, std::uint32_t marks)
    : sequence_(sequence),
      version_(tableVersion.logVersion().value()),
      tableId_(tableVersion.tableId().value()),
      countAndMarks_(static_cast<std::uint32_t>(needed.size()) | marks) {
  PELL_ASSERT(needed.size() <= kNeededPerRow, "needed.size() <= kNeededPerRow");
  for (std::size_t at = 0; at < needed.size(); ++at) {
    needed_[at] = {needed[at].tableId().value(), needed[at].logVersion().value()};
  }
}

}  // namespace Asic

template class Glint::GlintMap<Asic::GroupLogRow>;
template class Glint::GlintMap<Asic::GroupVersionRow>;
