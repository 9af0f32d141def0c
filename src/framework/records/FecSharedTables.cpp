// SPDX-License-Identifier: Apache-2.0

#include "records/FecSharedTables.h"

#include "Glint/SharedMemEntityManager.h"

namespace LoamFec {

namespace {

template <typename Entity>
Pell::Ptr<Zev::Entity> makeEntity(const ZevGlint::MountSite& site) {
  return Zev::makeObject<Entity>(site);
}

// The entity manager makes entities by the name of their type.
[[maybe_unused]] const bool kEntityTypesRegistered = [] {
  ZevSharedMem::entityTypeIs(FecTableDataModelEntryLogGlint::kTypeName,
                             makeEntity<FecTableDataModelEntryLogGlint>);
  ZevSharedMem::entityTypeIs(FecTableDataModelConfigGlint::kTypeName,
                             makeEntity<FecTableDataModelConfigGlint>);
  return true;
}();

}  // namespace

FecTableDataModelEntryLogGlint::FecTableDataModelEntryLogGlint(const ZevGlint::MountSite& site)
    : Typed(site.path()), entryLogConfig_(site) {}

FecTableDataModelConfigGlint::FecTableDataModelConfigGlint(const ZevGlint::MountSite& site)
    : Typed(site.path()), swTableEntries_(site) {}

}  // namespace LoamFec
