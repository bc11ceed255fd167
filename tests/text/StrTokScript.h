// SPDX-License-Identifier: MIT
// One script for the tokenizer and for a simple one: results, copies and all fields of the record must agree. Sources
// and buffers are heap blocks of exactly their size, so that the address sanitizer detects any access outside them.
#pragma once

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/detail/text/StrTokScan.h>
#include <devsupport/text/NumberParsing.h>
#include <devsupport/text/StrTokConvert.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "tests/text/StrTokOracle.h"

namespace devsupport::test {

inline constexpr int kStepsPerSource = 25;

/// Strings to search for, with bytes after the NUL because a length may be longer than the string.
inline constexpr char kNeedles[][12] = {"",   ",", ";",  "a",   "ab",   ",,", "b1",
                                        "aB", "A", ",;", "abc", "\x80", " ",  "a,b"};
inline constexpr const char *kExtras[] = {nullptr, "", ",", ",;", " \t", "b\x80", "\x80", "1A,"};

/// The caller makes the script's choices, at random or from a file.
class StrTokScript {
 public:
  /// Chooses a number below the limit.
  using Choose = std::function<std::size_t(std::size_t limit)>;

  explicit StrTokScript(Choose choose) : choose_(std::move(choose)) {}

  void Step(int number) {
    if (number % kStepsPerSource == 0) NewSource();
    switch (Below(6)) {
      case 0:
        return Search();
      case 1:
        return Match();
      case 2:
        return ScanBySet();
      case 3:
        return Advance();
      case 4:
        return Inspect();
      default:
        return Convert();
    }
  }

  /// Every field and every accessor agrees with the oracle.
  void Compare() const {
    EXPECT_EQ(tok_.bTrim, oracle_.trim);
    EXPECT_EQ(Offset(tok_.pSrc), oracle_.src);
    EXPECT_EQ(Offset(tok_.pSrcEnd), oracle_.srcEnd);
    EXPECT_EQ(Offset(tok_.pTok), oracle_.tok);
    EXPECT_EQ(Offset(tok_.pTokEnd), oracle_.tokEnd);
    EXPECT_EQ(Offset(tok_.pCur), oracle_.cur);
    EXPECT_EQ(tok_.nPrevDelimLen, oracle_.prevDelimLen);
    EXPECT_EQ(tok_.nDelimLen, oracle_.delimLen);
    EXPECT_EQ(TStrTok_IsTokenEnd(&tok_), oracle_.IsTokenEnd());
    EXPECT_EQ(TStrTok_GetTokenLen(&tok_), oracle_.tokEnd - oracle_.tok);
  }

  const std::string &Last() const { return last_; }

 private:
  std::size_t Below(std::size_t limit) { return choose_(limit); }
  int Int(int from, int to) { return from + static_cast<int>(Below(static_cast<std::size_t>(to - from) + 1)); }
  bool Coin() { return Below(2) != 0; }

  long Offset(const char *p) const {
    return p == nullptr ? StrTokOracle::kNone : static_cast<long>(p - block_.get());
  }

  void Same(long actual, long expected) { EXPECT_EQ(actual, expected); }

  void NewSource() {
    const bool trim = Coin();
    if (Below(20) == 0) {
      last_ = "NULL source";
      block_.reset();
      terminated_ = true;
      oracle_.SetNullSource(trim);
      TStrTok_SetSource(&tok_, trim, nullptr, Int(-1, 3));
      return;
    }
    // Without a NUL the length must be given, and a length of 0 would mean strlen.
    terminated_ = Coin();
    std::string text(Below(24) + (terminated_ ? 0 : 1), '\0');
    for (char &c : text) c = "ab1,;,A \t-:\xac\x80"[Below(terminated_ ? 13 : 14)];
    block_ = std::make_unique<char[]>(text.size() + (terminated_ ? 1 : 0));
    std::copy(text.begin(), text.end(), block_.get());
    if (terminated_) block_[text.size()] = '\0';
    last_ = "source \"" + text + "\"";
    oracle_.SetSource(trim, text, terminated_);
    TStrTok_SetSource(&tok_, trim, block_.get(), terminated_ ? Int(-1, 0) : static_cast<int>(text.size()));
  }

  /// A string with a length: its own, a longer one or, where the source's NUL ends the comparison, a shorter one.
  struct Needle {
    const char *str;
    int len;
  };
  Needle AnyNeedle() {
    if (Below(30) == 0) return {nullptr, Int(-1, 3)};
    const char *const str = kNeedles[Below(std::size(kNeedles))];
    const int length = static_cast<int>(std::strlen(str));
    switch (Below(4)) {
      case 0:
        return {str, length};
      case 1:
        return {str, terminated_ ? Int(0, 4) : Int(length, length + 2)};
      default:
        return {str, Int(-1, 0)};
    }
  }

  void Search() {
    const Needle n = AnyNeedle();
    const bool empty = Below(8) == 0;
    if (Coin()) {
      last_ = "Find";
      Same(TStrTok_Find(&tok_, n.str, n.len, empty), oracle_.Find(n.str, n.len, empty));
    } else {
      const int count = Int(-1, 4);
      last_ = "FindNth " + std::to_string(count);
      Same(TStrTok_FindNth(&tok_, count, n.str, n.len, empty), oracle_.FindNth(count, n.str, n.len, empty));
    }
  }

  void Match() {
    const Needle n = AnyNeedle();
    const bool empty = Below(8) == 0;
    const int length = Int(-1, 5);
    switch (Below(4)) {
      case 0:
        last_ = "MatchStr";
        return Same(TStrTok_MatchStr(&tok_, n.str, n.len, empty), oracle_.MatchStr(n.str, n.len, empty, false));
      case 1:
        last_ = "MatchStrNoCase";
        return Same(TStrTok_MatchStrNoCase(&tok_, n.str, n.len, empty), oracle_.MatchStr(n.str, n.len, empty, true));
      case 2:
        last_ = "Match2End_CanEmpty";
        if (Below(8) == 0) Same(_Match2End_CanEmpty(&tok_), oracle_.Match2EndCanEmpty());
        return;
      default:
        last_ = "MatchLen " + std::to_string(length);
        return Same(TStrTok_MatchLen(&tok_, length), oracle_.MatchLen(length));
    }
  }

  void ScanBySet() {
    const auto mask = static_cast<unsigned>(Below(8));
    const char *const extra = kExtras[Below(std::size(kExtras))];
    const int min = Int(-1, 4);
    const int max = Coin() ? 0x7fffffff : Int(-2, 5);
    const bool empty = Below(8) == 0;
    const bool want = Coin();
    last_ = "scan, mask " + std::to_string(mask) + ", min " + std::to_string(min) + ", max " + std::to_string(max);
    if (Coin()) {
      const auto find = want ? TStrTok_FindAnyChar : TStrTok_FindNotAnyChar;
      Same(find(&tok_, mask, extra, min, empty, max), oracle_.FindAnyChar(want, mask, extra, min, max, empty));
    } else {
      const auto match = want ? TStrTok_MatchAnyChar : TStrTok_MatchNotAnyChar;
      Same(match(&tok_, mask, extra, min, empty, max), oracle_.MatchAnyChar(want, mask, extra, min, max, empty));
    }
  }

  void Advance() {
    const bool canEmpty = Coin();
    if (Coin()) {
      const Needle n = AnyNeedle();
      last_ = "GoDelimit_Str";
      Same(TStrTok_GoDelimit_Str(&tok_, n.str, canEmpty, n.len), oracle_.GoDelimitStr(n.str, canEmpty, n.len));
    } else {
      const char *const delimiters = kExtras[Below(std::size(kExtras))];
      last_ = "GoDelimit_AnyChar";
      Same(TStrTok_GoDelimit_AnyChar(&tok_, delimiters, canEmpty), oracle_.GoDelimitAnyChar(delimiters, canEmpty));
    }
  }

  std::string Shown(const std::string &piece, int size) const {
    const std::string copy = oracle_.trim != 0 ? StrTokOracle::Trimmed(piece) : piece;
    return copy.substr(0, static_cast<std::size_t>(size) - 1);
  }

  void Inspect() {
    const int size = Int(1, 12);
    const auto buffer = std::make_unique<char[]>(static_cast<std::size_t>(size));
    const bool leading = Coin();
    const bool toCursor = Coin();
    const bool live = oracle_.cur != StrTokOracle::kNone;
    switch (Below(6)) {
      case 0: {
        last_ = "GetToken";
        int length = -7;
        Same(TStrTok_GetToken(&tok_, buffer.get(), size, &length), live);
        return SameCopy(buffer.get(), length, Shown(oracle_.Token(), size));
      }
      case 1: {
        last_ = "GetTokenEx";
        int length = -7;
        Same(TStrTok_GetTokenEx(&tok_, buffer.get(), size, leading, toCursor, &length), live);
        return SameCopy(buffer.get(), length, Shown(oracle_.TokenEx(leading, toCursor), size));
      }
      case 2: {
        last_ = "GetSource";
        const char *const end = TStrTok_GetSource(&tok_, buffer.get(), size);
        const std::string all = oracle_.Piece(0, oracle_.srcEnd).substr(0, static_cast<std::size_t>(size) - 1);
        return SameCopy(buffer.get(), static_cast<int>(end - buffer.get()), all);
      }
      case 3:
        return OpenSub(leading, toCursor);
      case 4: {
        last_ = "TokenIs";
        const char *const needle = kNeedles[Below(std::size(kNeedles))];
        Same(TStrTok_TokenIs(&tok_, ExactCopy(needle).get()), oracle_.TokenIs(needle, false));
        return Same(TStrTok_TokenIsNoCase(&tok_, ExactCopy(needle).get()), oracle_.TokenIs(needle, true));
      }
      default: {
        last_ = "FindInToken";
        const Needle n = AnyNeedle();
        if (n.str != nullptr)
          Same(Offset(TStrTok_FindInToken(&tok_, n.str, n.len)), oracle_.FindInToken(n.str, n.len));
      }
    }
  }

  static std::unique_ptr<char[]> ExactCopy(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
  }

  void SameCopy(const char *buffer, int length, const std::string &expected) {
    ASSERT_EQ(length, static_cast<int>(expected.size()));
    EXPECT_EQ(std::string(buffer, expected.size() + 1), expected + '\0');
  }

  void OpenSub(bool leading, bool toCursor) {
    last_ = "Token2TokEx";
    TStrTok sub{};
    sub.nDelimLen = 7;
    const bool live = oracle_.cur != StrTokOracle::kNone;
    Same(leading || toCursor ? TStrTok_Token2TokEx(&tok_, &sub, leading, toCursor) : TStrTok_Token2Tok(&tok_, &sub),
         live);
    const long begin = leading ? std::max(oracle_.tok - oracle_.prevDelimLen, 0L) : oracle_.tok;
    const long end = std::min(toCursor ? oracle_.cur : oracle_.tokEnd, oracle_.srcEnd);
    EXPECT_EQ(Offset(sub.pSrc), live ? begin : StrTokOracle::kNone);
    EXPECT_EQ(Offset(sub.pSrcEnd), live ? oracle_.SubEnd(begin, end) : StrTokOracle::kNone);
    EXPECT_EQ(sub.pTok, sub.pSrc);
    EXPECT_EQ(sub.pTokEnd, sub.pSrc);
    EXPECT_EQ(sub.pCur, sub.pSrc);
    EXPECT_EQ(sub.bTrim, oracle_.trim);
    EXPECT_EQ(sub.nDelimLen, 0);
  }

  /// The result of a parser for the token's first 15 characters.
  template <typename Number>
  void SameNumber(int (*parse)(const char *, Number *), int flag, Number actual, int advanced = 1) {
    Number expected = 77;
    int expectedFlag = 0;
    if (oracle_.cur != StrTokOracle::kNone) expectedFlag = parse(oracle_.Token().substr(0, 15).c_str(), &expected);
    EXPECT_EQ(flag, expectedFlag & advanced);
    EXPECT_EQ(actual, expected);
  }

  void Convert() {
    std::int32_t value = 77;
    std::uint16_t word = 77;
    std::uint8_t byte = 77;
    double real = 77;
    float single = 77;
    const int length = Int(-1, 3);
    last_ = "conversion";
    switch (Below(8)) {
      case 0: {
        const int flag = TStrTok_Token2Int(&tok_, &value);
        SameNumber(Str2Int, flag, value);
        return Same(TStrTok_Token2Int_Ret(&tok_), flag != 0 ? value : 0);
      }
      case 1: {
        const int flag = TStrTok_Token2Word(&tok_, &word);
        return SameNumber(Str2Word, flag, word);
      }
      case 2: {
        const int flag = TStrTok_Token2Byte(&tok_, &byte);
        return SameNumber(Str2Byte, flag, byte);
      }
      case 3: {
        const int flag = TStrTok_Token2Double(&tok_, &real);
        return SameNumber(Str2Double, flag, real);
      }
      case 4: {
        const int flag = TStrTok_Token2Float(&tok_, &single);
        return SameNumber(Str2Float, flag, single);
      }
      case 5: {
        if (Below(4) != 0) return;
        const int flag = TStrTok_FindToken2Int(&tok_, &value, ",", 0);
        return SameNumber(Str2Int, flag, value, oracle_.Find(",", 0, true));
      }
      case 6: {
        const int flag = TStrTok_MatchLen2Int(&tok_, &value, length);
        return SameNumber(Str2Int, flag, value, oracle_.MatchLen(length));
      }
      default: {
        if (Below(4) != 0) return;
        const int flag = TStrTok_Match2End2Int(&tok_, &value);
        return SameNumber(Str2Int, flag, value, oracle_.MatchLen(0));
      }
    }
  }

  Choose choose_;
  std::unique_ptr<char[]> block_;
  bool terminated_ = true;
  TStrTok tok_{};
  StrTokOracle oracle_;
  std::string last_;
};

}  // namespace devsupport::test
