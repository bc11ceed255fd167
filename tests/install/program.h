// SPDX-License-Identifier: MIT
/* The stranger's program, the same in C and in C++: uses the library through its umbrella header. */
#include <devsupport/devsupport.h>
#include <string.h>

static int g_nCalls;

static int CountCall(const char *pText) {
  g_nCalls += strcmp(pText, "slot 7") == 0;
  return 42;
}

int main(void) {
  MyErrSetOutput(CountCall);
  return MyErrPrintf("slot %d", 7) == 42 && g_nCalls == 1 ? 0 : 1;
}
