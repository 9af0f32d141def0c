// SPDX-License-Identifier: Apache-2.0

// Handles of FEC operations.

#include <gtest/gtest.h>

#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"

namespace {

using LoamFec::FecTableDataModelEntryKey;
using LoamFec::FecTableDataModelSwTableBase;
using testing_support::FecHarness;

using Handle = FecTableDataModelSwTableBase::FecEntryHandle;

class FecEntryHandleTest : public testing_support::LeakCheckedTest {};

TEST_F(FecEntryHandleTest, KnowsItsVersionItsKeyAndItsTable) {
  FecHarness harness;
  const auto table = harness.makeTable();
  const auto handle =
      Zev::makeObject<Handle>(Asic::EntryVersion(4, 5), FecTableDataModelEntryKey(6), table.get());
  EXPECT_THAT(handle->version(), testing_support::IsEq(Asic::EntryVersion{4, 5}));
  EXPECT_EQ(handle->key(), FecTableDataModelEntryKey(6));
  EXPECT_EQ(handle->table(), table.get());
  EXPECT_EQ(handle->entryTableVersion(),
            Asic::TableVersion(Asic::SwTableId(0x03010805), Asic::LogVersion()));
  EXPECT_EQ(handle->fwkType().name, "LoamFec::FecTableSwTable::EntryHandle");
}

TEST_F(FecEntryHandleTest, ThatOutlivesItsTableStillTellsItsTableVersion) {
  Pell::Ptr<Handle const> handle;
  {
    FecHarness harness;
    handle = harness.table().entryWrite(FecHarness::key(1), FecHarness::entry(""), nullptr);
    harness.run();
  }
  EXPECT_EQ(handle->entryTableVersion(),
            Asic::TableVersion(Asic::SwTableId(0x03010805), Asic::LogVersion(1)));
}

TEST_F(FecEntryHandleTest, WithoutATableItBelongsToTheZeroTable) {
  const auto handle =
      Zev::makeObject<Handle>(Asic::EntryVersion(), FecTableDataModelEntryKey(), nullptr);
  EXPECT_EQ(handle->entryTableVersion(), Asic::TableVersion());
}

}  // namespace
