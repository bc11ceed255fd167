// SPDX-License-Identifier: MIT
// devlog: shows what the programs of the device write into the log channel.

#include <cstdio>

#include "tools/devlog/Options.h"
#include "tools/devlog/Stats.h"
#include "tools/devlog/View.h"
#include "tools/devlog/Write.h"

namespace devlog {

namespace {

int Run(const Options &options) {
  switch (options.action) {
    case Action::Show:
      return Show(options);
    case Action::Stats:
      return ShowStats(options);
    case Action::Write:
      return Write(options);
    case Action::Nothing:
      break;
  }
  return options.status;
}

}  // namespace

}  // namespace devlog

int main(int argCount, char *args[]) {
  // A static buffer: the C library would allocate one.
  static char output[16 * 1024];
  std::setvbuf(stdout, output, _IOFBF, sizeof output);
  return devlog::Run(devlog::ReadOptions(argCount, args));
}
