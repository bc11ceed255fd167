// SPDX-License-Identifier: MIT
// Numbers and error names on the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace analogsim {

/// A whole number, decimal or hexadecimal with 0x, nothing before or after it but a minus sign.
/// Hexadecimal numbers without a sign may use all 32 bits: 0xffffffff is -1.
std::optional<std::int32_t> ToInt32(std::string_view text);

/// An errno, by name ("EIO") or by number ("5").
std::optional<int> ToErrno(const std::string &text);

/// The name of an errno, or its number when it has none.
std::string ErrnoName(int error);

}  // namespace analogsim
