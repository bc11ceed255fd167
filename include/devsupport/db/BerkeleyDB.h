// SPDX-License-Identifier: MIT
/* The configuration store: thirteen tables in one file, shared by all processes. Opens and closes it. */
#ifndef DEVSUPPORT_DB_BERKELEYDB_H
#define DEVSUPPORT_DB_BERKELEYDB_H

#include <devsupport/Api.h>
#include <stdint.h>

/*
 * The handles are Berkeley DB's: struct __db is what <db.h> calls DB, struct __db_env DB_ENV and struct __dbc DBC.
 * Programs that call the library besides include <db.h> themselves.
 */
struct __db;
struct __db_env;

DEVSUPPORT_BEGIN_API

/*
 * How a process uses the store:
 *
 * - It opens the store once, before it reads or writes, and closes it once, after the last operation of its last
 *   thread. Between the two, every thread may call every record operation (db/DbRecord.h).
 * - At most 23 processes can have the store open at once: the environment's 600 locks are enough for no more.
 * - One home at a time: while a process has the store open, another home cannot be opened. A copy or a backup of a
 *   home can be opened when no process has the store open.
 * - The handles belong to the process that opened them. A parent may fork at any time. A child made with fork() must
 *   not use the handles, nor close them, and does not disturb other processes; it opens the store itself after
 *   exec(), or, when the parent has not opened it yet, after fork().
 * - A cursor (BerkDb_CursorGet) keeps the page of its record locked. Close it before the same thread writes; other
 *   processes that write to that page wait for it, and give up after 8 s with code 10.
 * - Whoever calls the library directly with these handles does so outside the store's own lock: a process that is
 *   killed inside such a call can leave the others waiting.
 *
 * When a process is killed:
 *
 * - Inside an operation: the next operation or opening of any other process makes the environment anew and recovers.
 *   All others follow at their next operation, which then answers as usual. What was acknowledged is there; the
 *   change that the killed process was making is there as a whole, with its indexes, or not at all.
 * - g_uDb then holds new handles. A handle that was copied before still means its table. Old handles stay allocated:
 *   some 50 KB each time, at most 256 times; after that, operations answer 10 until the process closes the store and
 *   opens it again.
 * - A cursor from before is closed: BerkDb_CursorClose reports that and returns 0, and the library's own operations
 *   on it answer DB_RUNRECOVERY.
 * - What a process leaves that ends without closing (cursors, places in the lock table) is cleared away as soon as it
 *   is in somebody's way.
 *
 * When the medium or the files fail:
 *
 * - A change is acknowledged when its log record is on the medium. On a full medium changes answer 10, reading goes
 *   on, and changes are possible again when there is room. For that the home holds a reserve file of 128 KiB.
 * - The last process that closes seals the file: "<file>.seal" holds sizes and checksums. The first one that opens
 *   compares. A damaged log, or pages that are not whole, are refused with one sentence on standard error, and the
 *   files are left as they are. A file with whole pages that was changed from outside is reported and opened: which
 *   of its texts were changed cannot be told.
 * - After the last process was killed there is no seal. Then the pages are checked after recovery, and the indexes
 *   are compared with their tables. A log that ends early cannot be told from one that was damaged there, nor can
 *   damage that happens while the store is open.
 */

/* One handle of each table, in the order of the catalogue; NULL while closed. Names with an s are indexes. */
typedef struct TDbHandles {
  struct __db *tb_parameter; /* name -> text */
  struct __db *tb_dm;        /* runs downwards */
  struct __db *tb_pb;        /* phone book: name and keypad digits -> text */
  struct __db *stb_pb;       /* of tb_pb: text up to ';' */
  struct __db *stb_1_pb;     /* of tb_pb: keypad digits */
  struct __db *tb_speedd;
  struct __db *tb_dialp;
  struct __db *tb_fkey;
  struct __db *tb_line;
  struct __db *tb_siptk;
  struct __db *tb_route;
  struct __db *stb_route; /* of tb_route: first three bytes of the key */
  struct __db *tb_tone;
} TDbHandles;

/// The open tables of this process. Written by BerkDb_Open and BerkDb_Close only, without synchronisation.
extern TDbHandles g_uDb;

/* One row of the catalogue. */
typedef struct TDbTbl {
  const char *pName;  /* name of the table, inside the file too */
  struct __db **ppDb; /* its slot in g_uDb */
  uint32_t generic;   /* 1 opened with default settings, 0 by a step of its own */
} TDbTbl;

enum { BERKDB_TABLES = 13 };

/// The table catalogue.
extern const TDbTbl g_auDbTbl[BERKDB_TABLES];

/* What BerkDb_Open stores as its result. */
enum {
  BERKDB_OPEN_OK = 0,
  BERKDB_OPEN_ENVIRONMENT = 1, /* the environment could not be created or opened */
  BERKDB_OPEN_CREATE = 2,      /* a table handle could not be created */
  BERKDB_OPEN_TABLE = 3,       /* a table could not be opened */
  BERKDB_OPEN_COMPARE = 4,     /* an order could not be set */
  BERKDB_OPEN_FLAGS = 5        /* the flags of an index could not be set */
};

/// Opens the environment and all tables; makes what is missing, except for the home itself. No file of the store gets
/// a descriptor below 3.
/// pHome      in      folder of the environment; NULL = "/config_fs/DB/"
/// pFile      in      file of the tables, in the home; NULL = "config.db"
/// pnResult   out     BERKDB_OPEN_OK or why not; may be NULL
/// Returns    1 open, 0 not: then BerkDb_Close must come before the next try. Also 0, with BERKDB_OPEN_ENVIRONMENT, when
///            the store is open already.
/// Prints     on failure one line through BerkDb_ErrCall, after what the library itself says:
///            "FAIL to open environment %s", "FAIL to create database %s", "FAIL to open database %s",
///            "FAIL to set btree compare function of database %s", "FAIL to set flags for secondary database %s",
///            each with the home's or table's name, a colon and the library's text.
///            Before "FAIL to open environment %s" another sentence is printed when another home is in use, when 23
///            processes have the store open, when an object at the store's key is not the store's, and when the files
///            are damaged.
/// Death      It recovers the store when no process is attached to the environment (first open after a start, or after
///            all have closed), and after a process died inside; otherwise it joins, and sees the others' data at once.
/// Lock       a System V semaphore with undo, for the whole call: the processes of the device open and close one after
///            the other. The kernel frees it when a process dies. Besides, the store's lock, as every operation.
/// Threads    one thread, once per process.
/// Signals    no.
int BerkDb_Open(const char *pHome, const char *pFile, int32_t *pnResult);

/// Closes all tables and the environment and clears every slot, whatever the library answers.
/// Does nothing when the store is closed. After a failed BerkDb_Open it closes what that left open.
/// The last process that closes writes the seal.
/// When another process was killed inside an operation and no process has rebuilt the environment yet, it detaches the
/// shared memory only, and leaves some 50 KB of handles allocated: freeing them would touch what may be torn.
/// Prints     "FAIL to close database %s" with the table's name, or "(environment)", through BerkDb_ErrCall.
/// Lock       as BerkDb_Open.
/// Threads    one thread, when no other uses the store.
/// Signals    no.
void BerkDb_Close(void);

/// Finds the catalogue row of a slot.
/// ppDb       in      address of a member of g_uDb; any other address is allowed
/// Returns    the row, NULL when no row has the slot.
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes.
const TDbTbl *BerkDb_FindTbl(struct __db *const *ppDb);

/// Finds the catalogue row of an open table.
/// pDb        in      table handle
/// Returns    the row whose slot holds the handle, or held it before the store was rebuilt; NULL when none does, and
///            for NULL.
/// Prints     nothing.
/// Threads    safe between open and close.
/// Signals    yes.
const TDbTbl *BerkDb_FindTblByDb(const struct __db *pDb);

/// The environment of this process.
/// Returns    the library's handle; NULL while the store is closed.
/// Prints     nothing.
/// Threads    safe between open and close.
/// Signals    yes.
struct __db_env *BerkDb_GetEnv(void);

/// Writes one message of the library on standard error. Installed on the environment and on every table.
/// pEnv       in      unused
/// pPrefix    in      unused
/// pMessage   in      written as a format without values: "%%" becomes "%", everything else is printed unchanged. NULL
///                    is no message.
/// Prints     the message, then "  \%s %d\n" (with the backslash): the name of the source and 149.
/// Threads    safe.
/// Signals    no.
void BerkDb_ErrCall(const struct __db_env *pEnv, const char *pPrefix, const char *pMessage);

/// Opens a file with one table, outside the environment, for tools; makes it when it is missing.
/// pFile      in      path of the file
/// dwFlags    in      the library's table flags (DB_DUPSORT and so on); 0 = none
/// Returns    the handle, to be closed with BerkDb_CloseFile; NULL on failure.
/// Prints     on standard error "Fail: %s\n" with the library's text when there is no handle; otherwise through the
///            library "Database '%s' set_flags() failed" or "Database '%s' open failed" with the path and the text.
/// Threads    one thread for each handle.
/// Signals    no.
struct __db *BerkDb_OpenFile(const char *pFile, uint32_t dwFlags);

/// Closes what BerkDb_OpenFile opened.
/// ppDb       in,out  the handle; set to NULL on success. A handle that is NULL already is a success.
///                    On failure the pointer stays, but the handle is freed: do not use or close it again.
/// Returns    1 closed, 0 not.
/// Prints     on standard error "database close failed: %s\n" with the library's text.
/// Threads    one thread for each handle.
/// Signals    no.
int BerkDb_CloseFile(struct __db **ppDb);

DEVSUPPORT_END_API

#endif
