// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "captures/NextHopEntry.h"

namespace {

TEST(NextHopEntry, AGatewayAndItsAbsenceReadBack) {
  Captures::NextHop nextHop;
  nextHop.id = 7;
  nextHop.intf = Wirex::IntfId::fromName("eth1");
  EXPECT_EQ(Captures::gatewayText(Captures::entryOf(nextHop).logEntry()), "-");
  nextHop.hasGateway = true;
  nextHop.gateway = 0x0a000102;
  nextHop.protocol = 11;
  nextHop.scope = 253;
  nextHop.flags = 4;
  const auto entry = Captures::entryOf(nextHop);
  EXPECT_EQ(Captures::gatewayText(entry.logEntry()), "10.0.1.2");
  EXPECT_EQ(entry.opaqueB, 0x04fd0bU);
  EXPECT_EQ(entry.key.fecId(), 7U);
  auto resolved = entry;
  resolved.resolvedDest.first = 5;
  EXPECT_TRUE(Captures::asksTheSame(entry, resolved));
  resolved.opaqueA += 1;
  EXPECT_FALSE(Captures::asksTheSame(entry, resolved));
}

}  // namespace
