// SPDX-License-Identifier: MIT
/* A phone book that finds its entries by the keys of the keypad: 2 means a, b and c, 3 means d, e and f, and so
 * on. The store keeps this index itself.
 *
 * usage: phone_book HOME add NAME TEXT   stores an entry in the store whose folder is HOME
 *        phone_book HOME find DIGITS     shows the entries whose digits begin so */
#include <devsupport/devsupport.h>
#include <stdio.h>
#include <string.h>

enum { MOST_FOUND = 20 };

static int Add(const char *name, const char *text) {
  int result = BerkDb_Set(g_uDb.tb_pb, name, text);
  if (result != BERKDB_OK) {
    fprintf(stderr, "phone_book: '%s' is not stored, result %d\n", name, result);
    return 1;
  }
  return 0;
}

static int Find(const char *digits) {
  TDbFindRec found[MOST_FOUND];
  int32_t count = MOST_FOUND; /* in: the room; out: the records */
  int32_t i = 0;
  int result = BerkDb_FindPrefix(g_uDb.stb_1_pb, digits, found, &count);
  if (result == BERKDB_BUFFER_SMALL) {
    fprintf(stderr, "phone_book: more than %d entries begin with '%s'\n", MOST_FOUND, digits);
    return 1;
  }
  if (result != BERKDB_OK) {
    fprintf(stderr, "phone_book: the search failed, result %d\n", result);
    return 1;
  }
  for (i = 0; i < count; i++) {
    printf("%s  %s  %s\n", found[i].szSecondKey, found[i].szKey, found[i].szData);
  }
  return 0;
}

int main(int argc, char **argv) {
  int status = 2;
  int adds = argc == 5 && strcmp(argv[2], "add") == 0;
  int finds = argc == 4 && strcmp(argv[2], "find") == 0;
  if (!adds && !finds) {
    fprintf(stderr, "usage: phone_book HOME add NAME TEXT | phone_book HOME find DIGITS\n");
    return status;
  }
  if (BerkDb_Open(argv[1], NULL, NULL)) {
    status = adds ? Add(argv[3], argv[4]) : Find(argv[3]);
  } else {
    status = 1;
  }
  BerkDb_Close(); /* also after a failed opening */
  return status;
}
