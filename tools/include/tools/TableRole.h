// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include "Asic/Versions.h"

namespace Tools {

// The purpose of a table file, by its name.
enum class TableRole : std::uint8_t { log, groupLog, applied, config, other };

// The name of the file that has the role; `unit` counts for configuration tables. Empty for other.
std::string fileNameOf(TableRole role, Asic::UnitId unit = Asic::UnitId());

}  // namespace Tools
