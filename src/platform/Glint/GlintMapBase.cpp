// The part of a mounted collection that does not know its rows, and the collection's control. Both
// are thin: the work is the table's (Table.cpp).

#include "Glint/GlintMapBase.h"

#include <algorithm>

#include "Zev/Trace.h"

namespace ZevGlint {

void MountInfo::collectionInfoIs(const CollectionInfo& info) {
  const auto held =
      std::find_if(collectionInfo_.begin(), collectionInfo_.end(),
                   [&](const CollectionInfo& other) { return other.name() == info.name(); });
  if (held == collectionInfo_.end()) {
    collectionInfo_.push_back(info);
  } else {
    *held = info;
  }
}

std::uint64_t CollectionControl::scratchpad() const { return table_->scratchpad(); }

void CollectionControl::scratchpadIs(std::uint64_t value) { table_->scratchpadIs(value); }

}  // namespace ZevGlint

namespace Glint {

namespace {

Zev::TraceHandle& mapTraceHandle() {
  static Zev::TraceHandle& handle = Zev::traceHandle("GlintMapBase");
  return handle;
}

}  // namespace

void GlintMapBase::doCorruptionDetected(const Pell::String& message) noexcept {
  table_->corruptionDetected();
  ZEV_TRACE(mapTraceHandle(), 1, "GlintMapBase", "{}", message);
}

}  // namespace Glint
