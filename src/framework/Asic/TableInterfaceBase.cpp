// SPDX-License-Identifier: Apache-2.0

#include "Asic/TableInterfaceBase.h"

namespace Asic {

TableInterfaceBase::TableInterfaceBase(Pell::Ptr<OrderedTableInterface> const& orderedTableIntf)
    : orderedTableIntf_(orderedTableIntf) {}

TableInterfaceBase::~TableInterfaceBase() = default;

}  // namespace Asic
