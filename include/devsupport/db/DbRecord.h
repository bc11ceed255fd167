// SPDX-License-Identifier: MIT
/* The configuration store's records: read, written, deleted, looked up through an index, searched by prefix. */
#ifndef DEVSUPPORT_DB_DBRECORD_H
#define DEVSUPPORT_DB_DBRECORD_H

#include <devsupport/Api.h>
#include <stdint.h>

struct __db;
struct __dbc;

DEVSUPPORT_BEGIN_API

/*
 * Common to all operations:
 *
 * A table is one of g_uDb (db/BerkeleyDB.h), or a handle of BerkDb_OpenFile. A key is a text and is stored with its
 * terminator; the caller's key is never written to. In "tb_pb" a key is the name followed by its keypad digits, each
 * with its terminator; operations that make this key from the name say so.
 *
 * Texts that were stored without a terminator end where their record ends: reads put a terminator after such a value
 * when the buffer has room for it.
 *
 * Each change is a transaction of its own. When an operation returns success, the change is on the disk: it survives
 * the death of the process and of the device at any moment.
 *
 * The death of another process inside an operation costs time, and no result (db/BerkeleyDB.h). An operation that
 * meets another one's lock is tried again by itself; after 8 s it gives up with code 10. A change for which the
 * medium has no room answers 10, too. A failure with code 10 prints the library's text through the table's error
 * output (BerkDb_ErrCall).
 *
 * Threads     all operations are safe from any thread between open and close.
 * Signals     no.
 * Cost        reads make no system call when the record is in the cache; changes wait for the disk.
 */
enum {
  BERKDB_OK = 0,
  BERKDB_NO_TABLE = 6,     /* no table handle: the store is not open */
  BERKDB_NOT_FOUND = 7,    /* no record with this key */
  BERKDB_BUFFER_SMALL = 8, /* a buffer is too small, or there are more matches than the array holds */
  BERKDB_REFUSED = 9,      /* not on this table, or a buffer is NULL */
  BERKDB_ERROR = 10,       /* anything else; reported */
  BERKDB_NO_CURSOR = 11    /* a cursor could not be opened */
};

/// Reads the value of a key; in "tb_pb" of a name.
/// pDb        in      table; not one of the indexes "stb_pb" and "stb_1_pb"
/// pKey       in      key text
/// pBuf       out     the value; nothing is promised about it on failure
/// nBufBytes  in      room in pBuf, in bytes
/// Returns    BERKDB_OK, _NO_TABLE, _NOT_FOUND, _BUFFER_SMALL, _REFUSED (one of the indexes, or pBuf NULL) or _ERROR.
int BerkDb_Get(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes);

/// Reads the value of an unchanged key, on every table: no key is made from a name.
/// pDb, pKey, pBuf, nBufBytes   as BerkDb_Get
/// Returns    BERKDB_OK, _NO_TABLE, _NOT_FOUND, _BUFFER_SMALL or _ERROR.
int BerkDb_Read(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes);

/// As BerkDb_Read, with a plain answer.
/// Returns    1 read, 0 not.
int BerkDb_GetStr(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes);

/// Stores bytes under an unchanged key. In "tb_pb" such a record has no keypad digits.
/// pData      in      nBytes bytes; not NULL unless nBytes is 0
/// nBytes     in      size of the value, in bytes; not negative
/// Returns    BERKDB_OK, _NO_TABLE or _ERROR.
/// Prints     on _ERROR, after the report, "(%d) %s\n" with the library's number and text on standard error.
int BerkDb_Put(struct __db *pDb, const char *pKey, const void *pData, int32_t nBytes);

/// Stores a text with its terminator under a key, in "tb_pb" under a name, and writes the table to its file.
/// pValue     in      NUL-terminated; not NULL
/// Returns    BERKDB_OK, _NO_TABLE or _ERROR. After an _ERROR in writing the file, the record is stored nevertheless.
/// Prints     as BerkDb_Put.
int BerkDb_Set(struct __db *pDb, const char *pKey, const char *pValue);

/// Like BerkDb_Set with the unchanged key, and with a plain result.
/// Returns    1 stored, 0 not.
/// Prints     the report of a failure only.
int BerkDb_PutStr(struct __db *pDb, const char *pKey, const char *pValue);

/// Deletes the record of a key, in "tb_pb" of a name, and writes the table to its file.
/// Returns    BERKDB_OK, _NO_TABLE, _NOT_FOUND, _BUFFER_SMALL or _ERROR.
int BerkDb_Del(struct __db *pDb, const char *pKey);

/// Opens a cursor and makes one step with it.
/// pDb        in      table
/// ppCursor   out     the cursor, to be closed with BerkDb_CursorClose before the thread's next change;
///                    NULL when there is none
/// pKey       in,out  the key to look for, or found: a buffer of 256 bytes, because steps write the key found into it
/// nKeyBytes  in      size of the key to look for, in bytes, terminator included
/// pBuf       out     the value found
/// nBufBytes  in      room in pBuf, in bytes; 256 are used at most, and below 1 it must have 256
/// dwFlags    in      the library's cursor operation (DB_SET, DB_FIRST and so on); DB_RMW is ignored, since a
///                    cursor with a write lock would make every reader of the page wait for it
/// pnResult   out     what the library answered to the step, as it is; untouched when there is no cursor
/// Returns    BERKDB_OK the step was made, whatever it found; BERKDB_NO_TABLE; BERKDB_NO_CURSOR,
///            also when the step kept meeting others' locks.
/// Prints     nothing of its own.
int BerkDb_CursorGet(struct __db *pDb, struct __dbc **ppCursor, char *pKey, int32_t nKeyBytes, char *pBuf,
                     int32_t nBufBytes, uint32_t dwFlags, int *pnResult);

/// Closes a cursor.
/// pCursor    in      from BerkDb_CursorGet; NULL is a success
/// Returns    1 closed, 0 not; also 0 when the store was rebuilt after the cursor was opened (db/BerkeleyDB.h): the
///            cursor is closed then, and nothing is touched.
/// Prints     the library's text through the table's error output when that failed.
int BerkDb_CursorClose(struct __dbc *pCursor);

/// Looks a phone-book record up through one of its indexes.
/// pDb        in      "stb_pb" or "stb_1_pb"
/// pKey       in      key in the index
/// nKeyBytes  in      its size in bytes; below 1 = length of the text and its terminator
/// pPrimary   out     the record's key: name, NUL, digits, NUL
/// nPrimaryBytes  in  room in pPrimary, in bytes
/// pBuf       out     the record's value
/// nBufBytes  in      room in pBuf, in bytes
/// Returns    BERKDB_OK (of several records with the key, the first), _NO_TABLE, _NOT_FOUND, _BUFFER_SMALL,
///            _REFUSED (another table, or a buffer NULL) or _ERROR.
int BerkDb_PGet(struct __db *pDb, const char *pKey, int32_t nKeyBytes, char *pPrimary, int32_t nPrimaryBytes,
                char *pBuf, int32_t nBufBytes);

/* One record that the prefix search found. Texts are cut to what the field holds and terminated; so is each field
 * that is written. */
typedef struct TDbFindRec {
  char szSecondKey[32]; /* the index's key; written for the phone-book indexes only */
  char szKey[32];       /* the record's key */
  char szData[128];     /* its value */
} TDbFindRec;

/// Finds the records whose key begins with a text; on the phone-book indexes, the index's key.
/// pDb        in      table
/// pPrefix    in      NUL-terminated; "" = all records
/// pRecs      out     the records, in the table's order; on any result but BERKDB_OK nothing is promised about them
/// pnCount    in,out  room in pRecs, in records -> records filled; unchanged unless BERKDB_OK is returned
/// Returns    BERKDB_OK, also when nothing matches; _NO_TABLE; _REFUSED (a pointer NULL, or no room);
///            _BUFFER_SMALL when there are more matches than room; _ERROR when there is no cursor, or no end of
///            conflicts.
/// Order      The walk ends at the first key without the prefix, and at a record larger than the fields: keys of up to 32 bytes and
///            values of up to 128 can be passed over. A prefix of more than 31 characters matches nothing.
///            It starts at the prefix, taken as a key. So on "tb_dm", which has descending order, a prefix finds the
///            key that equals it only; and a key that ends where the prefix ends, without a terminator, is missed.
int BerkDb_FindPrefix(struct __db *pDb, const char *pPrefix, TDbFindRec *pRecs, int32_t *pnCount);

DEVSUPPORT_END_API

#endif
