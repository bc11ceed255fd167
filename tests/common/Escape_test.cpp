// SPDX-License-Identifier: MIT
// How bytes of other programs are shown on a terminal. Their JSON form is tested with its reader
// (devconf/Json_test.cpp).

#include "tools/common/Escape.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Shown(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) text += tools::ShowNext(bytes).View();
  return text;
}

TEST(ShowNext, OfCharacters_IsThemselves) {
  EXPECT_EQ(Shown("a \"\\ J\xc3\xbcrgen \xc2\xa0 \xe2\x82\xac \xf0\x9f\x98\x80"),
            "a \"\\ J\xc3\xbcrgen \xc2\xa0 \xe2\x82\xac \xf0\x9f\x98\x80");
}

TEST(ShowNext, OfControlCharacters_IsTheirBytesAsNumbers) {
  EXPECT_EQ(Shown(std::string_view("\0\x1f\x7f\n", 4)), "\\x00\\x1f\\x7f\\x0a");
  EXPECT_EQ(Shown("\xc2\x80\xc2\x9b\xc2\x9f"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f");
}

// Characters that reverse the direction of a text would show something else than the text holds.
TEST(ShowNext, OfCharactersThatReverseTheText_IsTheirBytesAsNumbers) {
  EXPECT_EQ(Shown("\xe2\x80\xae"
                  "abc"),
            "\\xe2\\x80\\xae"
            "abc");
  for (const char *character :
       {"\xd8\x9c", "\xe2\x80\x8e", "\xe2\x80\x8f", "\xe2\x80\xaa", "\xe2\x81\xa6", "\xe2\x81\xa9"}) {
    EXPECT_EQ(Shown(character).substr(0, 2), "\\x") << character;
  }
  EXPECT_EQ(Shown("\xe2\x80\x8d\xe2\x81\xaa"), "\xe2\x80\x8d\xe2\x81\xaa");
}

TEST(EscapeNext, OfCharactersThatReverseTheText_IsTheirNumber) {
  std::string_view bytes = "\xe2\x80\xae";
  EXPECT_EQ(tools::EscapeNext(bytes, tools::Form::Text).View(), "\\u202e");
}

TEST(ShowNext, OfBytesThatAreNoCharacter_IsTheirNumbers) {
  EXPECT_EQ(Shown("\xff\xc3"), "\\xff\\xc3");
  EXPECT_EQ(Shown("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(Shown("\xc0\x80 \xe2\x82"), "\\xc0\\x80 \\xe2\\x82");
}

}  // namespace
