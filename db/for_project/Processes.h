// SPDX-License-Identifier: MIT
// Asks the kernel whether a process still lives.
#pragma once

#include <cstdint>

namespace devsupport::store {

/// Start of a process, in the kernel's clock ticks since the device came up; 0 when it cannot be read.
std::uint64_t StartOf(std::int32_t nPid);

/// Whether the process with this number and this start lives. A process that has ended and that its parent has not
/// asked for yet is dead. When the kernel does not tell starts, the number decides.
bool IsAlive(std::int32_t nPid, std::uint64_t qwStart);

}  // namespace devsupport::store
