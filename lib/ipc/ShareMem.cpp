// SPDX-License-Identifier: MIT
// System V shared-memory segments, by key: create or attach, detach and remove, count the users.

#include <devsupport/ipc/ShareMem.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include "lib/Layout.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TShareMem, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TShareMem, shmid, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TShareMem, address, 4);

namespace {

constexpr int kMode = 0666;
constexpr std::size_t kErrorTextBytes = 1024;

// strerror_r comes in two forms: one answers the text itself, the other a number and fills the buffer.
[[maybe_unused]] const char *ErrorText(const char *pText, const char * /*pBuffer*/) { return pText; }
[[maybe_unused]] const char *ErrorText(int /*nResult*/, const char *pBuffer) { return pBuffer; }

// Kept: the error text is in the message twice, from either variant of the C library's function.
void PrintCreateFailure(char cStep, std::int32_t nKey, int nError) {
  char szBuffer[kErrorTextBytes] = "";
  const char *pText = ErrorText(::strerror_r(nError, szBuffer, sizeof szBuffer), szBuffer);
  std::fprintf(stderr, "\n *** share memory create fail(%c), key=0x%X (%s) ***\n:%s\n", cStep,
               static_cast<unsigned>(nKey), std::strerror(nError), pText);
}

bool IsAttached(const void *pAddress) { return reinterpret_cast<std::intptr_t>(pAddress) != -1; }

}  // namespace

void *ShareMem_Create(std::int32_t nKey, std::uint32_t dwBytes, TShareMem *pShm, int *pbCreated) {
  *pbCreated = 0;
  pShm->shmid = ::shmget(nKey, dwBytes, IPC_CREAT | IPC_EXCL | kMode);
  if (pShm->shmid != -1) {
    *pbCreated = 1;
  } else {
    errno = 0;
    pShm->shmid = ::shmget(nKey, dwBytes, IPC_CREAT | kMode);
    if (pShm->shmid == -1) {
      PrintCreateFailure('a', nKey, errno);
      return nullptr;
    }
  }

  errno = 0;
  pShm->address = ::shmat(pShm->shmid, nullptr, 0);
  if (!IsAttached(pShm->address)) {
    PrintCreateFailure('b', nKey, errno);
    // Kept: the segment is removed if no process uses it, also one that existed before this call.
    int bScratch = 0;
    ShareMem_Close(pShm, 1, &bScratch);
    return nullptr;
  }
  return pShm->address;
}

int ShareMem_Close(TShareMem *pShm, int bRemoveIfLast, int *pbWasLast) {
  *pbWasLast = 0;
  const int nResult = ::shmdt(pShm->address) == -1 ? 0 : 1;

  shmid_ds status{};
  if (::shmctl(pShm->shmid, IPC_STAT, &status) == -1) return 0;
  if (status.shm_nattch != 0) return nResult;

  *pbWasLast = 1;
  if (bRemoveIfLast == 0) return nResult;
  return ::shmctl(pShm->shmid, IPC_RMID, nullptr) == -1 ? 0 : nResult;
}

int ShareMem_FindKeyAttchCount(std::int32_t nKey) {
  // SHM_INFO and SHM_STAT exist only on Linux. The first fills another record than the declared type.
  shm_info info{};
  const int nHighestIndex = ::shmctl(0, SHM_INFO, static_cast<shmid_ds *>(static_cast<void *>(&info)));
  for (int nIndex = 0; nIndex <= nHighestIndex; ++nIndex) {
    shmid_ds status{};
    if (::shmctl(nIndex, SHM_STAT, &status) < 0) continue;  // an unused place, or one that we may not see
    if (status.shm_perm.__key != nKey) continue;
    return status.shm_nattch > INT_MAX ? INT_MAX : static_cast<int>(status.shm_nattch);
  }
  return 0;
}
