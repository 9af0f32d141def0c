// SPDX-License-Identifier: Apache-2.0

#include "captures/NextHopEntry.h"

namespace Captures {

LoamFec::FecTableDataModelEntry entryOf(const NextHop& nextHop) {
  LoamFec::FecTableDataModelEntry entry;
  entry.key = LoamFec::FecTableDataModelEntryKey(nextHop.id);
  entry.flagA = nextHop.hasGateway ? 1 : 0;
  entry.opaqueA = nextHop.gateway;
  entry.opaqueB = nextHop.protocol | static_cast<std::uint32_t>(nextHop.scope) << 8 |
                  static_cast<std::uint32_t>(nextHop.flags) << 16;
  entry.intfId = nextHop.intf;
  return entry;
}

bool asksTheSame(const LoamFec::FecTableDataModelEntry& a,
                 const LoamFec::FecTableDataModelEntry& b) {
  LoamFec::FecTableDataModelEntry resolvedAsB = a;
  resolvedAsB.resolvedDest = b.resolvedDest;
  return LoamFec::FecTableDataModelEntry::isEq(resolvedAsB, b);
}

Pell::String gatewayText(const LoamFec::FecTableDataModelLogEntry& entry) {
  if (entry.flagA == 0) {
    return "-";
  }
  const std::uint32_t address = entry.opaqueA;
  return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                     address & 0xFF);
}

}  // namespace Captures
