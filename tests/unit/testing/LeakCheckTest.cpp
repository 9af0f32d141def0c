// SPDX-License-Identifier: Apache-2.0

#include <string_view>
#include <vector>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "Zev/PtrInterface.h"
#include "testing/LeakCheck.h"

namespace {

class Leakable : public Zev::Typed<Leakable> {
 public:
  static constexpr std::string_view kTypeName = "Leakable";
};

TEST(LeakCheck, AcceptsObjectsThatHaveGone) {
  const testing_support::LeakCheck leaks;
  Zev::makeObject<Leakable>();
}

TEST(LeakCheck, AcceptsObjectsThatWereThereBefore) {
  const auto old = Zev::makeObject<Leakable>();
  const testing_support::LeakCheck leaks;
}

using Survivors = std::vector<Pell::Ptr<Leakable>>;

void checkWhileTwoSurvive(Survivors& survivors) {
  const testing_support::LeakCheck leaks;
  survivors.push_back(Zev::makeObject<Leakable>());
  survivors.push_back(Zev::makeObject<Leakable>());
}

TEST(LeakCheck, NamesTheTypeAndTheNumberOfWhatIsLeft) {
  static Survivors survivors;
  EXPECT_NONFATAL_FAILURE(checkWhileTwoSurvive(survivors), "leaked 2 of Leakable");
  survivors.clear();
}

class HoldsAnObject : public testing_support::LeakCheckedTest {
 protected:
  Pell::Ptr<Leakable> held_ = Zev::makeObject<Leakable>();
};

TEST_F(HoldsAnObject, TheMembersOfAFixtureGoBeforeTheCheck) { EXPECT_EQ(held_->references(), 1U); }

}  // namespace
