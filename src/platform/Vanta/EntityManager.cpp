// SPDX-License-Identifier: Apache-2.0

// The state database's entity manager. What mounts tables in shared memory is attached to it
// (Glint/SharedMemEntityManager.cpp).

#include "Vanta/EntityManager.h"

#include <utility>

namespace Vanta {

EntityManager::EntityManager(Pell::String rootFolder) : rootFolder_(std::move(rootFolder)) {}

}  // namespace Vanta
