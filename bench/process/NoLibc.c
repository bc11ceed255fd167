// SPDX-License-Identifier: MIT
// The floor of cpld as a process: its four system calls, in a static program without a C library. It reads no command
// line and formats nothing. Linux on x86-64.

#include "bench/process/Answer.h"

enum { kWrite = 1, kOpen = 2, kIoctl = 16, kExitGroup = 231 };  // system calls
enum { kReadWrite = 2 };

// The number in rax, the arguments in rdi, rsi and rdx; the kernel overwrites rcx and r11.
static long Call(long nNumber, long nFirst, long nSecond, long nThird) {
  long nResult;
  __asm__ volatile("syscall"
                   : "=a"(nResult)
                   : "a"(nNumber), "D"(nFirst), "S"(nSecond), "d"(nThird)
                   : "rcx", "r11", "memory");
  return nResult;
}

// It is not called like a function, so the stack is not aligned as in one.
__attribute__((force_align_arg_pointer)) void _start(void);
void _start(void) {
  struct Request request = {kGetDirectReg, 1, 23, 0, {0, 0}};
  const long nDevice = Call(kOpen, (long)kDevice, kReadWrite, 0);
  Call(kIoctl, nDevice, kGetDirectReg, (long)&request);
  Call(kWrite, 1, (long)kAnswer, sizeof kAnswer - 1);
  for (;;) Call(kExitGroup, 0, 0, 0);
}
