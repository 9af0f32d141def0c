// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include <fmt/core.h>

#include "Pell/String.h"

namespace Wirex {

// A name that IntfId cannot hold. what() quotes the name, says what does not fit and what would.
class IntfNameError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The name of an interface, packed into 64 bits by arithmetic alone: no table of names seen so
// far, no state. So any process prints an identifier that it found in shared memory without
// asking who wrote it.
//
// Kind: trivially copyable value, 8 bytes.
// Ownership: none.
// Threads: as a plain integer.
// Invariants: an identifier made by fromName() prints exactly the name it was made from, and
//   distinct names have distinct values. The null interface is the value 0 and the empty name.
//
// Layout: bits 63..62 are the form.
//
//   form 0   null: all other bits are 0.
//
//   form 1   numbered: a known prefix, up to four numbers, a sub-interface.
//            61..54  prefix: its row in the table of IntfId.cpp
//            53..34  first number       20 bits, at most 1048574   Ethernet[3]/1/2.100
//            33..26  second number       8 bits, at most     254   Ethernet3/[1]/2.100
//            25..19  third number        7 bits, at most     126   Ethernet3/1/[2].100
//            18..13  fourth number       6 bits, at most      62   et-0/0/4:[1]
//            12..0   sub-interface      13 bits, at most    8190   Ethernet3/1/2.[100]
//            Each of the five holds its number plus one, or 0 for a number that is not there.
//            The row of the prefix says what stands before the second to fourth number
//            ("/" in Ethernet3/1/2, "s" in swp1s0, "s", "f", "np" in enp3s0f0np1).
//
//   form 2   lower-case word: up to 11 characters of - _ . / : @ + ~ # = 0-9 a-z
//   form 3   word with capitals: up to 10 characters of those and A-Z
//            61..0   the characters as digits of base 47 (form 2) or 73 (form 3), the first
//                    character most significant, a character counting from 1 in the order
//                    above, 0 past the end of the word.
//
// A name takes the lowest form that holds it; a number written with leading zeros (eth01) is no
// number, so such a name is a word or does not fit. A value that fromName() never makes (an
// unknown row, a word that has a numbered form, ...) is impossible and prints as "invalid(0x...)".
//
// Order: numbered names sort by prefix row, then by their numbers; words sort by characters.
class IntfId {
 public:
  struct Field {
    unsigned shift;
    unsigned bits;
    // Largest number that the field holds, one being added to tell 0 from "not there".
    constexpr std::uint64_t maximum() const { return (std::uint64_t{1} << bits) - 2; }
  };

  static constexpr Field kForm{62, 2};
  static constexpr Field kPrefix{54, 8};
  static constexpr Field kFirstNumber{34, 20};
  static constexpr Field kSecondNumber{26, 8};
  static constexpr Field kThirdNumber{19, 7};
  static constexpr Field kFourthNumber{13, 6};
  static constexpr Field kSubInterface{0, 13};
  static constexpr std::size_t kMaxLowerWord = 11;
  static constexpr std::size_t kMaxWord = 10;

  constexpr IntfId() = default;

  // Throws IntfNameError if the name does not fit. The empty name gives the null interface.
  static IntfId fromName(std::string_view name);

  // Takes any value, as read from shared memory; an impossible one compares and prints safely.
  static constexpr IntfId fromValue(std::uint64_t value) {
    IntfId id;
    id.value_ = value;
    return id;
  }

  constexpr std::uint64_t value() const { return value_; }
  constexpr bool isNull() const { return value_ == 0; }

  // The name as given to fromName(), "" for the null interface.
  Pell::String name() const;

  friend constexpr bool operator==(IntfId, IntfId) = default;
  friend constexpr std::strong_ordering operator<=>(IntfId a, IntfId b) {
    return a.value_ <=> b.value_;
  }

 private:
  std::uint64_t value_ = 0;
};

static_assert(sizeof(IntfId) == 8);
static_assert(std::is_trivially_copyable_v<IntfId>);
static_assert(std::is_standard_layout_v<IntfId>);
static_assert(IntfId().value() == 0);
static_assert(IntfId::kForm.shift + IntfId::kForm.bits == 64);
static_assert(IntfId::kPrefix.shift + IntfId::kPrefix.bits == IntfId::kForm.shift);
static_assert(IntfId::kFirstNumber.shift + IntfId::kFirstNumber.bits == IntfId::kPrefix.shift);
static_assert(IntfId::kSecondNumber.shift + IntfId::kSecondNumber.bits ==
              IntfId::kFirstNumber.shift);
static_assert(IntfId::kThirdNumber.shift + IntfId::kThirdNumber.bits ==
              IntfId::kSecondNumber.shift);
static_assert(IntfId::kFourthNumber.shift + IntfId::kFourthNumber.bits ==
              IntfId::kThirdNumber.shift);
static_assert(IntfId::kSubInterface.shift + IntfId::kSubInterface.bits ==
              IntfId::kFourthNumber.shift);
static_assert(IntfId::kSubInterface.shift == 0);

Pell::String valueToStrep(IntfId id);

}  // namespace Wirex

template <>
struct std::hash<Wirex::IntfId> {
  std::size_t operator()(Wirex::IntfId id) const noexcept {
    return std::hash<std::uint64_t>()(id.value());
  }
};

template <>
struct fmt::formatter<Wirex::IntfId> : fmt::formatter<fmt::string_view> {
  template <typename Context>
  auto format(Wirex::IntfId id, Context& context) const {
    return fmt::formatter<fmt::string_view>::format(id.name(), context);
  }
};
