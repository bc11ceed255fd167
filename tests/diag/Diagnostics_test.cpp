// SPDX-License-Identifier: MIT
// The texts that the error printer passes to its output, and the effects of the fatal report.

#include <devsupport/diag/Diagnostics.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/support/CapturedOutput.h"

namespace {

using devsupport::test::CapturedOutput;

constexpr int kHookResult = -4711;
std::string g_seen;
int g_calls = 0;

int RecordingHook(const char *pText) {
  g_seen = pText;
  ++g_calls;
  return kHookResult;
}

class ErrPrinter : public ::testing::Test {
 protected:
  void SetUp() override {
    g_seen = "never called";
    g_calls = 0;
  }
  void TearDown() override { MyErrSetOutput(MyErrOutputDefault); }
};

TEST_F(ErrPrinter, WithDefaultOutput_WritesTextAndNewlineAndReturnsTheirCount) {
  CapturedOutput err(stderr);
  const int written = MyErrPrintf("x=%d", 5);
  EXPECT_EQ(err.Take(), "x=5\n");
  EXPECT_EQ(written, 4);
}

TEST_F(ErrPrinter, WithDefaultOutput_LeavesStandardOutputAlone) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  MyErrPrintf("x");
  err.Take();
  EXPECT_EQ(out.Take(), "");
}

TEST_F(ErrPrinter, WithHook_CallsItOnceAndReturnsItsResult) {
  MyErrSetOutput(RecordingHook);
  CapturedOutput err(stderr);
  EXPECT_EQ(MyErrPrintf("slot %d of %s", 7, "lines"), kHookResult);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(g_seen, "slot 7 of lines");
  EXPECT_EQ(g_calls, 1);
}

TEST_F(ErrPrinter, TextOf255Characters_ReachesTheHookWhole) {
  MyErrSetOutput(RecordingHook);
  MyErrPrintf("%s", std::string(255, 'a').c_str());
  EXPECT_EQ(g_seen, std::string(255, 'a'));
}

TEST_F(ErrPrinter, LongerText_ReachesTheHookCutTo255Characters) {
  MyErrSetOutput(RecordingHook);
  MyErrPrintf("%s%s", std::string(255, 'a').c_str(), std::string(45, 'b').c_str());
  EXPECT_EQ(g_seen, std::string(255, 'a'));
}

TEST_F(ErrPrinter, SetOutput_ReturnsTheNewOutputNotTheOldOne) {
  EXPECT_EQ(MyErrSetOutput(RecordingHook), &RecordingHook);
  EXPECT_EQ(g_pfnErrOutput, &RecordingHook);
}

TEST_F(ErrPrinter, WithoutOutput_PrintsNothingAndReturns0) {
  MyErrSetOutput(nullptr);
  CapturedOutput err(stderr);
  EXPECT_EQ(MyErrPrintf("lost"), 0);
  EXPECT_EQ(err.Take(), "");
}

TEST(DebugBreak, ReportsTheTextAfterTwoNewlinesAndAborts) {
  EXPECT_EXIT(MyDebugBreak("%s\nfile=%s\nline=%d\n", "a < b", "Ring", 12), ::testing::KilledBySignal(SIGABRT),
              "^\n\na < b\nfile=Ring\nline=12\n$");
}

TEST(DebugBreak, CutsTheTextAt511Characters) {
  EXPECT_EXIT(MyDebugBreak("%s", (std::string(511, 'a') + "b").c_str()), ::testing::KilledBySignal(SIGABRT),
              "^\n\n" + std::string(511, 'a') + "$");
}

TEST(DebugBreak, FlushesWhatStandardOutputStillHolds) {
  // The death test's child writes to a pipe, so that stdout is fully buffered until it is flushed.
  EXPECT_EXIT(
      {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::fputs("said before", stdout);
        MyDebugBreak("broke");
      },
      ::testing::KilledBySignal(SIGABRT), "broke(.|\n)*said before");
}

}  // namespace
