// SPDX-License-Identifier: MIT
// cpld: reads or writes one register of an analog telephone channel. One open, one ioctl, one line.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "cpld/Request.h"

namespace {

constexpr char kDevice[] = "/dev/analog/0";

int g_nDevice = -1;  // open until the process ends, which closes it

void PrintUsage() {
  std::printf(
      "usage: cpld cmd ch_id reg value \n"
      "example: cpld 0 1 23\n"
      "example: cpld 0 1 23 0x30\n"
      "set direct register 23 to the 0x30\n"
      "cmd: 0:get direct reg, 1: set direct reg\n"
      "     2:get indirect reg, 3: set indirect reg\n"
      "     4:Set reg debug,ch_id:(1:debug on, 0:debug off)\n");
}

/// The answer is whatever the driver left in the record, and its result.
void PrintAnswer(cpld::Action action, const cpld::TAnalogRegRequest &request, int nResult) {
  if (action == cpld::Action::DebugSwitch) {
    // Kept: the driver's result chooses the words, not the argument, so "debug off" is also printed after a failure.
    std::printf(nResult == 0 ? "debug on\n" : "debug off\n");
    return;
  }
  // Kept: no "=" after "reg". The line is part of what the command promises.
  std::printf("ch=%i, reg%i, data=0x%x value=0x%x\n", request.nChannel, request.nRegister,
              static_cast<unsigned>(request.nValue), static_cast<unsigned>(nResult));
}

}  // namespace

int main(int nArgCount, char *apArgs[]) {
  // With this buffer, the C library makes no system calls to examine standard output or to allocate memory.
  static char acOutput[512];
  std::setvbuf(stdout, acOutput, _IOFBF, sizeof acOutput);

  cpld::TAnalogRegRequest request;
  const cpld::Action action = cpld::ParseRequest(nArgCount, apArgs, &request);
  if (action == cpld::Action::Usage) {
    PrintUsage();
    return EXIT_SUCCESS;
  }

  g_nDevice = ::open(kDevice, O_RDWR);
  if (g_nDevice == -1) std::exit(EXIT_FAILURE);
  // One C library takes the number as unsigned long, another as int: 16 bits suit both.
  const int nResult = ::ioctl(g_nDevice, static_cast<std::uint16_t>(request.dwRequest), &request);

  // With standard output closed the driver has got its descriptor: the line has no reader and must
  // not be written to the driver.
  if (g_nDevice != STDOUT_FILENO) PrintAnswer(action, request, nResult);
  std::exit(EXIT_SUCCESS);  // Kept: whatever the driver answered; its result is in the line.
}
