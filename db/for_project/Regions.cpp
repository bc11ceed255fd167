// SPDX-License-Identifier: MIT
// Removes and detaches the environment's segments without the library, which would read data that may be
// inconsistent.

#include "db/for_project/Regions.h"

#include <devsupport/ipc/ShareMem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "db/for_project/LibraryHooks.h"
#include "db/for_project/StoreKeys.h"

namespace devsupport::store {

namespace {

// Where the library notes in which segments the environment is. After a restart of the device it names segments that
// are gone.
constexpr char kRegionFile[] = "__db.001";

// What of the first region stays: the library's record of the environment is smaller.
constexpr std::size_t kKeptBytes = 1024;

constexpr std::size_t kLineBytes = 256;

// Lines of a file of the kernel, without the C library's buffers, which would need the heap.
class Lines {
 public:
  explicit Lines(const char *pPath) : nFd_(OpenAboveStandard(pPath, O_RDONLY)) {}
  ~Lines() {
    if (nFd_ >= 0) close(nFd_);
  }
  Lines(const Lines &) = delete;
  Lines &operator=(const Lines &) = delete;

  /// Whether a read failed, so that lines are missing.
  bool Failed() const { return bFailed_; }

  /// The next line, cut to what fits; false after the last one.
  bool Next(char (&szLine)[kLineBytes]) {
    std::size_t dwLine = 0;
    for (;;) {
      if (nNext_ == nBytes_ && !Fill()) break;
      const char c = szBuffer_[nNext_++];
      if (c == '\n') break;
      if (dwLine < kLineBytes - 1) szLine[dwLine++] = c;
    }
    szLine[dwLine] = '\0';
    return dwLine != 0;
  }

 private:
  bool Fill() {
    nNext_ = 0;
    nBytes_ = bFailed_ ? 0 : read(nFd_, szBuffer_, sizeof szBuffer_);
    if (nBytes_ < 0) {
      bFailed_ = true;
      nBytes_ = 0;
    }
    return nBytes_ > 0;
  }

  int nFd_;
  bool bFailed_ = nFd_ < 0;
  ssize_t nNext_ = 0;
  ssize_t nBytes_ = 0;
  char szBuffer_[1024];
};

struct Mapping {
  std::uintptr_t dwStart = 0;
  std::uintptr_t dwEnd = 0;
  unsigned long dwRegion = 0;  // 0: the first one
};

bool Parse(const char *pLine, Mapping &mapping) {
  unsigned long dwStart = 0;
  unsigned long dwEnd = 0;
  unsigned long dwKey = 0;
  if (std::sscanf(pLine, "%lx-%lx %*s %*x %*s %*s /SYSV%8lx", &dwStart, &dwEnd, &dwKey) != 3) return false;
  mapping = {dwStart, dwEnd, dwKey - static_cast<unsigned long>(kShmKey)};
  return mapping.dwRegion < static_cast<unsigned long>(kMaxRegions);
}

void *AddressOf(std::uintptr_t dwAddress) {
  return reinterpret_cast<void *>(dwAddress);  // NOLINT(performance-no-int-to-ptr): an address in text
}

void Release(const Mapping &mapping) {
  const auto dwPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::uintptr_t dwStart = mapping.dwStart;
  if (mapping.dwRegion == 0) {
    char aKept[kKeptBytes];
    std::memcpy(aKept, AddressOf(dwStart), sizeof aKept);
    // In one step, so that no other thread gets the address in between.
    void *pCopy =
        mmap(AddressOf(dwStart), dwPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    if (pCopy == MAP_FAILED) return;  // stays attached: memory is lost, nothing else
    std::memcpy(pCopy, aKept, sizeof aKept);
    dwStart += dwPage;
  }
  munmap(AddressOf(dwStart), mapping.dwEnd - dwStart);
}

}  // namespace

int AttachedToRegions() { return ShareMem_FindKeyAttchCount(static_cast<std::int32_t>(kShmKey)); }

void RemoveRegions(int nHomeFd) {
  for (long nRegion = 0; nRegion < kMaxRegions; ++nRegion) {
    const int nId = shmget(static_cast<key_t>(kShmKey + nRegion), 0, 0);
    if (nId >= 0) shmctl(nId, IPC_RMID, nullptr);
  }
  unlinkat(nHomeFd, kRegionFile, 0);
}

// All of them or none: the library would go from one that stayed to one that is gone.
void ReleaseRegions() {
  char szLine[kLineBytes];
  Mapping aMappings[kMaxRegions];
  int nMappings = 0;
  Lines lines("/proc/self/maps");
  while (nMappings < kMaxRegions && lines.Next(szLine)) {
    if (Parse(szLine, aMappings[nMappings])) ++nMappings;
  }
  if (lines.Failed()) return;
  for (int i = 0; i < nMappings; ++i) Release(aMappings[i]);
}

}  // namespace devsupport::store
