// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

#include "Pell/Ptr.h"
#include "Pell/String.h"
#include "Zev/PtrInterface.h"

namespace Vanta {

// The central state database's entity manager: says below which folder the state lives.
//
// Kind: object, compared by identity.
// Ownership: holds the manager that is attached to it.
// Threads: one.
class EntityManager : public Zev::Typed<EntityManager> {
 public:
  static constexpr std::string_view kTypeName = "Vanta::EntityManager";

  explicit EntityManager(Pell::String rootFolder);

  const Pell::String& rootFolder() const { return rootFolder_; }

  // The shared-memory manager that belongs to this one; null until it is made. Attaching is no
  // change of the state database, so a constant manager allows it.
  const Pell::Ptr<Zev::PtrInterface>& attachment() const { return attachment_; }
  void attachmentIs(const Pell::Ptr<Zev::PtrInterface>& attachment) const {
    attachment_ = attachment;
  }

 private:
  Pell::String rootFolder_;
  mutable Pell::Ptr<Zev::PtrInterface> attachment_;
};

}  // namespace Vanta
