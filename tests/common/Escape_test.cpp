// How foreign bytes are shown to people. Their JSON form is tested with its reader (devconf/Json_test.cpp).

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

TEST(ShowNext, OfBytesThatAreNoCharacter_IsTheirNumbers) {
  EXPECT_EQ(Shown("\xff\xc3"), "\\xff\\xc3");
  EXPECT_EQ(Shown("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(Shown("\xc0\x80 \xe2\x82"), "\\xc0\\x80 \\xe2\\x82");
}

}  // namespace
