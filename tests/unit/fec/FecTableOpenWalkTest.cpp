// SPDX-License-Identifier: Apache-2.0

// Walks that are open while the table changes, step by step.

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

#include "FecTableFixture.h"

namespace fec_test {
namespace {

class OpenWalkTest : public FecTableFixture {
 protected:
  using Ids = std::vector<std::uint32_t>;
  using Walk = Pell::Ptr<LoamFec::FecTableDataModelSwTableIteratorState>;

  static Ids rest(const Walk& walk) {
    Ids ids;
    for (auto entry = walk->maybeUpdateCurrentEntry(); !walk->atEnd();
         entry = walk->maybeUpdateCurrentEntry()) {
      ids.push_back(entry.key.fecId());
    }
    return ids;
  }
};

TEST_F(OpenWalkTest, APendingWriteCommittedIntoAnEmptyTableBeforeTheFirstStepIsYielded) {
  write(1);
  const Walk walk = table().initIterState();
  agent_.run();
  EXPECT_EQ(rest(walk), Ids{1});
}

TEST_F(OpenWalkTest, APendingWriteCommittedInFrontOfTheFirstRowIsYielded) {
  writeCommitted(1);
  writeCommitted(2);
  remove(1);
  agent_.run();
  agent_.reportAll();  // the first place is free, and the next new row takes it
  write(3);
  const Walk walk = table().initIterState();
  agent_.run();
  Ids ids = rest(walk);
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, (Ids{2, 3}));
}

TEST_F(OpenWalkTest, APendingWriteCommittedBeforeAWalkFromItsKeyBeginsIsYielded) {
  write(1);
  const Walk walk = table().initIterStateFromKey(key(1));
  agent_.run();
  EXPECT_EQ(rest(walk), Ids{1});
}

// While it was away another entry has taken its place; it is met in its new one only.
TEST_F(OpenWalkTest, AnEntryThatLeavesAndComesBackElsewhereIsYieldedOnce) {
  writeCommitted(1);
  const Walk walk = table().initIterStateFromKey(key(1));
  remove(1);
  agent_.run();
  agent_.reportAll();
  writeCommitted(2);
  writeCommitted(1);
  EXPECT_EQ(rest(walk), (Ids{2, 1}));
}

// It was removed, and its write found a free place in front of the walk: when the walk came to the
// pending writes it was none yet, and when it came to the entry's old place the entry had left it.
TEST_F(OpenWalkTest, AnEntryThatIsWrittenAgainInFrontOfTheWalkIsNotYielded) {
  writeCommitted(1);
  writeCommitted(2);
  writeCommitted(3);
  const Walk walk = table().initIterState();
  EXPECT_EQ(walk->maybeUpdateCurrentEntry().key, key(1));
  EXPECT_EQ(walk->maybeUpdateCurrentEntry().key, key(2));
  remove(3);
  remove(1);
  agent_.run();
  agent_.reportAll();  // both places are free, and the next new row takes the first one
  writeCommitted(3);
  EXPECT_EQ(rest(walk), Ids{});
  EXPECT_TRUE(table().entryHas(key(3)));
}

TEST_F(OpenWalkTest, AnIteratorIsAWalkOfItsOwnAndCannotBeCopied) {
  using Iterator = LoamFec::FecTableDataModelEntryIteratorConst;
  static_assert(!std::is_copy_constructible_v<Iterator> && !std::is_copy_assignable_v<Iterator>);
  writeCommitted(1);
  writeCommitted(2);
  Iterator first = table().entryIteratorConst();
  Iterator moved = std::move(first);
  EXPECT_EQ(moved->key, key(1));
  ++moved;
  first = table().entryIteratorConst();
  EXPECT_EQ(moved->key, key(2)) << "another walk does not move it";
  EXPECT_EQ(first->key, key(1));
}

}  // namespace
}  // namespace fec_test
