// SPDX-License-Identifier: MIT
/* Prints the nanoseconds of this machine's clock for one instruction: the shortest of many runs of a loop whose
 * instructions are known. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <time.h>

enum { kTurns = 10000, kInstructionsOfATurn = 3, kRuns = 500 };

static long long Now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

static long long TimeOfARun(void) {
  unsigned turns = kTurns;
  const long long start = Now();
  __asm__ volatile(
      ".set push\n"
      ".set noreorder\n"
      "1: addiu %0, %0, -1\n"
      "bnez %0, 1b\n"
      "nop\n"
      ".set pop"
      : "+r"(turns));
  return Now() - start;
}

/* The clock's own calls count too; a run without turns would tell how much, but it is less than a thousandth. */
int main(void) {
  long long shortest = TimeOfARun();
  for (int run = 1; run < kRuns; ++run) {
    const long long time = TimeOfARun();
    if (time < shortest) shortest = time;
  }
  printf("%.6f\n", (double)shortest / ((double)kTurns * kInstructionsOfATurn));
  return 0;
}
