// SPDX-License-Identifier: MIT
// The kernel's table of IPv6 addresses. For any content, a returned address is canonical and its buffer is not
// overrun; a table of lines as the kernel writes them gives exactly what a naive reader finds.
//
// The input is the interface's name, a newline, and the table.

#include <arpa/inet.h>
#include <devsupport/net/LocalAddress.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/KernelFile.h"
#include "tests/text/GuardedBuffer.h"

namespace {

constexpr std::size_t kLineChars = 126;
constexpr std::size_t kNameChars = 20;
constexpr const char *kUntouched = "never written";

struct Answer {
  int result = 0;
  std::string address = kUntouched;

  bool operator==(const Answer &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Answer &answer) {
  return stream << answer.result << ' ' << answer.address;
}

bool IsHex(const std::string &word) {
  return std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string Canonical(const std::string &digits) {
  in6_addr address{};
  for (std::size_t i = 0; i < 16; ++i)
    address.s6_addr[i] = static_cast<std::uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
  char text[INET6_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET6, &address, text, sizeof text);
  return text;
}

/// Reads one line of the kernel's form into the answer so far. False when it has another form.
bool ReadKernelLine(const std::string &line, const std::string &name, Answer &answer) {
  std::istringstream words(line);
  std::string address, index, prefix, scope, flags, interface, more;
  words >> address >> index >> prefix >> scope >> flags >> interface;
  if (!words || words >> more || address.size() != 32 || index.size() > 8 || prefix.size() != 2 ||
      scope.size() != 2 || flags.size() != 2 || interface.size() > kNameChars)
    return false;
  if (!IsHex(address + index + prefix + scope + flags)) return false;
  if (interface != name || answer.result != 0) return true;
  answer.address = Canonical(address);
  answer.result = std::stoul(scope, nullptr, 16) < 0x10 ? 1 : 0;
  return true;
}

/// Nothing when the table has a line that the kernel does not write.
std::optional<Answer> NaiveAnswer(const std::string &name, std::string_view table) {
  devsupport::test::KernelLines lines(table, table.size());
  Answer answer;
  for (std::string line; lines.Next(line);)
    if (line.size() > kLineChars || !ReadKernelLine(line, name, answer)) return std::nullopt;
  return answer;
}

Answer Ask(const std::string &name, std::string_view table) {
  const devsupport::test::KernelFile file("/proc/net/if_inet6", table);
  devsupport::test::GuardedBuffer buffer(INET6_ADDRSTRLEN, kUntouched);
  Answer answer;
  answer.result = GetLocalIPv6(buffer.Data(), name.c_str());
  answer.address = buffer.Text();
  EXPECT_TRUE(buffer.GuardsIntact());
  return answer;
}

void ExpectCanonical(const Answer &answer) {
  EXPECT_TRUE(answer.result == 0 || answer.result == 1);
  if (answer.address == kUntouched) {
    EXPECT_EQ(answer.result, 0);
    return;
  }
  in6_addr address{};
  char again[INET6_ADDRSTRLEN] = "";
  ASSERT_EQ(::inet_pton(AF_INET6, answer.address.c_str(), &address), 1);
  ::inet_ntop(AF_INET6, &address, again, sizeof again);
  EXPECT_EQ(answer.address, again);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  devsupport::test::FuzzInput input(data, size);
  std::string name = input.UpTo('\n');
  name.resize(std::strlen(name.c_str()));
  const std::string_view table = input.Rest();
  const Answer answer = Ask(name, table);
  ExpectCanonical(answer);
  if (table.find('\0') != std::string_view::npos) return 0;
  if (const std::optional<Answer> expected = NaiveAnswer(name, table); expected.has_value()) {
    EXPECT_EQ(answer, *expected);
  }
  return 0;
}
