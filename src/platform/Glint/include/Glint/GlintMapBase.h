// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>

#include "Glint/MountInfo.h"
#include "Pell/String.h"
#include "Zev/Trace.h"

namespace Glint {

// The operations that every mounted collection has, whatever its rows are.
//
// Kind: object, part of an entity.
// Ownership: shares the mapped table, which lives until the last of its maps has gone.
// Threads: one.
// Traces: GlintMapBase for damage, GlintMap for stores.
class GlintMapBase {
 public:
  GlintMapBase(const GlintMapBase&) = delete;
  GlintMapBase& operator=(const GlintMapBase&) = delete;

  // Called by code that has caught a Pell::CorruptionDetectedException of this map, with its
  // message. Counts the damage and traces it at level 1. As writer, it also takes the damaged row
  // out of use or rebuilds the damaged index, so that the same damage is not met again. Never
  // throws.
  void doCorruptionDetected(const Pell::String& message) noexcept;

  // Whether the collection can be used; a mounted one can.
  virtual bool isReady() const { return true; }

  // Rows in the collection, O(1). In a reader, a momentary value.
  std::uint32_t rowCount() const;
  // The nominal capacity that the collection was created with.
  std::uint32_t capacity() const;
  // The largest number of rows that it can hold.
  std::uint32_t slotCount() const;
  // Corruptions counted in the file since it was created, and those that this reader has met.
  std::uint64_t corruptionCount() const;
  bool isWriter() const;
  const Pell::String& filePath() const;

  ZevGlint::CollectionControl& control() { return control_; }
  const ZevGlint::CollectionControl& control() const { return control_; }

 protected:
  explicit GlintMapBase(std::shared_ptr<Table> table);
  virtual ~GlintMapBase() = default;

  Table& table() const { return *table_; }

  // Each store of a mutator is traced at level 9 once it has taken effect: "{file name}: row {key
  // bits} written", "{file name}: row {key bits} removed".
  static bool tracesStores() { return storeTrace_.enabled(Zev::kHighestTraceLevel); }
  void traceRowWritten(std::uint64_t keyBits) const;
  void traceRowRemoved(std::uint64_t keyBits) const;

 private:
  static Zev::TraceHandle& storeTrace_;

  std::shared_ptr<Table> table_;
  ZevGlint::CollectionControl control_;
};

}  // namespace Glint
