// SPDX-License-Identifier: MIT
// The keys of the store's System V objects, and how a foreign object at such a key is recognised.
#pragma once

#include <sys/ipc.h>
#include <sys/stat.h>

#include <cstdint>

namespace devsupport::store {

/// Gate: a shared-memory segment and a set of semaphores. It is the key before the environment's first region.
inline constexpr std::int32_t kGateKey = 0x12345677;

/// The environment's first region; the other regions take the keys after it.
inline constexpr long kShmKey = 0x12345678;

/// Regions that an environment can have: its own, one for each of the five subsystems, and further caches.
inline constexpr long kMaxRegions = 16;

/// Rights of what the store creates: the owner's and the group's, as the environment's regions have them.
inline constexpr int kObjectMode = 0660;

/// Whether an object belongs to those who may use the home: its creator is root, the home's owner or ourselves, and
/// others have no right to it. What lies in any other object is not read.
bool IsOurs(const ipc_perm &object, const struct stat &home);

/// Prints one sentence about a foreign object at the gate's key. pKind: "segment" or "set of semaphores".
void ReportForeign(const char *pKind, const ipc_perm &object);

}  // namespace devsupport::store
