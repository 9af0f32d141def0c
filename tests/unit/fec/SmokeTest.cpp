#include <gtest/gtest.h>
#include "testing/FecHarness.h"
using namespace testing_support;
TEST(Smoke, RoadOfOneWrite) {
  FecHarness h;
  h.table();
  auto handle = h.table().entryWriteWithResponseHandler(h.key(5), h.entry("eth1", 7), nullptr, h.recordResponse());
  h.run();
  EXPECT_EQ(h.log().tableVersion().value(), 0u);
  h.destinationIs("eth1", 100);
  EXPECT_EQ(h.log().tableVersion().value(), 1u);
  h.reportAll();
  ASSERT_EQ(h.responses.size(), 1u);
  EXPECT_EQ(h.responses[0].state, Asic::EntryState::done);
  h.destinationIs("eth1", 101);
  EXPECT_EQ(h.log().tableVersion().value(), 2u);
  EXPECT_EQ(h.table().entryRead(h.key(5)).resolvedDest.first, 101u);
  h.restart();
  h.table();
  EXPECT_EQ(h.table().entrys(), 1u);
}
