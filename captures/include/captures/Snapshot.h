// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Wirex/IntfId.h"

namespace Captures {

// A file that cannot be used. what() reads "<file>:<line>:<column>: <what is wrong>; <what to do>",
// without line and column if the file could not be read at all.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The limits of one file; a file beyond them is an InputError.
struct InputLimits {
  // Links or next hops in a file.
  std::size_t maxElements = std::size_t{1} << 20;
  // Bytes of one of them, white space before it included. This bounds the reader's memory
  // whatever the file holds; a group of 65535 members takes less than half of it.
  std::size_t maxElementBytes = std::size_t{4} << 20;
  // Arrays and objects within each other, the file's outer array included.
  std::size_t maxDepth = 32;
};

// One network interface. It is up if its operational state is UP, or if that is UNKNOWN (the
// driver keeps none: loopback, dummy and tunnel interfaces) and both flags UP and LOWER_UP are
// set: started by the operator, and its carrier is there. Every other state (DOWN,
// LOWERLAYERDOWN, DORMANT, TESTING, NOTPRESENT) passes no packet and counts as down.
struct Link {
  std::string name;
  Wirex::IntfId intf;
  bool isUp = false;

  friend bool operator==(const Link&, const Link&) = default;
};

// One next hop that leaves through an interface, with an IPv4 gateway or none.
struct NextHop {
  static constexpr std::uint8_t kFlagDead = 1;
  static constexpr std::uint8_t kFlagPervasive = 2;
  static constexpr std::uint8_t kFlagOnlink = 4;
  static constexpr std::uint8_t kFlagOffload = 8;
  static constexpr std::uint8_t kFlagLinkdown = 16;
  static constexpr std::uint8_t kFlagUnresolved = 32;
  static constexpr std::uint8_t kFlagTrap = 64;
  static constexpr std::uint8_t kFlagOther = 128;  // any that has no bit of its own

  std::uint32_t id = 0;
  Wirex::IntfId intf;
  bool hasGateway = false;
  std::uint32_t gateway = 0;  // host byte order; 0 if there is none
  std::uint8_t protocol = 0;  // the kernel's number of its origin; 0 if the name is not known
  std::uint8_t scope = 0;     // the kernel's number: 0 global, 253 link, 254 host
  std::uint8_t flags = 0;     // kFlag bits

  friend bool operator==(const NextHop&, const NextHop&) = default;
};

// Kinds of next hops that are counted instead of carried: no entry of the table, or no room in one.
inline constexpr char kSkippedGroup[] = "group";
inline constexpr char kSkippedBlackhole[] = "blackhole";
inline constexpr char kSkippedFdb[] = "fdb";
inline constexpr char kSkippedEncap[] = "encap";
inline constexpr char kSkippedVia[] = "via";
inline constexpr char kSkippedIpv6Gateway[] = "ipv6 gateway";
inline constexpr char kSkippedInterfaceName[] = "interface name does not fit";

// Links and next hops of a Linux system at one time, each in the order of its file.
struct Snapshot {
  std::vector<Link> links;
  std::uint64_t skippedLinks = 0;  // links whose name does not fit
  std::vector<NextHop> nextHops;
  std::map<std::string, std::uint64_t> skippedByKind;  // next hops, by the kinds above
};

// Reads the output of `ip -j link` and `ip -j nexthop`. Unused fields are ignored. Throws
// InputError at the first place in either file that is not JSON, or that ip does not print: a wrong
// type, a missing "id", "ifname" or "dev" (a next hop without an interface must be a group, a
// blackhole or fdb), an id that is not 1 to 4294967295, a link or id given twice. Columns count
// bytes.
Snapshot readSnapshot(const std::string& linksFile, const std::string& nextHopsFile,
                      const InputLimits& limits = {});

}  // namespace Captures
