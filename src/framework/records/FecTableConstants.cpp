// SPDX-License-Identifier: Apache-2.0

#include "records/FecTableConstants.h"

namespace LoamFec {

Pell::String FecTableConstants::configGlintPath(Asic::UnitId unitId) {
  return fmt::format("{}.{}.unit{}.config", kGroupName, kTableName, unitId);
}

}  // namespace LoamFec
