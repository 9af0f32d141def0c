// SPDX-License-Identifier: Apache-2.0

#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"

namespace LoamAdjLib {

Pell::String valueToStrep(const IntfIdToDestIdResourceTableEntryKey& key) {
  return key.intfId().name();
}

}  // namespace LoamAdjLib
