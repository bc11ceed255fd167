// analogsim: runs a command in which /dev/analog/0 is a simulated analog driver.

#include <exception>
#include <string>

#include "Command.h"
#include "Options.h"
#include "Simulator.h"
#include "Testbed.h"

namespace {

using namespace analogsim;

int Run(const Options &options) {
  const HeldSignals signals;
  Simulator simulator(options);
  const Testbed testbed(simulator);
  return RunCommand(options.command, testbed.Environment(), signals);
}

}  // namespace

int main(int argCount, char *args[]) {
  try {
    return Run(ReadOptions(argCount, args, status::kOwnFailure));
  } catch (const Stop &stop) {
    return stop.status;
  } catch (const std::exception &error) {
    Say(std::string("analogsim: ") + error.what() + '\n');
    return status::kOwnFailure;
  }
}
