// SPDX-License-Identifier: MIT
// A device of script/fleet: writes numbered records at a steady rate.
//
// usage: fleet_writer NAME RATE COUNT
#define _POSIX_C_SOURCE 200809L
#include <devsupport/devsupport.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

int main(int argc, char **argv) {
  struct timespec due;
  if (argc != 4 || !TLogInfoShm_Open(9, ~0U, NULL)) return 2;
  const long period = 1000000000L / atol(argv[2]);
  const long count = atol(argv[3]);
  clock_gettime(CLOCK_MONOTONIC, &due);
  for (long number = 0; number < count; ++number) {
    char text[128];
    snprintf(text, sizeof text, "%s %ld line %ld: registered at 10.0.0.1, expires in 3600 s", argv[1], number,
             number % 8);
    TLogInfoShm_Write(text, (int)(number % 16), 0);
    due.tv_nsec += period;
    if (due.tv_nsec >= 1000000000L) {
      due.tv_nsec -= 1000000000L;
      ++due.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, NULL) != 0) {
    }
  }
  return !TLogInfoShm_Close();
}
