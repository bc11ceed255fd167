// SPDX-License-Identifier: MIT
// The environment's shared-memory segments: removed before they are rebuilt, and detached when another process has
// made new ones.
#pragma once

#include <cstdint>

namespace devsupport::store {

/// Processes that are attached to the environment.
int AttachedToRegions();

/// Removes the segments of all regions and the library's note of them in the home. Processes that are attached keep
/// what they have; new regions get the keys. nHomeFd: descriptor of the home.
void RemoveRegions(int nHomeFd);

/// Detaches the segments of this process. The first page stays as a private copy: there the library looks whether the
/// environment is broken, and a caller's old cursor must find that it is.
void ReleaseRegions();

}  // namespace devsupport::store
