// SPDX-License-Identifier: MIT
/* A daemon that logs. Its filter comes from the configuration store: the settings "dbl" (levels) and "dbm" (module
 * masks) hold lists such as "lined=5,other=3". SIGHUP makes it read them again, SIGTERM ends it.
 *
 * usage: log_daemon HOME PIDFILE       the store's folder, and where to write the process number */
#define _POSIX_C_SOURCE 200809L
#include <devsupport/devsupport.h>
#include <signal.h>
#include <stdio.h>

#define NAME "lined"
#define TYPE_NOTICE 3

enum { LEVEL_NOTICE = 4, LEVEL_DETAIL = 5, MODULE_LINES = 1 };

static volatile sig_atomic_t mustReload = 1;
static volatile sig_atomic_t mustEnd;

/* A signal handler only notes what is to be done. */
static void OnSignal(int number) {
  if (number == SIGHUP) {
    mustReload = 1;
  } else {
    mustEnd = 1;
  }
}

static void ReloadFilter(void) {
  int level = 0;
  uint32_t mask = 0;
  mustReload = 0;
  LogInfo_LoadFilter(NAME, &level, &mask);
  printf("level %d, mask 0x%X\n", level, (unsigned)mask);
  fflush(stdout);
}

static void LogLine(int line) {
  char number[12]; /* what LogFmt_Int may need */
  /* The functions that write do not ask the filter; the caller does, and saves building the text. */
  if (TLogInfoShm_IsEnabled(LEVEL_NOTICE, MODULE_LINES)) {
    LogInfo_Printf(TYPE_NOTICE, ": line %d registered", line);
  }
  if (TLogInfoShm_IsEnabled(LEVEL_DETAIL, MODULE_LINES)) {
    LogInfo_Cat3("lines.c", 12, TYPE_NOTICE, 0, ": line ", LogFmt_Int(number, line), " has its codec");
  }
}

int main(int argc, char **argv) {
  sigset_t all;
  sigset_t before;
  if (argc != 3) {
    fprintf(stderr, "usage: log_daemon HOME PIDFILE\n");
    return 2;
  }
  /* Signals wait until sigsuspend, so that none can come between the tests of the flags and the sleep. */
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &before);
  Signal_InitHandlers(OnSignal);
  if (!BerkDb_Open(argv[1], NULL, NULL) || !TLogInfoShm_Open(LEVEL_NOTICE, MODULE_LINES, NAME)) {
    BerkDb_Close();
    return 1;
  }
  WritePidFile(argv[2]);
  while (!mustEnd) {
    if (mustReload) {
      ReloadFilter();
    }
    LogLine(1);
    sigsuspend(&before);
  }
  TLogInfoShm_Close();
  BerkDb_Close();
  return 0;
}
