// SPDX-License-Identifier: Apache-2.0

// The part of a mounted collection that does not know its rows, and the collection's control. Both
// are thin: the work is the table's (Table.cpp).

#include "Glint/GlintMapBase.h"

#include <algorithm>
#include <string_view>

#include "Zev/Trace.h"
#include "table/Table.h"

namespace {

constexpr const char* kStoreClass = "GlintMap";

std::string_view fileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

Zev::TraceHandle& storeTraceHandle() {
  static Zev::TraceHandle& handle = Zev::traceHandle(kStoreClass);
  return handle;
}

}  // namespace

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

void CollectionControl::scratchpadIs(std::uint64_t value) {
  table_->scratchpadIs(value);
  ZEV_TRACE(storeTraceHandle(), 9, kStoreClass, "{}: scratchpad {}", fileName(table_->filePath()),
            value);
}

}  // namespace ZevGlint

namespace Glint {

namespace {

Zev::TraceHandle& mapTraceHandle() {
  static Zev::TraceHandle& handle = Zev::traceHandle("GlintMapBase");
  return handle;
}

}  // namespace

Zev::TraceHandle& GlintMapBase::storeTrace_ = storeTraceHandle();

GlintMapBase::GlintMapBase(std::shared_ptr<Table> table)
    : table_(std::move(table)), control_(table_) {}

std::uint32_t GlintMapBase::rowCount() const { return table_->rowCount(); }
std::uint32_t GlintMapBase::capacity() const { return table_->capacity(); }
std::uint32_t GlintMapBase::slotCount() const { return table_->view().fixed().slotCount; }
std::uint64_t GlintMapBase::corruptionCount() const { return table_->corruptionCount(); }
bool GlintMapBase::isWriter() const { return table_->isWriter(); }
const Pell::String& GlintMapBase::filePath() const { return table_->filePath(); }

void GlintMapBase::traceRowWritten(std::uint64_t keyBits) const {
  ZEV_TRACE_AS(storeTrace_, 9, kStoreClass, "rowIs", "{}: row {} written", fileName(filePath()),
               keyBits);
}

void GlintMapBase::traceRowRemoved(std::uint64_t keyBits) const {
  ZEV_TRACE_AS(storeTrace_, 9, kStoreClass, "rowDel", "{}: row {} removed", fileName(filePath()),
               keyBits);
}

void GlintMapBase::doCorruptionDetected(const Pell::String& message) noexcept {
  table_->corruptionDetected();
  ZEV_TRACE(mapTraceHandle(), 1, "GlintMapBase", "{}", message);
}

}  // namespace Glint
