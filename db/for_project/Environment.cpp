// Opens and closes the shared environment. Counting its users, opening it and opening the tables belong together:
// a lock on a file of the home makes one act of them.

#include "db/for_project/Environment.h"

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/detail/db/BerkeleyDB.h>
#include <devsupport/ipc/ShareMem.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "db/for_project/DbLibrary.h"

namespace devsupport::store {

DB_ENV *g_pEnv = nullptr;

namespace {

constexpr char kLockFile[] = "open.lock";
constexpr int kLockFileMode = 0660;

// Where the library notes in which segments the environment is.
constexpr char kRegionFile[] = "__db.001";

// Regions that an environment can have: its own, one for each of the five subsystems, and room for further caches.
constexpr long kMaxRegions = 16;

// Kept open while the store is, so that closing needs no path.
int g_nLockFd = -1;

// Whether the library has the environment's memory attached.
bool g_bAttached = false;

// Descriptor of a folder, for the time of a block.
class Folder {
 public:
  explicit Folder(const char *pPath) : nFd_(open(pPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~Folder() {
    const int nError = errno;
    if (nFd_ >= 0) close(nFd_);
    errno = nError;
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  int Fd() const { return nFd_; }

 private:
  int nFd_;
};

int OpenLockFile(const char *pHome) {
  const Folder home(pHome);
  if (home.Fd() < 0) return -1;
  return openat(home.Fd(), kLockFile, O_RDONLY | O_CREAT | O_CLOEXEC, kLockFileMode);
}

// After a restart of the device the note names segments that are gone, and the library would report each. Segments
// that are still there are found, and replaced, by their keys.
void ForgetOldRegions(const char *pHome) {
  const Folder home(pHome);
  if (home.Fd() >= 0) unlinkat(home.Fd(), kRegionFile, 0);
}

int LockFile(int nOperation) {
  while (flock(g_nLockFd, nOperation) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// Kept: what these setters answer is not looked at; open says it if the result is no environment.
void Configure(DB_ENV *pEnv) {
  pEnv->set_errpfx(pEnv, "_BerkDb_CreateEnvir");
  pEnv->set_errcall(pEnv, BerkDb_ErrCall);
  pEnv->set_shm_key(pEnv, kShmKey);
  pEnv->set_flags(pEnv, kEnvFlags | kConflictFlags, 1);
  pEnv->log_set_config(pEnv, kLogFlags, 1);
  pEnv->set_cachesize(pEnv, 0, kCacheBytes, 0);
  pEnv->set_cache_max(pEnv, 0, kCacheBytes);
  pEnv->set_lg_max(pEnv, kLogFileBytes);
  pEnv->set_lg_regionmax(pEnv, kLogRegionBytes);
  pEnv->set_lk_max_lockers(pEnv, kLockLimit);
  pEnv->set_lk_max_locks(pEnv, kLockLimit);
  pEnv->set_lk_max_objects(pEnv, kLockLimit);
  pEnv->set_lk_detect(pEnv, kDetect);
}

// The caller's turn is his from here on, whatever comes out.
int OpenInTurn(const char *pHome, Turn &turn) {
  if (const int nError = turn.TakeToOpen(pHome); nError != 0) return nError;
  const bool bFirst = ShareMem_FindKeyAttchCount(kShmKey) == 0;
  if (!g_gate.Attach(bFirst)) return ENOMEM;
  if (const int nGate = turn.EnterGate(); nGate != 0) return nGate;
  if (bFirst) ForgetOldRegions(pHome);
  const int nResult = g_pEnv->open(g_pEnv, pHome, kEnvOpenFlags | (bFirst ? kEnvFirstFlags : 0), 0);
  g_bAttached = nResult == 0;
  return nResult;
}

// Detaches every segment of the environment that this process has attached, wherever the library put it.
void DetachRegions() {
  std::FILE *pMaps = std::fopen("/proc/self/maps", "re");
  if (pMaps == nullptr) return;
  char szLine[256];
  while (std::fgets(szLine, sizeof szLine, pMaps) != nullptr) {
    unsigned long dwStart = 0;
    unsigned long dwKey = 0;
    if (std::sscanf(szLine, "%lx-%*x %*s %*x %*s %*s /SYSV%8lx", &dwStart, &dwKey) != 2) continue;
    const long nRegion = static_cast<long>(dwKey) - kShmKey;
    if (nRegion < 0 || nRegion >= kMaxRegions) continue;
    shmdt(reinterpret_cast<void *>(dwStart));  // NOLINT(performance-no-int-to-ptr): an address in text
  }
  std::fclose(pMaps);
}

void StaySilent(const DB_ENV * /*pEnv*/, const char * /*pPrefix*/, const char * /*pMessage*/) {}

void Forget() {
  g_pEnv = nullptr;
  g_bAttached = false;
}

void CloseLockFile() {
  if (g_nLockFd >= 0) close(g_nLockFd);
  g_nLockFd = -1;
}

}  // namespace

Turn::~Turn() {
  if (bInside_) g_gate.Leave();
  if (g_pEnv == nullptr) {
    g_gate.Detach();
    CloseLockFile();  // and unlocks it
  } else if (g_nLockFd >= 0) {
    LockFile(LOCK_UN);
  }
}

int Turn::TakeToOpen(const char *pHome) {
  g_nLockFd = OpenLockFile(pHome);
  return g_nLockFd < 0 ? errno : LockFile(LOCK_EX);
}

int Turn::TakeToClose() {
  if (g_nLockFd >= 0) LockFile(LOCK_EX);
  return g_bAttached ? EnterGate() : 0;
}

int Turn::EnterGate() {
  Patience patience;
  const int nResult = g_gate.Enter(patience);
  bInside_ = nResult == 0;
  return nResult;
}

bool OpenEnvironment(const char *pHome, Turn &turn) {
  if (g_pEnv != nullptr) {
    g_pEnv->err(g_pEnv, EBUSY, "FAIL to open environment %s", pHome);
    return false;
  }
  if (const int nResult = db_env_create(&g_pEnv, 0); nResult != 0) {
    g_pEnv = nullptr;
    std::fprintf(stderr, "FAIL to create environment: (%d) %s\n", nResult, db_strerror(nResult));
    return false;
  }
  Configure(g_pEnv);
  const int nResult = OpenInTurn(pHome, turn);
  if (nResult != 0) g_pEnv->err(g_pEnv, nResult, "FAIL to open environment %s", pHome);
  return nResult == 0;
}

int CloseEnvironment() {
  const int nResult = g_pEnv->close(g_pEnv, 0);
  Forget();
  return nResult;
}

void AbandonEnvironment(int nGate) {
  if (nGate == DB_RUNRECOVERY) {
    // Closing an environment that is marked as broken closes its files and touches nothing else; the library would
    // report each of its steps.
    g_pEnv->set_errcall(g_pEnv, StaySilent);
    g_pEnv->set_flags(g_pEnv, DB_PANIC_ENVIRONMENT, 1);
    g_pEnv->close(g_pEnv, 0);
  }
  DetachRegions();
  Forget();
}

}  // namespace devsupport::store

int _BerkDb_CreateEnvir(const char *pHome) {
  devsupport::store::Turn turn;
  return devsupport::store::OpenEnvironment(pHome, turn) ? 1 : 0;
}
