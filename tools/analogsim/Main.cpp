// analogsim: runs a command in which /dev/analog/0 is a simulated analog driver.

#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "Command.h"
#include "Options.h"
#include "Simulator.h"
#include "Testbed.h"

namespace {

using namespace analogsim;

/// Fills standard descriptors that our caller closed, so that no socket of ours gets such a number and is taken for
/// standard error. The command still finds them closed.
void OccupyStandardDescriptors() {
  int fd = -1;
  do {
    fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) ::close(fd);
}

int Run(const Options &options) {
  const HeldSignals signals;
  Simulator simulator(options);
  const Testbed testbed(simulator);
  return RunCommand(options.command, testbed.Environment(), signals);
}

}  // namespace

int main(int argCount, char *args[]) {
  OccupyStandardDescriptors();
  try {
    return Run(ReadOptions(argCount, args, status::kOwnFailure));
  } catch (const Stop &stop) {
    return stop.status;
  } catch (const std::exception &error) {
    Say(std::string("analogsim: ") + error.what() + '\n');
    return status::kOwnFailure;
  }
}
