// SPDX-License-Identifier: MIT
// The content of the files that the log file writers write.

#include <devsupport/detail/diag/LogFile.h>
#include <devsupport/diag/LogFile.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TempDir.h"

// A failing fclose closes the stream even so.
DEVSUPPORT_FAULT_POINT(int, fclose, (std::FILE * pFile), (pFile), (__real_fclose(pFile), EOF), ENOSPC)

namespace {

using namespace devsupport::test;

// The first machine word of a text, as a value that a caller could pass.
std::uintptr_t Word(const char *pText) {
  std::uintptr_t dw = 0;
  std::memcpy(&dw, pText, std::strlen(pText) < sizeof dw ? std::strlen(pText) : sizeof dw);
  return dw;
}

class LogFile : public ::testing::Test {
 protected:
  const char *Path() const { return path_.c_str(); }
  std::string MissingPath() const { return dir_ / "missing" / "log"; }
  bool Exists() const { return ::access(Path(), F_OK) == 0; }
  std::string Content() const { return FileText(path_); }

 private:
  const TempDir dir_;
  const std::string path_ = dir_ / "log";
};

TEST_F(LogFile, WriteLog_WritesOneBlankTheTextAndANewline) {
  _WriteLog(Path(), "abc");
  EXPECT_EQ(Content(), " abc\n");
}

TEST_F(LogFile, WriteLog_AppendsToWhatIsThere) {
  WriteFile(Path(), "before");
  _WriteLog(Path(), "one");
  _WriteLog(Path(), "two");
  EXPECT_EQ(Content(), "before one\n two\n");
}

TEST_F(LogFile, WriteLog_TakesPercentSignsAndLongTextsAsTheyAre) {
  const std::string text = "100%s%n" + std::string(2000, 'x');
  _WriteLog(Path(), text.c_str());
  EXPECT_EQ(Content(), " " + text + "\n");
}

TEST_F(LogFile, WriteLog_InAMissingFolder_WritesAndPrintsNothing) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  _WriteLog(MissingPath().c_str(), "abc");
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
  EXPECT_FALSE(Exists());
}

TEST_F(LogFile, WriteLogAt_LeavesThePlaceOfTheTimeStampEmpty) {
  EXPECT_EQ(_WriteLogAt(Path(), "lost a packet", "Rtp.c", 42), 0);
  EXPECT_EQ(Content(), "lost a packet \n    at   File: Rtp.c  Line: 42\n");
}

TEST_F(LogFile, WriteLogAt_AppendsToWhatIsThere) {
  _WriteLogAt(Path(), "a", "f", 1);
  _WriteLogAt(Path(), "b", "g", -2);
  EXPECT_EQ(Content(), "a \n    at   File: f  Line: 1\nb \n    at   File: g  Line: -2\n");
}

TEST_F(LogFile, WriteLogAt_InAMissingFolder_Returns0AndPrintsNothing) {
  CapturedOutput err(stderr);
  errno = 0;
  EXPECT_EQ(_WriteLogAt(MissingPath().c_str(), "a", "f", 1), 0);
  EXPECT_EQ(errno, ENOENT);  // fopen's, for callers that want the reason
  EXPECT_EQ(err.Take(), "");
}

TEST_F(LogFile, WriteLogAt_ReturnsWhatClosingTheFileReturned) {
  FailCall fail("fclose", 1);
  EXPECT_EQ(_WriteLogAt(Path(), "a", "f", 1), EOF);
  EXPECT_TRUE(fail.Happened());
}

TEST_F(LogFile, Writers_KeepNoFileOpen) {
  const int nNext = ::dup(0);
  ::close(nNext);
  _WriteLog(Path(), "a");
  _WriteLogAt(Path(), "a", "f", 1);
  WriteLogFmt(Path(), "a");
  const int nNextNow = ::dup(0);
  ::close(nNextNow);
  EXPECT_EQ(nNextNow, nNext);
}

TEST_F(LogFile, WriteLogFmt_WithoutConversions_WritesTheFormatAsALine) {
  WriteLogFmt(Path(), "line is up, 100%%");
  EXPECT_EQ(Content(), " line is up, 100%\n");
}

TEST_F(LogFile, WriteLogFmt_PercentS_PrintsTheRawBytesOfTheArguments) {
  const std::string text = std::string(sizeof(std::uintptr_t), 'a') + "bcd";
  WriteLogFmt(Path(), "<%s>", Word(text.c_str()), Word(text.c_str() + sizeof(std::uintptr_t)));
  EXPECT_EQ(Content(), " <" + text + ">\n");
}

TEST_F(LogFile, WriteLogFmt_PercentS_DoesNotFollowATextArgument) {
  const char szText[] = "text";
  WriteLogFmt(Path(), "%s", szText, std::uintptr_t{0});
  EXPECT_EQ(Content().find("text"), std::string::npos);
}

TEST_F(LogFile, WriteLogFmt_PercentD_PrintsAnAddressNotTheArgument) {
  WriteLogFmt(Path(), "%d", 5);
  EXPECT_TRUE(std::regex_match(Content(), std::regex(" -?[0-9]+\n"))) << Content();
  EXPECT_NE(Content(), " 5\n");
}

TEST_F(LogFile, WriteLogFmt_PercentP_PrintsAnAddress) {
  WriteLogFmt(Path(), "%p", 5);
  EXPECT_TRUE(std::regex_match(Content(), std::regex(" 0x[0-9a-f]{4,}\n"))) << Content();
}

TEST_F(LogFile, WriteLogFmt_TextOf255Characters_IsWrittenWhole) {
  WriteLogFmt(Path(), std::string(255, 'a').c_str());
  EXPECT_EQ(Content(), " " + std::string(255, 'a') + "\n");
}

TEST_F(LogFile, WriteLogFmt_LongerText_IsCutTo255Characters) {
  WriteLogFmt(Path(), (std::string(255, 'a') + "bbbb%s").c_str(), Word("c"));
  EXPECT_EQ(Content(), " " + std::string(255, 'a') + "\n");
}

TEST_F(LogFile, WriteLogFmt_InAMissingFolder_WritesAndPrintsNothing) {
  CapturedOutput err(stderr);
  WriteLogFmt(MissingPath().c_str(), "abc");
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
