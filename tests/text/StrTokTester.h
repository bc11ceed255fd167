// SPDX-License-Identifier: MIT
// Helpers of the tokenizer tests: the token between its pointers, its copy, and the rest of the text.
#pragma once

#include <devsupport/text/StrTok.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace devsupport::test {

/// A tokenizer over its own text, without a NUL after it.
class Tokenizer {
 public:
  explicit Tokenizer(const std::string &text, bool trim = false) : text_(text.begin(), text.end()) {
    text_.push_back('#');  // no NUL after the source, to detect a use of strlen
    // An empty source needs its NUL: a length of 0 means strlen.
    TStrTok_SetSource(&tok, trim, text.empty() ? "" : text_.data(), static_cast<std::int32_t>(text.size()));
  }

  Tokenizer(Tokenizer &&) = default;
  Tokenizer(const Tokenizer &) = delete;
  Tokenizer &operator=(Tokenizer &&) = delete;
  Tokenizer &operator=(const Tokenizer &) = delete;

  /// The token, copied by the tokenizer.
  std::string Copy() const {
    std::array<char, 64> buffer{};
    buffer.fill('Z');
    TStrTok_GetToken(&tok, buffer.data(), static_cast<std::int32_t>(buffer.size()), nullptr);
    return buffer.data();
  }
  /// The token between its two pointers.
  std::string Token() const { return {tok.pTok, tok.pTokEnd}; }
  /// The text between cursor and end.
  std::string Ahead() const { return tok.pCur == nullptr ? "(exhausted)" : std::string(tok.pCur, tok.pSrcEnd); }
  /// Token and text ahead, with a bar between them.
  std::string TokenAndAhead() const { return Token() + "|" + Ahead(); }
  bool IsExhausted() const { return tok.pCur == nullptr; }

  TStrTok tok{};

 private:
  std::vector<char> text_;
};

/// A tokenizer that has found the first comma.
inline Tokenizer AfterComma(const std::string &text) {
  Tokenizer tokenizer(text);
  TStrTok_Find(&tokenizer.tok, ",", 0, 0);
  return tokenizer;
}

/// A tokenizer whose token is the whole text.
inline Tokenizer Whole(const std::string &text, bool trim = false) {
  Tokenizer tokenizer(text, trim);
  _SetPosToEnd(&tokenizer.tok);
  return tokenizer;
}

/// Copies of all fields, in order.
template <typename Advance>
std::vector<std::string> Fields(const std::string &text, Advance advance) {
  Tokenizer tokenizer(text);
  std::vector<std::string> fields;
  while (advance(&tokenizer.tok) != 0) fields.push_back(tokenizer.Copy());
  return fields;
}

/// Same position, same delimiter lengths.
inline bool SamePosition(const TStrTok &left, const TStrTok &right) {
  return left.pTok == right.pTok && left.pTokEnd == right.pTokEnd && left.pCur == right.pCur &&
         left.nPrevDelimLen == right.nPrevDelimLen && left.nDelimLen == right.nDelimLen;
}

}  // namespace devsupport::test
