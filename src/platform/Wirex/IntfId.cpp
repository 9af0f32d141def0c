// SPDX-License-Identifier: Apache-2.0

#include "Wirex/IntfId.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include <fmt/format.h>

// fromName() tries the numbered form, then a word. Both attempts give either the packed value or
// the obstacle, so that the error of a name that fits nowhere can say why for each.
//
// name() unpacks and then packs the text again: only if that gives the same value was the value
// a possible one. So no field needs a check of its own, and no two values print the same name.

namespace Wirex {
namespace {

constexpr std::uint64_t kNumbered = 1;
constexpr std::uint64_t kLowerWord = 2;
constexpr std::uint64_t kWord = 3;

// What stands before the second, third and fourth number; "" ends the list.
using Joiners = std::array<std::string_view, 3>;

constexpr Joiners kFlat{};
constexpr Joiners kSlashes{"/", "/", "/"};
constexpr Joiners kChannels{"/", "/", ":"};
constexpr Joiners kSplit{"s"};
constexpr Joiners kBusSlot{"s", "f", "np"};
constexpr Joiners kSlot{"f", "np"};
constexpr Joiners kOnboard{"np"};

struct Prefix {
  std::string_view text;
  const Joiners& joiners;
};

// The row numbers are stored: rows are never moved, and a new row, which turns words into
// numbered names, needs a new format version of whatever stores identifiers.
constexpr Prefix kPrefixes[] = {
    // Switches.
    {"Ethernet", kSlashes},
    {"Port-Channel", kSlashes},
    {"Vlan", kFlat},
    {"Loopback", kFlat},
    {"Management", kSlashes},
    {"Tunnel", kFlat},
    {"Vxlan", kFlat},
    {"Null", kFlat},
    {"Recirc-Channel", kFlat},
    {"Switch", kSlashes},
    {"Cpu", kFlat},
    {"Fabric", kSlashes},
    {"Internal", kSlashes},
    {"Backplane", kSlashes},
    {"Eth", kSlashes},
    {"FastEthernet", kSlashes},
    {"GigabitEthernet", kSlashes},
    {"TwoGigabitEthernet", kSlashes},
    {"FiveGigabitEthernet", kSlashes},
    {"TenGigabitEthernet", kSlashes},
    {"TwentyFiveGigE", kSlashes},
    {"FortyGigabitEthernet", kSlashes},
    {"HundredGigabitEthernet", kSlashes},
    {"TenGigE", kSlashes},
    {"FortyGigE", kSlashes},
    {"FiftyGigE", kSlashes},
    {"HundredGigE", kSlashes},
    {"TwoHundredGigE", kSlashes},
    {"FourHundredGigE", kSlashes},
    {"EightHundredGigE", kSlashes},
    {"Bundle-Ether", kFlat},
    {"MgmtEth", kSlashes},
    {"BVI", kFlat},
    {"PortChannel", kFlat},
    {"port-channel", kFlat},
    {"loopback", kFlat},
    {"mgmt", kFlat},
    {"ge-", kChannels},
    {"xe-", kChannels},
    {"et-", kChannels},
    {"ae", kFlat},
    {"irb", kFlat},
    {"ethernet-", kSlashes},
    // Linux.
    {"lo", kFlat},
    {"eth", kFlat},
    {"swp", kSplit},
    {"veth", kFlat},
    {"vlan", kFlat},
    {"vxlan", kFlat},
    {"bond", kFlat},
    {"team", kFlat},
    {"br", kFlat},
    {"bridge", kFlat},
    {"virbr", kFlat},
    {"vnet", kFlat},
    {"docker", kFlat},
    {"dummy", kFlat},
    {"tap", kFlat},
    {"tun", kFlat},
    {"tunl", kFlat},
    {"gre", kFlat},
    {"gretap", kFlat},
    {"erspan", kFlat},
    {"sit", kFlat},
    {"ipvlan", kFlat},
    {"macvlan", kFlat},
    {"macvtap", kFlat},
    {"ifb", kFlat},
    {"vrf", kFlat},
    {"peerlink", kFlat},
    {"ppp", kFlat},
    {"wg", kFlat},
    {"wlan", kFlat},
    {"wwan", kFlat},
    {"usb", kFlat},
    {"enp", kBusSlot},
    {"ens", kSlot},
    {"eno", kOnboard},
    {"wlp", kBusSlot},
    {"ibp", kBusSlot},
    {"ibs", kSlot},
};
static_assert(std::size(kPrefixes) <= (1U << IntfId::kPrefix.bits));

// The numbers' fields in the order in which a name gives them, the sub-interface last.
constexpr std::array kNumberFields{IntfId::kFirstNumber, IntfId::kSecondNumber,
                                   IntfId::kThirdNumber, IntfId::kFourthNumber,
                                   IntfId::kSubInterface};
constexpr std::size_t kSubInterfaceIndex = 4;

// The lower-case words' alphabet is the part before the capitals.
constexpr std::string_view kAlphabet =
    "-_./:@+~#=0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::size_t kLowerAlphabetSize = kAlphabet.find('A');
static_assert(kLowerAlphabetSize == 46 && kAlphabet.size() == 72);

// Whether `length` digits of base `alphabetSize` + 1 fit the bits below the form.
constexpr bool wordFits(std::size_t alphabetSize, std::size_t length) {
  std::uint64_t room = std::uint64_t{1} << IntfId::kForm.shift;
  for (std::size_t i = 0; i < length; ++i) {
    room /= alphabetSize + 1;
  }
  return room > 0;
}
static_assert(wordFits(kLowerAlphabetSize, IntfId::kMaxLowerWord));
static_assert(!wordFits(kLowerAlphabetSize, IntfId::kMaxLowerWord + 1));
static_assert(wordFits(kAlphabet.size(), IntfId::kMaxWord));
static_assert(!wordFits(kAlphabet.size(), IntfId::kMaxWord + 1));

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool isPrefixText(std::string_view text) {
  return !text.empty() && std::ranges::none_of(text, [](char c) {
    return isDigit(c) || c == '.' || kAlphabet.find(c) == std::string_view::npos;
  });
}
static_assert(std::ranges::all_of(kPrefixes, isPrefixText, &Prefix::text));

constexpr bool prefixesAreDistinct() {
  for (const Prefix& prefix : kPrefixes) {
    if (std::ranges::count(kPrefixes, prefix.text, &Prefix::text) != 1) {
      return false;
    }
  }
  return true;
}
static_assert(prefixesAreDistinct());

constexpr std::size_t kMaxQuotedName = 40;

struct Attempt {
  std::optional<std::uint64_t> value;
  // Why there is no value; empty if the name does not even look like the form.
  Pell::String obstacle;
};

constexpr std::uint64_t put(IntfId::Field field, std::uint64_t value) {
  return value << field.shift;
}

constexpr std::uint64_t get(IntfId::Field field, std::uint64_t value) {
  return (value >> field.shift) & ((std::uint64_t{1} << field.bits) - 1);
}

// Takes the number that `rest` begins with into its field of `value`. False, with the obstacle,
// if it has leading zeros or is too large. `rest` must begin with a digit.
bool takeNumber(std::string_view& rest, IntfId::Field field, Attempt& attempt,
                std::uint64_t& value) {
  const auto digits = rest.substr(
      0, static_cast<std::size_t>(std::ranges::find_if_not(rest, isDigit) - rest.begin()));
  rest.remove_prefix(digits.size());
  if (digits.size() > 1 && digits.front() == '0') {
    attempt.obstacle =
        fmt::format("the number {} has leading zeros", digits.substr(0, kMaxQuotedName));
    return false;
  }
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || number > field.maximum()) {
    attempt.obstacle = fmt::format("the number {} is above {}, the largest at its place",
                                   digits.substr(0, kMaxQuotedName), field.maximum());
    return false;
  }
  value |= put(field, number + 1);
  return true;
}

bool beginsWithNumberAfter(std::string_view joiner, std::string_view rest) {
  return rest.starts_with(joiner) && rest.size() > joiner.size() && isDigit(rest[joiner.size()]);
}

Attempt packNumbered(std::string_view name) {
  Attempt attempt;
  const auto textEnd = std::ranges::find_if(name, [](char c) { return isDigit(c) || c == '.'; });
  std::string_view rest = name.substr(static_cast<std::size_t>(textEnd - name.begin()));
  const auto text = name.substr(0, name.size() - rest.size());
  const auto* const row = std::ranges::find(kPrefixes, text, &Prefix::text);
  if (row == std::end(kPrefixes)) {
    return attempt;
  }
  std::uint64_t value = put(IntfId::kForm, kNumbered) |
                        put(IntfId::kPrefix, static_cast<std::uint64_t>(row - kPrefixes));
  for (std::size_t i = 0; i < kNumberFields.size(); ++i) {
    std::string_view joiner;
    if (i == kSubInterfaceIndex) {
      joiner = ".";
    } else if (i > 0) {
      joiner = row->joiners[i - 1];
    }
    const bool isPlace = i == 0 || !joiner.empty();
    if (isPlace && beginsWithNumberAfter(joiner, rest)) {
      rest.remove_prefix(joiner.size());
      if (!takeNumber(rest, kNumberFields[i], attempt, value)) {
        return attempt;
      }
    }
  }
  if (rest.empty()) {
    attempt.value = value;
  } else {
    attempt.obstacle = fmt::format("{:?} cannot follow {:?}", rest.substr(0, kMaxQuotedName),
                                   name.substr(0, name.size() - rest.size()));
  }
  return attempt;
}

std::optional<Pell::String> unpackNumbered(std::uint64_t value) {
  const std::uint64_t row = get(IntfId::kPrefix, value);
  if (row >= std::size(kPrefixes)) {
    return std::nullopt;
  }
  const Prefix& prefix = kPrefixes[row];
  Pell::String name(prefix.text);
  for (std::size_t i = 0; i < kNumberFields.size(); ++i) {
    const std::uint64_t stored = get(kNumberFields[i], value);
    if (stored == 0) {
      continue;
    }
    if (i == kSubInterfaceIndex) {
      name += '.';
    } else if (i > 0) {
      name += prefix.joiners[i - 1];
    }
    name += std::to_string(stored - 1);
  }
  return name;
}

bool hasCapital(std::string_view name) {
  return std::ranges::any_of(name, [](char c) { return c >= 'A' && c <= 'Z'; });
}

Attempt packWord(std::string_view name) {
  Attempt attempt;
  const bool mixed = hasCapital(name);
  const std::size_t length = mixed ? IntfId::kMaxWord : IntfId::kMaxLowerWord;
  const std::uint64_t base = (mixed ? kAlphabet.size() : kLowerAlphabetSize) + 1;
  const auto strange = name.find_first_not_of(kAlphabet);
  if (strange != std::string_view::npos) {
    attempt.obstacle = fmt::format("character {} is {:?}", strange + 1, name.substr(strange, 1));
    return attempt;
  }
  if (name.size() > length) {
    attempt.obstacle = fmt::format("{} characters are more than the {} of a word {} capitals",
                                   name.size(), length, mixed ? "with" : "without");
    return attempt;
  }
  std::uint64_t digits = 0;
  for (std::size_t i = 0; i < length; ++i) {
    digits = digits * base + (i < name.size() ? kAlphabet.find(name[i]) + 1 : 0);
  }
  attempt.value = put(IntfId::kForm, mixed ? kWord : kLowerWord) | digits;
  return attempt;
}

Pell::String unpackWord(std::uint64_t value, std::size_t alphabetSize, std::size_t length) {
  std::uint64_t digits = value & ((std::uint64_t{1} << IntfId::kForm.shift) - 1);
  Pell::String name;
  for (std::size_t i = 0; i < length; ++i) {
    const std::uint64_t digit = digits % (alphabetSize + 1);
    digits /= alphabetSize + 1;
    if (digit > 0) {
      name += kAlphabet[digit - 1];
    }
  }
  std::ranges::reverse(name);
  return name;
}

std::optional<Pell::String> unpack(std::uint64_t value) {
  switch (get(IntfId::kForm, value)) {
    case kNumbered:
      return unpackNumbered(value);
    case kLowerWord:
      return unpackWord(value, kLowerAlphabetSize, IntfId::kMaxLowerWord);
    case kWord:
      return unpackWord(value, kAlphabet.size(), IntfId::kMaxWord);
    default:
      return Pell::String();
  }
}

// The value of a name that fits.
std::optional<std::uint64_t> pack(std::string_view name, Attempt& numbered, Attempt& word) {
  if (name.empty()) {
    return 0;
  }
  numbered = packNumbered(name);
  if (numbered.value) {
    return numbered.value;
  }
  word = packWord(name);
  return word.value;
}

}  // namespace

IntfId IntfId::fromName(std::string_view name) {
  Attempt numbered;
  Attempt word;
  const auto value = pack(name, numbered, word);
  if (value) {
    return fromValue(*value);
  }
  throw IntfNameError(fmt::format(
      "interface name {:?}{} does not fit: {}{}{}; what fits is a known prefix with numbers and a "
      "sub-interface (Ethernet3/1/2.100, swp1s0, enp3s0f0np1), or a word of up to {} characters, "
      "{} with capitals, of letters, digits and {}",
      name.substr(0, kMaxQuotedName), name.size() > kMaxQuotedName ? "..." : "", numbered.obstacle,
      numbered.obstacle.empty() ? "" : ", and as a word ", word.obstacle, kMaxLowerWord, kMaxWord,
      kAlphabet.substr(0, kAlphabet.find('0'))));
}

Pell::String IntfId::name() const {
  if (auto name = unpack(value_)) {
    Attempt numbered;
    Attempt word;
    if (pack(*name, numbered, word) == value_) {
      return *std::move(name);
    }
  }
  return fmt::format("invalid({:#018x})", value_);
}

Pell::String valueToStrep(IntfId id) { return id.name(); }

}  // namespace Wirex
