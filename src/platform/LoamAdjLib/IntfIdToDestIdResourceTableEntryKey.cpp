#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"

namespace LoamAdjLib {

Pell::String valueToStrep(const IntfIdToDestIdResourceTableEntryKey& key) {
  return key.intfId().name();
}

}  // namespace LoamAdjLib
