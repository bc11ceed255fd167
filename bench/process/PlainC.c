// SPDX-License-Identifier: MIT
// The work of cpld in straightforward C: a peer of cpld as a process.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>

struct Request {
  unsigned nRequest;
  int nChannel;
  int nRegister;
  int nValue;
  unsigned nReserved[2];
};

static const struct {
  unsigned nRequest;
  int nArgs;
} kCommands[] = {{10019, 4}, {10021, 5}, {10018, 4}, {10020, 5}, {10037, 3}};

static int Usage(void) {
  puts("usage: cpld cmd ch_id reg value");
  return 0;
}

int main(int nArgs, char *apArgs[]) {
  struct Request request;
  memset(&request, 0, sizeof request);
  if (nArgs < 3) return Usage();
  const unsigned nCommand = (unsigned)atoi(apArgs[1]);
  if (nCommand < sizeof kCommands / sizeof kCommands[0]) {
    if (nArgs != kCommands[nCommand].nArgs) return Usage();
    request.nRequest = kCommands[nCommand].nRequest;
  }
  request.nChannel = atoi(apArgs[2]);
  request.nRegister = apArgs[3] != NULL ? atoi(apArgs[3]) : 0;
  if (nCommand == 1 || nCommand == 3) request.nValue = (int)strtol(apArgs[4], NULL, 0);
  if (nCommand == 4) request.nChannel = request.nChannel == 0;

  const int nDevice = open("/dev/analog/0", O_RDWR);
  if (nDevice == -1) return 1;
  const int nResult = ioctl(nDevice, request.nRequest, &request);
  if (nCommand == 4) {
    printf(nResult == 0 ? "debug on\n" : "debug off\n");
  } else {
    printf("ch=%i, reg%i, data=0x%x value=0x%x\n", request.nChannel, request.nRegister, (unsigned)request.nValue,
           (unsigned)nResult);
  }
  return 0;
}
