// SPDX-License-Identifier: Apache-2.0

// Handles of operations, as other operations and their requesters see them.

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedSwTable.h"
#include "testing/LeakCheck.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::EntryState;
using Asic::LogVersion;
using Asic::SwTableId;
using ::testing::ElementsAre;

class PlainHandle : public Zev::Typed<PlainHandle, Asic::OrderedSwTable::EntryHandle> {
 public:
  static constexpr const char* kTypeName = "PlainHandle";
  explicit PlainHandle(SwTableId tableId) : Typed(tableId) {}
};

class EntryHandleTest : public testing_support::LeakCheckedTest {
 protected:
  Pell::Ptr<PlainHandle> handle_ = Zev::makeObject<PlainHandle>(SwTableId(0x03010805));
};

TEST_F(EntryHandleTest, StartsUnresolvedAndUnloggedWithoutAHandler) {
  EXPECT_EQ(handle_->entryState(), EntryState::notResolved);
  EXPECT_EQ(handle_->logVersion(), LogVersion());
  EXPECT_FALSE(handle_->responseHandler());
}

TEST_F(EntryHandleTest, ItsTableVersionIsItsTablesIdAndItsLogVersion) {
  EXPECT_EQ(handle_->entryTableVersion(), Asic::TableVersion(SwTableId(0x03010805), LogVersion()));
  handle_->logVersionIs(LogVersion(42));
  EXPECT_EQ(handle_->logVersion(), LogVersion(42));
  EXPECT_EQ(handle_->entryTableVersion(),
            Asic::TableVersion(SwTableId(0x03010805), LogVersion(42)));
}

TEST_F(EntryHandleTest, AChangeOfStateIsPublishedAndAnEqualStateIsNot) {
  std::vector<EntryState> heard;
  Pell::Subscriber subscriber(
      [&](Pell::Publisher*, Pell::Subscriber*, short attribute, const void*, const void*) {
        EXPECT_EQ(attribute, Asic::DependencyEntryHandle::kEntryStateAttribute);
        heard.push_back(handle_->entryState());
      });
  handle_->publisher().subscriberAdd(subscriber);
  handle_->entryStateIs(EntryState::notResolved);
  handle_->entryStateIs(EntryState::hwWritePending);
  handle_->entryStateIs(EntryState::hwWritePending);
  handle_->entryStateIs(EntryState::done);
  handle_->publisher().subscriberRemove(subscriber);
  EXPECT_THAT(heard, ElementsAre(EntryState::hwWritePending, EntryState::done));
}

TEST_F(EntryHandleTest, AChangeOfStateIsTracedAndAnEqualStateIsNot) {
  const testing_support::TraceRecorder traces({"DependencyEntryHandle"});
  handle_->logVersionIs(LogVersion(42));
  handle_->entryStateIs(EntryState::hwWritePending);
  handle_->entryStateIs(EntryState::hwWritePending);
  EXPECT_THAT(traces.lines(), ElementsAre("8 DependencyEntryHandle::entryStateSet tableVersion: "
                                          "03:01:0805@42 entryState: 1 was: 0"));
}

TEST_F(EntryHandleTest, CarriesTheHandlerThatItWasGivenLast) {
  int called = 0;
  handle_->responseHandlerIs([&](const auto& told) {
    EXPECT_EQ(told, handle_);
    ++called;
  });
  handle_->responseHandler()(handle_);
  EXPECT_EQ(called, 1);
  handle_->responseHandlerIs({});
  EXPECT_FALSE(handle_->responseHandler());
}

TEST_F(EntryHandleTest, AnOperationSeesAHandleAsItsDependency) {
  const Pell::Ptr<Asic::DependencyEntryHandle const> dependency = handle_;
  handle_->entryStateIs(EntryState::commitFailed);
  handle_->logVersionIs(LogVersion(9));
  EXPECT_EQ(dependency->entryState(), EntryState::commitFailed);
  EXPECT_EQ(dependency->entryTableVersion().logVersion(), LogVersion(9));
}

}  // namespace
