// SPDX-License-Identifier: MIT
/* Takes a text of the form "name=value; name=value; ..." apart, without copying or changing it, and tells numbers
 * from texts.
 *
 * usage: settings TEXT */
#include <devsupport/devsupport.h>
#include <stdio.h>

enum { NAME_BYTES = 16, VALUE_BYTES = 32 };

/* Shows one "name=value", over which the tokenizer is. */
static int ShowField(TStrTok *field) {
  char name[NAME_BYTES];
  char value[VALUE_BYTES];
  int32_t number = 0;
  if (!TStrTok_FindGetToken(field, name, NAME_BYTES, "=", 0) || name[0] == '\0') {
    char whole[VALUE_BYTES];
    TStrTok_GetSource(field, whole, VALUE_BYTES);
    fprintf(stderr, "settings: '%s' is not name=value\n", whole);
    return 0;
  }
  if (TStrTok_IsTokenEnd(field)) {
    printf("%s is empty\n", name);
  } else if (TStrTok_Match2EndGetToken(field, value, VALUE_BYTES) && Str2Int(value, &number)) {
    printf("%s is the number %d\n", name, (int)number);
  } else {
    printf("%s is the text '%s'\n", name, value);
  }
  return 1;
}

int main(int argc, char **argv) {
  TStrTok list;
  TStrTok field;
  int status = 0;
  if (argc != 2) {
    fprintf(stderr, "usage: settings TEXT\n");
    return 2;
  }
  TStrTok_SetSource(&list, 1, argv[1], 0); /* 1: copies lose the blanks around them */
  /* Empty fields are skipped, so that a ';' at the end does no harm. */
  while (TStrTok_GoDelimit_Str(&list, ";", 0, 0)) {
    TStrTok_Token2Tok(&list, &field);
    if (!ShowField(&field)) {
      status = 1;
    }
  }
  return status;
}
