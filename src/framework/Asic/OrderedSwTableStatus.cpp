#include "Asic/OrderedSwTableStatus.h"

namespace Asic {

const Zev::TypeRecord& OrderedSwTableStatus::fwkType() const {
  static const Zev::TypeRecord record{
      kTypeName, {{"pendingHwWrites", kPendingHwWritesAttribute}, {"suspend", kSuspendAttribute}}};
  return record;
}

void OrderedSwTableStatus::pendingHwWritesIs(bool pending) {
  if (pendingHwWrites_ != pending) {
    pendingHwWrites_ = pending;
    publisher().attributeChange(kPendingHwWritesAttribute);
  }
}

void OrderedSwTableStatus::suspendIs(bool suspend) {
  if (suspend_ != suspend) {
    suspend_ = suspend;
    publisher().attributeChange(kSuspendAttribute);
  }
}

}  // namespace Asic
