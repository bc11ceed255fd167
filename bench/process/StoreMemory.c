// SPDX-License-Identifier: MIT
// The memory of a process that uses the configuration store: fills a store in a process that ends, then opens it and
// prints the resident memory after given numbers of operations. The row store_memory_* of the report.
//
// usage: store_memory HOME RECORDS OPERATIONS...
//   HOME         an empty folder; the key of the store's shared memory is fixed, so run it in an IPC namespace of its
//   own OPERATIONS   in rising order, counted from the open
//
// Prints one line for each of OPERATIONS: the operations, and the KiB of memory that is the process's own, shared
// with the store's other processes, and read from files (code, mostly).

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/db/DbRecord.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kKeyChars = 48, kValueChars = 128, kMatches = 100 };

static const char *g_pHome;
static long g_nRecords;

static void Must(int bDone, const char *pWhat) {
  if (bDone) return;
  fprintf(stderr, "store_memory: %s failed\n", pWhat);
  _exit(1);
}

// A hundred names to a prefix.
static void NameRecord(char *pKey, long nRecord) {
  snprintf(pKey, kKeyChars, "net.%05ld.parameter.%02ld", nRecord / 100, nRecord % 100);
}

static void Open(void) { Must(BerkDb_Open(g_pHome, NULL, NULL) == 1, "BerkDb_Open"); }

static void Fill(void) {
  Open();
  for (long i = 0; i < g_nRecords; ++i) {
    char acKey[kKeyChars];
    NameRecord(acKey, i);
    Must(BerkDb_Put(g_uDb.tb_parameter, acKey, "1000003", sizeof "1000003") == BERKDB_OK, "BerkDb_Put");
  }
  BerkDb_Close();
}

// One operation: mostly reads, as on a device; one in a hundred changes a setting, one in a thousand searches by
// prefix, one in a thousand adds a record and deletes it again.
static void Operate(long nOperation) {
  static TDbFindRec auFound[kMatches];
  char acKey[kKeyChars];
  char acValue[kValueChars];
  NameRecord(acKey, nOperation * 7919 % g_nRecords);
  GetDbParamToStr(acKey, acValue, sizeof acValue, "");
  if (nOperation % 100 == 1) {
    snprintf(acValue, sizeof acValue, "%ld", 1000003 + nOperation % 999);
    Must(BerkDb_Set(g_uDb.tb_parameter, acKey, acValue) == BERKDB_OK, "BerkDb_Set");
  }
  if (nOperation % 1000 == 2) {
    int32_t nFound = kMatches;
    *strstr(acKey, ".parameter") = '\0';
    Must(BerkDb_FindPrefix(g_uDb.tb_parameter, acKey, auFound, &nFound) == BERKDB_OK, "BerkDb_FindPrefix");
  }
  if (nOperation % 1000 == 3) {
    Must(BerkDb_Put(g_uDb.tb_parameter, "new", acValue, sizeof "new") == BERKDB_OK, "BerkDb_Put");
    Must(BerkDb_Del(g_uDb.tb_parameter, "new") == BERKDB_OK, "BerkDb_Del");
  }
}

static long Resident(const char *pWhich) {
  char acLine[128];
  long nKiB = -1;
  FILE *pFile = fopen("/proc/self/status", "r");
  Must(pFile != NULL, "/proc/self/status");
  while (fgets(acLine, sizeof acLine, pFile) != NULL) {
    if (strncmp(acLine, pWhich, strlen(pWhich)) == 0) nKiB = strtol(acLine + strlen(pWhich), NULL, 10);
  }
  fclose(pFile);
  Must(nKiB >= 0, pWhich);
  return nKiB;
}

int main(int nArgs, char *apArgs[]) {
  Must(nArgs > 3, "usage: store_memory HOME RECORDS OPERATIONS...");
  g_pHome = apArgs[1];
  g_nRecords = strtol(apArgs[2], NULL, 10);

  const pid_t nFiller = fork();
  if (nFiller == 0) {
    Fill();
    _exit(0);
  }
  int nStatus = -1;
  Must(waitpid(nFiller, &nStatus, 0) == nFiller && nStatus == 0, "filling");

  Open();
  long nDone = 0;
  for (int i = 3; i < nArgs; ++i) {
    for (const long nWanted = strtol(apArgs[i], NULL, 10); nDone < nWanted; ++nDone) Operate(nDone);
    printf("%ld %ld %ld %ld\n", nDone, Resident("RssAnon:"), Resident("RssShmem:"), Resident("RssFile:"));
  }
  BerkDb_Close();
  return 0;
}
