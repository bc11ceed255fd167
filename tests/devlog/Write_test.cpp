// SPDX-License-Identifier: MIT
// devlog write: what it writes, and that devlog reads it back.

#include "tests/devlog/Devlog.h"
#include "tests/support/IpcKey.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devlog_test;
using namespace devsupport::test;

CommandResult Write(Words words) {
  words.insert(words.begin(), "write");
  return Devlog(words).Run();
}

TEST_F(DevlogTest, Write_MakesTheRingsAndWritesOneRecord) {
  EXPECT_EQ(Write({"-t", "3", "hello"}), (CommandResult{0, "", ""}));
  const std::vector<Record> records = RawRing(kLogRing).Records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].text, "hello");
  EXPECT_EQ(records[0].type, 3U);
  EXPECT_TRUE(RawRing(kEventRing).Records().empty());
}

TEST_F(DevlogTest, WriteEvent_WritesToTheEventRing) {
  EXPECT_EQ(Write({"--event", "hello"}).status, 0);
  EXPECT_EQ(RawRing(kEventRing).Texts(), Words{"hello"});
  EXPECT_TRUE(RawRing(kLogRing).Records().empty());
}

TEST_F(DevlogTest, Write_JoinsItsWordsWithBlanks) {
  EXPECT_EQ(Write({"two", "words"}).status, 0);
  EXPECT_EQ(Write({"--", "--event", "-t"}).status, 0);
  EXPECT_EQ(RawRing(kLogRing).Texts(), (Words{"two words", "--event -t"}));
}

TEST_F(DevlogTest, WriteOfALongText_IsReadBackWhole) {
  const std::string text(4064, 'x');
  EXPECT_EQ(Write({text}).status, 0);
  const CommandResult result = Devlog({"--ring", "log"}).Run();
  EXPECT_EQ(result.out.substr(12), " log    0  " + text + "\n");
}

TEST_F(DevlogTest, WriteOfATextThatIsTooLongOrNone_WritesNothingAndEndsWith2) {
  for (const std::string &text : {std::string(4065, 'x'), std::string()}) {
    const CommandResult result = Write({text});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              text.empty() ? "devlog: there is no text to write\n" : "devlog: the text has more than 4064 bytes\n");
  }
  EXPECT_EQ(Write({}).status, 2);
  EXPECT_EQ(CountIpcObjects(), 0);
}

TEST_F(DevlogTest, WriteToARingOfOtherMeasures_EndsWith5) {
  TShmQueue other{};
  ASSERT_EQ(TShmQueue_Create(kLogRing.shareKey, kLogRing.semKey, 5, 136, nullptr, &other), 1);
  EXPECT_EQ(Write({"hello"}).status, 5);
  TShmQueue_Close(&other, 0);
}

// From standard input.

class WriteFromInput : public DevlogTest {
 protected:
  CommandResult WriteLines(const std::string &input, Words words = {"-"}) {
    WriteFile(path_, input);
    words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$0\" write \"$@\" <" + path_.string(), DEVLOG_PATH});
    return Command(words).Run();
  }

  TempDir dir_;
  std::filesystem::path path_ = dir_ / "input";
};

TEST_F(WriteFromInput, EachLineIsARecord) {
  EXPECT_EQ(WriteLines("one\ntwo words\n\n\\n three", {"-t", "3", "-"}).status, 0);
  EXPECT_EQ(RawRing(kLogRing).Texts(), (Words{"one", "two words", "\\n three"}));
  EXPECT_EQ(RawRing(kLogRing).Records()[2].type, 3U);
}

TEST_F(WriteFromInput, ALineThatIsTooLongIsRefused) {
  const CommandResult result = WriteLines("one\n" + std::string(4065, 'x') + "\ntwo\n", {"--event", "-"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "devlog: the text has more than 4064 bytes\n");
  EXPECT_EQ(RawRing(kEventRing).Texts(), Words{"one"});
}

TEST_F(WriteFromInput, ADashAmongOtherWordsIsAWord) {
  EXPECT_EQ(WriteLines("one\n", {"-", "-"}).status, 0);
  EXPECT_EQ(RawRing(kLogRing).Texts(), Words{"- -"});
}

}  // namespace
