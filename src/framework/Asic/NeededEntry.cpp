#include "Asic/NeededEntry.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

namespace Asic {

const Zev::TypeRecord& NeededEntry::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

void NeededEntry::add(TableVersion tableVersion) {
  TableVersion* held = find(tableVersion.tableId());
  if (held == nullptr) {
    append(tableVersion);
  } else if (held->logVersion() < tableVersion.logVersion()) {
    *held = tableVersion;
  }
}

TableVersion* NeededEntry::find(SwTableId tableId) {
  if (index_.empty()) {
    const auto held =
        std::find_if(versions_.begin(), versions_.end(),
                     [&](const TableVersion& version) { return version.tableId() == tableId; });
    return held == versions_.end() ? nullptr : &*held;
  }
  const auto held = index_.find(tableId);
  return held == index_.end() ? nullptr : &versions_[held->second];
}

// What may fail comes first, so that index and versions always agree.
void NeededEntry::append(TableVersion tableVersion) {
  if (versions_.size() >= kInlineTableVersions) {
    index_.reserve(versions_.size() + 1);
  }
  versions_.push_back(tableVersion);
  if (versions_.size() > kInlineTableVersions) {
    for (std::size_t at = index_.size(); at < versions_.size(); ++at) {
      index_.emplace(versions_[at].tableId(), at);
    }
  }
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
