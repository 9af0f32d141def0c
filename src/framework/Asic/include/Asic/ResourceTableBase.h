// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Zev/PtrInterface.h"

namespace Asic {

// Base of the tables that hand out resources (destinations, for instance) to ordered tables.
class ResourceTableBase : public Zev::PtrInterface {};

}  // namespace Asic
