// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

#include "Wirex/IntfId.h"

namespace testing_support {

inline Wirex::IntfId intf(std::string_view name) { return Wirex::IntfId::fromName(name); }

}  // namespace testing_support
