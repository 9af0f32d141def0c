// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>

#include "Asic/TableInterfaceBase.h"
#include "Zev/Entity.h"

namespace Asic {

// The process's registry of table interfaces, by name.
//
// Kind: process singleton, registered under kTypeName.
// Ownership: holds a reference to each interface.
class SwTableInterfacesSingleton : public Zev::Typed<SwTableInterfacesSingleton, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = "Asic::SwTableInterfacesSingleton";

  explicit SwTableInterfacesSingleton(const Pell::String& name) : Typed(name) {}
  static Pell::Ptr<Zev::Entity> make(const Pell::String& name);
  // The process's registry; null when there is none yet.
  static Pell::Ptr<SwTableInterfacesSingleton> instance();

  // Adds the interface, replacing one of the same name.
  void swTableIntfIs(Pell::String const& name, Pell::Ptr<TableInterfaceBase> const& tableIntf);
  bool swTableIntfHas(Pell::String const& name) const { return tableIntfs_.contains(name); }
  // Null when there is none.
  Pell::Ptr<TableInterfaceBase> swTableIntf(Pell::String const& name) const;

 private:
  std::map<Pell::String, Pell::Ptr<TableInterfaceBase>> tableIntfs_;
};

}  // namespace Asic
