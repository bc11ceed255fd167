// SPDX-License-Identifier: MIT
// Shows bytes from any source on a terminal and in JSON.
//
// A JSON string holds bytes in one of two forms; the name of its member shows which:
//   text    what is UTF-8 without a NUL; a character of the string is a character of the text
//   bytes   anything else; a character of the string, U+0000 to U+00FF, is one byte
#pragma once

#include <cstddef>
#include <string_view>

namespace tools {

enum class Form : bool { Text, Bytes };

/// A few characters of output.
struct Piece {
  char text[16];
  std::size_t size = 0;

  std::string_view View() const { return {text, size}; }
};

/// Takes one character from the front of the bytes and returns how it looks between the quotes of a JSON string.
/// In the text form the bytes must be text (IsText).
Piece EscapeNext(std::string_view &bytes, Form form);

/// Takes one character from the front of the bytes and returns its visible form: itself, or each of its bytes as \xNN
/// when it does something to a terminal or is no character.
Piece ShowNext(std::string_view &bytes);

}  // namespace tools
