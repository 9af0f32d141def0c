// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "Asic/ResolverEntry.h"
#include "testing/LeakCheck.h"
#include "testing/RecordingResources.h"
#include "testing/VirtualSlot.h"

namespace {

using Asic::EntryFlags;
using Asic::ResolverEntry;
using testing_support::virtualSlot;

class PlainEntry : public Zev::Typed<PlainEntry, ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "PlainEntry";
  PlainEntry(const Pell::Ptr<Asic::DependencyEntryHandle const>& dependency, EntryFlags flags)
      : Typed(dependency, flags) {}
  bool isResolved() override { return true; }
  void commitEntry(const Pell::Ptr<ResolverEntry>& /*resolverEntry*/) override {}
};

class ResolverEntryTest : public testing_support::LeakCheckedTest {
 protected:
  static Pell::Ptr<PlainEntry> entry(EntryFlags flags) {
    return Zev::makeObject<PlainEntry>(nullptr, flags);
  }
};

TEST_F(ResolverEntryTest, HoldsItsDependencyAndItsFlags) {
  const Pell::Ptr<Asic::DependencyEntryHandle const> dependency =
      Zev::makeObject<testing_support::FakeDependency>();
  const auto made = Zev::makeObject<PlainEntry>(dependency, EntryFlags(0x80));
  EXPECT_EQ(dependency->references(), 2U);
  EXPECT_EQ(made->dependantEntryHandle(), dependency);
  EXPECT_EQ(made->flags().value(), 0x80);
}

TEST_F(ResolverEntryTest, TheFlagsTellWriteEntryDeleteAndTableDeleteApart) {
  EXPECT_FALSE(entry(EntryFlags::write())->isEntryDeleted());
  EXPECT_FALSE(entry(EntryFlags::write())->isTableDeleted());
  EXPECT_TRUE(entry(EntryFlags::entryDelete())->isEntryDeleted());
  EXPECT_FALSE(entry(EntryFlags::entryDelete())->isTableDeleted());
  EXPECT_FALSE(entry(EntryFlags::tableDelete())->isEntryDeleted());
  EXPECT_TRUE(entry(EntryFlags::tableDelete())->isTableDeleted());
}

TEST_F(ResolverEntryTest, ItsVirtualOperationsStandInOrderBehindThoseOfTheBase) {
  EXPECT_EQ(virtualSlot(&ResolverEntry::notifieeList), 0U);
  EXPECT_EQ(virtualSlot(&ResolverEntry::zeroReferencesIs), 1U);
  EXPECT_EQ(virtualSlot(&ResolverEntry::fwkType), 2U);
  EXPECT_EQ(virtualSlot(&ResolverEntry::isResolved), 5U);  // the destructor takes 3 and 4
  EXPECT_EQ(virtualSlot(&ResolverEntry::commitEntry), 6U);
}

}  // namespace
