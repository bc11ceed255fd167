// SPDX-License-Identifier: MIT
// Room on the medium that the store keeps for itself: a file that is given up when the medium is full. What was begun
// can then be ended, and the store be opened and read; changes are refused until there is room for a new reserve.
#pragma once

namespace devsupport::store {

/// Whether an error number, or a result of the library, says that the medium takes no more.
bool IsMediumFull(int nResult);

/// Makes the reserve unless it is there. Returns 0 or an error number, ENOSPC when the room is not enough for it and
/// for some changes besides.
int MakeReserve(int nHomeFd);

/// Whether some changes have room without the reserve.
bool HasRoomBesidesReserve(int nHomeFd);

/// Whether opening with recovery has room without the reserve, whatever it has to write.
bool HasRoomForOpening(int nHomeFd);

/// Gives the reserve up. False when there was none.
bool ReleaseReserve(int nHomeFd);

}  // namespace devsupport::store
