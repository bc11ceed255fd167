// SPDX-License-Identifier: MIT
// The text form of records: writing, reading, and refused texts.

#include "tools/devconf/Json.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/TestSeed.h"

namespace {

using devconf::EscapeNext;
using devconf::Form;
using devconf::IsText;
using devconf::Member;
using devconf::ReadObject;
using devconf::Unescape;
using namespace devsupport::test;

std::string Escape(std::string_view bytes, Form form) {
  std::string text;
  while (!bytes.empty()) text += EscapeNext(bytes, form).View();
  return text;
}

/// The bytes, or "!" and the error.
std::string Read(const std::string &string, Form form) {
  std::vector<char> out(string.size() + 1, '\x55');
  std::size_t size = 4711;
  const char *wrong = Unescape(string, form, {out.data(), string.size()}, size);
  EXPECT_EQ(out.back(), '\x55');
  return wrong != nullptr ? std::string("!") + wrong : std::string(out.data(), size);
}

TEST(JsonText, OfPlainCharacters_IsUnchanged) {
  EXPECT_EQ(Escape("abc 123 /;'<>", Form::Text), "abc 123 /;'<>");
  EXPECT_EQ(Escape("J\xc3\xbcrgen \xe2\x82\xac \xf0\x9f\x98\x80", Form::Text),
            "J\xc3\xbcrgen \xe2\x82\xac \xf0\x9f\x98\x80");
}

TEST(JsonText, OfQuotesAndControls_IsEscaped) {
  EXPECT_EQ(Escape("\"\\\b\f\n\r\t", Form::Text), R"(\"\\\b\f\n\r\t)");
  EXPECT_EQ(Escape("\x01\x1f\x7f", Form::Text), "\\u0001\\u001f\\u007f");
}

TEST(JsonText, OfControlsAfterAscii_IsEscaped) {
  EXPECT_EQ(Escape("\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", Form::Text), "\\u0080\\u009b\\u009f\xc2\xa0");
}

TEST(JsonBytes, AreOneCharacterEach) {
  EXPECT_EQ(Escape(std::string_view("a\0\xc3\xbc\xff~\x7f", 7), Form::Bytes),
            "a\\u0000\\u00c3\\u00bc\\u00ff~\\u007f");
}

TEST(JsonBytes, AllOfThem_ComeBack) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(Read(Escape(all, Form::Bytes), Form::Bytes), all);
}

TEST(JsonBytes, AboveTheLastByte_AreRefused) {
  EXPECT_EQ(Read("\\u00ff", Form::Bytes), "\xff");
  EXPECT_EQ(Read("\\u0100", Form::Bytes), "!a character above U+00FF in bytes");
  EXPECT_EQ(Read("\xc3\xbf", Form::Bytes), "\xff");
  EXPECT_EQ(Read("\xe2\x82\xac", Form::Bytes), "!a character above U+00FF in bytes");
}

TEST(JsonRead, KnowsEveryEscape) {
  EXPECT_EQ(Read(R"(\"\\\/\b\f\n\r\t\u0041\u00fc\u20AC\ud83d\ude00)", Form::Text),
            "\"\\/\b\f\n\r\tA\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(JsonRead, OfWrongEscapes_IsRefused) {
  EXPECT_EQ(Read("\\x41", Form::Text), "!unknown escape");
  EXPECT_EQ(Read("a\\", Form::Text), "!nothing after a backslash");
  EXPECT_EQ(Read("\\u004", Form::Text), "!\\u needs four hexadecimal digits");
  EXPECT_EQ(Read("\\u00g0", Form::Text), "!\\u needs four hexadecimal digits");
  for (const char *half : {"\\ud83d", "\\ud83dx", "\\ude00", "\\ud83d\\u0041", "\\ud83d\\n", "\\ud83d\\ud83d"}) {
    EXPECT_EQ(Read(half, Form::Text), "!half a surrogate pair") << half;
  }
}

TEST(JsonRead, OfATextWithNul_IsRefused) { EXPECT_EQ(Read("a\\u0000", Form::Text), "!a NUL in a text"); }

TEST(JsonRead, OfBareControls_IsRefused) {
  EXPECT_EQ(Read("a\tb", Form::Text), "!a control character that is not escaped");
  EXPECT_EQ(Read(std::string("\0", 1), Form::Bytes), "!a control character that is not escaped");
}

TEST(JsonRead, OfWhatIsNoUtf8_IsRefused) {
  for (const char *wrong : {"\xff", "\x80", "\xc3", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                            "\xf8\x88\x80\x80\x80", "\xe2\x82", "\xc3("}) {
    EXPECT_EQ(Read(wrong, Form::Text), "!not UTF-8") << ::testing::PrintToString(wrong);
    EXPECT_FALSE(IsText(wrong));
  }
}

TEST(JsonRead, MayWriteOverWhatItReads) {
  std::string text = R"(a\u00fc\ud83d\ude00\n)";
  std::size_t size = 0;
  ASSERT_EQ(Unescape(text, Form::Text, text, size), nullptr);
  EXPECT_EQ(text.substr(0, size), "a\xc3\xbc\xf0\x9f\x98\x80\n");
}

TEST(JsonIsText, RefusesNul) {
  EXPECT_TRUE(IsText(""));
  EXPECT_TRUE(IsText("\x01\xc3\xbc"));
  EXPECT_FALSE(IsText(std::string_view("a\0", 2)));
}

/// "name=value," for each member, or "!" and the error.
std::string Split(std::string_view line) {
  Member members[3];
  std::size_t count = 4711;
  if (const char *wrong = ReadObject(line, members, count); wrong != nullptr) return std::string("!") + wrong;
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += std::string(members[i].name) + "=" + std::string(members[i].value) + ",";
  }
  return text;
}

TEST(JsonObject, GivesItsMembers) {
  EXPECT_EQ(Split(R"({"a":"1","b":"2"})"), "a=1,b=2,");
  EXPECT_EQ(Split(" { \"a\" : \"1\" ,\t\"b\":\"\" } \r"), "a=1,b=,");
  EXPECT_EQ(Split("{}"), "");
}

TEST(JsonObject, KnowsQuotesThatAreEscaped) { EXPECT_EQ(Split(R"({"a":"x\"y","b":"\\"})"), R"(a=x\"y,b=\\,)"); }

TEST(JsonObject, OfAnotherForm_IsRefused) {
  EXPECT_EQ(Split(""), "!no '{' at the start");
  EXPECT_EQ(Split("[]"), "!no '{' at the start");
  EXPECT_EQ(Split(R"({"a":"1")"), "!no ',' or '}' after a member");
  EXPECT_EQ(Split(R"({"a":"1" "b":"2"})"), "!no ',' or '}' after a member");
  EXPECT_EQ(Split(R"({"a":"1",})"), "!a member's name is missing, or its closing quote");
  EXPECT_EQ(Split(R"({a:"1"})"), "!a member's name is missing, or its closing quote");
  EXPECT_EQ(Split(R"({"a)"), "!a member's name is missing, or its closing quote");
  EXPECT_EQ(Split(R"({"a\)"), "!a member's name is missing, or its closing quote");
  EXPECT_EQ(Split(R"({"a" "1"})"), "!no ':' after a member's name");
  EXPECT_EQ(Split(R"({"a":1})"), "!a member's value is no string, or its closing quote is missing");
  EXPECT_EQ(Split(R"({"a":null})"), "!a member's value is no string, or its closing quote is missing");
  EXPECT_EQ(Split(R"({"a":"1\"})"), "!a member's value is no string, or its closing quote is missing");
  EXPECT_EQ(Split(R"({"a":"1"}x)"), "!something after the closing '}'");
  EXPECT_EQ(Split(R"({"a":"","b":"","c":"","d":""})"), "!too many members");
}

TEST(JsonRandom, BytesOfEveryKind_ComeBackInBothForms) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  int texts = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes(below(12), '\0');
    const bool ascii = below(2) == 0;
    for (char &c : bytes) c = static_cast<char>(below(ascii ? 128 : 256));
    ASSERT_EQ(Read(Escape(bytes, Form::Bytes), Form::Bytes), bytes);
    if (!IsText(bytes)) continue;
    ++texts;
    ASSERT_EQ(Read(Escape(bytes, Form::Text), Form::Text), bytes);
  }
  EXPECT_GT(texts, 1000);
}

TEST(JsonRandom, LinesOfEveryKind_AreReadOrRefused) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  constexpr std::string_view kLetters = "{}\":,\\ua0d8e\xc3\xbc\xff\t ";
  for (int round = 0; round < 50000; ++round) {
    std::string line(below(24), '\0');
    for (char &c : line) c = kLetters[below(kLetters.size())];
    Split(line);
    for (const Form form : {Form::Text, Form::Bytes}) Read(line, form);
  }
}

}  // namespace
