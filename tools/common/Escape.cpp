// SPDX-License-Identifier: MIT
// Shows bytes from any source on a terminal and in JSON.

#include "tools/common/Escape.h"

#include <algorithm>
#include <cstdint>

#include "tools/common/Text.h"
#include "tools/common/Utf8.h"

namespace tools {

namespace {

constexpr std::uint8_t Byte(char c) { return static_cast<std::uint8_t>(c); }

void Append(Piece &piece, std::string_view text) {
  for (const char c : text) piece.text[piece.size++] = c;
}

void AppendHex(Piece &piece, std::uint32_t byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  const char digits[] = {kDigits[byte >> 4 & 0xf], kDigits[byte & 0xf]};
  Append(piece, {digits, sizeof digits});
}

char ShortEscape(std::uint32_t point) {
  switch (point) {
    case '"':
    case '\\':
      return static_cast<char>(point);
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return '\0';
  }
}

}  // namespace

Piece EscapeNext(std::string_view &bytes, Form form) {
  std::uint32_t point = Byte(bytes[0]);
  const std::size_t size = form == Form::Text ? std::max<std::size_t>(FirstCharacter(bytes, point), 1) : 1;
  const std::string_view character = First(bytes, size);
  bytes.remove_prefix(size);
  Piece piece;
  if (const char escape = ShortEscape(point); escape != '\0') {
    Append(piece, "\\");
    Append(piece, {&escape, 1});
  } else if (IsControl(point) || (form == Form::Bytes && point >= 0x80)) {
    Append(piece, "\\u");
    AppendHex(piece, point >> 8);
    AppendHex(piece, point);
  } else {
    Append(piece, character);
  }
  return piece;
}

Piece ShowNext(std::string_view &bytes) {
  std::uint32_t point = 0;
  const std::size_t size = FirstCharacter(bytes, point);
  const std::string_view character = First(bytes, std::max<std::size_t>(size, 1));
  bytes.remove_prefix(character.size());
  Piece piece;
  if (size != 0 && !IsControl(point)) {
    Append(piece, character);
    return piece;
  }
  for (const char c : character) {
    Append(piece, "\\x");
    AppendHex(piece, Byte(c));
  }
  return piece;
}

}  // namespace tools
