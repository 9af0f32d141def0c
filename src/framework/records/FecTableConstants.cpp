// SPDX-License-Identifier: Apache-2.0

#include "records/FecTableConstants.h"

namespace LoamFec {

Pell::String FecTableConstants::entryLogGlintPath() {
  return Asic::Constants::tableEntryLogGlintPath(kGroupName, kAgentName, kTableName);
}

Pell::String FecTableConstants::configGlintPath(Asic::UnitId unitId) {
  return fmt::format("{}.{}.unit{}.config", kGroupName, kTableName, unitId);
}

Pell::String FecTableConstants::groupLogGlintPath() {
  return Asic::Constants::groupLogGlintPath(kAgentName, kGroupName);
}

Pell::String FecTableConstants::groupVersionsGlintPath() {
  return Asic::Constants::groupVersionsGlintPath(kAgentName, kGroupName);
}

}  // namespace LoamFec
