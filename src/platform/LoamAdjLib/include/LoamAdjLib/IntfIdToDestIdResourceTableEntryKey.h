// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <compare>

#include "Pell/Strep.h"
#include "Wirex/IntfId.h"
#include "Zev/Hash.h"

namespace LoamAdjLib {

// Key of the interface-to-destination resource table: one interface. The null interface means that
// no resource is needed.
class IntfIdToDestIdResourceTableEntryKey {
 public:
  constexpr IntfIdToDestIdResourceTableEntryKey() = default;
  constexpr explicit IntfIdToDestIdResourceTableEntryKey(Wirex::IntfId intfId) : intfId_(intfId) {}

  constexpr Wirex::IntfId intfId() const { return intfId_; }
  constexpr bool isNull() const { return intfId_ == Wirex::IntfId(); }

  static constexpr bool isEq(const IntfIdToDestIdResourceTableEntryKey& a,
                             const IntfIdToDestIdResourceTableEntryKey& b) {
    return a.intfId_ == b.intfId_;
  }
  friend constexpr bool operator==(const IntfIdToDestIdResourceTableEntryKey& a,
                                   const IntfIdToDestIdResourceTableEntryKey& b) {
    return isEq(a, b);
  }
  // Order of the identifiers' values.
  friend constexpr bool operator<(const IntfIdToDestIdResourceTableEntryKey& a,
                                  const IntfIdToDestIdResourceTableEntryKey& b) {
    return a.intfId_.value() < b.intfId_.value();
  }

 private:
  Wirex::IntfId intfId_;
};

// The interface's name.
Pell::String valueToStrep(const IntfIdToDestIdResourceTableEntryKey& key);

struct ResourceKeyBits {
  std::uint64_t operator()(const IntfIdToDestIdResourceTableEntryKey& key) const {
    return key.intfId().value();
  }
};
template <std::uint32_t kSalt>
using ResourceKeyHash = Zev::SaltedHash<kSalt, ResourceKeyBits>;

}  // namespace LoamAdjLib
