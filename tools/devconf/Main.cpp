// SPDX-License-Identifier: MIT
// devconf: shows and changes the configuration store from a shell.

#include <cstdio>

#include "tools/common/StandardDescriptors.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Options.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Status.h"

namespace {

using namespace devconf;

int Run(std::span<const char *const> args) {
  Options options;
  Mistake mistake;
  if (!ReadOptions(args, options, mistake)) {
    Complain(mistake.what, mistake.word);
    std::fputs("devconf --help lists the commands.\n", stderr);
    return status::kMistake;
  }
  if (options.command == Command::Help) {
    std::fputs(kHelp, stdout);
    return status::kDone;
  }
  if (options.command == Command::Version) {
    std::puts("devconf " DEVCONF_VERSION);
    return status::kDone;
  }
  return RunCommand(options);
}

}  // namespace

int main(int argCount, char *args[]) {
  if (!tools::OccupyStandardDescriptors()) return status::kFailed;
  const int result = Run({args, static_cast<std::size_t>(argCount)});
  return FinishOutput() || result != status::kDone ? result : status::kFailed;
}
