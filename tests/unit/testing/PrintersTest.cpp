// SPDX-License-Identifier: Apache-2.0

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Versions.h"
#include "LoamAdjLib/IntfIdToDestIdResourceTableEntryKey.h"
#include "records/FecRecords.h"
#include "testing/Printers.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::PrintToString;
using testing_support::IsEq;

class Numbered : public Pell::SharedByOneThread<Numbered> {
 public:
  Asic::EntryVersion version() const { return {3, 9}; }
};

TEST(PrintersTest, ValuesArePrintedAsTracesPrintThem) {
  const Wirex::IntfId intfId = Wirex::IntfId::fromName("eth1");
  EXPECT_EQ(PrintToString(Asic::LogVersion(7)), "7");
  EXPECT_EQ(PrintToString(Asic::EntryVersion(3, 9)), "3.9");
  EXPECT_EQ(PrintToString(intfId), "eth1");
  EXPECT_EQ(PrintToString(LoamAdjLib::IntfIdToDestIdResourceTableEntryKey(intfId)), "eth1");
  EXPECT_EQ(PrintToString(LoamFec::FecTableDataModelEntryKey(5)), "5");
  EXPECT_EQ(PrintToString(LoamFec::FecTableDataModelResourceKeys{intfId}), "eth1");
}

TEST(PrintersTest, APointerIsPrintedAsItsAddressAndTheVersionOfWhatItPointsAt) {
  const Pell::Ptr<Numbered> pointer(new Numbered);
  std::ostringstream address;
  address << static_cast<const void*>(pointer.get());
  EXPECT_EQ(PrintToString(pointer), address.str() + ", version 3.9");
  EXPECT_EQ(PrintToString(Pell::Ptr<Numbered>()), "0");
}

TEST(PrintersTest, OfAMapTheKeysArePrinted) {
  Pell::HashMap<int, std::string, std::hash<int>> map;
  EXPECT_EQ(PrintToString(map), "keys { }");
  map.insertOrAssign(4, "four");
  map.insertOrAssign(2, "two");
  EXPECT_EQ(PrintToString(map), "keys { 4 2 }");
}

TEST(PrintersTest, ARecordThatDiffersIsToldWithBothItsValues) {
  LoamFec::FecTableDataModelLogEntry entry;
  entry.opaqueA = 4711;
  const LoamFec::FecTableDataModelLogEntry other;
  EXPECT_THAT(entry, IsEq(entry));
  EXPECT_THAT(entry, Not(IsEq(other)));
  const ::testing::Matcher<const LoamFec::FecTableDataModelLogEntry&> matcher = IsEq(entry);
  std::ostringstream expected;
  matcher.DescribeTo(&expected);
  EXPECT_THAT(expected.str(), HasSubstr("4711"));
  EXPECT_THAT(PrintToString(other), Not(HasSubstr("4711")));
}

}  // namespace
