// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/SwTableInterfacesSingleton.h"
#include "testing/LeakCheck.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::SwTableInterfacesSingleton;

class PlainInterface : public Zev::Typed<PlainInterface, Asic::TableInterfaceBase> {
 public:
  static constexpr const char* kTypeName = "PlainInterface";
  PlainInterface() : Typed(nullptr) {}
};

class SwTableInterfacesSingletonTest : public testing_support::LeakCheckedTest {
 protected:
  ~SwTableInterfacesSingletonTest() override { Zev::Entity::singletonDelAll(); }

  static Pell::Ptr<SwTableInterfacesSingleton> registry() {
    Zev::Entity::singletonIs(SwTableInterfacesSingleton::make,
                             SwTableInterfacesSingleton::kTypeName);
    return SwTableInterfacesSingleton::instance();
  }
};

TEST_F(SwTableInterfacesSingletonTest, ThereIsNoneUntilItIsMadeUnderItsTypesName) {
  EXPECT_EQ(SwTableInterfacesSingleton::instance(), nullptr);
  EXPECT_FALSE(Zev::Entity::singletonExists("Asic::SwTableInterfacesSingleton"));
  const auto made = registry();
  ASSERT_TRUE(made);
  EXPECT_TRUE(Zev::Entity::singletonExists("Asic::SwTableInterfacesSingleton"));
  EXPECT_EQ(made->nameString(), "Asic::SwTableInterfacesSingleton");
  EXPECT_EQ(made->fwkType().name, "Asic::SwTableInterfacesSingleton");
  EXPECT_EQ(registry(), made);
}

TEST_F(SwTableInterfacesSingletonTest, AnInterfaceIsFoundUnderItsNameOnly) {
  const auto interface = Zev::makeObject<PlainInterface>();
  registry()->swTableIntfIs("a", interface);
  EXPECT_TRUE(registry()->swTableIntfHas("a"));
  EXPECT_FALSE(registry()->swTableIntfHas("b"));
  EXPECT_EQ(registry()->swTableIntf("a"), interface);
  EXPECT_EQ(registry()->swTableIntf("b"), nullptr);
}

TEST_F(SwTableInterfacesSingletonTest, ItHoldsItsInterfacesAndReplacesByName) {
  auto& tracker = Zev::trackerOf<PlainInterface>();
  registry()->swTableIntfIs("a", Zev::makeObject<PlainInterface>());
  EXPECT_EQ(tracker.live(), 1);
  const auto second = Zev::makeObject<PlainInterface>();
  registry()->swTableIntfIs("a", second);
  EXPECT_EQ(tracker.live(), 1);
  EXPECT_EQ(registry()->swTableIntf("a"), second);
}

TEST_F(SwTableInterfacesSingletonTest, AnInterfaceThatIsAddedIsTraced) {
  const testing_support::TraceRecorder traces({"SwTableInterfacesSingleton"});
  registry()->swTableIntfIs("one", nullptr);
  EXPECT_THAT(traces.lines(),
              ::testing::ElementsAre("8 SwTableInterfacesSingleton::swTableIntfIs name: one"));
}

}  // namespace
