// SPDX-License-Identifier: MIT
// The output to standard output and standard error. It can be held until it is known to be correct.
#pragma once

#include <cstdint>
#include <string_view>

namespace devconf {

enum class Stream : std::uint8_t { Out, Error };

/// Writes bytes.
void Put(Stream stream, std::string_view bytes);

/// Writes a short formatted text.
[[gnu::format(printf, 2, 3)]] void Format(Stream stream, const char *format, ...);

/// From now on, keeps everything that is written.
void HoldOutput();
/// Writes what was kept.
void ReleaseOutput();
/// Forgets what was kept.
void DropOutput();

/// Writes out standard output. Complains and returns false when something was lost.
bool FinishOutput();

}  // namespace devconf
