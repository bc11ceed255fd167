// SPDX-License-Identifier: MIT
// The text of a state file: the registers as JSON, to be read and edited.
#pragma once

#include <string>

#include "tools/analogsim/Driver.h"

namespace analogsim {

/// The registers as JSON:
///
///   {
///     "version": 1,
///     "debug": false,
///     "channels": {"1": {"direct": {"23": 48}, "indirect": {}}}
///   }
std::string ToStateText(const Registers &registers);

/// The registers that a text describes. Strict: throws std::runtime_error, saying what is wrong, for everything
/// that ToStateText() does not write, so that no content is ever dropped without notice.
Registers FromStateText(const std::string &text);

}  // namespace analogsim
