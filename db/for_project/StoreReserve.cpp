// SPDX-License-Identifier: MIT
// Makes and removes the reserve file.

#include "db/for_project/StoreReserve.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "db/for_project/LibraryHooks.h"

namespace devsupport::store {

namespace {

constexpr char kReserveFile[] = "store.reserve";
constexpr int kMode = 0660;

// Recovery writes the pages of the cache (128 KiB at most) and some log records.
constexpr std::size_t kReserveBytes = 128UL * 1024;

// Opening with recovery may write this much: the cache, a new log file, and what is in the log.
constexpr std::size_t kOpeningBytes = 256UL * 1024;

// What must be free besides, so that the next change does not need the reserve again.
constexpr std::size_t kMarginBytes = 32UL * 1024;

constexpr std::size_t kBlockBytes = 4096;

bool HasRoom(int nHomeFd, std::size_t dwBytes) {
  struct statvfs status = {};
  if (fstatvfs(nHomeFd, &status) != 0) return true;  // a write will show it
  const auto qwBlocks = geteuid() == 0 ? status.f_bfree : status.f_bavail;
  return static_cast<std::uint64_t>(qwBlocks) * status.f_frsize >= dwBytes;
}

// Fills the file with bytes that no file system can compress.
int Fill(int nFd) {
  std::uint32_t aBlock[kBlockBytes / sizeof(std::uint32_t)];
  std::uint32_t dwState = 0x9E3779B9U;
  for (std::size_t dwDone = 0; dwDone < kReserveBytes; dwDone += sizeof aBlock) {
    for (std::uint32_t &dwWord : aBlock) {
      dwState ^= dwState << 13;
      dwState ^= dwState >> 17;
      dwState ^= dwState << 5;
      dwWord = dwState;
    }
    const ssize_t nWritten = write(nFd, aBlock, sizeof aBlock);
    if (nWritten < 0) return errno;
    if (static_cast<std::size_t>(nWritten) != sizeof aBlock) return ENOSPC;
  }
  return fsync(nFd) == 0 ? 0 : errno;
}

bool IsThere(int nHomeFd) {
  struct stat status = {};
  return fstatat(nHomeFd, kReserveFile, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
         static_cast<std::uint64_t>(status.st_size) == kReserveBytes;
}

}  // namespace

bool IsMediumFull(int nResult) { return nResult == ENOSPC || nResult == EDQUOT || nResult == EFBIG; }

int MakeReserve(int nHomeFd) {
  if (IsThere(nHomeFd)) return 0;
  unlinkat(nHomeFd, kReserveFile, 0);  // an unfinished one
  if (!HasRoom(nHomeFd, kReserveBytes + kMarginBytes)) return ENOSPC;
  const int nFd = OpenAboveStandardAt(nHomeFd, kReserveFile, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kMode);
  if (nFd < 0) return errno;
  const int nError = Fill(nFd);
  close(nFd);
  if (nError != 0) unlinkat(nHomeFd, kReserveFile, 0);
  return nError;
}

bool HasRoomBesidesReserve(int nHomeFd) { return HasRoom(nHomeFd, kMarginBytes); }

bool HasRoomForOpening(int nHomeFd) { return HasRoom(nHomeFd, kOpeningBytes); }

bool ReleaseReserve(int nHomeFd) { return unlinkat(nHomeFd, kReserveFile, 0) == 0; }

}  // namespace devsupport::store
