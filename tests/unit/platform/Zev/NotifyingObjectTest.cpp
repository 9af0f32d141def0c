// SPDX-License-Identifier: Apache-2.0

#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/NotifyingObject.h"
#include "testing/LeakCheck.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Subject : public Zev::Typed<Subject, Zev::NotifyingObject> {
 public:
  static constexpr std::string_view kTypeName = "Subject";
};

// Hears a subject, and removes its reactor when it ends, as every observer must.
class Observer : public Zev::Typed<Observer, Zev::NotifyingObject> {
 public:
  static constexpr std::string_view kTypeName = "Observer";

  explicit Observer(const Pell::Ptr<const Subject>& subject, std::vector<short>& heard)
      : subject_(subject),
        reactor_(*this, [&heard](Pell::Publisher*, Pell::Subscriber*, short attributeId,
                                 const void*, const void*) { heard.push_back(attributeId); }) {
    subject_->publisher().subscriberAdd(reactor_);
    subject_->publisher().attributeChange(1);  // construction is not complete
  }
  ~Observer() override {
    subject_->publisher().attributeChange(99);  // being destroyed
    subject_->publisher().subscriberRemove(reactor_);
  }

 private:
  Pell::Ptr<const Subject> subject_;
  Zev::Reactor reactor_;
};

class NotifyingObjectTest : public testing_support::LeakCheckedTest {
 protected:
  void change(short attributeId) { subject_->publisher().attributeChange(attributeId); }

  std::vector<short> heard_;
  Pell::Ptr<Subject> subject_ = Zev::makeObject<Subject>();
  Pell::Ptr<Observer> observer_ = Zev::makeObject<Observer>(subject_, heard_);
};

TEST_F(NotifyingObjectTest, ThePublisherIsTheNotifieeList) {
  EXPECT_EQ(subject_->notifieeList(), &subject_->publisher());
  EXPECT_FALSE(subject_->publisher().idle());
  observer_ = nullptr;
  EXPECT_TRUE(subject_->publisher().idle());
}

TEST_F(NotifyingObjectTest, NothingReachesAnObjectUnderConstruction) {
  EXPECT_THAT(heard_, IsEmpty());
  EXPECT_TRUE(observer_->reactsToChanges());
}

TEST_F(NotifyingObjectTest, AReactorHearsWhileNotificationsAreOn) {
  change(2);
  observer_->hasNotificationActiveIs(false);
  EXPECT_FALSE(observer_->reactsToChanges());
  change(3);
  observer_->hasNotificationActiveIs(true);
  change(4);
  EXPECT_THAT(heard_, ElementsAre(2, 4));
}

TEST_F(NotifyingObjectTest, TurningTheSubjectsNotificationsOffDoesNotSilenceIt) {
  subject_->hasNotificationActiveIs(false);
  change(5);
  EXPECT_THAT(heard_, ElementsAre(5));
}

TEST_F(NotifyingObjectTest, ZombieReactorsHearNothing) {
  observer_->zevDoZombieReactors(true);
  EXPECT_FALSE(observer_->reactsToChanges());
  EXPECT_TRUE(observer_->hasNotificationActive());
  change(6);
  EXPECT_THAT(heard_, IsEmpty());
}

TEST_F(NotifyingObjectTest, AReactorThatBecomesAZombieDuringADeliveryIsNotReached) {
  Pell::Ptr<Observer> later;
  Pell::Subscriber kills(
      [&later](Pell::Publisher*, Pell::Subscriber*, short attributeId, const void*, const void*) {
        if (attributeId == 7) {
          later->zevDoZombieReactors(true);
        }
      });
  subject_->publisher().subscriberAdd(kills);  // before the observer that it silences
  std::vector<short> laterHeard;
  later = Zev::makeObject<Observer>(subject_, laterHeard);
  change(6);
  change(7);
  EXPECT_THAT(laterHeard, ElementsAre(6));
  subject_->publisher().subscriberRemove(kills);
}

TEST_F(NotifyingObjectTest, NothingReachesAnObjectThatIsBeingDestroyed) {
  change(8);
  observer_ = nullptr;
  EXPECT_THAT(heard_, ElementsAre(8)) << "not 99, published by the destructor";
}

TEST_F(NotifyingObjectTest, TheObserverMayBeReleasedByTheChangeItHears) {
  Pell::Subscriber releases([this](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                                   const void*) { observer_ = nullptr; });
  subject_->publisher().subscriberAdd(releases);
  change(9);
  change(10);
  EXPECT_THAT(heard_, ElementsAre(9));
  subject_->publisher().subscriberRemove(releases);
}

}  // namespace
