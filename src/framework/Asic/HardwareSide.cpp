// SPDX-License-Identifier: Apache-2.0

#include "Asic/HardwareSide.h"

namespace Asic {

LogVersion HardwareSide::appliedVersion(SwTableId tableId) const {
  const auto found = appliedVersions().find(tableId);
  return found == appliedVersions().end() ? LogVersion() : found->second;
}

}  // namespace Asic
