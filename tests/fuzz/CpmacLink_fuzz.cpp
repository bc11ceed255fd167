// SPDX-License-Identifier: MIT
// The Ethernet driver's link file: the result for any text is that of a naive reader.

#include <devsupport/net/LinkStatus.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/KernelFile.h"
#include "tests/text/NaiveNumbers.h"

namespace {

constexpr std::size_t kLineChars = 256;

/// The first word after the place; nothing when there is none.
std::string WordAt(const std::string &line, std::size_t place) {
  const std::size_t begin = line.find_first_not_of(" \r\n", place);
  if (begin == std::string::npos) return "";
  return line.substr(begin, line.find_first_of(" \r\n", begin) - begin);
}

bool HasNumberAbove0(const std::string &line) {
  const std::size_t found = line.find("= ");
  if (found == std::string::npos) return false;
  const devsupport::test::Number number = devsupport::test::NaiveInt(WordAt(line, found + 2).substr(0, 15));
  return number.ok != 0 && number.value > 0;
}

bool SaysUp(const std::string &line) {
  const std::size_t first = line.find(':');
  if (first == std::string::npos) return false;
  const std::size_t second = line.find(':', first + 1);
  return second != std::string::npos && WordAt(line, second + 1) == "UP";
}

int NaiveLink(std::string_view text) {
  devsupport::test::KernelLines lines(text, kLineChars);
  std::string line;
  if (!lines.Next(line) || !HasNumberAbove0(line)) return 0;
  return lines.Next(line) && SaysUp(line) ? 1 : 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const devsupport::test::KernelFile file("/proc/avalanche/cpmac_link", text);
  EXPECT_EQ(GetCpmacLink(), NaiveLink(text));
  EXPECT_EQ(GetLinkStatus("eth0"), NaiveLink(text));
  return 0;
}
