// SPDX-License-Identifier: MIT
/* A timer that expires every 20 ms. Its callback runs inside a signal, where printing, locking and nearly all
 * functions are forbidden. It therefore only posts a semaphore, and the main program does the work.
 *
 * usage: periodic_timer COUNT */
#define _POSIX_C_SOURCE 200809L
#include <devsupport/devsupport.h>
#include <errno.h>
#include <semaphore.h>
#include <stdio.h>

enum { CELLS = 1, BLINK = 0, PERIOD_MS = 20 };

static sem_t expired;

static void OnExpiry(uint32_t cell) {
  (void)cell;
  sem_post(&expired); /* one of the few functions that a signal handler may call */
}

/* Waits for the next expiry. The timer's own signal interrupts the wait: EINTR is the usual case, not an error. */
static int WaitForExpiry(void) {
  while (sem_wait(&expired) != 0) {
    if (errno != EINTR) {
      return 0;
    }
  }
  return 1;
}

int main(int argc, char **argv) {
  uint16_t timers = 0;
  int32_t count = 0;
  int32_t done = 0;
  if (argc != 2 || !Str2Int(argv[1], &count) || count < 1) {
    fprintf(stderr, "usage: periodic_timer COUNT\n");
    return 2;
  }
  if (sem_init(&expired, 0, 0) != 0) {
    perror("sem_init");
    return 1;
  }
  /* 0: the cells repeat until they are disarmed. 0: the library chooses the signal. */
  if (!Timer_CreateAry(CELLS, 0, OnExpiry, 0, &timers)) {
    return 1;
  }
  if (!Timer_Set(&timers, BLINK, PERIOD_MS, NULL)) {
    Timer_DestroyAry(&timers);
    return 1;
  }
  while (done < count && WaitForExpiry()) {
    done++;
    printf("work %d\n", (int)done);
  }
  Timer_DestroyAry(&timers); /* after this no callback runs any more, and the semaphore can go */
  sem_destroy(&expired);
  return done == count ? 0 : 1;
}
