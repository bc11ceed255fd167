// SPDX-License-Identifier: MIT
/* A cache of fixed size: the last few answers of something slow. When it is full, the entry that was not asked for
 * the longest time makes room. After its creation nothing is allocated.
 *
 * usage: cache NUMBER...       says for each number whether its square was in the cache */
#include <devsupport/devsupport.h>
#include <stdio.h>

enum { BUCKETS = 8, ENTRIES = 3 };

typedef struct Entry {
  int32_t number; /* the key */
  int32_t square;
  int32_t lastUse;
} Entry;

/* The key of an entry, and of what is looked for: the bytes of the number. */
static const void *EntryKey(const void *entry, int *length) {
  *length = sizeof(int32_t);
  return &((const Entry *)entry)->number;
}

static const void *ArgumentKey(const void *argument, int *length) {
  *length = sizeof(int32_t);
  return argument;
}

static int Matches(const void *entry, const void *argument) {
  return ((const Entry *)entry)->number == *(const int32_t *)argument;
}

static void DropOldest(TMyHash *cache) {
  const Entry *oldest = TMyHash_TraverseData(cache, 0);
  int slot = -1;
  int i = 0;
  for (i = 1; i < TMyHash_GetInUseCnt(cache); i++) {
    const Entry *entry = TMyHash_TraverseData(cache, i);
    if (entry->lastUse < oldest->lastUse) {
      oldest = entry;
    }
  }
  TMyHash_Find(cache, &oldest->number, &slot);
  printf("%d makes room\n", (int)oldest->number);
  TMyHash_Delete(cache, slot);
}

static void Ask(TMyHash *cache, int32_t number, int32_t now) {
  Entry *known = TMyHash_Find(cache, &number, NULL);
  if (known != NULL) {
    known->lastUse = now;
    printf("%d: %d, known\n", (int)number, (int)known->square);
    return;
  }
  if (TMyHash_GetUnUseCnt(cache) == 0) {
    DropOldest(cache);
  }
  Entry added = {number, number * number, now};
  TMyHash_Add(cache, &added, NULL);
  printf("%d: %d, new\n", (int)number, (int)added.square);
}

int main(int argc, char **argv) {
  TMyHash cache;
  int i = 0;
  if (!TMyHash_Create(&cache, NULL, BUCKETS, ENTRIES, sizeof(Entry), Matches, EntryKey, ArgumentKey)) {
    return 1;
  }
  for (i = 1; i < argc; i++) {
    uint8_t number = 0;
    if (Str2Byte(argv[i], &number)) {
      Ask(&cache, number, i);
    }
  }
  TMyHash_Free(&cache);
  return 0;
}
