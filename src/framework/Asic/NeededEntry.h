#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "Asic/Versions.h"
#include "Zev/PtrInterface.h"

namespace Asic {

// The table versions that must be applied before an operation: at most one version a table.
//
// Kind: object, changed only while it is being built, then shared as Ptr<NeededEntry const>.
// Layout: the versions stand in the object itself. A group has few tables, so a scan of at most
// kMaxTables elements is cheaper than any index, and a group-log row holds the same number inline.
class NeededEntry : public Zev::PtrInterface {
 public:
  static constexpr const char* kTypeName = "Asic::NeededEntry";
  static constexpr std::uint32_t kMaxTables = 8;

  const Zev::TypeRecord& fwkType() const override;

  // Of two versions of one table the higher is kept: it needs the lower one too. A table beyond
  // kMaxTables stops the process.
  void add(TableVersion tableVersion);
  // Null adds nothing.
  void merge(const Pell::Ptr<NeededEntry const>& other);

  // In the order in which the tables were first added.
  std::span<const TableVersion> tableVersions() const { return {versions_.data(), count_}; }
  bool empty() const { return count_ == 0; }

 private:
  std::uint32_t count_ = 0;
  std::array<TableVersion, kMaxTables> versions_;
};

// "{aa:gg:tttt@version, ...}"; "null" for a null pointer.
Pell::String valueToStrep(const Pell::Ptr<NeededEntry const>& needed);
Pell::String valueToStrep(const Pell::Ptr<NeededEntry>& needed);

}  // namespace Asic
