// devconf: shows and changes the configuration store from a shell.

#include <fcntl.h>

#include <cstdio>

#include "Commands.h"
#include "Options.h"
#include "Print.h"
#include "Status.h"

namespace {

using namespace devconf;

// Occupies the standard descriptors that our caller closed: the store's files must not get such a number, because
// what we print would then be written into them. They are open the wrong way round, so that their use still fails.
bool OccupyStandardDescriptors() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (int fd = 0; fd < 3; ++fd) {
    if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", kModes[fd]) != fd) return false;
  }
  return true;
}

int Run(std::span<const char *const> args) {
  Options options;
  Mistake mistake;
  if (!ReadOptions(args, options, mistake)) {
    Complain(mistake.what, mistake.word);
    std::fputs("devconf --help lists the commands.\n", stderr);
    return status::kMistake;
  }
  if (options.command == Command::kHelp) {
    std::fputs(kHelp, stdout);
    return status::kDone;
  }
  if (options.command == Command::kVersion) {
    std::puts("devconf " DEVCONF_VERSION);
    return status::kDone;
  }
  return RunCommand(options);
}

}  // namespace

int main(int argCount, char *args[]) {
  if (!OccupyStandardDescriptors()) return status::kFailed;
  const int result = Run({args, static_cast<std::size_t>(argCount)});
  return FinishOutput() || result != status::kDone ? result : status::kFailed;
}
