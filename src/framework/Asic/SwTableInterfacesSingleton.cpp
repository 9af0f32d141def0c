#include "Asic/SwTableInterfacesSingleton.h"

namespace Asic {

Pell::Ptr<Zev::Entity> SwTableInterfacesSingleton::make(const Pell::String& name) {
  return Zev::makeObject<SwTableInterfacesSingleton>(name);
}

Pell::Ptr<SwTableInterfacesSingleton> SwTableInterfacesSingleton::instance() {
  return Pell::dynamicPtrCast<SwTableInterfacesSingleton>(Zev::Entity::singleton(kTypeName));
}

const Zev::TypeRecord& SwTableInterfacesSingleton::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

void SwTableInterfacesSingleton::swTableIntfIs(Pell::String const& name,
                                               Pell::Ptr<TableInterfaceBase> const& tableIntf) {
  tableIntfs_[name] = tableIntf;
}

Pell::Ptr<TableInterfaceBase> SwTableInterfacesSingleton::swTableIntf(
    Pell::String const& name) const {
  const auto found = tableIntfs_.find(name);
  return found == tableIntfs_.end() ? nullptr : found->second;
}

}  // namespace Asic
