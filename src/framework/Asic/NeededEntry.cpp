#include "Asic/NeededEntry.h"

#include <algorithm>

#include <fmt/ranges.h>

#include "Pell/Assert.h"

namespace Asic {

const Zev::TypeRecord& NeededEntry::fwkType() const {
  static const Zev::TypeRecord record{kTypeName};
  return record;
}

void NeededEntry::add(TableVersion tableVersion) {
  const auto end = versions_.begin() + count_;
  const auto held = std::find_if(versions_.begin(), end, [&](const TableVersion& version) {
    return version.tableId() == tableVersion.tableId();
  });
  if (held == end) {
    PELL_ASSERT_MESSAGE(count_ < kMaxTables, "count_ < kMaxTables",
                        fmt::format("an operation can need at most {} tables; {} is one more",
                                    kMaxTables, tableVersion));
    versions_[count_++] = tableVersion;
  } else if (held->logVersion() < tableVersion.logVersion()) {
    *held = tableVersion;
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
