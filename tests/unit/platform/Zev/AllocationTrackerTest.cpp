// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Zev/AllocationTracker.h"
#include "Zev/PtrInterface.h"

namespace {

template <char kLetter>
class Tracked : public Zev::Typed<Tracked<kLetter>> {
 public:
  static constexpr char kName[] = {'T', 'r', 'a', 'c', 'k', 'e', 'd', kLetter};
  static constexpr std::string_view kTypeName{kName, sizeof kName};
};

TEST(AllocationTracker, CountsTheObjectsOfOneTypeFromBirthToEnd) {
  const Zev::AllocationTracker& tracker = Zev::trackerOf<Tracked<'A'>>();
  const auto live = tracker.live();
  const auto total = tracker.total();
  auto one = Zev::makeObject<Tracked<'A'>>();
  auto two = Zev::makeObject<Tracked<'A'>>();
  EXPECT_EQ(tracker.live(), live + 2);
  one = two;
  EXPECT_EQ(tracker.live(), live + 1);
  one = nullptr;
  two = nullptr;
  EXPECT_EQ(tracker.live(), live);
  EXPECT_EQ(tracker.total(), total + 2);
}

TEST(AllocationTracker, KeepsTypesApartAndNamesThem) {
  const auto before = Zev::trackerOf<Tracked<'B'>>().live();
  const auto other = Zev::makeObject<Tracked<'C'>>();
  EXPECT_EQ(Zev::trackerOf<Tracked<'B'>>().live(), before);
  EXPECT_EQ(Zev::trackerOf<Tracked<'C'>>().live(), 1);
  EXPECT_EQ(Zev::trackerOf<Tracked<'C'>>().typeName(), "TrackedC");
}

TEST(AllocationTracker, TheListHoldsEveryTypeOnceAndTheSumAddsThemUp) {
  const auto sum = Zev::AllocationTracker::liveOfAllTypes();
  const auto one = Zev::makeObject<Tracked<'D'>>();
  const auto two = Zev::makeObject<Tracked<'D'>>();
  const auto three = Zev::makeObject<Tracked<'E'>>();
  EXPECT_EQ(Zev::AllocationTracker::liveOfAllTypes(), sum + 3);
  const auto& all = Zev::AllocationTracker::all();
  EXPECT_EQ(std::count(all.begin(), all.end(), &Zev::trackerOf<Tracked<'D'>>()), 1);
  EXPECT_EQ(std::count(all.begin(), all.end(), &Zev::trackerOf<Tracked<'E'>>()), 1);
}

TEST(AllocationTracker, InThreadSafeModeCountsExactlyWhenManyThreadsMakeAndReleaseObjects) {
  constexpr int kThreads = 4;
  constexpr int kObjectsEach = 20'000;
  Zev::AllocationTracker& tracker = Zev::trackerOf<Tracked<'F'>>();
  Zev::threadSafePtrModeIs(true);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int made = 0; made < kObjectsEach; ++made) {
        Zev::makeObject<Tracked<'F'>>();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  Zev::threadSafePtrModeIs(false);
  EXPECT_EQ(tracker.live(), 0);
  EXPECT_EQ(tracker.total(), kThreads * kObjectsEach);
}

}  // namespace
