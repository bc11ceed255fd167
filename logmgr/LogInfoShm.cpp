// SPDX-License-Identifier: MIT
// The log channel: messages cut into records, straight into the slots of the ring, one writer for both rings.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/text/StringEdit.h>
#include "lib/Layout.h"
#include "lib/Unaligned.h"
#include "lib/container/CopyBytes.h"
#include "lib/diag/LocalTime.h"
#include "lib/diag/StandardAssert.h"
#include "lib/ipc/RingAccess.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>

// The records' layout, in bytes.
DEVSUPPORT_RECORD_BYTES(TLogCell, LOGCELL_BYTES);
DEVSUPPORT_FIELD_AT(TLogCell, dwTime, 0);
DEVSUPPORT_FIELD_AT(TLogCell, wSequence, 4);
DEVSUPPORT_FIELD_AT(TLogCell, wNotWritten, 6);
DEVSUPPORT_FIELD_AT(TLogCell, szText, LOGCELL_HEAD_BYTES);
DEVSUPPORT_RECORD_BYTES(TLogRingUser, LOGRING_USER_BYTES);
DEVSUPPORT_FIELD_AT(TLogRingUser, wSequence, 0);
DEVSUPPORT_FIELD_AT(TLogRingUser, wSecond, 2);
DEVSUPPORT_FIELD_AT(TLogRingUser, abyReader, 4);
static_assert(LOGCELL_LENGTH(LOGCELL_TEXT_CHARS) == LOGCELL_BYTES);
static_assert(LOGCELL_MAX(FRAGMENT) + 1 == LOGCELL_FRAGMENTS);

DEVSUPPORT_DEVICE_RECORD_BYTES(TLogInfoShmData, 132);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, nFilterLevel, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, dwFilterMask, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, uLogQue, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, uEvtQue, 52);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, szName, 96);
DEVSUPPORT_DEVICE_FIELD_AT(TLogInfoShmData, nNameLen, 128);

using devsupport::LocalTime;
using devsupport::RingCell;
using devsupport::RingLock;
using devsupport::StoreUnaligned;

constinit TLogInfoShmData _g_uLogInfoShmData{};

namespace {

// Text and place of the assertion, as reports from the field name them.
constexpr char kAssertedText[] = "puMember != ((void *)0)";
constexpr char kAssertedFile[] = "logmgr/LogInfoShm";
constexpr unsigned kWriteDataLine = 124;

static_assert(std::endian::native == std::endian::little,
              "the record's second word is two halves, the low one first");

struct RingKeys {
  std::int32_t nShareKey;
  std::int32_t nSemKey;
  std::uint32_t dwCells;
};
constexpr RingKeys kLogRing{LOGRING_LOG_SHARE_KEY, LOGRING_LOG_SEM_KEY, LOGRING_LOG_CELLS};
constexpr RingKeys kEvtRing{LOGRING_EVT_SHARE_KEY, LOGRING_EVT_SEM_KEY, LOGRING_EVT_CELLS};

// A record that was never opened has semaphore 0, which may belong to another program: check here before using a
// ring.
bool IsOpen(const TShmQueue &que) { return que.header != nullptr; }

int CloseRing(TShmQueue *pQue) {
  if (!IsOpen(*pQue)) return 1;
  const int nResult = TShmQueue_Close(pQue, 0);  // Kept: the ring stays in the system, for its reader
  *pQue = TShmQueue{};
  return nResult;
}

// The user area begins 256 bytes into the page-aligned segment.
TLogRingUser &UserArea(const TShmQueue &que) {
  return *static_cast<TLogRingUser *>(static_cast<void *>(que.pUserArea));
}

std::uint16_t WithSequence(std::uint16_t wWord, std::uint32_t dwSequence) {
  return static_cast<std::uint16_t>((wWord & ~LOGCELL_MAX(SEQUENCE)) | LOGCELL_PUT(dwSequence, SEQUENCE));
}

void StartCounters(const TShmQueue &que) {
  TLogRingUser &user = UserArea(que);
  user.wSequence = WithSequence(user.wSequence, 0);
  user.wSecond = WithSequence(user.wSecond, 0);
}

// The old ring is left when the new one is attached: the other way round the last user would take the semaphore
// along.
bool OpenRing(const RingKeys &keys, TShmQueue *pQue) {
  TShmQueue opened{};
  TShmQueueOpt opt{LOGRING_USER_BYTES, 1, 0};
  const bool bOpen = TShmQueue_Create(keys.nShareKey, keys.nSemKey, keys.dwCells, LOGCELL_BYTES, &opt, &opened) == 1;
  if (bOpen && opt.bNewCreated != 0) {
    StartCounters(opened);
    TShmQueue_Unlock(&opened);
  }
  if (!bOpen && IsOpen(opened)) {  // a ring of other measures: not ours to write in, nor its semaphore to remove
    int bWasLast = 0;
    ShareMem_Close(&opened.shm, 0, &bWasLast);
  }
  CloseRing(pQue);
  if (bOpen) *pQue = opened;
  return bOpen;
}

void SetName(const char *pName) {
  TLogInfoShmData &channel = _g_uLogInfoShmData;
  StrNcpy(channel.szName, pName != nullptr ? pName : "", sizeof channel.szName);
  channel.nNameLen = static_cast<std::int32_t>(std::strlen(channel.szName));
}

std::uint32_t TimeWord() {
  const LocalTime now = devsupport::LocalTimeNow();
  return LOGCELL_PUT(now.dwHour, HOUR) | LOGCELL_PUT(now.dwMinute, MINUTE) | LOGCELL_PUT(now.dwSecond, SECOND) |
         LOGCELL_PUT(now.dwMs, MS);
}

struct TextPart {
  std::uint32_t dwChars;  // in the record, the name included
  std::uint32_t dwTaken;  // of the message
};

// Writes the text of one record: the name, if it comes first, and as much of the message as fits.
TextPart FillText(char *pDest, std::uint32_t dwNameLen, const char *pText, std::uint32_t dwRest) {
  const std::uint32_t dwChars = std::min<std::uint32_t>(dwNameLen + dwRest, LOGCELL_TEXT_CHARS);
  const std::uint32_t dwTaken = dwChars - dwNameLen;
  if (dwNameLen != 0) {
    std::memcpy(pDest, _g_uLogInfoShmData.szName, dwNameLen);
    // Kept: after a name the text ends at its first NUL, and the rest is NUL, too, unless that was the first
    // character: as StrNcpy does it, which would read one character after the text.
    if (*pText != '\0')
      std::strncpy(pDest + dwNameLen, pText, dwTaken);
    else
      pDest[dwNameLen] = '\0';
  } else {
    // Hides the limit: for one so low the compiler uses a string instruction, which takes time to start.
    std::size_t dwHidden = dwTaken;
    asm("" : "+r"(dwHidden));
    devsupport::CopyBytes(pDest, pText, dwHidden);
  }
  pDest[dwChars] = '\0';
  return {dwChars, dwTaken};
}

// Writes one record after the newest. Returns the number of characters of the message that it holds.
//
// The record is whole before it is seen, and its number is used up by then: a writer that dies in between leaves one
// number out, which readers take for the one lost record that it is. With the number left for the next record they
// would find two of the same number.
std::uint32_t WriteRecord(const TShmQueue &que, std::uint32_t dwTime, std::uint32_t dwType, std::uint32_t dwNameLen,
                          const char *pText, std::uint32_t dwRest) {
  const RingCell cell = devsupport::BeginCell(que);
  std::uint8_t *pRecord = cell.pSlot + devsupport::kSlotLengthBytes;
  TLogRingUser &user = UserArea(que);
  const std::uint16_t wSequence = user.wSequence;

  // The slot's offset comes out of shared memory: the words need not be aligned.
  StoreUnaligned(pRecord + offsetof(TLogCell, dwTime), dwTime);
  // Kept: the half word after this one is not written, and keeps what the slot held.
  StoreUnaligned(pRecord + offsetof(TLogCell, wSequence),
                 static_cast<uint16_t>(LOGCELL_PUT(wSequence, SEQUENCE) | LOGCELL_PUT(dwType, TYPE)));
  char *pRecordText = reinterpret_cast<char *>(pRecord) + offsetof(TLogCell, szText);
  const TextPart part = FillText(pRecordText, dwNameLen, pText, dwRest);
  devsupport::StoreSlotLength(cell.pSlot, LOGCELL_LENGTH(part.dwChars));
  user.wSequence = WithSequence(wSequence, wSequence + 1u);
  devsupport::PublishOverwriting(que, cell);
  return part.dwTaken;
}

void WriteText(TShmQueue *pQue, const char *pText, int nType) {
  // Kept: the length is taken modulo 65536.
  _TLogInfoShm_WriteData(pQue, pText, static_cast<std::uint16_t>(std::strlen(pText)), nType);
}

void WriteSized(TShmQueue *pQue, const char *pText, int nSize, int nType) {
  if (nSize < 1) return;
  _TLogInfoShm_WriteData(pQue, pText, static_cast<std::uint16_t>(nSize - 1), nType);
}

}  // namespace

int TLogInfoShm_Open(int nFilterLevel, std::uint32_t dwFilterMask, const char *pName) {
  TLogInfoShm_ChangeFilter(nFilterLevel, dwFilterMask);
  SetName(pName);
  devsupport::LocalTimeNow();  // from now on there is a distance to UTC that any thread can use
  if (!OpenRing(kLogRing, &_g_uLogInfoShmData.uLogQue)) return 0;
  return OpenRing(kEvtRing, &_g_uLogInfoShmData.uEvtQue) ? 1 : 0;
}

int TLogInfoShm_Close(void) {
  CloseRing(&_g_uLogInfoShmData.uLogQue);
  return CloseRing(&_g_uLogInfoShmData.uEvtQue);
}

void TLogInfoShm_ChangeFilter(int nFilterLevel, std::uint32_t dwFilterMask) {
  std::atomic_ref(_g_uLogInfoShmData.nFilterLevel).store(nFilterLevel, std::memory_order_relaxed);
  std::atomic_ref(_g_uLogInfoShmData.dwFilterMask).store(dwFilterMask, std::memory_order_relaxed);
}

int TLogInfoShm_IsEnabled(int nLevel, std::uint32_t dwModuleMask) {
  TLogInfoShmData &channel = _g_uLogInfoShmData;
  if (std::atomic_ref(channel.nFilterLevel).load(std::memory_order_relaxed) < nLevel) return 0;
  return (std::atomic_ref(channel.dwFilterMask).load(std::memory_order_relaxed) & dwModuleMask) != 0 ? 1 : 0;
}

void TLogInfoShm_Write(const char *pText, int nType, int /*nExtra*/) {
  WriteText(&_g_uLogInfoShmData.uLogQue, pText, nType);
}

void TLogInfoShm_WriteN(const char *pText, int nSize, int nType) {
  WriteSized(&_g_uLogInfoShmData.uLogQue, pText, nSize, nType);
}

void TLogInfoShm_Write_Evt(const char *pText, int nType) { WriteText(&_g_uLogInfoShmData.uEvtQue, pText, nType); }

void TLogInfoShm_WriteN_Evt(const char *pText, int nSize, int nType) {
  WriteSized(&_g_uLogInfoShmData.uEvtQue, pText, nSize, nType);
}

void _TLogInfoShm_WriteData(TShmQueue *pQue, const char *pText, std::uint16_t wLength, int nType) {
  devsupport::StandardAssert(pQue != nullptr, kAssertedText, kAssertedFile, kWriteDataLine, "_TLogInfoShm_WriteData");
  if (wLength == 0 || !IsOpen(*pQue)) return;

  const std::uint32_t dwTime = TimeWord();
  auto dwNameLen = static_cast<std::uint32_t>(_g_uLogInfoShmData.nNameLen);
  const RingLock lock(pQue->semid);
  std::uint32_t dwRest = wLength;
  for (std::uint32_t dwFragment = 0; dwRest != 0 && dwFragment < LOGCELL_FRAGMENTS; ++dwFragment) {
    const std::uint32_t dwTaken = WriteRecord(*pQue, dwTime | LOGCELL_PUT(dwFragment, FRAGMENT),
                                              static_cast<std::uint32_t>(nType), dwNameLen, pText, dwRest);
    pText += dwTaken;
    dwRest -= dwTaken;
    dwNameLen = 0;  // only the first record begins with it
  }
}
