/* Asserts a record's layout, right under the record: its size and each field's offset, in bytes.
 *
 *   DEVSUPPORT_RECORD_BYTES(TShmQueueOpt, 12);            on every machine: nothing in it depends on a pointer
 *   DEVSUPPORT_FIELD_AT(TShmQueueOpt, dwUserBytes, 0);
 *   DEVSUPPORT_DEVICE_RECORD_BYTES(TShareMem, 8);         on the device, where pointers have 32 bits
 *   DEVSUPPORT_DEVICE_FIELD_AT(TShareMem, shmid, 0);
 *
 * script/layouts sees to it that no record and no field of the headers is left out, and writes them all as tables
 * into docs/formats.md. C++ and C11 check what is asserted; C99 has nothing to check it with. */
#ifndef DEVSUPPORT_DETAIL_LAYOUT_H
#define DEVSUPPORT_DETAIL_LAYOUT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define DEVSUPPORT_LAYOUT_HOLDS(TRecord, condition) static_assert(condition, #TRecord " has its layout")
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define DEVSUPPORT_LAYOUT_HOLDS(TRecord, condition) _Static_assert(condition, #TRecord " has its layout")
#else
#define DEVSUPPORT_LAYOUT_HOLDS(TRecord, condition) struct TRecord
#endif

#define DEVSUPPORT_IS_DEVICE (UINTPTR_MAX == 0xFFFFFFFFu)

#define DEVSUPPORT_RECORD_BYTES(TRecord, nBytes) DEVSUPPORT_LAYOUT_HOLDS(TRecord, sizeof(TRecord) == (nBytes))
#define DEVSUPPORT_FIELD_AT(TRecord, field, nOffset) \
  DEVSUPPORT_LAYOUT_HOLDS(TRecord, offsetof(TRecord, field) == (nOffset))

#define DEVSUPPORT_DEVICE_RECORD_BYTES(TRecord, nBytes) \
  DEVSUPPORT_LAYOUT_HOLDS(TRecord, !DEVSUPPORT_IS_DEVICE || sizeof(TRecord) == (nBytes))
#define DEVSUPPORT_DEVICE_FIELD_AT(TRecord, field, nOffset) \
  DEVSUPPORT_LAYOUT_HOLDS(TRecord, !DEVSUPPORT_IS_DEVICE || offsetof(TRecord, field) == (nOffset))

#endif
