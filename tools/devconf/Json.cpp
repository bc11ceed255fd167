// SPDX-License-Identifier: MIT
// Reads and writes the text form of records.

#include "tools/devconf/Json.h"

#include "tools/common/Numbers.h"

namespace devconf {

namespace {

constexpr std::uint8_t Byte(char c) { return static_cast<std::uint8_t>(c); }

constexpr bool IsHighSurrogate(std::uint32_t point) { return point >= 0xd800 && point < 0xdc00; }
constexpr bool IsLowSurrogate(std::uint32_t point) { return point >= 0xdc00 && point < 0xe000; }

// Writes a character as UTF-8, which is never longer than its escape.
std::size_t Encode(std::uint32_t point, char *out) {
  if (point < 0x80) {
    out[0] = static_cast<char>(point);
    return 1;
  }
  const std::size_t following = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
  constexpr std::uint32_t kFirst[] = {0, 0xc0, 0xe0, 0xf0};
  out[0] = static_cast<char>(kFirst[following] | point >> (6 * following));
  for (std::size_t i = 1; i <= following; ++i) {
    out[i] = static_cast<char>(0x80 | (point >> (6 * (following - i)) & 0x3f));
  }
  return following + 1;
}

// Takes the four digits after "\u".
bool TakeFourDigits(std::string_view &rest, std::uint32_t &point) {
  if (rest.size() < 4) return false;
  point = 0;
  for (const char c : First(rest, 4)) {
    const unsigned digit = tools::DigitValue(c);
    if (digit >= 16) return false;
    point = point << 4 | digit;
  }
  rest.remove_prefix(4);
  return true;
}

const char *TakeNumberedEscape(std::string_view &rest, std::uint32_t &point) {
  if (!TakeFourDigits(rest, point)) return "\\u needs four hexadecimal digits";
  if (IsLowSurrogate(point)) return "half a surrogate pair";
  if (!IsHighSurrogate(point)) return nullptr;
  std::uint32_t low = 0;
  if (!StartsWith(rest, "\\u")) return "half a surrogate pair";
  rest.remove_prefix(2);
  if (!TakeFourDigits(rest, low) || !IsLowSurrogate(low)) return "half a surrogate pair";
  point = 0x10000 + ((point - 0xd800) << 10) + (low - 0xdc00);
  return nullptr;
}

// Takes what follows a backslash.
const char *TakeEscape(std::string_view &rest, std::uint32_t &point) {
  if (rest.empty()) return "nothing after a backslash";
  const char kind = rest.front();
  rest.remove_prefix(1);
  if (kind == 'u') return TakeNumberedEscape(rest, point);
  constexpr std::string_view kKinds = "\"\\/bfnrt";
  constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
  const std::size_t at = kKinds.find(kind);
  if (at == std::string_view::npos) return "unknown escape";
  point = Byte(kMeanings[at]);
  return nullptr;
}

const char *TakeCharacter(std::string_view &rest, std::uint32_t &point) {
  if (rest.front() == '\\') {
    rest.remove_prefix(1);
    return TakeEscape(rest, point);
  }
  const std::size_t size = FirstCharacter(rest, point);
  if (size == 0) return "not UTF-8";
  if (point < 0x20) return "a control character that is not escaped";
  rest.remove_prefix(size);
  return nullptr;
}

// Walks over the tokens of one object.
class Scanner {
 public:
  explicit Scanner(std::string_view line) : rest_(line) {}

  bool Take(char c) {
    SkipBlanks();
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  /// Takes a string with its quotes; gives what is between them.
  bool TakeString(std::string_view &inside) {
    if (!Take('"')) return false;
    for (std::size_t i = 0; i < rest_.size(); ++i) {
      if (rest_[i] == '"') {
        inside = First(rest_, i);
        rest_.remove_prefix(i + 1);
        return true;
      }
      if (rest_[i] == '\\') ++i;
    }
    return false;
  }

  bool AtEnd() {
    SkipBlanks();
    return rest_.empty();
  }

 private:
  void SkipBlanks() {
    constexpr std::string_view kBlanks = " \t\r\n";
    while (!rest_.empty() && kBlanks.find(rest_.front()) != std::string_view::npos) rest_.remove_prefix(1);
  }

  std::string_view rest_;
};

const char *ReadMember(Scanner &scanner, Member &member) {
  if (!scanner.TakeString(member.name)) return "a member's name is missing, or its closing quote";
  if (!scanner.Take(':')) return "no ':' after a member's name";
  if (!scanner.TakeString(member.value)) return "a member's value is no string, or its closing quote is missing";
  return nullptr;
}

}  // namespace

const char *ReadObject(std::string_view line, std::span<Member> members, std::size_t &count) {
  count = 0;
  Scanner scanner(line);
  if (!scanner.Take('{')) return "no '{' at the start";
  if (!scanner.Take('}')) {
    do {
      if (count == members.size()) return "too many members";
      if (const char *wrong = ReadMember(scanner, members[count]); wrong != nullptr) return wrong;
      ++count;
    } while (scanner.Take(','));
    if (!scanner.Take('}')) return "no ',' or '}' after a member";
  }
  return scanner.AtEnd() ? nullptr : "something after the closing '}'";
}

const char *Unescape(std::string_view string, Form form, std::span<char> out, std::size_t &size) {
  size = 0;
  while (!string.empty()) {
    std::uint32_t point = 0;
    if (const char *wrong = TakeCharacter(string, point); wrong != nullptr) return wrong;
    if (form == Form::Bytes) {
      if (point > 0xff) return "a character above U+00FF in bytes";
      out[size++] = static_cast<char>(point);
    } else {
      if (point == 0) return "a NUL in a text";
      size += Encode(point, &out[size]);
    }
  }
  return nullptr;
}

}  // namespace devconf
