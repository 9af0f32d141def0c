// SPDX-License-Identifier: Apache-2.0

#include "Asic/ResolverEntry.h"

namespace Asic {

ResolverEntry::~ResolverEntry() = default;

}  // namespace Asic
