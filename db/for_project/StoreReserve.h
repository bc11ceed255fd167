// SPDX-License-Identifier: MIT
// The reserve: a file that is removed when the medium is full. Operations that have begun can then end, and the store
// can be opened and read; changes are refused until there is room for a new reserve.
#pragma once

namespace devsupport::store {

/// Whether an error number, or a result of the library, means that the medium is full.
bool IsMediumFull(int nResult);

/// Makes the reserve unless it is there. Returns 0 or an error number, ENOSPC when the room is not enough for it and
/// for some changes besides.
int MakeReserve(int nHomeFd);

/// Whether some changes have room without the reserve.
bool HasRoomBesidesReserve(int nHomeFd);

/// Whether opening with recovery has room without the reserve, whatever it has to write.
bool HasRoomForOpening(int nHomeFd);

/// Removes the reserve. False when there was none.
bool ReleaseReserve(int nHomeFd);

}  // namespace devsupport::store
