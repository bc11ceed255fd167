// SPDX-License-Identifier: MIT
/* The log channel's rings and the record in their cells, bit by bit: for who writes them and for who reads them.
 * The same map, as a picture, is in docs/formats.md. C99 and C++. */
#ifndef DEVSUPPORT_DETAIL_LOGMGR_LOGCELL_H
#define DEVSUPPORT_DETAIL_LOGMGR_LOGCELL_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// The two rings (TShmQueue): keys and measures.
enum {
  LOGRING_LOG_SHARE_KEY = 1895, /* 0x767 */
  LOGRING_LOG_SEM_KEY = 2151,   /* 0x867 */
  LOGRING_LOG_CELLS = 1024,

  LOGRING_EVT_SHARE_KEY = 1893, /* 0x765 */
  LOGRING_EVT_SEM_KEY = 2149,   /* 0x865 */
  LOGRING_EVT_CELLS = 256,

  LOGRING_USER_BYTES = 36 /* user area of each ring */
};

/// What a record measures.
enum {
  LOGCELL_BYTES = 136,      /* payload of a cell */
  LOGCELL_HEAD_BYTES = 8,   /* of it before the text */
  LOGCELL_TEXT_CHARS = 127, /* longest text of one record; a NUL follows */
  LOGCELL_FRAGMENTS = 32    /* longest message in records; the rest of a longer one is lost */
};

/// One record: the payload of one cell. The cell's length word is LOGCELL_LENGTH of the text.
/// Words are little-endian, as the machines are that run this.
typedef struct TLogCell {
  uint32_t dwTime;                     /* local time and fragment number: HOUR to FRAGMENT below */
  uint16_t wSequence;                  /* SEQUENCE and TYPE below */
  uint16_t wNotWritten;                /* what the slot held before, 0 in a new ring */
  char szText[LOGCELL_TEXT_CHARS + 1]; /* text and NUL; what follows is left over */
} TLogCell;

/// The user area of each ring.
typedef struct TLogRingUser {
  uint16_t wSequence;    /* SEQUENCE: what the next record gets; the remaining bits are unused and kept */
  uint16_t wSecond;      /* SEQUENCE: 0 in a new ring; not used by writers */
  uint8_t abyReader[32]; /* not used by writers */
} TLogRingUser;

/// Value of the length word of a cell whose text has that many characters.
#define LOGCELL_LENGTH(nTextChars) (LOGCELL_HEAD_BYTES + (nTextChars) + 1)

/// Fields of the words: where the lowest bit is, and how many bits there are.
enum {
  /* TLogCell.dwTime: the message's time, the same in all of its fragments. There is no date. */
  LOGCELL_HOUR_SHIFT = 0, /* 0-23 */
  LOGCELL_HOUR_BITS = 5,
  LOGCELL_MINUTE_SHIFT = 5,
  LOGCELL_MINUTE_BITS = 6,
  LOGCELL_SECOND_SHIFT = 11,
  LOGCELL_SECOND_BITS = 6,
  LOGCELL_MS_SHIFT = 17, /* 0-999 */
  LOGCELL_MS_BITS = 10,
  LOGCELL_FRAGMENT_SHIFT = 27, /* 0 the message's first record, 1 the next ... */
  LOGCELL_FRAGMENT_BITS = 5,

  /* TLogCell.wSequence; the first also TLogRingUser's words */
  LOGCELL_SEQUENCE_SHIFT = 0, /* one more for each record of the ring, modulo 4096 */
  LOGCELL_SEQUENCE_BITS = 12,
  LOGCELL_TYPE_SHIFT = 12,
  LOGCELL_TYPE_BITS = 4
};

/// Largest value of a field; the field out of a word; and a value, cut to the field, at its place in the word:
/// LOGCELL_GET(cell.dwTime, HOUR), LOGCELL_PUT(dwType, TYPE).
#define LOGCELL_MAX(FIELD) ((1u << LOGCELL_##FIELD##_BITS) - 1u)
#define LOGCELL_GET(dwWord, FIELD) LogCell_Get(dwWord, LOGCELL_##FIELD##_SHIFT, LOGCELL_MAX(FIELD))
#define LOGCELL_PUT(dwValue, FIELD) LogCell_Put(dwValue, LOGCELL_##FIELD##_SHIFT, LOGCELL_MAX(FIELD))

static inline uint32_t LogCell_Get(uint32_t dwWord, int nShift, uint32_t dwMax) { return dwWord >> nShift & dwMax; }
static inline uint32_t LogCell_Put(uint32_t dwValue, int nShift, uint32_t dwMax) {
  return (dwValue & dwMax) << nShift;
}

DEVSUPPORT_END_API

#endif
