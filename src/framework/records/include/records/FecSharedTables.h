// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "Glint/GlintMap.h"
#include "Glint/MountInfo.h"
#include "Zev/Entity.h"
#include "records/FecSharedRows.h"
#include "records/FecTableConstants.h"

// The shared-memory entities of the FEC table, as the entity manager makes them on a mount.

namespace LoamFec {

// The entry log: one row per version that is not applied yet.
//
// Ownership: the mount lives as long as this object.
class FecTableDataModelEntryLogGlint
    : public Zev::Typed<FecTableDataModelEntryLogGlint, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableDataModelEntryLogGlint";
  static constexpr const char* kCollectionName = "entryLogConfig";
  static constexpr std::uint32_t kCapacity = FecTableConstants::kEntryLogCapacity;

  explicit FecTableDataModelEntryLogGlint(const ZevGlint::MountSite& site);

  // Inserts or replaces the row of that version.
  void entryLogConfigIs(const FecTableDataModelLogGlintEntry& row) { entryLogConfig_.rowIs(row); }
  void entryLogConfigDel(Asic::LogVersion version) { entryLogConfig_.rowDel(version); }
  // Lookups and walks may throw Pell::CorruptionDetectedException.
  Glint::GlintMap<FecTableDataModelLogGlintEntry>& entryLogConfig() { return entryLogConfig_; }

 private:
  Glint::GlintMap<FecTableDataModelLogGlintEntry> entryLogConfig_;
};

// One unit's configuration table: one row per entry, and one per deletion that is not cleaned up.
//
// Ownership: the mount lives as long as this object.
class FecTableDataModelConfigGlint : public Zev::Typed<FecTableDataModelConfigGlint, Zev::Entity> {
 public:
  static constexpr const char* kTypeName = "LoamFec::FecTableDataModelConfigGlint";
  static constexpr const char* kCollectionName = "swTableEntries";
  static constexpr std::uint32_t kCapacity = FecTableConstants::kConfigCapacity;

  explicit FecTableDataModelConfigGlint(const ZevGlint::MountSite& site);

  // Inserts or replaces the row of that key.
  void swTableEntriesIs(const FecTableDataModelConfigGlintEntry& row) {
    swTableEntries().rowIs(row);
  }
  void swTableEntriesDel(const FecTableDataModelEntryKey& key) { swTableEntries().rowDel(key); }
  // Lookups and walks may throw Pell::CorruptionDetectedException.
  virtual Glint::GlintMap<FecTableDataModelConfigGlintEntry>& swTableEntries() {
    return swTableEntries_;
  }

 private:
  Glint::GlintMap<FecTableDataModelConfigGlintEntry> swTableEntries_;
};

}  // namespace LoamFec
