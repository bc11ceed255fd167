// Reads and writes the text form of records.

#include "Json.h"

#include <algorithm>

namespace devconf {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

constexpr std::uint8_t Byte(char c) { return static_cast<std::uint8_t>(c); }

constexpr bool IsHighSurrogate(std::uint32_t point) { return point >= 0xd800 && point < 0xdc00; }
constexpr bool IsLowSurrogate(std::uint32_t point) { return point >= 0xdc00 && point < 0xe000; }

// Bytes that follow the first one, and the smallest character that needs so many.
struct Length {
  std::size_t following;
  std::uint32_t smallest;
};

// A byte that begins no character needs more bytes than there are.
constexpr Length LengthOf(std::uint8_t first) {
  if (first < 0x80) return {0, 0};
  if (first >= 0xc0 && first < 0xe0) return {1, 0x80};
  if (first >= 0xe0 && first < 0xf0) return {2, 0x800};
  if (first >= 0xf0 && first < 0xf8) return {3, 0x10000};
  return {SIZE_MAX, 0};
}

void Append(Piece &piece, char c) { piece.text[piece.size++] = c; }

Piece NumberedEscape(std::uint32_t point) {
  Piece piece;
  for (const char c : {'\\', 'u', '0', '0'}) Append(piece, c);
  Append(piece, kHexDigits[point >> 4 & 0xf]);
  Append(piece, kHexDigits[point & 0xf]);
  return piece;
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

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Takes the four digits behind "\u".
bool TakeFourDigits(std::string_view &rest, std::uint32_t &point) {
  if (rest.size() < 4) return false;
  point = 0;
  for (const char c : First(rest, 4)) {
    const int digit = HexValue(c);
    if (digit < 0) return false;
    point = point << 4 | static_cast<std::uint32_t>(digit);
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
  if (rest.empty()) return "nothing behind a backslash";
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
  if (!scanner.Take(':')) return "no ':' behind a member's name";
  if (!scanner.TakeString(member.value)) return "a member's value is no string, or its closing quote is missing";
  return nullptr;
}

}  // namespace

std::string_view First(std::string_view bytes, std::size_t count) {
  return {bytes.data(), std::min(count, bytes.size())};
}

std::string_view Behind(std::string_view bytes, std::size_t count) {
  bytes.remove_prefix(std::min(count, bytes.size()));
  return bytes;
}

bool StartsWith(std::string_view bytes, std::string_view prefix) { return First(bytes, prefix.size()) == prefix; }

std::size_t FirstCharacter(std::string_view bytes, std::uint32_t &point) {
  if (bytes.empty()) return 0;
  const std::uint8_t first = Byte(bytes[0]);
  const auto [following, smallest] = LengthOf(first);
  if (following >= bytes.size()) return 0;
  point = following == 0 ? first : first & (0x3fU >> following);
  for (std::size_t i = 1; i <= following; ++i) {
    if ((Byte(bytes[i]) & 0xc0) != 0x80) return 0;
    point = point << 6 | (Byte(bytes[i]) & 0x3fU);
  }
  const bool isCharacter = point >= smallest && point < 0x110000 && !IsHighSurrogate(point) && !IsLowSurrogate(point);
  return isCharacter ? following + 1 : 0;
}

bool IsText(std::string_view bytes) {
  while (!bytes.empty()) {
    std::uint32_t point = 0;
    const std::size_t size = FirstCharacter(bytes, point);
    if (size == 0 || point == 0) return false;
    bytes.remove_prefix(size);
  }
  return true;
}

Piece EscapeNext(std::string_view &bytes, Form form) {
  std::uint32_t point = Byte(bytes[0]);
  const std::size_t size = form == Form::kText ? std::max<std::size_t>(FirstCharacter(bytes, point), 1) : 1;
  const std::string_view character = First(bytes, size);
  bytes.remove_prefix(size);
  Piece piece;
  if (const char escape = ShortEscape(point); escape != '\0') {
    Append(piece, '\\');
    Append(piece, escape);
    return piece;
  }
  if (IsControl(point) || (form == Form::kBytes && point >= 0x80)) return NumberedEscape(point);
  for (const char c : character) Append(piece, c);
  return piece;
}

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
    if (!scanner.Take('}')) return "no ',' or '}' behind a member";
  }
  return scanner.AtEnd() ? nullptr : "something behind the closing '}'";
}

const char *Unescape(std::string_view string, Form form, std::span<char> out, std::size_t &size) {
  size = 0;
  while (!string.empty()) {
    std::uint32_t point = 0;
    if (const char *wrong = TakeCharacter(string, point); wrong != nullptr) return wrong;
    if (form == Form::kBytes) {
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
