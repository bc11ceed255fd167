// SPDX-License-Identifier: MIT
/* A producer and a consumer that share a ring. They may run at the same time or one after the other: the ring stays
 * in the system until a consumer leaves it as the last process.
 *
 * usage: shared_ring produce TEXT...   puts each text into the ring
 *        shared_ring consume           looks at the newest text without taking it, then takes all, oldest first */
#include <devsupport/devsupport.h>
#include <stdio.h>
#include <string.h>

enum { SHARE_KEY = 0x51700001, SEMAPHORE_KEY = 0x51700002, CELLS = 4, CELL_BYTES = 32 };

static int Produce(TShmQueue *ring, char **texts) {
  for (; *texts != NULL; texts++) {
    /* The length is 16 bits wide, and what is longer than a cell would be cut without notice. */
    size_t bytes = strlen(*texts);
    if (bytes == 0 || bytes > CELL_BYTES) {
      fprintf(stderr, "shared_ring: '%s' has not 1 to %d characters\n", *texts, CELL_BYTES);
      return 1;
    }
    if (!TShmQueue_Push(ring, *texts, (uint16_t)bytes)) {
      fprintf(stderr, "shared_ring: the ring is full, '%s' is not stored\n", *texts);
      return 1;
    }
  }
  return 0;
}

/* Peeking takes no lock of its own: the walk is put between Lock and Unlock, and nothing in between may lock. */
static void ShowNewest(TShmQueue *ring) {
  char text[CELL_BYTES + 1] = "";
  void *slot = NULL;
  if (!TShmQueue_Lock(ring)) {
    return;
  }
  if (TShmQueue_PeekInit(ring, -1)) {
    const void *payload = TShmQueue_PeekNext(ring, &slot);
    if (payload != NULL) {
      uint32_t bytes = 0;
      memcpy(&bytes, slot, sizeof bytes); /* the slot need not be aligned, and others can write to it */
      memcpy(text, payload, bytes < CELL_BYTES ? bytes : CELL_BYTES);
    }
  }
  TShmQueue_Unlock(ring);
  printf("newest: %s\n", text);
}

static void Consume(TShmQueue *ring) {
  char text[CELL_BYTES + 1];
  printf("waiting: %d\n", (int)TShmQueue_GetCount(ring));
  ShowNewest(ring);
  for (;;) {
    memset(text, 0, sizeof text); /* a payload has no terminator */
    if (!TShmQueue_Get(ring, text, NULL, CELL_BYTES)) {
      return;
    }
    printf("took: %s\n", text);
  }
}

int main(int argc, char **argv) {
  TShmQueue ring;
  int status = 0;
  int consumes = argc == 2 && strcmp(argv[1], "consume") == 0;
  if (!consumes && (argc < 3 || strcmp(argv[1], "produce") != 0)) {
    fprintf(stderr, "usage: shared_ring produce TEXT... | shared_ring consume\n");
    return 2;
  }
  if (!TShmQueue_Create(SHARE_KEY, SEMAPHORE_KEY, CELLS, CELL_BYTES, NULL, &ring)) {
    return 1;
  }
  if (consumes) {
    Consume(&ring);
  } else {
    status = Produce(&ring, argv + 2);
  }
  TShmQueue_Close(&ring, consumes);
  return status;
}
