#include "Asic/DependencyEntryHandle.h"

namespace Asic {

void DependencyEntryHandle::entryStateSet(EntryState state) {
  if (entryState_ != state) {
    entryState_ = state;
    publisher().attributeChange(kEntryStateAttribute);
  }
}

}  // namespace Asic
