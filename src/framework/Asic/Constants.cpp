// SPDX-License-Identifier: Apache-2.0

#include "Asic/Constants.h"

#include <fmt/format.h>

namespace Asic {

Pell::String Constants::canonicalizeGroupName(const Pell::String& agent,
                                              const Pell::String& group) {
  return fmt::format("{}.{}", agent, group);
}

Pell::String Constants::tableEntryLogGlintPath(const Pell::String& group,
                                               const Pell::String& subgroup,
                                               const Pell::String& table) {
  return fmt::format("{}.{}.{}.log", group, subgroup, table);
}

Pell::String Constants::groupLogGlintPath(const Pell::String& agent, const Pell::String& group) {
  return fmt::format("{}.{}.grouplog", agent, group);
}

Pell::String Constants::groupVersionsGlintPath(const Pell::String& agent,
                                               const Pell::String& group) {
  return fmt::format("{}.{}.applied", agent, group);
}

}  // namespace Asic
