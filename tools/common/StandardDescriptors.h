// SPDX-License-Identifier: MIT
// Standard input, output and error, which a caller may have closed.
#pragma once

namespace tools {

/// Occupies the standard descriptors that are closed: no file or socket of ours may get such a number, because what
/// we print would then be written into it. They are open the wrong way round, so that their use still fails.
/// Returns  false when that cannot be done.
bool OccupyStandardDescriptors();

}  // namespace tools
