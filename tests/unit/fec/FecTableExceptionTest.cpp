// SPDX-License-Identifier: Apache-2.0

// Response handlers and hooks that throw, and reports inside reports: what is answered, in which
// order, and what the event loop gets.

#include <stdexcept>
#include <string>

#include "FecTableFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;
using HandlePtr = Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>;

struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class FecTableExceptionTest : public FecTableFixture {
 protected:
  // A write without an interface, whose handler writes its key down and then does what the test
  // says.
  Handle writeThen(std::uint32_t fecId, std::function<void()> reaction,
                   const Dependency& dependency = nullptr) {
    return table().entryWriteWithResponseHandler(
        key(fecId), FecTableDataModelEntry(), dependency,
        [this, fecId, react = std::move(reaction)](const HandlePtr&) {
          answers_.push_back(fecId);
          if (react) {
            react();
          }
        });
  }
  static std::function<void()> throwing(const std::string& text) {
    return [text] { throw Thrown(text); };
  }
  // What the call throws; nothing when it returns.
  template <typename Call>
  static std::string thrownBy(Call&& call) {
    try {
      call();
    } catch (const Thrown& thrown) {
      return thrown.what();
    }
    return "nothing";
  }
  Pell::Ptr<ScriptedHelper> helperIs() {
    auto helper = Zev::makeObject<ScriptedHelper>();
    table().swTableHelperIs(helper);
    return helper;
  }

  std::vector<std::uint32_t> answers_;
};

// Handlers of a report.

TEST_F(FecTableExceptionTest, AReportAnswersTheHandlesBehindAHandlerThatThrows) {
  writeThen(5, nullptr);
  writeThen(6, throwing("of 6"));
  writeThen(7, throwing("of 7"));
  writeThen(8, nullptr);
  agent_.run();
  EXPECT_EQ(thrownBy([this] { table().tableStatusVersion(Asic::LogVersion(4)); }), "of 6");
  EXPECT_THAT(answers_, ElementsAre(5, 6, 7, 8));
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(status().pendingHwWrites()) << "every logged operation has reached the hardware";
}

TEST_F(FecTableExceptionTest, AHandlerThatThrowsIsNotCalledAgain) {
  writeThen(5, throwing("of 5"));
  agent_.run();
  EXPECT_EQ(thrownBy([this] { table().tableStatusVersion(Asic::LogVersion(1)); }), "of 5");
  EXPECT_EQ(thrownBy([this] { table().tableStatusVersion(Asic::LogVersion(1)); }), "nothing");
  EXPECT_THAT(answers_, ElementsAre(5));
}

TEST_F(FecTableExceptionTest, AReportAnswersEachHandleWhenAnObserverOfTheQueueThrows) {
  writeThen(5, nullptr);
  writeThen(6, nullptr);
  agent_.run();
  int left = 0;
  TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kInLog) {
      throw Thrown("as the " + std::to_string(++left) + ". leaves");
    }
  });
  EXPECT_EQ(thrownBy([this] { table().tableStatusVersion(Asic::LogVersion(2)); }),
            "as the 1. leaves");
  EXPECT_EQ(left, 2);
  EXPECT_THAT(answers_, ElementsAre(5, 6));
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableExceptionTest, OfAHandlerAndAnObserverOfTheFlagThatThrowTheHandlersExceptionGoesOn) {
  writeThen(5, throwing("of 5"));
  agent_.run();
  Pell::Subscriber subscriber([](auto...) { throw Thrown("of the flag"); });
  status().publisher().subscriberAdd(subscriber);
  EXPECT_EQ(thrownBy([this] { table().tableStatusVersion(Asic::LogVersion(1)); }), "of 5");
  EXPECT_FALSE(status().pendingHwWrites());
}

// Answers of a commit.

TEST_F(FecTableExceptionTest, AFailureHandlerThatThrowsHasItsRequestAnsweredAndTheWalkGoesOn) {
  const Handle failing = writeThen(5, throwing("of 5"), dependency(State::commitFailed));
  const Handle behind = writeThen(6, nullptr);
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of 5");
  agent_.run();
  EXPECT_THAT(answers_, ElementsAre(5));
  EXPECT_EQ(failing->entryState(), State::commitFailed);
  EXPECT_EQ(behind->entryState(), State::hwWritePending);
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableExceptionTest, AfterAFailureHandlerThatThrowsTheSuspendFlagIsLookedAt) {
  for (std::uint32_t fecId = 0; fecId < 8000; ++fecId) {
    remove(fecId, dependency(State::notResolved));
  }
  writeThen(9000, throwing("of 9000"), dependency(State::commitFailed));
  status().suspendIs(true);
  writeThen(9001, throwing("of 9001"), dependency(State::commitFailed));
  ASSERT_TRUE(status().suspend()) << "8002 wait";
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of 9000");
  EXPECT_TRUE(status().suspend()) << "8002 waited at the end of its commit";
  resolver().resolverQueueDelIf(
      [drop = 2](const Asic::ResolverEntry&) mutable { return drop-- > 0; });
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of 9001");
  EXPECT_FALSE(status().suspend()) << "7999 wait";
}

// Hooks.

TEST_F(FecTableExceptionTest, ASuccessHookThatThrowsRefusesTheWriteWhichIsAnswered) {
  const auto helper = helperIs();
  helper->onSuccess = [](const auto&) { throw Thrown("of the hook"); };
  const Handle refused = write(5);
  TraceRecorder traces({"FecTableSwTable"});
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of the hook");
  EXPECT_THAT(traces, HasTrace(1, "Failed to commit entry key: 5"));
  EXPECT_EQ(refused->entryState(), State::commitFailed);
  ASSERT_THAT(responses(), SizeIs(1));
  EXPECT_EQ(responses()[0].state, State::commitFailed);
  EXPECT_FALSE(committed(5));
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_FALSE(status().pendingHwWrites());
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
  agent_.run();
  EXPECT_THAT(responses(), SizeIs(1));
}

TEST_F(FecTableExceptionTest, AFailureHookThatThrowsRefusesTheWriteWhateverItWouldHaveSaid) {
  const auto helper = helperIs();
  helper->logsFailures = true;
  helper->onFailure = [](const auto&) { throw Thrown("of the hook"); };
  const Handle refused = write(5, "eth1");
  EXPECT_EQ(thrownBy([this] { resourceIs("eth1", State::resourceFailed); }), "of the hook");
  EXPECT_EQ(refused->entryState(), State::commitFailed);
  EXPECT_THAT(responses(), SizeIs(1));
  EXPECT_FALSE(committed(5));
  EXPECT_EQ(log().tableVersion(), Asic::LogVersion());
}

TEST_F(FecTableExceptionTest, OfAHookAndAHandlerThatThrowTheHooksExceptionGoesOn) {
  const auto helper = helperIs();
  helper->onSuccess = [](const auto&) { throw Thrown("of the hook"); };
  writeThen(5, throwing("of the handler"));
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of the hook");
  EXPECT_THAT(answers_, ElementsAre(5));
}

TEST_F(FecTableExceptionTest, AfterAHookThatThrowsTheSuspendFlagIsLookedAt) {
  const auto helper = helperIs();
  helper->onSuccess = [](const auto&) { throw Thrown("of the hook"); };
  write(5);
  status().suspendIs(true);
  EXPECT_EQ(thrownBy([this] { agent_.run(); }), "of the hook");
  EXPECT_FALSE(status().suspend());
}

// Reports inside a report: answers keep the order of the queue.

class NestedReportTest : public FecTableExceptionTest {
 protected:
  NestedReportTest() {
    for (const std::uint32_t fecId : {5U, 6U, 7U}) {
      handles_.push_back(writeThen(fecId, nullptr));
    }
    agent_.run();
  }
  void report(std::uint64_t version) { table().tableStatusVersion(Asic::LogVersion(version)); }

  std::vector<Handle> handles_;
};

TEST_F(NestedReportTest, AnObserverOfTheQueueThatReportsAgainLeavesAnswersInOrder) {
  const TableObserver observer(table(), [this](const TableChange& change) {
    if (change.attribute == kInLog) {
      report(3);
    }
  });
  report(3);
  EXPECT_THAT(answers_, ElementsAre(5, 6, 7));
}

TEST_F(NestedReportTest, AnObserverOfAHandleThatReportsAgainLeavesAnswersInOrder) {
  Pell::Subscriber subscriber([this](auto...) { report(3); });
  handles_[0]->publisher().subscriberAdd(subscriber);
  report(2);
  EXPECT_THAT(answers_, ElementsAre(5, 6, 7));
  handles_[0]->publisher().subscriberRemove(subscriber);
}

TEST_F(NestedReportTest, AnEarlierReportInsideAReportAnswersWhatHasLeftTheQueueAndNoMore) {
  std::vector<std::size_t> answersAfterInner;
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kInLog) {
      report(0);
      answersAfterInner.push_back(answers_.size());
    }
  });
  report(3);
  EXPECT_THAT(answers_, ElementsAre(5, 6, 7));
  EXPECT_THAT(answersAfterInner, ElementsAre(1U, 2U, 3U));
}

TEST_F(NestedReportTest, EachHandleIsTracedUnderTheReportThatTookItOffTheQueue) {
  const TableObserver observer(table(), [this](const TableChange& change) {
    if (change.attribute == kInLog) {
      report(2);
    }
  });
  const TraceRecorder traces({"FecTableSwTable"}, 1U << 3U);
  report(3);
  EXPECT_THAT(traces.textsOf("tableStatusVersion"),
              ElementsAre("Processing version: 3, key: 5", "Processing version: 2, key: 6",
                          "Processing version: 3, key: 7"));
}

TEST_F(NestedReportTest, AnObserverOfAHandleThatThrowsHasTheHandleAnsweredAllTheSame) {
  Pell::Subscriber subscriber([](auto...) { throw Thrown("of the observer"); });
  handles_[1]->publisher().subscriberAdd(subscriber);
  const TraceRecorder traces({"FecTableSwTable"}, 1U << 3U);
  EXPECT_EQ(thrownBy([this] { report(3); }), "of the observer");
  EXPECT_THAT(answers_, ElementsAre(5, 6, 7));
  EXPECT_THAT(traces.textsOf("tableStatusVersion"),
              ElementsAre("Processing version: 3, key: 5", "Processing version: 3, key: 6",
                          "Processing version: 3, key: 7"))
      << "each is processed once";
  handles_[1]->publisher().subscriberRemove(subscriber);
}

// Null where none may be.

TEST_F(FecTableExceptionTest, ANullHelperIsRefusedAndTheOneThatIsThereStays) {
  const auto helper = helperIs();
  const TableObserver observer(table());
  EXPECT_THROW(table().swTableHelperIs(nullptr), std::exception);
  EXPECT_EQ(table().swTableHelper(), helper);
  EXPECT_THAT(observer.changes(), IsEmpty());
}

TEST_F(FecTableExceptionTest, ANullHandleIsRefusedByTheQueueAndHidesNothing) {
  writeThen(5, nullptr);
  agent_.run();
  EXPECT_THROW(table().entryHandleInLogEnq(nullptr), std::exception);
  writeThen(6, nullptr);
  agent_.run();
  agent_.reportAll();
  EXPECT_THAT(answers_, ElementsAre(5, 6));
}

}  // namespace
