// Whatever bytes a record holds, its JSON line is one that a stranger's parser takes, and says what they were.

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "devlog/Cells.h"
#include "devlog/Print.h"
#include "support/TestSeed.h"

namespace {

using namespace devlog;

std::string JsonOf(std::string_view text) {
  const auto line = std::make_unique<Line>();
  AddMessage(*line, {.time = 0}, text, Look::Json);
  return std::string(line->Text());
}

/// How UTF-8 writes a character from U+0080 to U+00FF.
std::string Utf8Of(unsigned char byte) {
  return {static_cast<char>(0xC0 | byte >> 6), static_cast<char>(0x80 | (byte & 0x3F))};
}

TEST(Json, OfEachByteAlone_IsTheCharacterOfItsNumber) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const std::string expected = byte < 0x80 ? text : Utf8Of(static_cast<unsigned char>(byte));
    EXPECT_EQ(nlohmann::json::parse(JsonOf(text))["text"], expected) << byte;
  }
}

TEST(Json, OfEachCharacter_IsThatCharacter) {
  for (std::uint32_t code = 0xA0; code <= 0x10FFFF; code += code < 0x3000 ? 1 : 61) {
    if (code >= 0xD800 && code <= 0xDFFF) continue;
    std::string text;
    if (code < 0x800) {
      text = {static_cast<char>(0xC0 | code >> 6)};
    } else if (code < 0x10000) {
      text = {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F))};
    } else {
      text = {static_cast<char>(0xF0 | code >> 18), static_cast<char>(0x80 | (code >> 12 & 0x3F)),
              static_cast<char>(0x80 | (code >> 6 & 0x3F))};
    }
    text += static_cast<char>(0x80 | (code & 0x3F));
    ASSERT_EQ(nlohmann::json::parse(JsonOf(text))["text"], text) << code;
  }
}

TEST(Json, OfRandomBytes_CanBeParsed) {
  const std::uint64_t seed = devsupport::test::TestSeed();
  SCOPED_TRACE(devsupport::test::SeedHint(seed));
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 64, '\0');
    for (char &character : text) character = static_cast<char>(random() % 2 == 0 ? random() : 0xC0 | random() % 64);
    ASSERT_NO_THROW(nlohmann::json::parse(JsonOf(text))) << ::testing::PrintToString(text);
  }
}

}  // namespace
