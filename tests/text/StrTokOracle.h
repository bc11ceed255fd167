// SPDX-License-Identifier: MIT
// A simple tokenizer for the model test: it follows the contract literally, uses offsets instead of pointers, and
// reads one character at a time.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace devsupport::test {

class StrTokOracle {
 public:
  static constexpr long kNone = -1;  ///< the NULL pointer among the offsets

  // The record's fields.
  std::uint32_t trim = 0;
  long src = kNone, srcEnd = kNone, tok = kNone, tokEnd = kNone, cur = kNone;
  int prevDelimLen = 0, delimLen = 0;

  /// The characters of the source and whether a NUL follows them.
  void SetSource(std::uint32_t trimFlag, const std::string &text, bool terminated) {
    text_ = text;
    terminated_ = terminated;
    trim = trimFlag;
    src = tok = tokEnd = cur = 0;
    srcEnd = static_cast<long>(text.size());
    prevDelimLen = delimLen = 0;
  }

  void SetNullSource(std::uint32_t trimFlag) {
    *this = {};
    trim = trimFlag;
  }

  int Find(const char *str, int len, bool emptyOnFail) {
    if (cur == kNone || str == nullptr || *str == 0) return 0;
    const int length = Length(str, len);
    const long found = FindStr(cur, srcEnd, str, length);
    if (found == kNone) return Failed(emptyOnFail);
    prevDelimLen = delimLen;
    delimLen = length;
    Found(found, length);
    return 1;
  }

  int FindNth(int n, const char *str, int len, bool emptyOnFail) {
    if (cur == kNone || str == nullptr || *str == 0) return 0;
    const long savedTok = tok, savedTokEnd = tokEnd, savedCur = cur;
    int c = 0;
    while (c < n || n <= 0) {
      if (Find(str, len, false) == 0) break;
      c = c + 1;
    }
    if (c >= n && c > 0) {
      tok = savedCur;
    } else {
      tok = savedTok;
      tokEnd = savedTokEnd;
      cur = savedCur;
      if (emptyOnFail) Emptied();
    }
    return c;
  }

  int MatchStr(const char *str, int len, bool emptyOnFail, bool noCase) {
    if (cur == kNone || str == nullptr || *str == 0) return 0;
    const int length = Length(str, len);
    if (cur + length > srcEnd || !Same(cur, str, length, noCase)) return Failed(emptyOnFail);
    prevDelimLen = delimLen;
    delimLen = length;
    Taken(length);
    return 1;
  }

  int MatchLen(int n) {
    if (cur == kNone) return 0;
    if (n > 0) {
      if (cur + n > srcEnd) {
        ToEnd();
        return 0;
      }
      Taken(n);
      return 1;
    }
    if (IsTokenEnd() != 0) {
      Emptied();
      return 0;
    }
    ToEnd();
    return 1;
  }

  int Match2EndCanEmpty() {
    if (cur == kNone) return 0;
    if (tokEnd != srcEnd) {
      ToEnd();
      return 1;
    }
    Emptied();
    return 0;
  }

  int IsTokenEnd() const { return cur == kNone || cur == srcEnd ? 1 : 0; }

  int GoDelimitStr(const char *delimiter, bool canEmpty, int len) {
    if (canEmpty) return Find(delimiter, len, false) != 0 ? 1 : Match2EndCanEmpty();
    while (true) {
      if (Find(delimiter, len, false) == 0) return MatchLen(0);
      if (tok < tokEnd) return 1;
    }
  }

  int GoDelimitAnyChar(const char *delimiters, bool canEmpty) {
    if (canEmpty) return FindAnyChar(true, 0, delimiters, 1, 1, false) != 0 ? 1 : Match2EndCanEmpty();
    while (true) {
      if (FindAnyChar(true, 0, delimiters, 1, 0x7fffffff, false) == 0) return MatchLen(0);
      if (tok < tokEnd) return 1;
    }
  }

  int FindAnyChar(bool want, unsigned mask, const char *extra, int min, int max, bool emptyOnFail) {
    if (cur == kNone) return 0;
    if (mask == 0 && (extra == nullptr || *extra == 0)) return Failed(emptyOnFail);
    long count = 0;
    const long run = FindRun(want, mask, extra, min, max, count);
    if (run == kNone) return Failed(emptyOnFail);
    prevDelimLen = delimLen;
    delimLen = static_cast<int>(count);
    Found(run, delimLen);
    return 1;
  }

  int MatchAnyChar(bool want, unsigned mask, const char *extra, int min, int max, bool emptyOnFail) {
    if (cur == kNone) return 0;
    if (mask == 0 && (extra == nullptr || *extra == 0)) return Failed(emptyOnFail);
    if (max < min) max = 0x7fffffff;
    int count = 0;
    for (long p = cur; p < srcEnd && IsMember(p, mask, extra) == want; ++p) {
      ++count;
      if (count >= max) break;
    }
    if (count < min) return Failed(emptyOnFail);
    if (count > 0) prevDelimLen = delimLen;
    delimLen = count;
    Taken(count);
    return 1;
  }

  /// The part of the source between two offsets.
  std::string Piece(long begin, long end) const {
    std::string piece;
    for (long p = begin; p < end; ++p)
      if (p >= 0 && p < srcEnd) piece += text_[static_cast<std::size_t>(p)];
    return piece;
  }
  std::string Token() const { return cur == kNone ? "" : Piece(tok, tokEnd); }
  std::string TokenEx(bool leading, bool toCursor) const {
    return cur == kNone ? "" : Piece(leading ? tok - prevDelimLen : tok, toCursor ? cur : tokEnd);
  }

  static std::string Trimmed(const std::string &piece) {
    const std::size_t first = piece.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return piece.substr(first, piece.find_last_not_of(" \t") - first + 1);
  }

  /// The end of a second tokenizer over a piece that begins here. An empty piece extends to the NUL.
  long SubEnd(long begin, long end) const {
    if (begin < end) return end;
    long p = begin;
    while (p < srcEnd && text_[static_cast<std::size_t>(p)] != 0) ++p;
    return p;
  }

  int TokenIs(const std::string &str, bool noCase) const {
    const std::string token = Piece(tok, tokEnd);
    for (std::size_t i = 0; i < token.size(); ++i) {
      if (i > str.size()) return 0;
      const char other = i < str.size() ? str[i] : '\0';
      if (noCase ? Lower(token[i]) != Lower(other) : token[i] != other) return 0;
      if (noCase && other == 0) return 1;
    }
    return 1;
  }

  long FindInToken(const char *str, int len) const {
    if (*str == 0) return kNone;
    return FindStr(tok, tokEnd, str, Length(str, len));
  }

 private:
  static int Length(const char *str, int len) { return len < 1 ? static_cast<int>(std::string(str).size()) : len; }
  static char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

  /// The character at an offset that the contract allows to be read.
  char At(long p) const {
    if (p >= 0 && p < srcEnd) return text_[static_cast<std::size_t>(p)];
    if (p == srcEnd && terminated_) return '\0';
    throw std::logic_error("the contract reads outside the source");
  }

  bool Same(long p, const char *str, int length, bool noCase) const {
    for (int i = 0; i < length; ++i) {
      const char c = At(p + i);
      if (noCase ? Lower(c) != Lower(str[i]) : c != str[i]) return false;
      if (noCase && c == 0) return true;
    }
    return true;
  }

  long FindStr(long start, long end, const char *str, int length) const {
    for (long p = start; p + length <= end; ++p) {
      int i = 0;
      while (str[i] != 0 && At(p + i) == str[i]) ++i;
      if (str[i] == 0) return p;
    }
    return kNone;
  }

  bool IsMember(long p, unsigned mask, const char *extra) const {
    const char c = At(p);
    if (c < 0 || static_cast<unsigned char>(c) >= 0x80) return false;
    if ((mask & 1) != 0 && c >= '0' && c <= '9') return true;
    if ((mask & 2) != 0 && c >= 'A' && c <= 'Z') return true;
    if ((mask & 4) != 0 && c >= 'a' && c <= 'z') return true;
    return extra != nullptr && c != 0 && std::string(extra).find(c) != std::string::npos;
  }

  long FindRun(bool want, unsigned mask, const char *extra, int min, int max, long &count) const {
    count = 0;
    if (max < min) max = 0x7fffffff;
    long p = cur;
    while (true) {
      if (p >= srcEnd) return kNone;
      if (IsMember(p, mask, extra) != want) {
        ++p;
        continue;
      }
      const long run = p;
      do {
        ++p;
        ++count;
        if (count >= max) return run;
      } while (p < srcEnd && IsMember(p, mask, extra) == want);
      if (count >= min) return run;
    }
  }

  void Found(long found, int length) {
    tok = cur;
    tokEnd = found;
    cur = found + length;
  }
  void Taken(int length) {
    tok = cur;
    cur += length;
    tokEnd = cur;
  }
  void ToEnd() {
    tok = cur;
    cur = tokEnd = srcEnd;
  }
  void Emptied() {
    tokEnd = tok;
    cur = kNone;
  }
  int Failed(bool emptyOnFail) {
    if (emptyOnFail) Emptied();
    return 0;
  }

  std::string text_;
  bool terminated_ = false;
};

}  // namespace devsupport::test
