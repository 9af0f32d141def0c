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
    : Entity(site.path()), entryLogConfig_(site) {}

const Zev::TypeRecord& FecTableDataModelEntryLogGlint::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

FecTableDataModelConfigGlint::FecTableDataModelConfigGlint(const ZevGlint::MountSite& site)
    : Entity(site.path()), swTableEntries_(site) {}

const Zev::TypeRecord& FecTableDataModelConfigGlint::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

}  // namespace LoamFec
