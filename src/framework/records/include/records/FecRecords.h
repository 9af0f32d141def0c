// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>

#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"
#include "Pell/Strep.h"
#include "Wirex/IntfId.h"
#include "Zev/Hash.h"

// Value records of the FEC table. Passed by value or constant reference everywhere; the log entry
// and the resource keys also stand in shared memory as they are.

namespace LoamFec {

// Key of one FEC entry: its 32-bit FEC identifier.
class FecTableDataModelEntryKey {
 public:
  constexpr FecTableDataModelEntryKey() = default;
  constexpr explicit FecTableDataModelEntryKey(std::uint32_t fecId) : fecId_(fecId) {}

  constexpr std::uint32_t fecId() const { return fecId_; }

  static constexpr bool isEq(const FecTableDataModelEntryKey& a,
                             const FecTableDataModelEntryKey& b) {
    return a.fecId_ == b.fecId_;
  }
  friend constexpr bool operator==(const FecTableDataModelEntryKey& a,
                                   const FecTableDataModelEntryKey& b) {
    return isEq(a, b);
  }
  // Numeric order of the identifiers.
  friend constexpr bool operator<(const FecTableDataModelEntryKey& a,
                                  const FecTableDataModelEntryKey& b) {
    return a.fecId_ < b.fecId_;
  }

 private:
  std::uint32_t fecId_ = 0;
};

struct FecKeyBits {
  std::uint32_t operator()(const FecTableDataModelEntryKey& key) const { return key.fecId(); }
};
// Hash of a map keyed by FEC entries; each map has its own salt.
template <std::uint32_t kSalt>
using FecKeyHash = Zev::SaltedHash<kSalt, FecKeyBits>;

// Destination-shaped triple. 0xFFFF in the first word means no destination.
//
// Layout: 12 bytes: first 0, second 4, zero 6, third 8.
struct FecDestination {
  static constexpr std::uint32_t kNone = 0xFFFF;

  std::uint32_t first = kNone;
  std::uint16_t second = 0;
  std::uint16_t zero6 = 0;  // keeps shared memory deterministic; not part of the value
  std::uint32_t third = 0;

  static constexpr bool isEq(const FecDestination& a, const FecDestination& b) {
    return a.first == b.first && a.second == b.second && a.third == b.third;
  }
};
static_assert(sizeof(FecDestination) == 12 && offsetof(FecDestination, second) == 4 &&
              offsetof(FecDestination, third) == 8);

// The logged part of one entry: everything but its interface.
//
// Layout: shared memory, 44 bytes, offsets as asserted below; the bytes between the fields are
// zero.
struct FecTableDataModelLogEntry {
  FecTableDataModelEntryKey key;
  std::uint8_t flagA = 0;
  std::uint8_t zero5[3] = {};
  FecDestination clientDest;  // as the client wrote it
  std::uint32_t opaqueA = 0;
  std::uint32_t opaqueB = 0;
  std::uint8_t flagB = 0;
  std::uint8_t zero29[3] = {};
  FecDestination resolvedDest;  // what the interface resolved to when the entry was logged

  // Compares the fields, not the bytes between them.
  static bool isEq(const FecTableDataModelLogEntry& a, const FecTableDataModelLogEntry& b);
};
static_assert(sizeof(FecTableDataModelLogEntry) == 44);
static_assert(offsetof(FecTableDataModelLogEntry, key) == 0);
static_assert(offsetof(FecTableDataModelLogEntry, flagA) == 4);
static_assert(offsetof(FecTableDataModelLogEntry, clientDest) == 8);
static_assert(offsetof(FecTableDataModelLogEntry, opaqueA) == 20);
static_assert(offsetof(FecTableDataModelLogEntry, opaqueB) == 24);
static_assert(offsetof(FecTableDataModelLogEntry, flagB) == 28);
static_assert(offsetof(FecTableDataModelLogEntry, resolvedDest) == 32);

// The resource keys that an entry holds while it is logged: its interface, which is the key of its
// destination in the resource table. Null: the entry needs no destination.
struct FecTableDataModelResourceKeys {
  Wirex::IntfId intfId;

  static constexpr bool isEq(const FecTableDataModelResourceKeys& a,
                             const FecTableDataModelResourceKeys& b) {
    return a.intfId == b.intfId;
  }
};
static_assert(sizeof(FecTableDataModelResourceKeys) == 8);

// Contents of one entry as a client writes and reads it: the logged fields, in the same order, and
// the interface that the entry leaves through.
//
// The opaque fields and the flags are carried unchanged; so is clientDest. resolvedDest is
// overwritten when the entry is committed.
struct FecTableDataModelEntry {
  FecTableDataModelEntryKey key;
  std::uint8_t flagA = 0;
  FecDestination clientDest;
  std::uint32_t opaqueA = 0;
  std::uint32_t opaqueB = 0;
  std::uint8_t flagB = 0;
  FecDestination resolvedDest;
  Wirex::IntfId intfId;  // null: the entry needs no destination

  static bool isEq(const FecTableDataModelEntry& a, const FecTableDataModelEntry& b);

  FecTableDataModelLogEntry logEntry() const;
  FecTableDataModelResourceKeys resourceKeys() const { return {intfId}; }
  static FecTableDataModelEntry fromLog(const FecTableDataModelLogEntry& logEntry,
                                        const FecTableDataModelResourceKeys& resourceKeys);
};

Pell::String valueToStrep(const FecTableDataModelEntryKey& key);  // decimal
Pell::String valueToStrep(const FecTableDataModelLogEntry& logEntry);
Pell::String valueToStrep(const FecTableDataModelEntry& entry);

}  // namespace LoamFec
