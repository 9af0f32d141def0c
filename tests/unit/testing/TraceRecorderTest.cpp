// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/Trace.h"
#include "testing/TraceRecorder.h"

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::PrintToString;
using ::testing::StartsWith;
using testing_support::HasTrace;
using testing_support::TraceRecorder;

void speak(int level, const char* text) {
  ZEV_TRACE(Zev::traceHandle("Speaker"), level, "Speaker", "{}", text);
}
void whisper(const char* text) { ZEV_TRACE(Zev::traceHandle("Speaker"), 9, "Speaker", "{}", text); }

TEST(TraceRecorder, CollectsTheRecordsOfTheNamedHandles) {
  const TraceRecorder recorder({"Speaker"});
  speak(3, "one ");
  speak(8, "two");
  whisper("three");
  EXPECT_THAT(recorder.texts(), ElementsAre("one ", "two", "three"));
  EXPECT_THAT(recorder.texts(8), ElementsAre("two"));
  EXPECT_THAT(recorder.textsOf("whisper"), ElementsAre("three"));
  ASSERT_EQ(recorder.records().size(), 3U);
  const TraceRecorder::Record& first = recorder.records().front();
  EXPECT_EQ(first.level, 3);
  EXPECT_EQ(first.file, "TraceRecorderTest");
  EXPECT_EQ(first.function, "speak");
  EXPECT_EQ(first.className, "Speaker");
  EXPECT_GT(first.line, 0);
}

TEST(TraceRecorder, ComparesTextsWholeAndWithTheirLevel) {
  TraceRecorder recorder({"Speaker"});
  speak(3, "one ");
  speak(3, "one ");
  EXPECT_THAT(recorder, HasTrace(3, "one "));
  EXPECT_THAT(recorder, Not(HasTrace(3, "one")));
  EXPECT_THAT(recorder, Not(HasTrace(2, "one ")));
  EXPECT_EQ(recorder.count(3, "one "), 2U);
  EXPECT_EQ(recorder.find("one "), &recorder.records().front());
  EXPECT_EQ(recorder.find("one"), nullptr);
  recorder.clear();
  EXPECT_THAT(recorder, Not(HasTrace(3, "one ")));
}

TEST(TraceRecorder, LinesSayWhoTracesAtWhichLevel) {
  const TraceRecorder recorder({"Speaker"});
  speak(3, "one");
  whisper("two");
  EXPECT_THAT(recorder.lines(), ElementsAre("3 Speaker::speak one", "9 Speaker::whisper two"));
  EXPECT_THAT(recorder.lines(3), ElementsAre("3 Speaker::speak one"));
  EXPECT_THAT(recorder.lines(2), ElementsAre());
}

TEST(TraceRecorder, EnablesTheGivenLevelsOnlyAndRestoresWhatItFound) {
  Zev::TraceHandle& handle = Zev::traceHandle("Speaker");
  const std::uint32_t before = handle.levels();
  {
    const TraceRecorder recorder({"Speaker", "Speaker"}, 1U << 3);
    speak(3, "heard");
    speak(8, "unheard");
    EXPECT_THAT(recorder.texts(), ElementsAre("heard"));
  }
  EXPECT_EQ(handle.levels(), before);
}

TEST(TraceRecorder, AnInnerRecorderGivesTheSinkBackToTheOuterOne) {
  const TraceRecorder outer({"Speaker"});
  speak(1, "before");
  {
    const TraceRecorder inner({"Speaker"});
    speak(1, "within");
    EXPECT_THAT(inner.texts(), ElementsAre("within"));
  }
  speak(1, "after");
  EXPECT_THAT(outer.texts(), ElementsAre("before", "after"));
}

TEST(TraceRecorder, ARecordPrintsItsMessageBetweenQuotes) {
  std::ostringstream out;
  out << TraceRecorder::Record{3, "File", "function", 12, "Class", "blank at the end "};
  EXPECT_EQ(out.str(), "3 File:12 Class::function \"blank at the end \"");
}

TEST(TraceRecorder, WhereATraceIsMissingEveryTraceThatCameIsPrinted) {
  const TraceRecorder recorder({"Speaker"});
  speak(3, "one ");
  whisper("two");
  EXPECT_THAT(PrintToString(recorder),
              AllOf(StartsWith("2 traces\n  3 "), HasSubstr("::speak \"one \"\n  9 "),
                    EndsWith("::whisper \"two\"")));
  const ::testing::Matcher<const TraceRecorder&> matcher = HasTrace(8, "two");
  std::ostringstream expected;
  matcher.DescribeTo(&expected);
  EXPECT_EQ(expected.str(), "has trace (level: 8, text: \"two\")");
}

}  // namespace
