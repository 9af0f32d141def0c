// SPDX-License-Identifier: Apache-2.0

// Mounting: checks what is asked, lets the entity's type make the entity, and gives that entity's
// collection its table. A table that this process has mapped already is shared, so that there is
// one writer's bookkeeping a file however often it is mounted.

#include "Glint/SharedMemEntityManager.h"

#include <utility>

#include <fmt/format.h>

#include "folder/RootFolder.h"
#include "table/Table.h"

namespace ZevSharedMem {

namespace {

using Factories = std::map<Pell::String, EntityFactory>;

Factories& factories() {
  static auto* instance = new Factories;
  return *instance;
}

}  // namespace

void entityTypeIs(const Pell::String& typeName, EntityFactory factory) {
  factories()[typeName] = std::move(factory);
}

EntityManager::EntityManager(const Pell::String& rootFolder)
    : root_(std::make_shared<Glint::RootFolder>(rootFolder)) {}

const Pell::String& EntityManager::rootFolder() const { return root_->path(); }

void EntityManager::doMount(const Pell::String& path, const Pell::String& typeName,
                            const ZevGlint::MountInfo& mountInfo) {
  const Pell::String fileName = Glint::fileNameOfEntity(path);
  const auto factory = factories().find(typeName);
  if (factory == factories().end()) {
    throw ZevGlint::MountException(
        fmt::format("{}: there is no entity type {}; link the library that has it",
                    root_->filePath(fileName), typeName));
  }
  if (mountInfo.collectionInfo().size() != 1) {
    throw ZevGlint::MountException(
        fmt::format("{}: the mount names {} collections; name exactly one",
                    root_->filePath(fileName), mountInfo.collectionInfo().size()));
  }
  const ZevGlint::MountSite site(path, mountInfo, [&](const Glint::TableLayout& layout) {
    return table({fileName, mountInfo.type()}, layout);
  });
  entities_[fileName] = factory->second(site);
}

Pell::Ptr<Zev::Entity> EntityManager::getEntity(const Pell::String& path) const {
  const auto held = entities_.find(Glint::fileNameOfEntity(path));
  return held == entities_.end() ? nullptr : held->second;
}

std::shared_ptr<Glint::Table> EntityManager::table(const TableKey& key,
                                                   const Glint::TableLayout& layout) {
  std::weak_ptr<Glint::Table>& held = tables_[key];
  if (std::shared_ptr<Glint::Table> mapped = held.lock()) {
    if (const Pell::String finding = mapped->layoutFinding(layout); !finding.empty()) {
      throw ZevGlint::MountException(
          fmt::format("{}: {}; mount it as it was mounted before", mapped->filePath(), finding));
    }
    return mapped;
  }
  std::shared_ptr<Glint::Table> mapped =
      key.type == ZevGlint::ZevGlintType::writer
          ? Glint::Table::mountWriter(root_, key.fileName, layout)
          : Glint::Table::mountReader(root_, key.fileName, layout);
  held = mapped;
  return mapped;
}

Pell::Ptr<EntityManager> getEntityManager(
    const Pell::Ptr<const Vanta::EntityManager>& entityManager) {
  Pell::Ptr<EntityManager> manager =
      Pell::dynamicPtrCast<EntityManager>(entityManager->attachment());
  if (!manager) {
    manager = Zev::makeObject<EntityManager>(entityManager->rootFolder());
    entityManager->attachmentIs(manager);
  }
  return manager;
}

}  // namespace ZevSharedMem
