// SPDX-License-Identifier: Apache-2.0

// The state database's entity manager. What mounts tables in shared memory is attached to it
// (Glint/SharedMemEntityManager.cpp).

#include "Vanta/EntityManager.h"

namespace Vanta {

EntityManager::~EntityManager() { hasNotificationActiveIs(false); }

const Zev::TypeRecord& EntityManager::fwkType() const {
  static const Zev::TypeRecord record{.name = kTypeName};
  return record;
}

}  // namespace Vanta
