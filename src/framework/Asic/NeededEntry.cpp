// SPDX-License-Identifier: Apache-2.0

#include "Asic/NeededEntry.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

namespace Asic {

void NeededEntry::add(TableVersion tableVersion) {
  TableVersion* held = find(tableVersion.tableId());
  if (held == nullptr) {
    if (versions_.size() < kInlineTableVersions) {
      versions_.push_back(tableVersion);
    } else {
      appendBeyondInline(tableVersion);
    }
  } else if (held->logVersion() < tableVersion.logVersion()) {
    *held = tableVersion;
  }
}

TableVersion* NeededEntry::find(SwTableId tableId) {
  if (!index_) {
    const auto held =
        std::find_if(versions_.begin(), versions_.end(),
                     [&](const TableVersion& version) { return version.tableId() == tableId; });
    return held == versions_.end() ? nullptr : &*held;
  }
  const auto held = index_->find(tableId);
  return held == index_->end() ? nullptr : &versions_[held->second];
}

// What may fail comes first, so that index and versions always agree.
void NeededEntry::appendBeyondInline(TableVersion tableVersion) {
  if (!index_) {
    auto index = std::make_unique<Index>();
    for (std::size_t at = 0; at < versions_.size(); ++at) {
      index->emplace(versions_[at].tableId(), at);
    }
    index_ = std::move(index);
  }
  index_->reserve(versions_.size() + 1);
  versions_.push_back(tableVersion);
  index_->emplace(tableVersion.tableId(), versions_.size() - 1);
}

void NeededEntry::merge(const Pell::Ptr<NeededEntry const>& other) {
  if (other) {
    for (const TableVersion& tableVersion : other->tableVersions()) {
      add(tableVersion);
    }
  }
}

Pell::String valueToStrep(const Pell::Ptr<NeededEntry const>& needed) {
  return needed ? fmt::format("{{{}}}", fmt::join(needed->tableVersions(), ", ")) : "null";
}

Pell::String valueToStrep(const Pell::Ptr<NeededEntry>& needed) {
  return valueToStrep(Pell::Ptr<NeededEntry const>(needed));
}

}  // namespace Asic
