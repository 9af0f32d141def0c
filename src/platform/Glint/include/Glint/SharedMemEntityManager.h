// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>

#include "Glint/MountInfo.h"
#include "Glint/MountSite.h"
#include "Pell/Ptr.h"
#include "Pell/String.h"
#include "Vanta/EntityManager.h"
#include "Zev/Entity.h"
#include "Zev/PtrInterface.h"

namespace Glint {
class RootFolder;
}

namespace ZevSharedMem {

// Makes an entity of one type at the site of a mount. An exception ends the mount.
using EntityFactory = std::function<Pell::Ptr<Zev::Entity>(const ZevGlint::MountSite&)>;

// Registers how entities of a type are made, or replaces it; called at static initialisation by
// the types themselves.
void entityTypeIs(const Pell::String& typeName, EntityFactory factory);

// Mounts entities that live in shared memory and finds them again by path.
//
// Kind: object, one per entity manager of a state database; see getEntityManager().
// Ownership: holds the mounted entities.
// Threads: one.
// Invariants: while anything is mounted for writing, this process is the only writer below the
// root folder.
class EntityManager : public Zev::Typed<EntityManager> {
 public:
  static constexpr std::string_view kTypeName = "ZevSharedMem::EntityManager";

  explicit EntityManager(const Pell::String& rootFolder);

  // Mounts the entity of that path; an entity mounted there is replaced, and code that holds the
  // old one can go on using it. Throws ZevGlint::MountException; then everything is as it was.
  void doMount(const Pell::String& path, const Pell::String& typeName,
               const ZevGlint::MountInfo& mountInfo);
  // The entity mounted at that path; null if none is.
  Pell::Ptr<Zev::Entity> getEntity(const Pell::String& path) const;

  const Pell::String& rootFolder() const;

 private:
  struct TableKey {
    Pell::String fileName;
    ZevGlint::ZevGlintType type;
    auto operator<=>(const TableKey&) const = default;
  };

  std::shared_ptr<Glint::Table> table(const TableKey& key, const Glint::TableLayout& layout);

  std::shared_ptr<Glint::RootFolder> root_;
  std::map<Pell::String, Pell::Ptr<Zev::Entity>> entities_;
  std::map<TableKey, std::weak_ptr<Glint::Table>> tables_;
};

// The shared-memory entity manager that belongs to a state database's; made on first use.
Pell::Ptr<EntityManager> getEntityManager(
    const Pell::Ptr<const Vanta::EntityManager>& entityManager);

// Mounts an entity with one collection and returns it; null when what is mounted at that path is of
// another type than Entity. `capacity` is in rows; a reader's 0 accepts the capacity of the file.
// Throws ZevGlint::MountException.
template <typename Entity>
Pell::Ptr<Entity> mountEntity(const Pell::Ptr<const Vanta::EntityManager>& entityManager,
                              const Pell::String& path, ZevGlint::ZevGlintType type,
                              std::uint32_t capacity) {
  const auto manager = getEntityManager(entityManager);
  ZevGlint::MountInfo info(type);
  info.collectionInfoIs(ZevGlint::CollectionInfo(Entity::kCollectionName, capacity));
  manager->doMount(path, Entity::kTypeName, info);
  return Pell::dynamicPtrCast<Entity>(manager->getEntity(path));
}

// mountEntity() with the capacity of the entity's type, Entity::kCapacity.
template <typename Entity>
Pell::Ptr<Entity> mountForWriting(const Pell::Ptr<const Vanta::EntityManager>& entityManager,
                                  const Pell::String& path) {
  return mountEntity<Entity>(entityManager, path, ZevGlint::ZevGlintType::writer,
                             Entity::kCapacity);
}
template <typename Entity>
Pell::Ptr<Entity> mountForReading(const Pell::Ptr<const Vanta::EntityManager>& entityManager,
                                  const Pell::String& path) {
  return mountEntity<Entity>(entityManager, path, ZevGlint::ZevGlintType::reader,
                             Entity::kCapacity);
}

}  // namespace ZevSharedMem
