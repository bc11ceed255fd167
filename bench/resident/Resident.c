// SPDX-License-Identifier: MIT
/* Prints its memory in KiB as it starts, with the log channel open, and with the configuration store open as well.
 *
 * usage: resident [HOME]      HOME is the store's home, the device's own unless given
 *
 * Each line: what is open, a colon, resident memory, and the part of it that is the process's own (data, heap,
 * stack); the rest is files and shared memory. One record is written and one setting looked up, so that what they
 * touch counts. */
#include <devsupport/devsupport.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A field of the process's status, in KiB; -1 when the kernel does not have it. */
static long ReadStatus(const char *pField) {
  const size_t nFieldChars = strlen(pField);
  char szLine[128];
  long nKib = -1;
  FILE *pFile = fopen("/proc/self/status", "r");
  if (pFile == NULL) return -1;
  while (nKib < 0 && fgets(szLine, sizeof szLine, pFile) != NULL) {
    if (strncmp(szLine, pField, nFieldChars) == 0) nKib = strtol(szLine + nFieldChars, NULL, 10);
  }
  (void)fclose(pFile);
  return nKib;
}

static void PrintMemory(const char *pWhat) {
  printf("%s: %ld %ld\n", pWhat, ReadStatus("VmRSS:"), ReadStatus("RssAnon:"));
}

int main(int nArgs, char *apArgs[]) {
  char szValue[32];
  PrintMemory("just started");

  if (TLogInfoShm_Open(7, 0xFFFFFFFFu, "resident") != 1) return EXIT_FAILURE;
  TLogInfoShm_Write("one record", 0, 0);
  PrintMemory("log open");

  if (BerkDb_Open(nArgs > 1 ? apArgs[1] : NULL, NULL, NULL) != 1) return EXIT_FAILURE;
  GetDbParamToStr("vlan", szValue, sizeof szValue, "");
  PrintMemory("log and store open");

  BerkDb_Close();
  TLogInfoShm_Close();
  return EXIT_SUCCESS;
}
