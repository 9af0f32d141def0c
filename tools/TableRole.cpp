// SPDX-License-Identifier: Apache-2.0

#include "tools/TableRole.h"

#include "Asic/Constants.h"
#include "folder/RootFolder.h"
#include "records/FecTableConstants.h"

namespace Tools {

using LoamFec::FecTableConstants;

std::string fileNameOf(TableRole role, Asic::UnitId unit) {
  const char* agent = FecTableConstants::kAgentName;
  const char* group = FecTableConstants::kGroupName;
  switch (role) {
    case TableRole::log:
      return Glint::fileNameOfEntity(
          Asic::Constants::tableEntryLogGlintPath(group, agent, FecTableConstants::kTableName));
    case TableRole::groupLog:
      return Glint::fileNameOfEntity(Asic::Constants::groupLogGlintPath(agent, group));
    case TableRole::applied:
      return Glint::fileNameOfEntity(Asic::Constants::groupVersionsGlintPath(agent, group));
    case TableRole::config:
      return Glint::fileNameOfEntity(FecTableConstants::configGlintPath(unit));
    case TableRole::other:
      break;
  }
  return {};
}

}  // namespace Tools
