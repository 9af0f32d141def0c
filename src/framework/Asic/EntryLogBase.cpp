// SPDX-License-Identifier: Apache-2.0

#include "Asic/EntryLogBase.h"

namespace Asic {

EntryLogBase::EntryLogBase(SwTableId tableId, const Pell::Ptr<Vanta::EntityManager>& entityManager,
                           const Pell::Ptr<GroupLogInterface>& groupLogInterface)
    : tableId_(tableId), entityManager_(entityManager), groupLogInterface_(groupLogInterface) {}

LogVersion EntryLogBase::tableVersionInc(LogVersion increment) {
  tableVersion_ = LogVersion(tableVersion_.value() + increment.value());
  return tableVersion_;
}

}  // namespace Asic
