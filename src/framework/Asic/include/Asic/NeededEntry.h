// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <boost/container/small_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include "Asic/Versions.h"
#include "Zev/PtrInterface.h"

namespace Asic {

// Table versions in the order in which they came; usually the object itself has room for all that
// an operation needs.
inline constexpr std::size_t kInlineTableVersions = 8;
using TableVersions = boost::container::small_vector<TableVersion, kInlineTableVersions>;

// The table versions that must be applied before an operation: at most one version per table, of
// any number of tables.
//
// Kind: object, changed only while it is being built, then shared as Ptr<NeededEntry const>.
// Layout: up to kInlineTableVersions stand in the object itself and are found by a scan; beyond
// that they move to the heap, where an index is made that finds them. So adding a table costs the
// same however many there are, and a set that stands inline pays for no index.
class NeededEntry : public Zev::Typed<NeededEntry> {
 public:
  static constexpr const char* kTypeName = "Asic::NeededEntry";

  // Of two versions of one table the higher is kept: it needs the lower one too.
  void add(TableVersion tableVersion);
  // Null adds nothing.
  void merge(const Pell::Ptr<NeededEntry const>& other);

  // In the order in which the tables were first added. Good until something is added.
  std::span<const TableVersion> tableVersions() const {
    return {versions_.data(), versions_.size()};
  }
  bool empty() const { return versions_.empty(); }

 private:
  static constexpr std::uint32_t kIndexSalt = 0x6d1f93a5;
  using Index = boost::unordered_flat_map<SwTableId, std::size_t, SwTableIdHash<kIndexSalt>>;

  TableVersion* find(SwTableId tableId);
  void appendBeyondInline(TableVersion tableVersion);

  TableVersions versions_;
  std::unique_ptr<Index> index_;  // null while everything stands inline
};

// "{aa:gg:tttt@version, ...}"; "null" for a null pointer.
Pell::String valueToStrep(const Pell::Ptr<NeededEntry const>& needed);
Pell::String valueToStrep(const Pell::Ptr<NeededEntry>& needed);

}  // namespace Asic
