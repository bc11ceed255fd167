// SPDX-License-Identifier: MIT
// The command line of devdoctor.

#include "tools/devdoctor/Options.h"

#include <getopt.h>

#include <climits>
#include <cstdio>

#include "tools/common/Numbers.h"

namespace devdoctor {

namespace {

constexpr char kHelp[] =
    "Usage: devdoctor [OPTION...]\n"
    "Shows what the programs of the device share, and what is wrong with it. Takes no lock.\n"
    "\n"
    "      --home DIR      folder of the store; /config_fs/DB/ unless given\n"
    "      --file FILE     file in that folder; config.db unless given\n"
    "  -p, --process PID   tell about the timers and message queues of this process, too\n"
    "      --json          one JSON object a line\n"
    "      --prometheus    metrics in the text format of Prometheus\n"
    "      --repair        ask for each step that can be repaired without doing harm\n"
    "  -h, --help          this text\n"
    "  -V, --version       the version\n"
    "\n"
    "Exit status: 0 all is well; 1 there are warnings; 2 there are errors, or the look was not\n"
    "finished; 3 mistaken command line; 4 output not written.\n";

enum LongOnly : int { kHome = 0x100, kFile, kJson, kPrometheus, kRepair };

constexpr option kOptions[] = {
    {"home", required_argument, nullptr, kHome},
    {"file", required_argument, nullptr, kFile},
    {"process", required_argument, nullptr, 'p'},
    {"json", no_argument, nullptr, kJson},
    {"prometheus", no_argument, nullptr, kPrometheus},
    {"repair", no_argument, nullptr, kRepair},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

Options Stop(int status) {
  Options options;
  options.action = Action::Nothing;
  options.status = status;
  return options;
}

Options Print(const char *text) {
  std::fputs(text, stdout);
  return Stop(std::fflush(stdout) == 0 ? 0 : kOutput);
}

Options Mistake() {
  std::fputs("devdoctor --help lists the options.\n", stderr);
  return Stop(kUsage);
}

bool ReadPid(const char *text, pid_t &pid) {
  std::uint32_t number = 0;
  if (!tools::ParseNumber(text, INT_MAX, number) || number == 0) {
    std::fprintf(stderr, "devdoctor: invalid process number '%s'\n", text);
    return false;
  }
  pid = static_cast<pid_t>(number);
  return true;
}

bool Take(int option, Options &options) {
  switch (option) {
    case kHome:
      options.home = optarg;
      return true;
    case kFile:
      options.file = optarg;
      return true;
    case 'p':
      return ReadPid(optarg, options.pid);
    case kJson:
      options.format = Format::Json;
      return true;
    case kPrometheus:
      options.format = Format::Prometheus;
      return true;
    case kRepair:
      options.action = Action::Repair;
      return true;
    default:
      return false;
  }
}

}  // namespace

Options ReadOptions(int argCount, char **args) {
  Options options;
  for (int option = 0; (option = ::getopt_long(argCount, args, "p:hV", kOptions, nullptr)) != -1;) {
    if (option == 'h') return Print(kHelp);
    if (option == 'V') return Print("devdoctor " DEVDOCTOR_VERSION "\n");
    if (!Take(option, options)) return Mistake();
  }
  if (optind < argCount) {
    std::fprintf(stderr, "devdoctor: unexpected argument '%s'\n", args[optind]);
    return Mistake();
  }
  if (options.action == Action::Repair && options.format != Format::Words) {
    std::fputs("devdoctor: --repair goes without --json and --prometheus\n", stderr);
    return Mistake();
  }
  return options;
}

}  // namespace devdoctor
