// SPDX-License-Identifier: MIT
// devdoctor: checks what the programs of the device share.

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "tools/common/StandardDescriptors.h"
#include "tools/devdoctor/Options.h"
#include "tools/devdoctor/Queues.h"
#include "tools/devdoctor/Repair.h"
#include "tools/devdoctor/Report.h"
#include "tools/devdoctor/Rings.h"
#include "tools/devdoctor/Store.h"

namespace {

using namespace devdoctor;

constexpr unsigned kMaxSeconds = 20;

/// Ends the check when something does not answer, for example a file system.
void EndUnfinished(int) {
  constexpr char kText[] = "devdoctor: the look was not finished: a file system or /proc does not answer\n";
  if (::write(STDERR_FILENO, kText, sizeof kText - 1) < 0) ::_exit(2);
  ::_exit(2);
}

int Run(const Options &options) {
  static Report report;
  static Repairs repairs;
  ::signal(SIGALRM, EndUnfinished);
  ::alarm(kMaxSeconds);
  CheckRings(report, repairs);
  CheckStore(report, options.home, options.file);
  CheckOwners(report);
  CheckQueues(report);
  if (options.pid != 0) DescribeProcess(report, options.pid);
  ::alarm(0);
  if (!report.Print(options.format)) return kOutput;
  if (options.action == Action::Repair) repairs.Offer();
  return report.Status();
}

}  // namespace

int main(int argCount, char *args[]) {
  if (!tools::OccupyStandardDescriptors()) return kOutput;
  ::signal(SIGPIPE, SIG_IGN);
  const Options options = ReadOptions(argCount, args);
  return options.action == Action::Nothing ? options.status : Run(options);
}
