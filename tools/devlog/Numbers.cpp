// Numbers, types and times as people write them on the command line.

#include "Numbers.h"

#include <cstring>
#include <string_view>

namespace devlog {

namespace {

constexpr unsigned kNoDigit = 99;

unsigned DigitOf(char character) {
  if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A') + 10;
  return kNoDigit;
}

bool ParseDigits(std::string_view digits, unsigned base, std::uint32_t last, std::uint32_t &number) {
  std::uint64_t value = 0;
  for (const char character : digits) {
    const unsigned digit = DigitOf(character);
    if (digit >= base) return false;
    value = value * base + digit;
    if (value > last) return false;
  }
  if (digits.empty()) return false;
  number = static_cast<std::uint32_t>(value);
  return true;
}

bool Parse(std::string_view text, std::uint32_t last, std::uint32_t &number) {
  const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (!isHex) return ParseDigits(text, 10, last, number);
  text.remove_prefix(2);
  return ParseDigits(text, 16, last, number);
}

/// Cuts the part before the next separator off the text; the rest is behind it, null data at the end.
std::string_view CutPart(std::string_view &rest, char separator) {
  const void *found = rest.empty() ? nullptr : std::memchr(rest.data(), separator, rest.size());
  if (found == nullptr) {
    const std::string_view part = rest;
    rest = {};
    return part;
  }
  const std::string_view part(rest.data(), static_cast<std::size_t>(static_cast<const char *>(found) - rest.data()));
  rest.remove_prefix(part.size() + 1);
  return part;
}

}  // namespace

bool ToNumber(const char *text, std::uint32_t last, std::uint32_t &number) { return Parse(text, last, number); }

bool ToTypes(const char *text, std::uint16_t &types) {
  std::uint32_t found = 0;
  std::string_view rest(text);
  do {
    std::uint32_t type = 0;
    if (!Parse(CutPart(rest, ','), LOGCELL_MAX(TYPE), type)) return false;
    found |= 1u << type;
  } while (rest.data() != nullptr);
  types = static_cast<std::uint16_t>(found);
  return true;
}

bool ToDayTime(const char *text, DayTime &time) {
  constexpr std::uint32_t kLast[] = {23, 59, 59};
  std::uint32_t parts[] = {0, 0, 0};
  std::string_view rest(text);
  std::size_t count = 0;
  do {
    const std::string_view part = CutPart(rest, ':');
    if (count == 3 || part.size() > 2 || !ParseDigits(part, 10, kLast[count], parts[count])) return false;
    ++count;
  } while (rest.data() != nullptr);
  if (count < 2) return false;
  time = static_cast<DayTime>(((parts[0] * 60 + parts[1]) * 60 + parts[2]) * 1000);
  return true;
}

}  // namespace devlog
