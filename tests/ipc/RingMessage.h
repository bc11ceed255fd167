// SPDX-License-Identifier: MIT
// Messages whose bytes can be checked: all bytes of a message follow from its identity.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace devsupport::test {

inline constexpr std::uint16_t kMessageBytes = 132;

/// A message of identity-dependent length: 8 bytes of identity and length, then a pattern.
struct Message {
  std::array<std::uint8_t, kMessageBytes> bytes{};
  std::uint16_t length = 0;

  static Message Of(std::uint32_t identity) {
    Message message;
    message.length = static_cast<std::uint16_t>(8 + identity * 7 % (kMessageBytes - 8 + 1));
    const std::uint32_t start[2] = {identity, message.length};
    std::memcpy(message.bytes.data(), start, sizeof start);
    for (std::uint32_t i = 8; i < message.length; ++i)
      message.bytes[i] = static_cast<std::uint8_t>(identity * 31 + i);
    return message;
  }

  /// The identity of a message taken out of a ring; false when the message is not complete.
  static bool Read(const std::uint8_t *bytes, std::uint32_t length, std::uint32_t *identity) {
    if (length < 8 || length > kMessageBytes) return false;
    std::memcpy(identity, bytes, sizeof *identity);
    const Message expected = Of(*identity);
    return length == expected.length && std::memcmp(bytes, expected.bytes.data(), length) == 0;
  }
};

}  // namespace devsupport::test
