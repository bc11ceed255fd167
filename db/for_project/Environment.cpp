// SPDX-License-Identifier: MIT
// Opens, closes and rebuilds the shared environment. How processes find each other, and what they do when one of them
// has died, is described in docs/decisions/store-healing.md.

#include "db/for_project/Environment.h"

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/detail/db/BerkeleyDB.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/HomeFiles.h"
#include "db/for_project/LibraryHooks.h"
#include "db/for_project/OpenReport.h"
#include "db/for_project/Regions.h"
#include "db/for_project/Silence.h"
#include "db/for_project/StoreCheck.h"
#include "db/for_project/StoreKeys.h"
#include "db/for_project/StoreReserve.h"
#include "db/for_project/StoreSeal.h"
#include "db/for_project/StoreSemaphores.h"
#include "db/for_project/TableHandles.h"

namespace devsupport::store {

DB_ENV *g_pEnv = nullptr;

namespace {

// How often a process changes to new regions. Each time some 50 KB of old handles stay allocated.
constexpr int kMaxFollows = 256;

// What this process has open.
struct OpenStore {
  int nHomeFd = -1;
  struct stat home = {};
  char *pHome = nullptr;   // absolute, so that the library finds its files when the program changes its folder
  char *pFile = nullptr;   // nullptr: no tables
  bool bAttached = false;  // the library has the environment's memory attached
  bool bComplete = false;  // all tables are open
  bool bRetired = false;   // the handles belong to regions that were removed
  bool bCheckIndexes = false;
  int nFollows = 0;
};
OpenStore g_store;

void ForgetStore() {
  if (g_store.nHomeFd >= 0) close(g_store.nHomeFd);
  std::free(g_store.pHome);
  std::free(g_store.pFile);
  g_store = {.nFollows = g_store.nFollows};
}

void Publish(DB_ENV *pEnv) { __atomic_store_n(&g_pEnv, pEnv, __ATOMIC_RELEASE); }

// Kept: the results of these setters are ignored. When they failed, open fails too.
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

// Opens the environment on the current regions, or on new ones. Inside the gate.
int OpenRegions(DB_ENV *pEnv, bool bCreate) {
  if (bCreate) {
    g_gate.DemandRebuild();  // if this process dies here, the next one starts again
    RemoveRegions(g_store.nHomeFd);
    if (const int nError = FlushHome(g_store.nHomeFd, g_store.pFile); nError != 0) return nError;
  }
  const int nResult = pEnv->open(pEnv, g_store.pHome, kEnvOpenFlags | (bCreate ? kEnvFirstFlags : 0), 0);
  if (nResult != 0) return nResult;
  g_store.bAttached = true;
  if (bCreate) g_gate.BeginGeneration();
  g_gate.Adopt();
  return 0;
}

// The home can have been found by a relative path.
bool RememberHome(const char *pHome, const char *pFile) {
  char *pAbsolute = realpath(pHome, nullptr);
  g_store.pHome = pAbsolute != nullptr ? pAbsolute : strdup(pHome);
  g_store.pFile = pFile != nullptr ? strdup(pFile) : nullptr;
  return g_store.pHome != nullptr && (pFile == nullptr) == (g_store.pFile == nullptr);
}

// The gate belongs to one home at a time. Another one takes it when no living process has the store open.
bool BindGate(const char *pHome, bool bAlone) {
  if (g_gate.IsOf(g_store.home)) return true;
  if (!bAlone) {
    ReportSentence("the store is in use with the home %s; the home %s cannot be opened beside it", g_gate.Home(),
                   pHome);
    return false;
  }
  g_gate.DemandRebuild();
  g_gate.BindTo(g_store.home, g_store.pHome);
  return true;
}

// Takes a place among the members. The places of dead processes become free when the regions are rebuilt.
bool JoinMembers() {
  if (g_gate.Join()) return true;
  if (g_gate.HasDead()) {
    g_gate.DemandRebuild();
    g_gate.ForgetDead();
  }
  if (g_gate.Join()) return true;
  ReportSentence("%u processes have the store open; its lock table has no room for another one",
                 static_cast<unsigned>(GateRecord::kMembers));
  return false;
}

// On a full medium, removes the reserve for what must be written now. True when that made room. The library may
// answer that the environment is broken, and not that the medium is full.
bool MakeRoom(int nResult) {
  if (!IsMediumFull(nResult) && HasRoomForOpening(g_store.nHomeFd)) return false;
  g_gate.Record().bNoReserve = 1;
  return ReleaseReserve(g_store.nHomeFd);
}

// Closes a handle whose opening failed. The library forgets a region that it attached with the last of the memory.
int CloseUnopened(DB_ENV *pEnv) {
  const int nResult = pEnv->close(pEnv, 0);
  ReleaseRegions();
  return nResult;
}

// Opens the environment, and tries again when that can help: with more room, or with new regions instead of broken
// ones. A failed open leaves a handle that can only be closed.
int OpenRegionsOrTryAgain(DB_ENV *&pEnv, bool bCreate) {
  const int nResult = OpenRegions(pEnv, bCreate);
  const bool bBroken = nResult == DB_RUNRECOVERY && !bCreate;
  if (nResult == 0 || (!MakeRoom(nResult) && !bBroken)) return nResult;
  CloseUnopened(pEnv);
  pEnv = nullptr;
  if (const int nError = CreateEnvironment(&pEnv); nError != 0) return nError;
  Configure(pEnv);
  return OpenRegions(pEnv, bCreate || bBroken);
}

// Removes the reserve beforehand when the medium is nearly full: opening writes to the log.
void PrepareReserve() {
  const bool bReserve = MakeReserve(g_store.nHomeFd) == 0;
  g_gate.Record().bNoReserve = bReserve && HasRoomBesidesReserve(g_store.nHomeFd) ? 0 : 1;
  if (g_gate.Record().bNoReserve != 0) ReleaseReserve(g_store.nHomeFd);
}

// Opens the environment inside the gate. bAlone: no living process has the store open.
int OpenInside(bool bAlone) {
  SealState seal = SealState::Fits;
  if (bAlone) {
    const int nResult = CheckFiles(g_store.nHomeFd, g_store.pHome, g_store.pFile, seal);
    if (nResult != 0) return nResult;
  }
  PrepareReserve();
  // The shared memory does not fit files that were changed meanwhile. It can still exist, because idle children of
  // processes that have closed the store keep it.
  if (seal == SealState::Changed || seal == SealState::Stale) g_gate.DemandRebuild();
  const bool bCreate = g_gate.NeedsRebuild() || AttachedToRegions() == 0;
  const int nResult = OpenRegionsOrTryAgain(g_pEnv, bCreate);
  if (nResult != 0 || !bAlone || !bCreate || seal == SealState::Fits) return nResult;
  // Recovery is done. The pages are checked unless the seal has shown that they are unchanged.
  const int nPages = seal == SealState::Changed ? 0 : CheckPages(g_store.pHome, g_store.pFile);
  if (nPages != 0) g_gate.DemandRebuild();  // no process may join this environment
  g_store.bCheckIndexes = true;
  g_gate.Record().bIndexDoubt = 0;
  return nPages;
}

// The caller then holds the lock, also after a failure.
int OpenLocked(const char *pHome, const char *pFile, OpeningLock &lock) {
  if (const int nError = lock.TakeToOpen(pHome); nError != 0) return nError;
  if (!RememberHome(pHome, pFile)) return ENOMEM;
  const bool bAlone = !g_gate.HasLivingOthers();
  if (bAlone && AttachedToRegions() == 0) g_gate.Reset();
  if (const int nGate = lock.EnterGate(); nGate != 0) return nGate;
  if (!BindGate(pHome, bAlone)) return EBUSY;
  if (!JoinMembers()) return ENOMEM;
  const int nResult = OpenInside(bAlone);
  if (nResult != 0) g_gate.Quit();
  return nResult;
}

// Closes the handles of this process without writing. The shared memory that they use may be inconsistent, or in use
// by others: first the segments are detached, then the environment is marked as broken, so that closing closes only
// the files.
void GiveUpHandles() {
  // The library would report each of its steps.
  g_pEnv->set_errcall(g_pEnv, StaySilent);
  g_pEnv->set_flags(g_pEnv, DB_NOLOCKING, 1);
  ReleaseRegions();
  g_pEnv->set_flags(g_pEnv, DB_PANIC_ENVIRONMENT, 1);
  g_pEnv->close(g_pEnv, 0);
  g_pEnv->set_errcall(g_pEnv, BerkDb_ErrCall);
  g_store.bAttached = false;
  g_store.bRetired = true;
}

// The same, with the old handles remembered. False when there is no memory for that.
bool Retire() {
  const bool bRemembered = RetireTables();
  if (bRemembered) GiveUpHandles();
  return bRemembered;
}

// For good: also when there is no memory to remember the handles.
void AbandonHandles() {
  if (!Retire()) GiveUpHandles();
}

// Opens the current regions with a new environment handle, and the tables in it.
int OpenAnew(DB_ENV *&pEnv) {
  if (const int nResult = CreateEnvironment(&pEnv); nResult != 0) return nResult;
  Configure(pEnv);
  const bool bCreate = g_gate.NeedsRebuild() || AttachedToRegions() == 0;
  if (const int nResult = OpenRegionsOrTryAgain(pEnv, bCreate); nResult != 0) return nResult;
  Publish(pEnv);
  g_store.bRetired = false;
  int nCode = BERKDB_OPEN_OK;
  return g_store.pFile == nullptr || OpenTables(pEnv, g_store.pFile, false, nCode) ? 0 : DB_RUNRECOVERY;
}

// Reports through the process: the environment's handle is closed.
void ReportEnvironment(int nResult) {
  if (nResult != 0) ReportSentence("FAIL to close database %s: %s", "(environment)", db_strerror(nResult));
}

// Closes everything in order. Returns whether the files are complete then.
bool CloseInOrder(bool bLast) {
  bool bComplete = bLast && g_store.bComplete && g_gate.Record().bIndexDoubt == 0 &&
                   g_pEnv->txn_checkpoint(g_pEnv, 0, 0, DB_FORCE) == 0;
  bComplete = CloseTables(g_pEnv) && bComplete;
  const int nResult = g_store.bAttached ? g_pEnv->close(g_pEnv, 0) : CloseUnopened(g_pEnv);
  ReportEnvironment(nResult);
  if (nResult == DB_RUNRECOVERY) g_gate.DemandRebuild();
  if (nResult != 0) ReleaseRegions();
  return bComplete && nResult == 0;
}

}  // namespace

OpeningLock::~OpeningLock() {
  LeaveGate();
  if (bLocked_) g_semaphores.ReleaseOpening();
  if (g_pEnv != nullptr) return;
  g_gate.Detach();
  g_semaphores.Detach();
  ForgetStore();
}

int OpeningLock::TakeToOpen(const char *pHome) {
  g_store.nHomeFd = OpenAboveStandard(pHome, O_RDONLY | O_DIRECTORY);
  if (g_store.nHomeFd < 0 || fstat(g_store.nHomeFd, &g_store.home) != 0) return errno;
  if (const int nError = g_semaphores.TakeOpening(g_store.home); nError != 0) return nError;
  bLocked_ = true;
  return g_gate.Attach(g_store.home);
}

int OpeningLock::TakeToClose() {
  if (g_gate.IsAttached()) bLocked_ = g_semaphores.TakeOpening(g_store.home) == 0;
  return g_store.bAttached ? EnterGate() : 0;
}

int OpeningLock::EnterGate() {
  Deadline deadline;
  const int nResult = g_gate.Enter(deadline);
  bInside_ = nResult == 0;
  return nResult;
}

void OpeningLock::LeaveGate() {
  if (bInside_) g_gate.Leave();
  bInside_ = false;
}

bool OpenEnvironment(const char *pHome, const char *pFile, OpeningLock &lock) {
  if (g_pEnv != nullptr) {
    g_pEnv->err(g_pEnv, EBUSY, "FAIL to open environment %s", pHome);
    return false;
  }
  InstallLibraryHooks();
  if (const int nResult = CreateEnvironment(&g_pEnv); nResult != 0) {
    g_pEnv = nullptr;
    std::fprintf(stderr, "FAIL to create environment: (%d) %s\n", nResult, db_strerror(nResult));
    return false;
  }
  Configure(g_pEnv);
  const int nResult = OpenLocked(pHome, pFile, lock);
  if (nResult == 0) return true;
  if (g_pEnv != nullptr) {
    g_pEnv->err(g_pEnv, nResult, "FAIL to open environment %s", pHome);
  } else {
    ReportSentence("FAIL to open environment %s: %s", pHome, db_strerror(nResult));
  }
  return false;
}

bool OpenStoreTables(int &nCode) {
  g_store.bComplete = OpenTables(g_pEnv, g_store.pFile, g_store.bCheckIndexes, nCode);
  return g_store.bComplete;
}

void CloseEnvironment(OpeningLock &lock) {
  if (g_store.bAttached && !g_gate.IsCurrent()) {
    // A process died inside meanwhile, and the library would wait for a lock that it held. What was acknowledged is
    // in the log; the next process that opens the store recovers it.
    AbandonHandles();
  } else if (!g_store.bRetired) {
    const bool bLast = g_store.bAttached && !g_gate.HasLivingOthers();
    const bool bComplete = CloseInOrder(bLast);
    if (bComplete && WriteSeal(g_store.nHomeFd, g_store.pFile) != 0) RemoveSeal(g_store.nHomeFd, g_store.pFile);
  }
  if (g_gate.IsAttached()) g_gate.Quit();
  lock.LeaveGate();
  Publish(nullptr);
}

void AbandonEnvironment() {
  AbandonHandles();
  Publish(nullptr);
}

int FollowStore() {
  if (g_store.bAttached) {
    if (g_store.nFollows == kMaxFollows) return DB_RUNRECOVERY;
    if (!Retire()) return ENOMEM;
    ++g_store.nFollows;
  }
  if (!g_gate.Join()) return ENOMEM;
  DB_ENV *pEnv = nullptr;
  const int nResult = OpenAnew(pEnv);
  if (nResult == 0 || pEnv == nullptr) return nResult;
  if (!g_store.bAttached) {
    CloseUnopened(pEnv);
  } else {
    g_gate.DemandRebuild();
    Retire();
  }
  return nResult;
}

AfterFailure Judge(int nResult, bool bAgain) {
  const bool bConflict = IsConflict(nResult);
  // A dead process may keep the lock that was met, or use up the lock table. The rebuild forgets the dead.
  bool bTryAgain = (bConflict || nResult == ENOMEM) && g_gate.HasDead();
  if (!bTryAgain) {
    if (bConflict) return AfterFailure::Wait;
    if (!g_gate.IsAttached()) return AfterFailure::Answer;
    const bool bBroken = nResult == DB_RUNRECOVERY;
    if (!bBroken && !IsMediumFull(nResult) && nResult != EIO) return AfterFailure::Answer;
    // A change that was refused because there is no reserve has begun nothing.
    if (IsMediumFull(nResult) && g_gate.Record().bNoReserve != 0) return AfterFailure::Answer;
    // What could not be written may still be in the shared memory, where others would take it for stored.
    MakeRoom(nResult);
    bTryAgain = bBroken && !bAgain;
  }
  g_gate.DemandRebuild();
  return FollowStore() == 0 && bTryAgain ? AfterFailure::TryAgain : AfterFailure::Answer;
}

bool HasRoomForChange() {
  if (!g_gate.IsAttached() || g_gate.Record().bNoReserve == 0) return true;
  if (MakeReserve(g_store.nHomeFd) != 0) return false;
  g_gate.Record().bNoReserve = 0;
  return true;
}

}  // namespace devsupport::store

int _BerkDb_CreateEnvir(const char *pHome) {
  devsupport::store::OpeningLock lock;
  return devsupport::store::OpenEnvironment(pHome, nullptr, lock) ? 1 : 0;
}
