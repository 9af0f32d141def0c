// SPDX-License-Identifier: Apache-2.0

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Zev/PtrInterface.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"

namespace {

using Pell::Ptr;
using Zev::makeObject;

// Runs what a test wants to happen inside the constructor and inside the destructor.
class Subject : public Zev::Typed<Subject> {
 public:
  static constexpr std::string_view kTypeName = "PtrInterfaceTest.Subject";
  using Step = std::function<void(Subject*)>;

  explicit Subject(const Step& inConstructor = {}, Step inDestructor = {})
      : inDestructor_(std::move(inDestructor)) {
    if (inConstructor) {
      inConstructor(this);
    }
  }
  ~Subject() override {
    if (inDestructor_) {
      inDestructor_(this);
    }
    ++ended;
  }

  static inline std::atomic<int> ended = 0;

 private:
  Step inDestructor_;
};

class PtrInterfaceTest : public testing_support::LeakCheckedTest {
 protected:
  PtrInterfaceTest() { Subject::ended = 0; }
};

TEST_F(PtrInterfaceTest, AnObjectIsBornWithTheReferenceThatItsMakerGets) {
  const Ptr<Subject> subject = makeObject<Subject>();
  EXPECT_EQ(subject->references(), 1U);
  EXPECT_EQ(subject->notifieeList(), nullptr);
  EXPECT_EQ(subject->fwkType().name, Subject::kTypeName);
  EXPECT_FALSE(subject->isBeingDestroyed());
}

TEST_F(PtrInterfaceTest, AConstructorMayMakeAndDropPointersToItsObject) {
  Ptr<Subject> subject = makeObject<Subject>([](Subject* self) {
    for (int i = 0; i < 3; ++i) {
      const Ptr<Subject> temporary(self);
      EXPECT_EQ(self->references(), 2U);
    }
  });
  EXPECT_EQ(Subject::ended, 0);
  EXPECT_EQ(subject->references(), 1U);
  subject = nullptr;
  EXPECT_EQ(Subject::ended, 1);
}

TEST_F(PtrInterfaceTest, AConstructorMayRegisterItsObject) {
  Ptr<Subject> registered;
  Ptr<Subject> subject =
      makeObject<Subject>([&registered](Subject* self) { registered = Ptr<Subject>(self); });
  EXPECT_EQ(registered, subject);
  EXPECT_EQ(subject->references(), 2U);
  subject = nullptr;
  EXPECT_EQ(Subject::ended, 0);
  registered = nullptr;
  EXPECT_EQ(Subject::ended, 1);
}

TEST_F(PtrInterfaceTest, ADestructorMayMakeAndDropPointersToItsObject) {
  bool markedBeforehand = false;
  Ptr<Subject> subject = makeObject<Subject>(Subject::Step(), [&](Subject* self) {
    markedBeforehand = self->isBeingDestroyed();
    const Ptr<Subject> temporary(self);
    EXPECT_EQ(Ptr<Subject>(temporary)->references(), 2U);
  });
  subject = nullptr;
  EXPECT_TRUE(markedBeforehand);
  EXPECT_EQ(Subject::ended, 1);
}

TEST_F(PtrInterfaceTest, NothingIsLeftOfAConstructorThatThrows) {
  const auto live = Zev::trackerOf<Subject>().live();
  const auto fails = [](Subject* self) {
    const Ptr<Subject> temporary(self);
    throw std::runtime_error("refused");
  };
  EXPECT_THROW(makeObject<Subject>(fails), std::runtime_error);
  EXPECT_EQ(Zev::trackerOf<Subject>().live(), live);
}

TEST_F(PtrInterfaceTest, NotificationsAreOffUntilConstructionIsComplete) {
  bool during = true;
  const Ptr<Subject> subject =
      makeObject<Subject>([&during](Subject* self) { during = self->hasNotificationActive(); });
  EXPECT_FALSE(during);
  EXPECT_TRUE(subject->hasNotificationActive());
  subject->hasNotificationActiveIs(false);
  EXPECT_FALSE(subject->hasNotificationActive());
}

// Hands its last reader a look at the object it was a part of.
class Part {
 public:
  explicit Part(std::function<void()> atEnd) : atEnd_(std::move(atEnd)) {}
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() { atEnd_(); }

 private:
  std::function<void()> atEnd_;
};

// Has no destructor of its own.
class Whole : public Zev::Typed<Whole> {
 public:
  static constexpr std::string_view kTypeName = "PtrInterfaceTest.Whole";
  explicit Whole(bool& active) : part_([this, &active] { active = hasNotificationActive(); }) {}

 private:
  Part part_;
};

TEST_F(PtrInterfaceTest, NotificationsAreOffWhenTheFirstDestructorBegins) {
  bool during = true;
  Ptr<Subject> subject = makeObject<Subject>(
      Subject::Step(), [&during](Subject* self) { during = self->hasNotificationActive(); });
  subject = nullptr;
  EXPECT_EQ(Subject::ended, 1);
  EXPECT_FALSE(during);
}

TEST_F(PtrInterfaceTest, NotificationsAreOffBeforeAMemberGoes) {
  bool during = true;
  Ptr<Whole> whole = makeObject<Whole>(during);
  whole = nullptr;
  EXPECT_FALSE(during);
}

TEST_F(PtrInterfaceTest, AnObjectThatNeverTookNotificationsMayEndWithoutAReference) {
  bool during = true;
  { const Whole whole(during); }
  EXPECT_FALSE(during);
}

using PtrInterfaceDeathTest = PtrInterfaceTest;

// Nothing could turn them off in time.
TEST_F(PtrInterfaceDeathTest, AnObjectThatEndsWithNotificationsOnStopsTheProcess) {
  bool during = false;
  const auto endInItsBlock = [&during] {
    Whole whole(during);
    whole.hasNotificationActiveIs(true);
  };
  EXPECT_DEATH(endInItsBlock(), "!notificationActive_");
}

// Notes each report of the runtime.
class Reported : public Subject {
 public:
  static constexpr std::string_view kTypeName = "PtrInterfaceTest.Reported";
  void zeroReferencesIs(bool zero) override {
    ++zeroes;
    Subject::zeroReferencesIs(zero);
  }
  static inline int zeroes = 0;
};

TEST_F(PtrInterfaceTest, TheLastReferenceIsReportedOnceAndEndsTheObject) {
  Reported::zeroes = 0;
  const Zev::AllocationTracker& tracker = Zev::trackerOf<Reported>();
  Ptr<Subject> first = makeObject<Reported>();
  Ptr<Subject> second = first;
  EXPECT_EQ(tracker.live(), 1) << "counted under the class that was made, not under its base";
  first = nullptr;
  EXPECT_EQ(Reported::zeroes, 0);
  second = nullptr;
  EXPECT_EQ(Reported::zeroes, 1);
  EXPECT_EQ(Subject::ended, 1);
  EXPECT_EQ(tracker.live(), 0);
}

TEST_F(PtrInterfaceTest, AReportThatIsNotOfZeroReferencesEndsNothing) {
  const Ptr<Subject> subject = makeObject<Subject>();
  subject->zeroReferencesIs(false);
  EXPECT_EQ(Subject::ended, 0);
  EXPECT_FALSE(subject->isBeingDestroyed());
}

// Thread-safe-pointer mode belongs to the process: off again when a test ends.
class ThreadSafePtrMode : public PtrInterfaceTest {
 protected:
  ~ThreadSafePtrMode() override { Zev::threadSafePtrModeIs(false); }
};

TEST_F(ThreadSafePtrMode, IsOffAtStart) {
  EXPECT_FALSE(Zev::threadSafePtrMode());
  Zev::threadSafePtrModeIs(true);
  EXPECT_TRUE(Zev::threadSafePtrMode());
}

TEST_F(ThreadSafePtrMode, CountsMadeInOneModeHoldInTheOther) {
  Ptr<Subject> subject = makeObject<Subject>();
  Ptr<Subject> second = subject;
  Zev::threadSafePtrModeIs(true);
  second = nullptr;
  EXPECT_EQ(subject->references(), 1U);
  second = subject;
  Zev::threadSafePtrModeIs(false);
  second = nullptr;
  subject = nullptr;
  EXPECT_EQ(Subject::ended, 1);
}

constexpr int kThreads = 4;

TEST_F(ThreadSafePtrMode, NoReferenceIsLostWhenThreadsCopyAndDropPointers) {
  Zev::threadSafePtrModeIs(true);
  const Ptr<Subject> shared = makeObject<Subject>();
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&shared] {
      for (int copies = 0; copies < 50'000; ++copies) {
        Ptr<Subject> copy = shared;
        const Ptr<const Subject> constant = std::move(copy);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(shared->references(), 1U);
  EXPECT_EQ(Subject::ended, 0);
}

TEST_F(ThreadSafePtrMode, ExactlyOneThreadEndsAnObjectThatAllOfThemDrop) {
  Zev::threadSafePtrModeIs(true);
  constexpr int kRounds = 2'000;
  std::vector<std::vector<Ptr<Subject>>> held(kThreads);
  for (int round = 0; round < kRounds; ++round) {
    const Ptr<Subject> subject = makeObject<Subject>();
    for (auto& mine : held) {
      mine.push_back(subject);
    }
  }
  std::vector<std::thread> threads;
  std::atomic<int> ready = 0;
  for (auto& mine : held) {
    threads.emplace_back([&mine, &ready] {
      ++ready;
      while (ready != kThreads) {
        std::this_thread::yield();
      }
      mine.clear();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Subject::ended, kRounds);
}

}  // namespace
