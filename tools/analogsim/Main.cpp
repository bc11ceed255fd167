// SPDX-License-Identifier: MIT
// analogsim: runs a command in which /dev/analog/0 is a simulated analog driver.

#include <glib.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

#include "tools/analogsim/Command.h"
#include "tools/analogsim/Options.h"
#include "tools/analogsim/Simulator.h"
#include "tools/analogsim/Testbed.h"
#include "tools/common/StandardDescriptors.h"

namespace {

using namespace analogsim;

/// The C++ runtime ends the program by a signal when it is refused memory, and so does GLib in some of its reports.
void EndAsOwnFailure(int) {
  constexpr char kText[] = "analogsim: the simulated device cannot be made or kept\n";
  if (::write(STDERR_FILENO, kText, sizeof kText - 1) < 0) ::_exit(status::kOwnFailure);
  ::_exit(status::kOwnFailure);
}

/// GLib's own handler can wait for itself when there is no memory, and its threads block the signal that ends them.
void TakeReport(const char *domain, GLogLevelFlags level, const char *message, void *data) {
  if ((level & G_LOG_LEVEL_ERROR) == 0) return g_log_default_handler(domain, level, message, data);
  std::fprintf(stderr, "analogsim: %s\n", message);
  EndAsOwnFailure(0);
}

void EndWithAMessage() {
  g_log_set_default_handler(TakeReport, nullptr);
  for (const int signal : {SIGTRAP, SIGABRT}) ::signal(signal, EndAsOwnFailure);
}

int Run(const Options &options) {
  const CommandSignals signals;
  Simulator simulator(options);
  const Testbed testbed(simulator);
  return RunCommand(options.command, testbed.Environment(), signals);
}

}  // namespace

int main(int argCount, char *args[]) {
  EndWithAMessage();
  // The command still finds closed what was closed.
  if (!tools::OccupyStandardDescriptors()) return status::kOwnFailure;
  try {
    return Run(ReadOptions(argCount, args, status::kOwnFailure));
  } catch (const Stop &stop) {
    return stop.status;
  } catch (const std::exception &error) {
    Say(std::string("analogsim: ") + error.what() + '\n');
    return status::kOwnFailure;
  }
}
