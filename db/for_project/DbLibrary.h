// SPDX-License-Identifier: MIT
// What this store asks of Berkeley DB, by name, in one place. The store's files were first written with release 4.6,
// whose numbers are given beside the names. This release has other numbers for several of them, with the same
// meaning.
#pragma once

#include <db.h>

#include <cstdint>

namespace devsupport::store {

// Environment: where the shared memory is, and how large everything may grow.
inline constexpr std::uint32_t kCacheBytes = 0x20000;  // 128 KiB, at once and at most (set_cachesize, set_cache_max)
inline constexpr std::uint32_t kLogFileBytes = 0x10000;  // 64 KiB
// 4.6: 0x10000. This release takes no less than 130,000 bytes and would say so on the error output.
inline constexpr std::uint32_t kLogRegionBytes = 130000;
inline constexpr std::uint32_t kLockLimit = 600;  // lockers, locks and locked objects, each

// Environment flags; 4.6: 0x02080000 in one call, this release configures the log apart.
inline constexpr std::uint32_t kEnvFlags = DB_AUTO_COMMIT;
inline constexpr std::uint32_t kLogFlags = DB_LOG_AUTO_REMOVE;

// Environment open; 4.6: 0x042E0080, and 0x41 more for the process that creates the regions and recovers.
inline constexpr std::uint32_t kEnvOpenFlags =
    DB_SYSTEM_MEM | DB_INIT_TXN | DB_INIT_MPOOL | DB_INIT_LOG | DB_INIT_LOCK | DB_THREAD;
inline constexpr std::uint32_t kEnvFirstFlags = DB_CREATE | DB_RECOVER;

// Tables; 4.6: 0x08000001 to open, 0x10000 and 0x18000 for the indexes, 1 to build an index.
inline constexpr std::uint32_t kPageBytes = 2048;
inline constexpr std::uint32_t kTableOpenFlags = DB_CREATE | DB_READ_UNCOMMITTED;
inline constexpr std::uint32_t kSortedDuplicates = DB_DUPSORT;
inline constexpr std::uint32_t kDuplicatesAndSorted = DB_DUP | DB_DUPSORT;
inline constexpr std::uint32_t kBuildIndex = DB_CREATE;

// Records; 4.6: 256 for user memory, 27 and 16 for the steps of a walk, -30989 and -30999 for the two results.
// A key is read-only memory for the library: a threaded environment refuses a key without any memory flag on a table
// with a comparison of its own, and would otherwise write the stored key over the caller's.
inline constexpr std::uint32_t kUserMemory = DB_DBT_USERMEM;
inline constexpr std::uint32_t kReadOnlyKey = DB_DBT_READONLY;
inline constexpr std::uint32_t kStepFirst = DB_FIRST;
inline constexpr std::uint32_t kStepToRange = DB_SET_RANGE;
inline constexpr std::uint32_t kStepNext = DB_NEXT;
inline constexpr int kNotFound = DB_NOTFOUND;
inline constexpr int kBufferSmall = DB_BUFFER_SMALL;

// How lock conflicts end (docs/decisions/store-locking.md): a transaction that finds a lock never waits for it, but
// returns a result that means "try again". A read never finds one, as long as no process keeps a write lock between
// two operations; so a cursor is not given one.
inline constexpr std::uint32_t kConflictFlags = DB_TXN_NOWAIT;
inline constexpr std::uint32_t kWriteLockHint = DB_RMW;
inline constexpr std::uint32_t kDetect = DB_LOCK_DEFAULT;
/// Whether a result is neither success nor one of the two that record operations have codes for.
constexpr bool IsFailure(int nResult) { return nResult != 0 && nResult != kNotFound && nResult != kBufferSmall; }
constexpr bool IsConflict(int nResult) { return nResult == DB_LOCK_DEADLOCK || nResult == DB_LOCK_NOTGRANTED; }

// A checkpoint, after which old log files can go, is made when this many changes have come since the last try and the
// log has grown by this much. Asking the library at every change would cost it more than the change.
inline constexpr std::uint32_t kCheckpointChanges = 256;
inline constexpr std::uint32_t kCheckpointKiB = 64;

}  // namespace devsupport::store
