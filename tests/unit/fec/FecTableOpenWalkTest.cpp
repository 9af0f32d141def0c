// Walks that are open while the table changes, step by step.

#include <algorithm>
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

}  // namespace
}  // namespace fec_test
