// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>

#include "Glint/MountInfo.h"
#include "Glint/TableLayout.h"
#include "Pell/String.h"

namespace ZevGlint {

// Where an entity is to be mounted, given to the factory of its type: the factory makes the entity,
// whose collection (a Glint::GlintMap) mounts its file here.
//
// Kind: object on the mounting operation's stack; nobody keeps it.
class MountSite {
 public:
  using Opener = std::function<std::shared_ptr<Glint::Table>(const Glint::TableLayout&)>;

  MountSite(Pell::String path, MountInfo mountInfo, Opener opener)
      : path_(std::move(path)), mountInfo_(std::move(mountInfo)), opener_(std::move(opener)) {}

  // The entity's path.
  const Pell::String& path() const { return path_; }
  const MountInfo& mountInfo() const { return mountInfo_; }
  // The entity's collection, as the mount names it.
  const CollectionInfo& collection() const { return mountInfo_.collectionInfo().front(); }

  // The table of that layout. Within a process it is the same table for every mount of an entity as
  // the same type. Throws MountException.
  std::shared_ptr<Glint::Table> table(const Glint::TableLayout& layout) const {
    return opener_(layout);
  }

 private:
  Pell::String path_;
  MountInfo mountInfo_;
  Opener opener_;
};

}  // namespace ZevGlint
