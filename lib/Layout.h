// SPDX-License-Identifier: MIT
// Asserts a record's layout in the source of its unit: its size and each field's offset, in bytes.
//
//   DEVSUPPORT_RECORD_BYTES(TShmQueueOpt, 12);            on every machine: nothing in it depends on a pointer
//   DEVSUPPORT_FIELD_AT(TShmQueueOpt, dwUserBytes, 0);
//   DEVSUPPORT_DEVICE_RECORD_BYTES(TShareMem, 8);         on the device, where pointers have 32 bits
//   DEVSUPPORT_DEVICE_FIELD_AT(TShareMem, shmid, 0);
#pragma once

#include <cstddef>

#define DEVSUPPORT_IS_DEVICE (sizeof(void *) == 4)

#define DEVSUPPORT_RECORD_BYTES(TRecord, nBytes) static_assert(sizeof(TRecord) == (nBytes))
#define DEVSUPPORT_FIELD_AT(TRecord, field, nOffset) static_assert(offsetof(TRecord, field) == (nOffset))

#define DEVSUPPORT_DEVICE_RECORD_BYTES(TRecord, nBytes) \
  static_assert(!DEVSUPPORT_IS_DEVICE || sizeof(TRecord) == (nBytes))
#define DEVSUPPORT_DEVICE_FIELD_AT(TRecord, field, nOffset) \
  static_assert(!DEVSUPPORT_IS_DEVICE || offsetof(TRecord, field) == (nOffset))
