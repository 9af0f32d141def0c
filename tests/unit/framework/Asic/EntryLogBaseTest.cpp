// SPDX-License-Identifier: Apache-2.0

// The versions that an entry log hands out.

#include <cstdint>

#include <gtest/gtest.h>

#include "Asic/EntryLogBase.h"
#include "testing/LeakCheck.h"

namespace {

using Asic::LogVersion;

class PlainEntryLog : public Zev::Typed<PlainEntryLog, Asic::EntryLogBase> {
 public:
  static constexpr const char* kTypeName = "PlainEntryLog";

  PlainEntryLog() : Typed(Asic::SwTableId(0x03010805), nullptr, nullptr) {}
  using EntryLogBase::tableVersionInc;
  using EntryLogBase::tableVersionIs;
};

class EntryLogBaseTest : public testing_support::LeakCheckedTest {};

TEST_F(EntryLogBaseTest, AVersionRisesByWhatIsAskedForAndIsTheAnswer) {
  const auto log = Zev::makeObject<PlainEntryLog>();
  EXPECT_EQ(log->tableVersion(), LogVersion(0));
  EXPECT_EQ(log->tableVersionInc(LogVersion(1)), LogVersion(1));
  EXPECT_EQ(log->tableVersionInc(LogVersion(5)), LogVersion(6));
  EXPECT_EQ(log->tableVersion(), LogVersion(6));
  EXPECT_EQ(log->tableVersionInc(LogVersion(0)), LogVersion(6));
}

TEST_F(EntryLogBaseTest, AVersionRisesBeyond32Bits) {
  const auto log = Zev::makeObject<PlainEntryLog>();
  log->tableVersionIs(LogVersion(UINT32_MAX));
  EXPECT_EQ(log->tableVersionInc(LogVersion(1)), LogVersion(std::uint64_t{UINT32_MAX} + 1));
}

}  // namespace
