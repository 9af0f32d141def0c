// SPDX-License-Identifier: Apache-2.0

#include "tools/TableRole.h"

#include "folder/RootFolder.h"
#include "records/FecTableConstants.h"

namespace Tools {

using LoamFec::FecTableConstants;

std::string fileNameOf(TableRole role, Asic::UnitId unit) {
  switch (role) {
    case TableRole::log:
      return Glint::fileNameOfEntity(FecTableConstants::entryLogGlintPath());
    case TableRole::groupLog:
      return Glint::fileNameOfEntity(FecTableConstants::groupLogGlintPath());
    case TableRole::applied:
      return Glint::fileNameOfEntity(FecTableConstants::groupVersionsGlintPath());
    case TableRole::config:
      return Glint::fileNameOfEntity(FecTableConstants::configGlintPath(unit));
    case TableRole::other:
      break;
  }
  return {};
}

}  // namespace Tools
