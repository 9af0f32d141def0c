// SPDX-License-Identifier: Apache-2.0

#include "Asic/SwTableInterfacesSingleton.h"

#include "Zev/Trace.h"

namespace Asic {

namespace {

constexpr const char* kClass = "SwTableInterfacesSingleton";

Zev::TraceHandle& trace = Zev::traceHandle(kClass);

}  // namespace

Pell::Ptr<Zev::Entity> SwTableInterfacesSingleton::make(const Pell::String& name) {
  return Zev::makeObject<SwTableInterfacesSingleton>(name);
}

Pell::Ptr<SwTableInterfacesSingleton> SwTableInterfacesSingleton::instance() {
  return Pell::dynamicPtrCast<SwTableInterfacesSingleton>(Zev::Entity::singleton(kTypeName));
}

void SwTableInterfacesSingleton::swTableIntfIs(Pell::String const& name,
                                               Pell::Ptr<TableInterfaceBase> const& tableIntf) {
  ZEV_TRACE(trace, 8, kClass, "name: {}", name);
  tableIntfs_[name] = tableIntf;
}

Pell::Ptr<TableInterfaceBase> SwTableInterfacesSingleton::swTableIntf(
    Pell::String const& name) const {
  const auto found = tableIntfs_.find(name);
  return found == tableIntfs_.end() ? nullptr : found->second;
}

}  // namespace Asic
