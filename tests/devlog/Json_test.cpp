// SPDX-License-Identifier: MIT
// The JSON line of a record is valid for another parser and gives back all bytes of the text.

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "tests/devlog/Cells.h"
#include "tests/support/TestSeed.h"
#include "tools/devlog/Print.h"

namespace {

using namespace devlog;

std::string JsonOf(std::string_view text) {
  const auto line = std::make_unique<Line>();
  AddMessage(*line, {.time = 0}, {.text = text}, Look::Json);
  return std::string(line->Text());
}

/// Decodes UTF-8 whose characters are at most U+00FF.
std::u32string CharactersOf(const std::string &utf8) {
  std::u32string characters;
  for (const char byte : utf8) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80 || value >= 0xC0) {
      characters += value < 0x80 ? value : value & 0x1F;
    } else {
      characters.back() = characters.back() << 6 | (value & 0x3F);
    }
  }
  return characters;
}

/// The text of the object, from "text" or "text_bytes".
std::string BytesOf(const std::string &printed) {
  const nlohmann::json object = nlohmann::json::parse(printed);
  EXPECT_NE(object.contains("text"), object.contains("text_bytes")) << printed;
  if (object.contains("text")) return object["text"];
  std::string bytes;
  for (const char32_t character : CharactersOf(object["text_bytes"])) bytes += static_cast<char>(character);
  return bytes;
}

TEST(Json, OfEachByteAlone_HasThatByte) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(BytesOf(JsonOf(text)), text) << byte;
    EXPECT_EQ(nlohmann::json::parse(JsonOf(text)).contains("text"), byte > 0 && byte < 0x80) << byte;
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

TEST(Json, OfRandomBytes_HasTheseBytes) {
  const devsupport::test::TestSeed seed;
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 64, '\0');
    for (char &character : text) character = static_cast<char>(random() % 2 == 0 ? random() : 0xC0 | random() % 64);
    ASSERT_EQ(BytesOf(JsonOf(text)), text) << ::testing::PrintToString(text);
  }
}

}  // namespace
