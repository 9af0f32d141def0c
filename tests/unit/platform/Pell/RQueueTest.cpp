// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <cstdio>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/Ptr.h"
#include "Pell/RQueue.h"
#include "Probe.h"
#include "testing/LeakCheck.h"

namespace Pell {

// Reaches the arrays of a queue. The queue itself keeps what their assertions demand, whatever its
// callers do, so they can be shown to hold only from here.
struct RQueueTestPeer {
  template <typename Queue>
  static void makeArray(std::uint32_t capacity) {
    Queue::Array::free(unlinked(Queue::Array::make(capacity, 1)));
  }
  template <typename Queue>
  static void freeLinkedArray() {
    Queue::Array::free(Queue::Array::make(8, 1));
  }
  template <typename Queue>
  static bool atOrAfter(std::uint32_t n, std::uint32_t m) {
    return Queue::atOrAfter(n, m);
  }
  template <typename Queue>
  static bool tailFull(const Queue& queue) {
    return queue.tail_ != nullptr && queue.tail_->full();
  }
  template <typename Queue>
  static std::uint32_t arrays(const Queue& queue) {
    if (queue.tail_ == nullptr) {
      return 0;
    }
    std::uint32_t count = 1;
    for (auto* array = queue.tail_->link; array != queue.tail_; array = array->link) {
      ++count;
    }
    return count;
  }

 private:
  template <typename Array>
  static Array* unlinked(Array* array) {
    array->link = nullptr;
    return array;
  }
};

}  // namespace Pell

namespace {

using Pell::RQueueTestPeer;
using ::testing::ElementsAre;

struct Tag;
using Element = Pell::Ptr<Probe>;
using Queue = Pell::RQueue<Element, false, Tag>;

Element element(int id) { return Zev::makeObject<Probe>(id); }

int idOf(const Element& held) { return held ? held->id() : -1; }

class RQueueTest : public testing_support::LeakCheckedTest {
 protected:
  // Enqueues elements whose id is their place, counted from 1 over the life of the test.
  void enqueue(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      queue_.enq(element(++lastId_));
    }
  }
  void dequeue(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      ASSERT_TRUE(queue_.deq());
    }
  }
  void fillTail() {
    while (!RQueueTestPeer::tailFull(queue_)) {
      enqueue(1);
    }
  }

  Queue queue_;
  int lastId_ = 0;
};
using RQueueDeathTest = RQueueTest;

TEST_F(RQueueTest, ANewQueueIsEmpty) {
  EXPECT_TRUE(queue_.empty());
  EXPECT_EQ(queue_.size(), 0U);
  EXPECT_EQ(queue_.tailCapacity(), 0U);
  EXPECT_FALSE(queue_.front());
  EXPECT_FALSE(queue_.back());
  EXPECT_FALSE(queue_.at(1));
  EXPECT_FALSE(queue_.has(0));
  EXPECT_FALSE(queue_.has(1));
  Queue::Sequence untouched = 77;
  EXPECT_FALSE(queue_.deq(&untouched));
  EXPECT_EQ(untouched, 77U);
}

TEST_F(RQueueTest, NumbersStartAtOneAndElementsLeaveInOrder) {
  EXPECT_EQ(queue_.enq(element(10)), 1U);
  EXPECT_EQ(queue_.enq(element(20)), 2U);
  EXPECT_EQ(queue_.enq(element(30)), 3U);
  EXPECT_EQ(idOf(queue_.front()), 10);
  EXPECT_EQ(idOf(queue_.back()), 30);
  Queue::Sequence sequence = 0;
  EXPECT_EQ(idOf(queue_.deq(&sequence)), 10);
  EXPECT_EQ(sequence, 1U);
  EXPECT_EQ(idOf(queue_.deq(&sequence)), 20);
  EXPECT_EQ(sequence, 2U);
  EXPECT_EQ(idOf(queue_.deq()), 30);
  EXPECT_TRUE(queue_.empty());
}

TEST_F(RQueueTest, TheFirstArrayHasEightSlotsAndTheNinthElementMakesSixteen) {
  enqueue(1);
  EXPECT_EQ(queue_.tailCapacity(), 8U);
  enqueue(7);
  EXPECT_EQ(queue_.tailCapacity(), 8U);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 1U);
  enqueue(1);
  EXPECT_EQ(queue_.tailCapacity(), 16U);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 2U);
}

TEST_F(RQueueTest, ArraysDoubleUpToEightThousandOneHundredAndNinetyTwo) {
  std::vector<std::uint32_t> capacities;
  std::uint32_t last = 0;
  for (std::uint32_t arrays = 0; arrays < 13; ++arrays) {
    enqueue(1);
    ASSERT_EQ(RQueueTestPeer::arrays(queue_), arrays + 1);
    capacities.push_back(queue_.tailCapacity());
    last += queue_.tailCapacity();
    fillTail();
    ASSERT_EQ(queue_.size(), last);
  }
  EXPECT_THAT(capacities,
              ElementsAre(8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 8192, 8192));
  for (int id = 1; id <= lastId_; ++id) {
    ASSERT_EQ(idOf(queue_.at(static_cast<Queue::Sequence>(id))), id);
  }
  for (int id = 1; id <= lastId_; ++id) {
    ASSERT_EQ(idOf(queue_.deq()), id);
  }
}

// With the tail full and `queued` elements left, the next array has `capacity` slots.
struct Growth {
  std::uint32_t queued;
  std::uint32_t capacity;
};

class RQueueGrowth : public RQueueTest, public ::testing::WithParamInterface<Growth> {};

TEST_P(RQueueGrowth, TheNextArrayIsTheSmallestPowerOfTwoAboveTheCount) {
  while (queue_.size() < GetParam().queued) {
    enqueue(1);
    fillTail();
  }
  dequeue(queue_.size() - GetParam().queued);
  ASSERT_TRUE(RQueueTestPeer::tailFull(queue_));
  const Queue::Sequence number = queue_.enq(element(0));
  EXPECT_EQ(queue_.tailCapacity(), GetParam().capacity);
  EXPECT_EQ(number, static_cast<Queue::Sequence>(lastId_ + 1));
}

INSTANTIATE_TEST_SUITE_P(
    Counts, RQueueGrowth,
    ::testing::Values(Growth{1, 8}, Growth{3, 8}, Growth{7, 8}, Growth{8, 16}, Growth{9, 16},
                      Growth{15, 16}, Growth{16, 32}, Growth{17, 32}, Growth{4095, 4096},
                      Growth{4096, 8192}, Growth{4097, 8192}, Growth{8191, 8192},
                      Growth{8192, 8192}, Growth{8193, 8192}, Growth{16384, 8192}),
    [](const auto& growth) { return "Queued" + std::to_string(growth.param.queued); });

TEST_F(RQueueTest, ADrainedQueueKeepsItsNumbering) {
  enqueue(3);
  dequeue(3);
  EXPECT_TRUE(queue_.empty());
  EXPECT_EQ(queue_.tailCapacity(), 0U) << "a placeholder keeps the numbering";
  EXPECT_FALSE(queue_.has(3));
  EXPECT_FALSE(queue_.has(4));
  EXPECT_FALSE(queue_.back());
  EXPECT_EQ(queue_.enq(element(4)), 4U);
  EXPECT_EQ(queue_.tailCapacity(), 8U) << "the placeholder gives way to a smallest array";
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 1U);
  EXPECT_EQ(idOf(queue_.at(4)), 4);
}

TEST_F(RQueueTest, DrainedArraysAreFreedOneByOne) {
  enqueue(8 + 16 + 1);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 3U);
  dequeue(7);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 3U);
  dequeue(1);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 2U);
  dequeue(16);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 1U);
  dequeue(1);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 1U);
  EXPECT_EQ(queue_.tailCapacity(), 0U);
  EXPECT_EQ(queue_.enq(element(0)), 26U);
}

TEST_F(RQueueTest, AQueueThatNeverHoldsManyKeepsNumberingOverManyDrains) {
  for (Queue::Sequence expected = 1; expected <= 1000; ++expected) {
    ASSERT_EQ(queue_.enq(element(0)), expected);
    ASSERT_TRUE(queue_.deq());
  }
}

TEST_F(RQueueTest, AccessByNumberReachesEveryArrayAndNothingElse) {
  enqueue(30);  // arrays of 8, 16 and 32
  dequeue(5);
  EXPECT_FALSE(queue_.has(0));
  EXPECT_FALSE(queue_.has(5));
  for (int number = 6; number <= 30; ++number) {
    EXPECT_EQ(idOf(queue_.at(static_cast<Queue::Sequence>(number))), number);
  }
  EXPECT_FALSE(queue_.has(31));
  EXPECT_FALSE(queue_.at(31));
  EXPECT_EQ(queue_.at(6)->references(), 2U) << "access does not remove";
}

TEST_F(RQueueTest, NumbersFarAwayAreOutsideTheQueue) {
  enqueue(3);
  dequeue(1);  // 2 and 3 are queued
  for (const Queue::Sequence far :
       {2U + 0x7ffffffeU, 2U + 0x7fffffffU, 2U + 0x80000000U, 4U + 0x7ffffffeU, 4U + 0x7fffffffU,
        4U + 0x80000000U, 0xffffffffU, 0U, 1U, 4U}) {
    EXPECT_FALSE(queue_.has(far)) << far;
  }
  EXPECT_TRUE(queue_.has(2));
  EXPECT_TRUE(queue_.has(3));
}

TEST_F(RQueueTest, ANumberIsAtOrAfterThoseLessThanHalfTheNumbersBefore) {
  for (const std::uint32_t m : {1U, 0U, 0xfffffffaU}) {
    EXPECT_TRUE(RQueueTestPeer::atOrAfter<Queue>(m, m));
    EXPECT_TRUE(RQueueTestPeer::atOrAfter<Queue>(m + 0x7ffffffeU, m));
    EXPECT_FALSE(RQueueTestPeer::atOrAfter<Queue>(m + 0x7fffffffU, m));
    EXPECT_FALSE(RQueueTestPeer::atOrAfter<Queue>(m + 0x80000000U, m));
    EXPECT_FALSE(RQueueTestPeer::atOrAfter<Queue>(m - 1, m));
  }
}

TEST_F(RQueueTest, NumbersWrapAtTwoToTheThirtySecond) {
  queue_.numberingStartsAt(0xfffffffaU);
  std::vector<Queue::Sequence> numbers;
  for (int id = 0; id < 30; ++id) {
    numbers.push_back(queue_.enq(element(id)));
  }
  EXPECT_EQ(numbers[5], 0xffffffffU);
  EXPECT_EQ(numbers[6], 0U) << "zero is a number like any other";
  EXPECT_EQ(numbers[29], 23U);
  EXPECT_FALSE(queue_.has(0xfffffff9U));
  EXPECT_FALSE(queue_.has(24));
  for (int id = 0; id < 30; ++id) {
    const Queue::Sequence number = numbers[static_cast<std::size_t>(id)];
    ASSERT_EQ(idOf(queue_.at(number)), id);
    Queue::Sequence taken = 1234;
    ASSERT_EQ(idOf(queue_.deq(&taken)), id);
    ASSERT_EQ(taken, number);
    ASSERT_FALSE(queue_.has(number));
  }
  EXPECT_EQ(queue_.enq(element(0)), 24U);
}

TEST_F(RQueueTest, AQueueThatDrainsAtTheWrapGoesOnWithZero) {
  queue_.numberingStartsAt(0xffffffffU);
  EXPECT_EQ(queue_.enq(element(1)), 0xffffffffU);
  EXPECT_TRUE(queue_.deq());
  EXPECT_EQ(queue_.enq(element(2)), 0U);
  EXPECT_EQ(idOf(queue_.at(0)), 2);
}

TEST_F(RQueueTest, ClearingWithNumberingGoesOnWithTheNextNumber) {
  enqueue(20);
  dequeue(2);
  queue_.doClear(true);
  EXPECT_TRUE(queue_.empty());
  EXPECT_EQ(queue_.tailCapacity(), 0U);
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 1U);
  EXPECT_FALSE(queue_.has(20));
  EXPECT_FALSE(queue_.front());
  queue_.doClear(true);  // a placeholder alone
  EXPECT_EQ(queue_.enq(element(0)), 21U);
}

TEST_F(RQueueTest, ClearingWithoutNumberingStartsANewQueue) {
  enqueue(20);
  queue_.doClear(false);
  EXPECT_TRUE(queue_.empty());
  EXPECT_EQ(RQueueTestPeer::arrays(queue_), 0U);
  EXPECT_EQ(queue_.enq(element(0)), 1U);
}

TEST_F(RQueueTest, ClearingAQueueThatNeverHeldAnythingLeavesItNew) {
  queue_.doClear(true);
  queue_.doClear(false);
  EXPECT_EQ(queue_.enq(element(0)), 1U);
}

TEST_F(RQueueTest, ElementsAreReleasedInOrderWhenCleared) {
  std::vector<int> ended;
  for (int id = 1; id <= 12; ++id) {
    queue_.enq(Zev::makeObject<Probe>(id, [&ended, id] { ended.push_back(id); }));
  }
  dequeue(9);
  ended.clear();
  queue_.doClear(true);
  EXPECT_THAT(ended, ElementsAre(10, 11, 12));
}

TEST_F(RQueueTest, DestructorsSeeAnEmptyQueueDuringClearAndMayFillIt) {
  std::vector<bool> wasEmpty;
  std::vector<Queue::Sequence> numbers;
  for (int id = 1; id <= 20; ++id) {
    queue_.enq(Zev::makeObject<Probe>(id, [&] {
      wasEmpty.push_back(!queue_.has(1));
      numbers.push_back(queue_.enq(element(100)));
    }));
  }
  queue_.doClear(true);
  EXPECT_THAT(wasEmpty, ::testing::Each(true));
  EXPECT_EQ(wasEmpty.size(), 20U);
  EXPECT_EQ(queue_.size(), 20U);
  EXPECT_EQ(numbers.front(), 21U);
  EXPECT_EQ(numbers.back(), 40U);
}

TEST_F(RQueueTest, TheDestructorOfADequeuedElementMayUseTheQueue) {
  queue_.enq(Zev::makeObject<Probe>(1, [&] {
    EXPECT_TRUE(queue_.empty());
    queue_.enq(element(2));
    queue_.enq(element(3));
    EXPECT_EQ(idOf(queue_.deq()), 2);
  }));
  queue_.deq();
  EXPECT_EQ(queue_.size(), 1U);
  EXPECT_EQ(idOf(queue_.at(3)), 3);
}

TEST_F(RQueueTest, NullElementsAreElements) {
  queue_.enq(Element());
  EXPECT_EQ(queue_.size(), 1U);
  EXPECT_TRUE(queue_.has(1));
  EXPECT_FALSE(queue_.deq());
  EXPECT_TRUE(queue_.empty());
}

TEST_F(RQueueTest, AgreesWithADequeUnderRandomChanges) {
  constexpr std::uint32_t kSeed = 19750421;
  std::printf("seed %u\n", kSeed);
  std::mt19937 random(kSeed);
  std::deque<int> model;
  Queue::Sequence first = 0xffffe000U;  // the wrap comes on the way
  queue_.numberingStartsAt(first);
  for (int change = 0; change < 60'000; ++change) {
    // Long phases of growth and of decline, so that many array sizes occur.
    const bool growing = (change / 3000) % 2 == 0;
    const auto kind = random() % 100;
    if (change % 9973 == 0) {
      first += static_cast<Queue::Sequence>(model.size());
      model.clear();
      queue_.doClear(true);
    } else if (kind < (growing ? 65U : 35U)) {
      const auto number = queue_.enq(element(change));
      ASSERT_EQ(number, first + static_cast<Queue::Sequence>(model.size()));
      model.push_back(change);
    } else if (model.empty()) {
      ASSERT_FALSE(queue_.deq());
    } else {
      Queue::Sequence number = 0;
      ASSERT_EQ(idOf(queue_.deq(&number)), model.front());
      ASSERT_EQ(number, first++);
      model.pop_front();
    }
    ASSERT_EQ(queue_.size(), model.size());
    ASSERT_EQ(idOf(queue_.front()), model.empty() ? -1 : model.front());
    ASSERT_EQ(idOf(queue_.back()), model.empty() ? -1 : model.back());
    const auto offset = static_cast<Queue::Sequence>(random() % (model.size() + 3)) - 1;
    ASSERT_EQ(idOf(queue_.at(first + offset)), offset < model.size() ? model[offset] : -1);
  }
}

TEST_F(RQueueDeathTest, AnArrayOfAnotherSizeThanAPowerOfTwoStopsTheProcess) {
  RQueueTestPeer::makeArray<Queue>(16);
  RQueueTestPeer::makeArray<Queue>(0);  // a placeholder
  EXPECT_DEATH(RQueueTestPeer::makeArray<Queue>(12), "assertion failed: isPowerOfTwo\\( i \\)\n");
}

TEST_F(RQueueDeathTest, FreeingALinkedArrayStopsTheProcess) {
  EXPECT_DEATH(RQueueTestPeer::freeLinkedArray<Queue>(), "assertion failed: !linked\\(\\)\n");
}

}  // namespace
