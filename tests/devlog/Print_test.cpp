// SPDX-License-Identifier: MIT
// Formatting messages: for people, with colours, as JSON.

#include "tools/devlog/Print.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/devlog/Cells.h"

namespace {

using namespace devlog;
using devlog_test::CellOf;

constexpr DayTime kTime = ((12 * 60 + 34) * 60 + 56) * 1000 + 789;

std::string Shown(const Message &message, std::string_view text, Look look = Look::Plain) {
  const auto line = std::make_unique<Line>();
  AddMessage(*line, message, {.text = text}, look);
  return std::string(line->Text());
}

std::string ForPeople(std::string_view text) {
  const auto line = std::make_unique<Line>();
  line->AddForPeople(text);
  return std::string(line->Text());
}

std::string ForJson(std::string_view text) {
  const auto line = std::make_unique<Line>();
  line->AddForJson(text, tools::Form::Text);
  return std::string(line->Text());
}

TEST(Print, OfAMessage_HasTimeRingTypeAndText) {
  EXPECT_EQ(Shown({.time = kTime, .type = 3}, "hello"), "12:34:56.789 log    3  hello");
  EXPECT_EQ(Shown({.ring = Ring::Event, .time = 0, .type = 15}, "hello"), "00:00:00.000 event 15  hello");
}

TEST(Print, OfAPartialMessage_SaysSo) {
  EXPECT_EQ(Shown({.status = Status::Partial, .time = kTime, .type = 3}, "hello"),
            "12:34:56.789 log    3  (its beginning is lost) hello");
}

TEST(Print, OfALoss_TellsHowMany) {
  EXPECT_EQ(Shown({.status = Status::Lost, .time = kTime, .records = 1}, ""),
            "12:34:56.789 log    -  (1 record lost)");
  EXPECT_EQ(Shown({.status = Status::Lost, .time = kTime, .records = 12}, ""),
            "12:34:56.789 log    -  (12 records lost)");
}

TEST(Print, OfADamagedCell_TellsWhatIsDamaged) {
  Cell cell = CellOf({.text = "hello", .fragment = 5});
  const Message base{.status = Status::Damaged, .time = kTime, .type = 3, .records = 1, .first = &cell};
  Message message = base;
  message.damage = Damage::Text;
  EXPECT_EQ(Shown(message, "hello"), "12:34:56.789 log    3  (damaged: the text has no end) hello");
  message.damage = Damage::Order;
  EXPECT_EQ(Shown(message, "hello"), "12:34:56.789 log    3  (damaged: fragment 5 follows no other) hello");
  message.damage = Damage::Time;
  message.time = kUnknownTime;
  EXPECT_EQ(Shown(message, "hello"), "--:--:--.--- log    3  (damaged: invalid time) hello");
  message.damage = Damage::Length;
  cell.length = 0xFFFFFFFF;
  EXPECT_EQ(Shown(message, ""), "--:--:--.--- log    -  (damaged: the length is 4294967295)");
}

TEST(Print, Coloured_ColoursWhatIsNotTheText) {
  EXPECT_EQ(Shown({.time = kTime, .type = 3}, "hello", Look::Coloured),
            "\033[2m12:34:56.789\033[0m log    \033[36m3\033[0m  hello");
  EXPECT_EQ(Shown({.time = kTime}, "hello", Look::Coloured), "\033[2m12:34:56.789\033[0m log    0  hello");
  EXPECT_EQ(Shown({.ring = Ring::Event, .status = Status::Lost, .time = kTime, .records = 2}, "", Look::Coloured),
            "\033[2m12:34:56.789\033[0m \033[36mevent\033[0m  -  \033[33m(2 records lost)\033[0m");
}

std::string ShownAs(const Message &message, const Known &known, Look look) {
  const auto line = std::make_unique<Line>();
  AddMessage(*line, message, known, look);
  return std::string(line->Text());
}

TEST(Print, WithNames_ShowsTypeAndProcessByName) {
  const Known known{.text = "sipdregistered", .process = "sipd", .typeName = "call", .typePlaces = 5};
  EXPECT_EQ(ShownAs({.time = kTime, .type = 3}, known, Look::Plain), "12:34:56.789 log   call   sipd: registered");
  EXPECT_EQ(ShownAs({.time = kTime, .type = 4}, {.text = "other", .typePlaces = 5}, Look::Plain),
            "12:34:56.789 log       4  other");
  EXPECT_EQ(ShownAs({.status = Status::Lost, .time = kTime, .records = 2}, {.typeName = "none", .typePlaces = 5},
                    Look::Plain),
            "12:34:56.789 log       -  (2 records lost)");
  EXPECT_EQ(ShownAs({.time = kTime, .type = 3}, known, Look::Coloured),
            "\033[2m12:34:56.789\033[0m log   \033[36mcall\033[0m   \033[1msipd\033[0m: registered");
  EXPECT_EQ(ShownAs({.time = kTime, .type = 3, .sequence = 7, .records = 1}, known, Look::Json),
            R"({"time":"12:34:56.789","ring":"log","type":3,"type_name":"call","sequence":7,"records":1,)"
            R"("status":"ok","detail":"","process":"sipd","text":"registered"})");
}

TEST(Print, OfACountThatMayBeHigher_SaysSo) {
  EXPECT_EQ(Shown({.status = Status::Lost, .time = kTime, .records = 1, .isAtLeast = true}, ""),
            "12:34:56.789 log    -  (1 or more records lost)");
}

TEST(PrintJson, HasAlwaysTheSameMembers) {
  EXPECT_EQ(Shown({.time = kTime, .type = 3, .sequence = 17, .records = 2}, "hello", Look::Json),
            R"({"time":"12:34:56.789","ring":"log","type":3,"type_name":"","sequence":17,"records":2,"status":"ok",)"
            R"("detail":"","process":"",)"
            R"("text":"hello"})");
  EXPECT_EQ(
      Shown({.status = Status::Partial, .time = kTime, .type = 3, .sequence = 17, .records = 2}, "llo", Look::Json),
      R"({"time":"12:34:56.789","ring":"log","type":3,"type_name":"","sequence":17,"records":2,"status":"partial",)"
      R"("detail":"its beginning is lost","process":"","text":"llo"})");
  EXPECT_EQ(
      Shown({.ring = Ring::Event, .status = Status::Lost, .time = kTime, .sequence = 17, .records = 12}, "",
            Look::Json),
      R"({"time":"12:34:56.789","ring":"event","type":null,"type_name":"","sequence":17,"records":12,"status":"lost",)"
      R"("detail":"12 records lost","process":"","text":""})");
}

TEST(PrintJson, OfADamagedCellWithoutATime_HasTheTimeOfItsPlace) {
  Cell cell = CellOf({});
  cell.length = 4711;
  const Message message{.status = Status::Damaged,
                        .damage = Damage::Length,
                        .records = 1,
                        .first = &cell,
                        .when = kTime - 2 * std::int64_t{kDay}};
  EXPECT_EQ(Shown(message, "", Look::Json),
            R"({"time":"12:34:56.789","ring":"log","type":null,"type_name":"","sequence":null,"records":1,)"
            R"("status":"damaged",)"
            R"("detail":"damaged: the length is 4711","process":"","text":""})");
}

TEST(ForPeople, KeepsWhatIsPrintable) {
  EXPECT_EQ(ForPeople("plain \"text\" \\file 7 ~"), "plain \"text\" \\file 7 ~");
  EXPECT_EQ(ForPeople("é € \U0001F600"), "é € \U0001F600");
}

TEST(ForPeople, EscapesWhatATerminalObeys) {
  EXPECT_EQ(ForPeople("\033[2J\n\r\t\x7f"), "\\x1b[2J\\x0a\\x0d\\x09\\x7f");
  EXPECT_EQ(ForPeople(std::string_view("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(ForPeople("\xc2\x9b"
                      "2J"),
            "\\xc2\\x9b2J");
}

TEST(ForPeople, EscapesWhatIsNoUtf8) {
  EXPECT_EQ(ForPeople("\xff"), "\\xff");
  EXPECT_EQ(ForPeople("\xc3"), "\\xc3");
  EXPECT_EQ(ForPeople("\xc0\xaf"), "\\xc0\\xaf");
  EXPECT_EQ(ForPeople("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
  EXPECT_EQ(ForPeople("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(ForPeople("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(ForPeople("\xe2\x82x"), "\\xe2\\x82x");
}

TEST(ForJson, EscapesQuotesAndBackslashes) { EXPECT_EQ(ForJson(R"(say "a\b")"), R"(say \"a\\b\")"); }

TEST(ForPeople, EscapesTheLastControlCharacterAndNotTheNextOne) {
  EXPECT_EQ(ForPeople("\xc2\x9f"), "\\xc2\\x9f");
  EXPECT_EQ(ForPeople("\xc2\xa0"), "\xc2\xa0");
}

TEST(ForJson, EscapesControlCharacters) { EXPECT_EQ(ForJson("\033\n\x7f\xc2\x9b"), "\\u001b\\n\\u007f\\u009b"); }

TEST(Print, OfATextAsJson_TellsItsBytesFromItsCharacters) {
  const auto textOf = [](std::string_view text) {
    const std::string shown = Shown({.time = kTime}, text, Look::Json);
    return shown.substr(shown.find("\"text"));
  };
  EXPECT_EQ(textOf("\xc2\x9b"), R"("text":"\u009b"})");
  EXPECT_EQ(textOf("\x9b"), R"("text_bytes":"\u009b"})");
  EXPECT_EQ(textOf("\xc3\xbf"), "\"text\":\"\xc3\xbf\"}");
  EXPECT_EQ(textOf("\xff"), R"("text_bytes":"\u00ff"})");
  EXPECT_EQ(textOf("\xc3\xbf\xc3"), R"("text_bytes":"\u00c3\u00bf\u00c3"})");
  EXPECT_EQ(textOf(std::string_view("a\0b", 3)), R"("text_bytes":"a\u0000b"})");
}

TEST(Line, HoldsTheLongestMessageInItsLongestForm) {
  const std::string text(kMaxText, '\x01');
  const std::string shown = Shown({.status = Status::Partial, .time = kTime}, text, Look::Json);
  EXPECT_TRUE(shown.ends_with("\\u0001\"}"));
  EXPECT_GT(shown.size(), 6 * kMaxText);
}

TEST(Line, ThatIsFull_TakesNoMore) {
  const auto line = std::make_unique<Line>();
  for (int part = 0; part < 10; ++part) line->Add(std::string(kMaxText, 'x'));
  const std::size_t full = line->Text().size();
  line->Add('x');
  EXPECT_EQ(line->Text().size(), full);
}

}  // namespace
