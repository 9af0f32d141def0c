// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "Pell/Strep.h"
#include "Pell/String.h"
#include "Zev/Hash.h"

// Value types by which the ordered-table framework counts, names and marks things. All are plain
// values, copied freely.

namespace Asic {

// Position of one operation in a table's entry log. 0 is the invalid version: nothing logged.
class LogVersion {
 public:
  constexpr LogVersion() = default;
  constexpr explicit LogVersion(std::uint64_t value) : value_(value) {}

  constexpr std::uint64_t value() const { return value_; }
  friend constexpr auto operator<=>(LogVersion, LogVersion) = default;

 private:
  std::uint64_t value_ = 0;
};

// Generation number of whole-table operations; all ones is the invalid one. Arithmetic is that of
// unsigned 64 bits: 0 - 1 is the invalid value.
class MajorVersion {
 public:
  constexpr MajorVersion() = default;
  constexpr explicit MajorVersion(std::uint64_t value) : value_(value) {}

  constexpr bool valid() const { return value_ != kInvalid; }
  constexpr std::uint64_t value() const { return value_; }
  friend constexpr bool operator==(MajorVersion, MajorVersion) = default;
  friend constexpr MajorVersion operator+(MajorVersion version, std::uint64_t steps) {
    return MajorVersion(version.value_ + steps);
  }
  friend constexpr MajorVersion operator-(MajorVersion version, std::uint64_t steps) {
    return MajorVersion(version.value_ - steps);
  }

 private:
  static constexpr std::uint64_t kInvalid = ~std::uint64_t{0};
  std::uint64_t value_ = kInvalid;
};

// Version of one queued entry operation: a 64-bit part that counts, and a 16-bit part. The zero
// version is valid; a 64-bit part of all ones is the invalid one.
class EntryVersion {
 public:
  constexpr EntryVersion() = default;
  constexpr EntryVersion(std::uint64_t major, std::uint16_t minor) : major_(major), minor_(minor) {}

  constexpr bool valid() const { return major_ != ~std::uint64_t{0}; }
  constexpr std::uint64_t major() const { return major_; }
  constexpr std::uint16_t minor() const { return minor_; }
  static constexpr bool isEq(const EntryVersion& a, const EntryVersion& b) {
    return a.major_ == b.major_ && a.minor_ == b.minor_;
  }

 private:
  std::uint64_t major_ = 0;
  std::uint16_t minor_ = 0;
};

// Software table within all agents: agent (bits 31 to 24), group (23 to 16), table (15 to 0).
class SwTableId {
 public:
  constexpr SwTableId() = default;
  constexpr explicit SwTableId(std::uint32_t value) : value_(value) {}

  constexpr std::uint32_t value() const { return value_; }
  constexpr std::uint8_t agentId() const { return static_cast<std::uint8_t>(value_ >> 24); }
  constexpr std::uint8_t groupId() const { return static_cast<std::uint8_t>(value_ >> 16); }
  constexpr std::uint16_t tblId() const { return static_cast<std::uint16_t>(value_); }
  // Agent in the high byte, group in the low one.
  constexpr std::uint16_t agentAndGroupId() const {
    return static_cast<std::uint16_t>(value_ >> 16);
  }
  friend constexpr auto operator<=>(SwTableId, SwTableId) = default;

 private:
  std::uint32_t value_ = 0;
};

// The table has been applied (or must have been applied) up to that log version.
class TableVersion {
 public:
  constexpr TableVersion() = default;
  constexpr TableVersion(SwTableId tableId, LogVersion logVersion)
      : tableId_(tableId), logVersion_(logVersion) {}

  constexpr SwTableId tableId() const { return tableId_; }
  constexpr LogVersion logVersion() const { return logVersion_; }
  friend constexpr bool operator==(const TableVersion&, const TableVersion&) = default;

 private:
  SwTableId tableId_;
  LogVersion logVersion_;
};

// Unit (ASIC instance) number.
class UnitId {
 public:
  constexpr UnitId() = default;
  constexpr explicit UnitId(std::uint16_t value) : value_(value) {}

  constexpr std::uint16_t value() const { return value_; }
  friend constexpr auto operator<=>(UnitId, UnitId) = default;

 private:
  std::uint16_t value_ = 0;
};

// Kind of a queued operation: 0 a write, 1 an entry delete, 2 a table delete.
class EntryFlags {
 public:
  constexpr EntryFlags() = default;
  constexpr explicit EntryFlags(std::uint8_t value) : value_(value) {}

  static constexpr EntryFlags write() { return EntryFlags(0); }
  static constexpr EntryFlags entryDelete() { return EntryFlags(1); }
  static constexpr EntryFlags tableDelete() { return EntryFlags(2); }

  constexpr std::uint8_t value() const { return value_; }
  friend constexpr bool operator==(EntryFlags, EntryFlags) = default;

 private:
  std::uint8_t value_ = 0;
};

// State of an entry handle. Only the numbers matter; a handle may carry a number that has no name.
enum class EntryState : std::uint8_t {
  notResolved = 0,       // queued
  hwWritePending = 1,    // in the entry log
  dependencyFailed = 2,  // failed before it could be logged
  done = 3,              // its log version has been applied
  commitFailed = 4,      // refused by the commit
  resourceFailed = 5,    // its resource is in failure
};

// Kinds of table of the framework.
enum class OrderedTableType : std::uint8_t {
  orderedSwTable = 0,
  partiallyOrderedSwTable = 1,
  resourceTable = 2,
};

Pell::String valueToStrep(LogVersion version);                // decimal
Pell::String valueToStrep(MajorVersion version);              // decimal
Pell::String valueToStrep(const EntryVersion& version);       // major.minor
Pell::String valueToStrep(SwTableId id);                      // aa:gg:tttt, hexadecimal
Pell::String valueToStrep(const TableVersion& tableVersion);  // aa:gg:tttt@version
Pell::String valueToStrep(UnitId unitId);                     // decimal
Pell::String valueToStrep(EntryState state);                  // decimal
std::ostream& operator<<(std::ostream& stream, EntryState state);

// Hash function objects of maps keyed by these types, each map with its own salt.
struct UnitIdBits {
  std::uint16_t operator()(UnitId unitId) const { return unitId.value(); }
};
struct SwTableIdBits {
  std::uint32_t operator()(SwTableId id) const { return id.value(); }
};
template <std::uint32_t kSalt>
using UnitIdHash = Zev::SaltedHash<kSalt, UnitIdBits>;
template <std::uint32_t kSalt>
using SwTableIdHash = Zev::SaltedHash<kSalt, SwTableIdBits>;

}  // namespace Asic
