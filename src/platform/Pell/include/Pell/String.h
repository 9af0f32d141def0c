// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace Pell {

// Text value of the platform: names, paths, messages. Printable, comparable and hashable as
// std::string is.
using String = std::string;

}  // namespace Pell
