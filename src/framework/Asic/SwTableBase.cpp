// SPDX-License-Identifier: Apache-2.0

#include "Asic/SwTableBase.h"

namespace Asic {

Pell::String SwTableBase::nameString() const { return name(); }

void SwTableBase::doCreateHwTable() {}

void SwTableBase::doCreateHwTableResponse() {}

}  // namespace Asic
