// SPDX-License-Identifier: MIT
// The functions that Berkeley DB calls instead of the C library's, and the creation of its handles.

#include "db/for_project/LibraryHooks.h"

#include <db.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace devsupport::store {

namespace {

constexpr int kFirstDescriptor = 3;

// What was written has been flushed before, so a close that fails loses nothing. Berkeley DB would go on with a
// handle that it has freed.
int CloseAnyway(int nFd) {
  close(nFd);
  return 0;
}

// After a power cut a new file is there only when its folder was flushed, whatever was flushed of the file itself. A
// log file that is missing takes its changes with it. Where a folder cannot be flushed, the file can be used all the
// same.
void FlushFolderOf(const char *pPath) {
  char szFolder[PATH_MAX];
  const auto nFolder = static_cast<int>(std::string_view(pPath).rfind('/') + 1);  // 0 without a slash
  std::snprintf(szFolder, sizeof szFolder, "%.*s.", nFolder, pPath);
  const int nFd = OpenAboveStandardAt(AT_FDCWD, szFolder, O_RDONLY | O_DIRECTORY);
  if (nFd < 0) return;
  fsync(nFd);
  close(nFd);
}

// An environment is made of a public and a private record. Without memory for the private one, which is smaller, the
// library uses it all the same. So there is a spare block for it.
constexpr std::size_t kSpareBytes = 512;
static_assert(sizeof(DB_ENV) > kSpareBytes, "the public record, which may be missing, does not take it");
std::atomic<void *> g_pSpare{nullptr};

void *AllocateOrTakeSpare(std::size_t dwBytes) {
  void *pBlock = std::malloc(dwBytes);
  return pBlock == nullptr && dwBytes <= kSpareBytes ? g_pSpare.exchange(nullptr) : pBlock;
}

template <typename Create>
int WithSpareBlock(Create create) {
  void *const pSpare = std::malloc(kSpareBytes);
  if (pSpare == nullptr) return ENOMEM;
  std::free(g_pSpare.exchange(pSpare));  // that of another thread, which makes a handle now, too
  db_env_set_func_malloc(AllocateOrTakeSpare);
  const int nResult = create();
  db_env_set_func_malloc(nullptr);
  std::free(g_pSpare.exchange(nullptr));
  return nResult;
}

bool IsEmpty(int nFd) {
  struct stat status = {};
  return fstat(nFd, &status) == 0 && status.st_size == 0;
}

}  // namespace

int OpenAboveStandardAt(int nFolder, const char *pPath, int nFlags, int nMode) {
  int nFd = -1;
  do {
    nFd = openat(nFolder, pPath, nFlags | O_CLOEXEC, nMode);
  } while (nFd < 0 && errno == EINTR);
  if (nFd < 0 || nFd >= kFirstDescriptor) return nFd;
  const int nHigher = fcntl(nFd, F_DUPFD_CLOEXEC, kFirstDescriptor);
  const int nError = errno;
  close(nFd);
  errno = nError;
  return nHigher;
}

int OpenAboveStandard(const char *pPath, int nFlags, ...) {
  std::va_list arguments;
  va_start(arguments, nFlags);
  const int nMode = (nFlags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  const int nFd = OpenAboveStandardAt(AT_FDCWD, pPath, nFlags, nMode);
  if (nFd >= 0 && (nFlags & O_CREAT) != 0 && IsEmpty(nFd)) FlushFolderOf(pPath);
  return nFd;
}

void InstallLibraryHooks() {
  db_env_set_func_open(OpenAboveStandard);
  db_env_set_func_close(CloseAnyway);
}

int CreateEnvironment(DB_ENV **ppEnv) {
  return WithSpareBlock([=] { return db_env_create(ppEnv, 0); });
}

int CreateFileHandle(DB **ppDb) {
  return WithSpareBlock([=] { return db_create(ppDb, nullptr, 0); });
}

}  // namespace devsupport::store
