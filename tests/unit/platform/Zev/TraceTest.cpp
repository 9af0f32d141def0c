// SPDX-License-Identifier: Apache-2.0

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/Trace.h"
#include "testing/TraceRecorder.h"

namespace {

// While there is one, this thread's looks at a clock are written down, and clocks may stand still.
struct ClockWatch {
  ClockWatch() { current = this; }
  ClockWatch(const ClockWatch&) = delete;
  ClockWatch& operator=(const ClockWatch&) = delete;
  ~ClockWatch() { current = nullptr; }

  static thread_local ClockWatch* current;

  std::vector<clockid_t> reads;
  std::map<clockid_t, timespec> stopped;
};
constinit thread_local ClockWatch* ClockWatch::current = nullptr;

}  // namespace

// Stands in for the C library's, in the whole program.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): its names are reserved
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (ClockWatch* const watch = ClockWatch::current; watch != nullptr) {
    watch->reads.push_back(clock);
    if (const auto stopped = watch->stopped.find(clock); stopped != watch->stopped.end()) {
      *time = stopped->second;
      return 0;
    }
  }
  return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
}

namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using testing_support::TraceRecorder;
using Zev::traceHandle;
using Zev::traceSettingIs;

constexpr std::uint32_t levels(std::initializer_list<int> enabled) {
  std::uint32_t bits = 0;
  for (const int level : enabled) {
    bits |= 1U << level;
  }
  return bits;
}

TEST(Trace, ARecordTellsLevelModuleFunctionLineClassAndMessage) {
  const TraceRecorder recorder({"TraceTest"});
  const int line = __LINE__ + 1;
  ZEV_TRACE(traceHandle("TraceTest"), 8, "SomeClass", "key: {} of {} ", 7, "unit");
  ASSERT_EQ(recorder.records().size(), 1U);
  const TraceRecorder::Record& record = recorder.records().front();
  EXPECT_EQ(record.level, 8);
  EXPECT_EQ(record.file, "TraceTest");
  EXPECT_EQ(record.function, "TestBody");
  EXPECT_EQ(record.line, line);
  EXPECT_EQ(record.className, "SomeClass");
  EXPECT_EQ(record.message, "key: 7 of unit ");
}

TEST(Trace, AFunctionNameMayBeOverridden) {
  const TraceRecorder recorder({"TraceTest"});
  ZEV_TRACE_AS(traceHandle("TraceTest"), 9, "SomeClass", "entryRead", "");
  ASSERT_EQ(recorder.records().size(), 1U);
  EXPECT_EQ(recorder.records().front().function, "entryRead");
  EXPECT_EQ(recorder.records().front().message, "") << "an empty message is a record too";
}

TEST(Trace, ArgumentsBeyondThePlaceholdersAreAcceptedAndNotPrinted) {
  const TraceRecorder recorder({"TraceTest"});
  ZEV_TRACE(traceHandle("TraceTest"), 9, "SomeClass", "Updating key: ", 1234);
  EXPECT_THAT(recorder.texts(), ElementsAre("Updating key: "));
}

TEST(Trace, NothingIsEvaluatedForALevelThatIsOff) {
  const TraceRecorder recorder({"TraceTest"}, levels({3}));
  int evaluated = 0;
  ZEV_TRACE(traceHandle("TraceTest"), 8, "SomeClass", "{}", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ZEV_TRACE(traceHandle("TraceTest"), 3, "SomeClass", "{}", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(recorder.texts(), ElementsAre("1"));
}

TEST(Trace, IsOneStatementThatAnElseMayFollow) {
  const TraceRecorder recorder({"TraceTest"});
  // NOLINTBEGIN(readability-braces-around-statements): without braces the macro must be one
  // statement
  if (recorder.records().empty())
    ZEV_TRACE(traceHandle("TraceTest"), 1, "SomeClass", "first");
  else
    ZEV_TRACE(traceHandle("TraceTest"), 1, "SomeClass", "second");
  // NOLINTEND(readability-braces-around-statements)
  EXPECT_THAT(recorder.texts(), ElementsAre("first"));
}

TEST(Trace, AHandleIsMadeOnceForItsNameWithEveryLevelOff) {
  Zev::TraceHandle& handle = traceHandle("MadeOnce");
  EXPECT_EQ(&traceHandle("MadeOnce"), &handle);
  EXPECT_NE(&traceHandle("MadeTwice"), &handle);
  EXPECT_EQ(handle.name(), "MadeOnce");
  for (int level = 0; level <= Zev::kHighestTraceLevel; ++level) {
    EXPECT_FALSE(handle.enabled(level)) << level;
  }
}

TEST(Trace, TheModuleNameIsTheFilesWithoutFolderAndExtension) {
  static_assert(Zev::moduleName("src/fec/FecTableSwTable.cpp") == "FecTableSwTable");
  EXPECT_EQ(Zev::moduleName("FecTableEntryLog.h"), "FecTableEntryLog");
  EXPECT_EQ(Zev::moduleName("/a.b/plain"), "plain");
  EXPECT_EQ(Zev::moduleName(""), "");
}

TEST(Trace, ASinkMayReplaceItselfWhileItRuns) {
  const TraceRecorder recorder({"TraceTest"});
  const Zev::TraceSink recording = Zev::traceSink();
  std::string seen;
  Zev::traceSinkIs([&seen, recording](const Zev::TraceRecord& record) {
    const Zev::TraceSink next = recording;
    Zev::traceSinkIs(next);
    seen = record.message;
    next(record);
  });
  ZEV_TRACE(traceHandle("TraceTest"), 1, "SomeClass", "first");
  ZEV_TRACE(traceHandle("TraceTest"), 1, "SomeClass", "second");
  EXPECT_EQ(seen, "first");
  EXPECT_THAT(recorder.texts(), ElementsAre("first", "second"));
}

// Settings are remembered by the process, so each test sets names of its own, and those that set
// all of them run as a process of their own.
struct GoodSetting {
  const char* levels;
  std::uint32_t bits;
};
class TraceSettingLevels : public ::testing::TestWithParam<GoodSetting> {};

TEST_P(TraceSettingLevels, EnableWhatTheySay) {
  Zev::TraceHandle& handle = traceHandle("Levels");
  handle.levelsIs(levels({5}));
  traceSettingIs(std::string("Levels=") + GetParam().levels);
  EXPECT_EQ(handle.levels(), GetParam().bits);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, TraceSettingLevels,
    ::testing::Values(GoodSetting{"0", levels({0})}, GoodSetting{"9", levels({9})},
                      GoodSetting{"1-3", levels({1, 2, 3})}, GoodSetting{"4-4", levels({4})},
                      GoodSetting{"1-3+8", levels({1, 2, 3, 8})},
                      GoodSetting{"8+1+8", levels({1, 8})}, GoodSetting{"0-9", 0x3ff},
                      GoodSetting{"*", 0x3ff}, GoodSetting{"2+*", 0x3ff}));

TEST(TraceSetting, SetsHandlesThatExistAndThoseMadeLater) {
  Zev::TraceHandle& existing = traceHandle("Existing");
  traceSettingIs("Existing=1,Later=2-3");
  EXPECT_EQ(existing.levels(), levels({1}));
  EXPECT_EQ(traceHandle("Later").levels(), levels({2, 3}));
}

TEST(TraceSetting, TheLastOneForANameHolds) {
  traceSettingIs("LastHolds=1");
  traceSettingIs("LastHolds=2,LastHolds=3");
  EXPECT_EQ(traceHandle("LastHolds").levels(), levels({3}));
}

struct BadSetting {
  const char* setting;
  const char* why;
};
class TraceSettingErrors : public ::testing::TestWithParam<BadSetting> {};

TEST_P(TraceSettingErrors, AreToldAndChangeNothing) {
  Zev::TraceHandle& handle = traceHandle("Errors");
  handle.levelsIs(levels({6}));
  try {
    traceSettingIs(GetParam().setting);
    FAIL() << "accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(std::string(error.what()),
              std::string("trace setting ") + GetParam().why +
                  "; write NAME=LEVELS,... with LEVELS as in 1-3+8 or *");
  }
  EXPECT_EQ(handle.levels(), levels({6}));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TraceSettingErrors,
    ::testing::Values(
        BadSetting{"", R"("": a name or '=' is missing)"},
        BadSetting{"Errors", R"("Errors": a name or '=' is missing)"},
        BadSetting{"=1", R"("=1": a name or '=' is missing)"},
        BadSetting{"Errors=1,", R"("": a name or '=' is missing)"},
        BadSetting{"Errors=", R"("Errors=": "" is not a level from 0 to 9)"},
        BadSetting{"Errors=10", R"("Errors=10": "10" is not a level from 0 to 9)"},
        BadSetting{"Errors=-1", R"("Errors=-1": "" is not a level from 0 to 9)"},
        BadSetting{"Errors=1-", R"("Errors=1-": "" is not a level from 0 to 9)"},
        BadSetting{"Errors=1--2", R"("Errors=1--2": "-2" is not a level from 0 to 9)"},
        BadSetting{"Errors=1x", R"("Errors=1x": "1x" is not a level from 0 to 9)"},
        BadSetting{"Errors=1++2", R"("Errors=1++2": "" is not a level from 0 to 9)"},
        BadSetting{"Errors=8-3", R"("Errors=8-3": "8-3" runs backwards)"},
        BadSetting{"Errors=1,Other=x", R"("Other=x": "x" is not a level from 0 to 9)"}));

// Death tests that start the program anew, so that the traces of the process begin afresh.
class TraceProcessDeathTest : public ::testing::Test {
 protected:
  TraceProcessDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~TraceProcessDeathTest() override {
    ::unsetenv("LOAM_TRACE");
    GTEST_FLAG_SET(death_test_style, style_);
  }
  static void environmentIs(const char* setting) { ::setenv("LOAM_TRACE", setting, 1); }

 private:
  const std::string style_ = GTEST_FLAG_GET(death_test_style);
};

[[noreturn]] void emitAndExit() {
  Zev::emitTrace({3, "FecTableSwTable", "tableStatusVersion", 42, "FecTableSwTable",
                  "Processing version: 7, key: 9"});
  Zev::emitTrace({9, "FecTableEntryLog", "mount", 5, "FecTableEntryLog", ""});
  std::_Exit(0);
}

[[noreturn]] void emitWithStoppedClocksAndExit() {
  ClockWatch clocks;
  clocks.stopped = {{CLOCK_REALTIME, {1'700'000'000, 6'999}}, {CLOCK_MONOTONIC, {12, 345'678'999}}};
  emitAndExit();
}

[[noreturn]] void printLevelsAndExit() {
  std::fprintf(stderr, "first %x second %x", traceHandle("First").levels(),
               traceHandle("Second").levels());
  std::_Exit(0);
}

// What the sinks below say about themselves outside of their captures, which may be gone.
struct SinkLife {
  std::weak_ptr<int> captured;
  bool livesOn = false;
};
SinkLife sinkLife;

TEST(Trace, ASinkThatIsReplacedLivesToTheEndOfItsCall) {
  const TraceRecorder recorder({"TraceTest"});
  const auto captured = [] {
    auto made = std::make_shared<int>(1);
    sinkLife.captured = made;
    return made;
  };
  Zev::traceSinkIs([held = captured()](const Zev::TraceRecord&) {
    Zev::traceSinkIs([](const Zev::TraceRecord&) {});
    sinkLife.livesOn = !sinkLife.captured.expired();
  });
  ZEV_TRACE(traceHandle("TraceTest"), 1, "SomeClass", "one");
  EXPECT_TRUE(sinkLife.livesOn);
  EXPECT_TRUE(sinkLife.captured.expired());
}

// Wall clock and monotonic clock, as every line of the default sink begins.
const std::string kTimes =
    "[0-9]{4}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{6}Z "
    "[0-9]+\\.[0-9]{6} ";

TEST_F(TraceProcessDeathTest, TheDefaultSinkWritesOneLineARecordToStderr) {
  EXPECT_EXIT(emitAndExit(), ExitedWithCode(0),
              MatchesRegex("^" + kTimes +
                           "3 FecTableSwTable:42 FecTableSwTable::tableStatusVersion Processing "
                           "version: 7, key: 9\n" +
                           kTimes + "9 FecTableEntryLog:5 FecTableEntryLog::mount\n$"));
}

TEST_F(TraceProcessDeathTest, AMessageOfSeveralLinesIsWrittenAsOne) {
  EXPECT_EXIT(
      {
        Zev::emitTrace({1, "FecAsic", "flush", 7, "FecAsic", "not taken: no answer\nbus 3\n"});
        std::_Exit(0);
      },
      ExitedWithCode(0),
      MatchesRegex("^" + kTimes + "1 FecAsic:7 FecAsic::flush not taken: no answer bus 3 \n$"));
}

TEST_F(TraceProcessDeathTest, TheTimesOfALineAreThoseOfTheTwoClocks) {
  EXPECT_EXIT(emitWithStoppedClocksAndExit(), ExitedWithCode(0),
              StartsWith("2023-11-14T22:13:20.000006Z 12.345678 3 FecTableSwTable:42 "));
}

TEST(Trace, TheDefaultSinkReadsEachClockOncePerLineAndNoneForALevelThatIsOff) {
  const TraceRecorder recorder({"TraceTest"}, levels({3}));
  Zev::traceSinkIs({});
  const ClockWatch clocks;
  ZEV_TRACE(traceHandle("TraceTest"), 8, "SomeClass", "off");
  EXPECT_THAT(clocks.reads, IsEmpty());
  ZEV_TRACE(traceHandle("TraceTest"), 3, "SomeClass", "on");
  EXPECT_THAT(clocks.reads, ElementsAre(CLOCK_REALTIME, CLOCK_MONOTONIC));
}

TEST_F(TraceProcessDeathTest, AnEmptySinkRestoresTheDefault) {
  EXPECT_EXIT(
      {
        Zev::traceSinkIs([](const Zev::TraceRecord&) {});
        Zev::emitTrace({1, "Lost", "lost", 1, "Lost", "lost"});
        Zev::traceSinkIs({});
        Zev::emitTrace({1, "File", "function", 2, "Class", "kept"});
        std::_Exit(0);
      },
      ExitedWithCode(0), MatchesRegex("^" + kTimes + "1 File:2 Class::function kept\n$"));
}

TEST_F(TraceProcessDeathTest, WithoutAnEnvironmentSettingEveryLevelIsOff) {
  ::unsetenv("LOAM_TRACE");
  EXPECT_EXIT(printLevelsAndExit(), ExitedWithCode(0), Eq("first 0 second 0"));
}

TEST_F(TraceProcessDeathTest, TheEnvironmentSettingIsInForceFromTheStart) {
  environmentIs("First=1-3+8,Second=*");
  EXPECT_EXIT(printLevelsAndExit(), ExitedWithCode(0), Eq("first 10e second 3ff"));
}

TEST_F(TraceProcessDeathTest, AStarSetsEveryHandleAndALaterNameOverrulesIt) {
  environmentIs("*=1,Second=2");
  EXPECT_EXIT(printLevelsAndExit(), ExitedWithCode(0), Eq("first 2 second 4"));
}

TEST_F(TraceProcessDeathTest, ALaterStarOverrulesAName) {
  EXPECT_EXIT(
      {
        traceHandle("First");
        traceSettingIs("First=5,Second=5");
        traceSettingIs("*=1");
        printLevelsAndExit();
      },
      ExitedWithCode(0), Eq("first 2 second 2"));
}

TEST_F(TraceProcessDeathTest, AnEmptyEnvironmentSettingIsNone) {
  environmentIs("");
  EXPECT_EXIT(printLevelsAndExit(), ExitedWithCode(0), Eq("first 0 second 0"));
}

TEST_F(TraceProcessDeathTest, AWrongEnvironmentSettingIsToldAndIgnored) {
  environmentIs("First=1,Second=12");
  EXPECT_EXIT(printLevelsAndExit(), ExitedWithCode(0),
              Eq("LOAM_TRACE ignored: trace setting \"Second=12\": \"12\" is not a level from 0 to "
                 "9; write NAME=LEVELS,... with LEVELS as in 1-3+8 or *\nfirst 0 second 0"));
}

}  // namespace
