// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Wirex/IntfId.h"

namespace Wirex {
namespace {

using ::testing::HasSubstr;

constexpr std::uint64_t kSeed = 20240917;

// The message of the error that the name gives, "" if it fits.
std::string errorOf(std::string_view name) {
  try {
    IntfId::fromName(name);
    return "";
  } catch (const IntfNameError& error) {
    return error.what();
  }
}

// Packs a name if it fits and checks that it prints back; tells whether it did fit.
bool fitsAndPrintsBack(const std::string& name, std::map<std::uint64_t, std::string>& nameOfValue) {
  try {
    const IntfId id = IntfId::fromName(name);
    EXPECT_EQ(id.name(), name);
    const auto known = nameOfValue.emplace(id.value(), name).first;
    EXPECT_EQ(known->second, name) << "another name has this value";
    return true;
  } catch (const IntfNameError&) {
    return false;
  }
}

const std::vector<std::string> kEverydayNames = {
    "Ethernet1",
    "Ethernet3/1/2",
    "Ethernet3/1/2.100",
    "Ethernet101/1/1",
    "Ethernet1.1",
    "Ethernet36/8.4094",
    "Port-Channel10",
    "Port-Channel10.100",
    "Port-Channel999999",
    "Vlan1",
    "Vlan4094",
    "Loopback0",
    "Loopback2000",
    "Management1",
    "Management1/1",
    "Management0",
    "Tunnel0",
    "Tunnel65535",
    "Vxlan1",
    "Null0",
    "Recirc-Channel",
    "Recirc-Channel1",
    "Recirc-Channel627.2",
    "Switch",
    "Switch1",
    "Switch1/11/1",
    "Cpu",
    "Fabric1/2/3",
    "Eth1/1/1.100",
    "Et3/1/2",
    "Po10",
    "Vl100",
    "GigabitEthernet0/0/0/1",
    "GigabitEthernet1/0/48.4094",
    "HundredGigE0/0/0/62.100",
    "Bundle-Ether100.200",
    "MgmtEth0/0",
    "et-0/0/47",
    "xe-11/3/47:3.4094",
    "ge-0/0/0.0",
    "ae12.100",
    "irb.4094",
    "irb",
    "ethernet-1/48",
    "PortChannel12",
    "Ethernet0",
    "lo",
    "lo.100",
    "lo0",
    "eth0",
    "eth1",
    "eth1.100",
    "eth1000.4094",
    "swp1",
    "swp1s0",
    "swp1s0.100",
    "swp54s3.4094",
    "veth12",
    "veth12.100",
    "veth0a1b2c3",
    "bond0",
    "bond0.100",
    "br0",
    "br0.100",
    "br-lan",
    "vlan10",
    "vlan4094",
    "vlan10.100",
    "vxlan100",
    "vxlan1048574.8190",
    "dummy0",
    "dummy0.100",
    "tap0",
    "tap0.100",
    "tun0",
    "tun0.100",
    "ens3",
    "ens3.100",
    "ens3f0np1",
    "ens3f0np1.100",
    "ens3np0",
    "enp0s31f6",
    "enp0s31f6.100",
    "enp130s0f1np1",
    "enp130s0f1np1.4094",
    "enp3s0np0.100",
    "eno1",
    "eno1.100",
    "eno1np0.100",
    "wlp3s0",
    "wlan0",
    "docker0",
    "virbr0",
    "wg0",
    "tunl0",
    "gre0",
    "sit0",
    "ip6tnl0",
    "ip6tnl0.100",
    "flannel.1",
    "cni0",
    "mgmt0",
    "eth0:1",
    "vrf-blue",
    "a",
    "0",
    "-",
    "1.2.3",
    "UPLINK",
    "Uplink_1",
    "tap+x~y#z=",
};

TEST(IntfId, NamesThatSwitchesAndLinuxUsePrintBackExactly) {
  for (const auto& name : kEverydayNames) {
    EXPECT_EQ(errorOf(name), "");
    EXPECT_EQ(IntfId::fromName(name).name(), name);
  }
}

TEST(IntfId, DistinctNamesHaveDistinctValuesOfWhichNoneIsNull) {
  std::set<std::uint64_t> values;
  for (const auto& name : kEverydayNames) {
    values.insert(IntfId::fromName(name).value());
  }
  EXPECT_EQ(values.size(), kEverydayNames.size());
  EXPECT_FALSE(values.contains(0));
}

TEST(IntfId, TheEmptyNameIsTheNullInterfaceWithValueZero) {
  EXPECT_EQ(IntfId::fromName("").value(), 0U);
  EXPECT_EQ(IntfId::fromName(""), IntfId());
  EXPECT_TRUE(IntfId().isNull());
  EXPECT_EQ(IntfId().name(), "");
  EXPECT_EQ(valueToStrep(IntfId()), "");
  EXPECT_FALSE(IntfId::fromName("eth1").isNull());
}

// The values are stored in files: a change here is a change of format.
TEST(IntfId, ValuesAreThoseOfTheDocumentedLayout) {
  const auto numbered = [](std::uint64_t row, std::uint64_t first, std::uint64_t second,
                           std::uint64_t third, std::uint64_t fourth, std::uint64_t sub) {
    return (std::uint64_t{1} << 62) | (row << 54) | (first << 34) | (second << 26) | (third << 19) |
           (fourth << 13) | sub;
  };
  EXPECT_EQ(IntfId::fromName("Ethernet").value(), numbered(0, 0, 0, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("Ethernet3/1/2.100").value(), numbered(0, 4, 2, 3, 0, 101));
  EXPECT_EQ(IntfId::fromName("Port-Channel10").value(), numbered(1, 11, 0, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("TenGigE0/1/2/3").value(), numbered(23, 1, 2, 3, 4, 0));
  EXPECT_EQ(IntfId::fromName("lo").value(), numbered(43, 0, 0, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("eth1").value(), numbered(44, 2, 0, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("swp1s0").value(), numbered(45, 2, 1, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("enp3s0np1").value(), numbered(75, 4, 1, 0, 2, 0));
  EXPECT_EQ(IntfId::fromName("ibs3").value(), numbered(80, 4, 0, 0, 0, 0));
  EXPECT_EQ(IntfId::fromName("-----------").value(), 0x80be'ee9a'338c'c011U);
}

TEST(IntfId, NumbersFitUpToTheMaximumOfTheirPlaceAndNoFurther) {
  const std::vector<std::pair<std::string, std::string>> fittingAndNot = {
      {"Port-Channel1048574", "Port-Channel1048575"},
      {"Ethernet1/254/1", "Ethernet1/255/1"},
      {"Ethernet1/1/126", "Ethernet1/1/127"},
      {"GigabitEthernet0/0/0/62", "GigabitEthernet0/0/0/63"},
      {"Ethernet3/1/2.8190", "Ethernet3/1/2.8191"},
      {"enp1048574s254f126np62.8190", "enp1048574s254f126np63.8190"},
  };
  for (const auto& [fitting, tooLarge] : fittingAndNot) {
    EXPECT_EQ(IntfId::fromName(fitting).name(), fitting);
    EXPECT_THAT(errorOf(tooLarge), HasSubstr("the largest at its place")) << tooLarge;
  }
}

TEST(IntfId, WordsFitUpToTheirMaximumLengthAndNoFurther) {
  for (const char c : std::string_view("-_./:@+~#=09az")) {
    const std::string word(IntfId::kMaxLowerWord, c);
    EXPECT_EQ(IntfId::fromName(word).name(), word);
    EXPECT_NE(errorOf(word + c), "");
  }
  for (const char c : std::string_view("AMZ")) {
    const std::string word(IntfId::kMaxWord, c);
    EXPECT_EQ(IntfId::fromName(word).name(), word);
    EXPECT_NE(errorOf(word + c), "");
  }
}

TEST(IntfId, NumbersTooLargeForTheirPlacePrintBackFromAShortWord) {
  for (const std::string name : {"eth9999999", "eth1.10000", "lo.8191", "Eth1/255/1"}) {
    EXPECT_EQ(IntfId::fromName(name).name(), name);
  }
}

TEST(IntfId, LeadingZerosPrintBackFromAShortWordAndAreAnErrorOtherwise) {
  for (const std::string name : {"eth01", "eth00", "Ethernet01", "swp1s00", "eth1.0100"}) {
    EXPECT_EQ(IntfId::fromName(name).name(), name);
  }
  EXPECT_NE(IntfId::fromName("eth01"), IntfId::fromName("eth1"));
  EXPECT_THAT(errorOf("Ethernet3/01/2"), HasSubstr("the number 01 has leading zeros"));
  EXPECT_THAT(errorOf("Port-Channel0001"), HasSubstr("the number 0001 has leading zeros"));
}

TEST(IntfId, TheErrorOfAnUnknownLongNameSaysWhatIsWrongAndWhatFits) {
  EXPECT_EQ(errorOf("enx001122334455"),
            "interface name \"enx001122334455\" does not fit: 15 characters are more than the 11 "
            "of a word without capitals; what fits is a known prefix with numbers and a "
            "sub-interface (Ethernet3/1/2.100, swp1s0, enp3s0f0np1), or a word of up to 11 "
            "characters, 10 with capitals, of letters, digits and -_./:@+~#=");
}

TEST(IntfId, TheErrorOfAKnownPrefixSaysWhyNeitherFormHoldsTheName) {
  EXPECT_THAT(errorOf("Port-Channel1048575"),
              HasSubstr("does not fit: the number 1048575 is above 1048574, the largest at its "
                        "place, and as a word 19 characters are more than the 10 of a word with "
                        "capitals; what fits"));
  EXPECT_THAT(errorOf("Ethernet3/1/2/3/4"),
              HasSubstr("does not fit: \"/4\" cannot follow \"Ethernet3/1/2/3\", and as a word"));
  EXPECT_THAT(errorOf("Ethernet1/uplink"),
              HasSubstr("does not fit: \"/uplink\" cannot follow \"Ethernet1\", and as a word"));
  EXPECT_THAT(errorOf("Port-Channel99999999999999999999999"),
              HasSubstr("the number 99999999999999999999999 is above 1048574"));
}

TEST(IntfId, TheErrorOfAStrangeCharacterShowsItEscaped) {
  EXPECT_THAT(errorOf("eth 1"), HasSubstr("character 4 is \" \""));
  EXPECT_THAT(errorOf("a\nb"), HasSubstr("interface name \"a\\nb\" does not fit: character 2 is "
                                         "\"\\n\""));
  EXPECT_THAT(errorOf(std::string_view("a\0b", 3)), HasSubstr("character 2 is \"\\x00\""));
  EXPECT_THAT(errorOf("\xc3\xa9th0"), HasSubstr("character 1 is \"\\xc3\""));
}

TEST(IntfId, TheErrorOfAHugeNameIsShort) {
  const std::string message = errorOf(std::string(1'000'000, 'x'));
  EXPECT_THAT(message, HasSubstr("xxx\"... does not fit: 1000000 characters"));
  EXPECT_LT(message.size(), 400U);
  EXPECT_LT(errorOf("eth" + std::string(1'000'000, '9')).size(), 500U);
}

TEST(IntfId, ImpossibleValuesPrintSafely) {
  const std::uint64_t numbered = std::uint64_t{1} << 62;
  const std::vector<std::uint64_t> impossible = {
      1,                                                 // form 0, not null
      0x3fff'ffff'ffff'ffff,                             // form 0, all bits
      numbered | (std::uint64_t{255} << 54),             // no such prefix
      numbered | (std::uint64_t{81} << 54),              // one past the last prefix
      numbered | (std::uint64_t{2} << 26),               // a second number without a first
      numbered | (std::uint64_t{2} << 34) | (2U << 19),  // a hole that its text cannot show
      numbered | (std::uint64_t{2} << 54) | (2ULL << 34) | (2ULL << 26),  // Vlan has no second
      std::uint64_t{2} << 62,                                             // word without characters
      (std::uint64_t{2} << 62) | 1,  // word that begins with a hole
      0xbfff'ffff'ffff'ffff,         // above 11 digits of base 47
      0xffff'ffff'ffff'ffff,         // above 10 digits of base 73
  };
  for (const std::uint64_t value : impossible) {
    const IntfId id = IntfId::fromValue(value);
    EXPECT_EQ(id.name(), fmt::format("invalid(0x{:016x})", value));
    EXPECT_EQ(id.value(), value);
    EXPECT_NE(errorOf(id.name()), "");
  }
}

TEST(IntfId, TheWordOfANumberedNameIsImpossible) {
  // Of the words, esh1, eth1 and euh1 would lie at equal distances.
  const auto word = [](std::string_view name) { return IntfId::fromName(name).value(); };
  const std::uint64_t step = (word("euh1") - word("esh1")) / 2;
  const IntfId twin = IntfId::fromValue(word("esh1") + step);
  EXPECT_NE(twin, IntfId::fromName("eth1"));
  EXPECT_THAT(twin.name(), HasSubstr("invalid(0x"));
}

TEST(IntfId, OrderPutsInterfacesOfAPrefixInTheOrderOfTheirNumbers) {
  const std::vector<std::string> ordered = {
      "Ethernet",  "Ethernet1",  "Ethernet1.1",   "Ethernet1/1", "Ethernet1/2", "Ethernet1/2/1",
      "Ethernet2", "Ethernet10", "Port-Channel1", "a",           "aa",          "b"};
  for (std::size_t i = 1; i < ordered.size(); ++i) {
    EXPECT_LT(IntfId::fromName(ordered[i - 1]), IntfId::fromName(ordered[i])) << ordered[i];
  }
}

TEST(IntfId, HashAndFormatterFollowTheValueAndTheName) {
  std::unordered_set<IntfId> ids;
  for (const auto& name : kEverydayNames) {
    ids.insert(IntfId::fromName(name));
    ids.insert(IntfId::fromName(name));
  }
  EXPECT_EQ(ids.size(), kEverydayNames.size());
  EXPECT_EQ(fmt::format("[{}] [{:>8}]", IntfId::fromName("swp1s0"), IntfId::fromName("eth1")),
            "[swp1s0] [    eth1]");
  EXPECT_EQ(valueToStrep(IntfId::fromName("Vlan4094")), "Vlan4094");
}

// Names of a random shape: prefixes known and made up, numbers near the bounds and with leading
// zeros, all joiners, sub-interfaces, stray characters.
class NameGenerator {
 public:
  std::string next() {
    static const std::vector<std::string> kTexts = {
        "Ethernet", "Port-Channel", "Vlan",           "et-", "swp", "enp", "ens", "eno",    "eth",
        "lo",       "foo",          "Recirc-Channel", "Foo", "x",   "",    "e",   "TenGigE"};
    static const std::vector<std::string> kJoiners = {"/", ":", "s", "f", "np", ".", "n", "p", "-"};
    std::string name = pick(kTexts);
    const std::size_t numbers = below(6);
    for (std::size_t i = 0; i < numbers; ++i) {
      if (i > 0 || below(8) == 0) {
        name += pick(kJoiners);
      }
      name += number();
    }
    if (below(3) == 0) {
      name.append(".").append(number());
    }
    return name;
  }

  std::string nextWord() {
    static const std::string kCharacters =
        "-_./:@+~#=0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ *\xff";
    const std::size_t choices = below(2) == 0 ? 46 : kCharacters.size();
    std::string name;
    for (std::size_t i = below(13); i > 0; --i) {
      name += kCharacters[below(choices)];
    }
    return name;
  }

  std::size_t below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }
  std::uint64_t bits() { return random_(); }

 private:
  std::string pick(const std::vector<std::string>& choices) {
    return choices[below(choices.size())];
  }

  std::string number() {
    static const std::vector<std::uint64_t> kNear = {0, 62, 126, 254, 8190, 1048574};
    const std::string zeros(below(10) == 0 ? below(3) : 0, '0');
    const std::uint64_t value = below(2) == 0 ? below(200) : kNear[below(kNear.size())] + below(3);
    return zeros + std::to_string(value);
  }

  std::mt19937_64 random_{kSeed};
};

TEST(IntfId, WhateverNameIsAcceptedPrintsBackAndSharesItsValueWithNoOther) {
  std::cout << "seed " << kSeed << '\n';
  NameGenerator generator;
  std::map<std::uint64_t, std::string> nameOfValue;
  int accepted = 0;
  for (int i = 0; i < 30'000; ++i) {
    accepted += fitsAndPrintsBack(generator.next(), nameOfValue) ? 1 : 0;
    accepted += fitsAndPrintsBack(generator.nextWord(), nameOfValue) ? 1 : 0;
  }
  EXPECT_GT(accepted, 15'000);
  EXPECT_LT(accepted, 57'000);
}

TEST(IntfId, EveryNameOfUpToTwoCharactersPrintsBack) {
  constexpr std::string_view kCharacters =
      "-_./:@+~#=0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::unordered_set<IntfId> ids;
  std::size_t names = 0;
  const auto check = [&](const std::string& name) {
    const IntfId id = IntfId::fromName(name);
    ASSERT_EQ(id.name(), name);
    ids.insert(id);
    ++names;
  };
  for (const char a : kCharacters) {
    check({a});
    for (const char b : kCharacters) {
      check({a, b});
    }
  }
  EXPECT_EQ(ids.size(), names);
}

TEST(IntfId, EveryValueEitherIsTheOneOfItsNameOrPrintsAsInvalid) {
  std::cout << "seed " << kSeed << '\n';
  NameGenerator generator;
  int possible = 0;
  for (int i = 0; i < 60'000; ++i) {
    std::uint64_t value = generator.bits();
    if (i % 2 == 0) {
      // Near a real value: one bit of it flipped.
      const auto& name = kEverydayNames[generator.below(kEverydayNames.size())];
      value = IntfId::fromName(name).value() ^ (std::uint64_t{1} << generator.below(64));
    }
    const std::string name = IntfId::fromValue(value).name();
    if (name.starts_with("invalid(")) {
      continue;
    }
    ++possible;
    ASSERT_EQ(IntfId::fromName(name).value(), value) << name;
  }
  EXPECT_GT(possible, 3'000);
}

}  // namespace
}  // namespace Wirex
