// SPDX-License-Identifier: MIT
// The command line of devlog.

#include "tools/devlog/Options.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "tools/common/Numbers.h"
#include "tools/common/Text.h"
#include "tools/devlog/Numbers.h"

namespace devlog {

namespace {

constexpr char kHelp[] =
    "Usage: devlog [OPTION...]                          shows the records of the log channel\n"
    "       devlog write [-t TYPE] [--event] TEXT...    writes a record\n"
    "       devlog write [-t TYPE] [--event] -          writes a record for each line of standard input\n"
    "\n"
    "  -f, --follow            go on with new records as they come, and wait for rings\n"
    "  -n, --lines N           no more than the last N of the messages that are there\n"
    "  -e, --regex REGEX       messages that match this extended regular expression; of several, any\n"
    "  -i, --ignore-case       -e does not tell capital letters from small ones\n"
    "  -v, --invert-match      messages that match no -e\n"
    "  -t, --type TYPE,...     messages of these types: 0 to 15, ranges as 3-5, or names\n"
    "  -p, --process NAME,...  messages of these processes\n"
    "      --names FILE        names of types and processes; /etc/devlog.names unless given\n"
    "      --ring RING         log, event or both; both unless given\n"
    "      --since HH:MM[:SS]  messages of this time of day and later\n"
    "      --until HH:MM[:SS]  messages of this time of day and earlier\n"
    "      --cursor FILE       go on where the last run with this file stopped\n"
    "      --json              one JSON object a line\n"
    "      --color WHEN        auto, always or never; auto unless given: on a terminal\n"
    "      --syslog            hand the messages on to syslog instead of showing them\n"
    "      --consume           take the records away from the rings; without it they stay\n"
    "      --stats             how full the rings are, what was lost, how many processes use them\n"
    "  -h, --help              this text\n"
    "  -V, --version           the version\n"
    "\n"
    "Records have a time of day and no date: --since and --until compare the time of day alone,\n"
    "and with a --since later than --until the time in between goes over midnight.\n"
    "\n"
    "Example: devlog -f -t 3,5 -e 'line [0-9]+'\n"
    "Exit status: 0 done; 1 no ring; 2 mistaken command line; 4 output not written, nothing\n"
    "taken from the rings; 5 a ring cannot be used.\n";

enum LongOnly : int {
  kRing = 0x100,
  kSince,
  kUntil,
  kJson,
  kSyslog,
  kConsume,
  kStats,
  kEvent,
  kNames,
  kCursor,
  kColor
};

constexpr char kViewLetters[] = "fn:e:ivt:p:hV";
constexpr option kViewOptions[] = {
    {"follow", no_argument, nullptr, 'f'},         {"lines", required_argument, nullptr, 'n'},
    {"regex", required_argument, nullptr, 'e'},    {"ignore-case", no_argument, nullptr, 'i'},
    {"invert-match", no_argument, nullptr, 'v'},   {"type", required_argument, nullptr, 't'},
    {"process", required_argument, nullptr, 'p'},  {"names", required_argument, nullptr, kNames},
    {"ring", required_argument, nullptr, kRing},   {"since", required_argument, nullptr, kSince},
    {"until", required_argument, nullptr, kUntil}, {"cursor", required_argument, nullptr, kCursor},
    {"json", no_argument, nullptr, kJson},         {"color", required_argument, nullptr, kColor},
    {"syslog", no_argument, nullptr, kSyslog},     {"consume", no_argument, nullptr, kConsume},
    {"stats", no_argument, nullptr, kStats},       {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},        {nullptr, 0, nullptr, 0},
};

constexpr option kWriteOptions[] = {
    {"type", required_argument, nullptr, 't'},
    {"event", no_argument, nullptr, kEvent},
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
  return Stop(std::fflush(stdout) == 0 ? kShown : kOutput);
}

Options PrintVersion() { return Print("devlog " DEVLOG_VERSION "\n"); }

Options Mistake() {
  std::fputs("devlog --help lists the options.\n", stderr);
  return Stop(kUsage);
}

bool Refuse(const char *what, const char *argument) {
  Say("%s '%s'", what, argument);
  return false;
}

bool ReadRing(const char *text, Options &options) {
  options.log = std::strcmp(text, "log") == 0 || std::strcmp(text, "both") == 0;
  options.event = std::strcmp(text, "event") == 0 || std::strcmp(text, "both") == 0;
  return options.log || options.event || Refuse("unknown ring", text);
}

bool ReadTime(const char *text, DayTime lastMs, DayTime &time) {
  if (!ToDayTime(text, time)) return Refuse("invalid time", text);
  time += lastMs;
  return true;
}

bool ReadLines(const char *text, Options &options) {
  options.isLimited = true;
  return tools::ParseNumber(text, UINT32_MAX, options.lines) || Refuse("invalid number of lines", text);
}

bool AddPattern(const char *pattern, Wanted &wanted) {
  if (wanted.patternCount == Wanted::kMaxPatterns) return Refuse("too many regular expressions, from", pattern);
  wanted.patterns[wanted.patternCount++] = pattern;
  return true;
}

bool ReadColours(const char *text, Colours &colours) {
  const std::string_view when = text;
  colours = when == "always" ? Colours::Always : when == "never" ? Colours::Never : Colours::Auto;
  return colours != Colours::Auto || when == "auto" || Refuse("invalid argument of '--color'", text);
}

/// Options that depend on others, and are read last.
struct Later {
  const char *names = nullptr;
  const char *types = nullptr;
  const char *processes = nullptr;
};

bool ReadProcesses(const char *text, Options &options) {
  std::string_view rest = text;
  do {
    const std::string_view name = tools::TakePart(rest, ',');
    if (!Names::IsName(name) || !options.names.AddProcess(name)) return Refuse("invalid processes", text);
  } while (rest.data() != nullptr);
  options.wanted.processes = text;
  return true;
}

/// Reads the names first: types can be given by name.
bool ReadLater(const Later &later, Options &options) {
  if (!options.names.Load(later.names != nullptr ? later.names : Names::kUsualPath, later.names == nullptr)) {
    return false;
  }
  if (later.processes != nullptr && !ReadProcesses(later.processes, options)) return false;
  return later.types == nullptr || ToTypes(later.types, options.names, options.wanted.types) ||
         Refuse("invalid types", later.types);
}

/// One option of the viewer; false when its argument is wrong.
bool TakeViewOption(int option, Options &options, Later &later) {
  constexpr DayTime kRestOfSecond = 999;
  switch (option) {
    case 'f':
      return options.follow = true;
    case 'n':
      return ReadLines(optarg, options);
    case 'e':
      return AddPattern(optarg, options.wanted);
    case 'i':
      return options.wanted.ignoreCase = true;
    case 'v':
      return options.wanted.invert = true;
    case 't':
      later.types = optarg;
      return true;
    case 'p':
      later.processes = optarg;
      return true;
    case kNames:
      later.names = optarg;
      return true;
    case kCursor:
      options.cursor = optarg;
      return true;
    case kColor:
      return ReadColours(optarg, options.colours);
    case kRing:
      return ReadRing(optarg, options);
    case kSince:
      return ReadTime(optarg, 0, options.wanted.since);
    case kUntil:
      return ReadTime(optarg, kRestOfSecond, options.wanted.until);
    case kJson:
      return options.json = true;
    case kSyslog:
      return options.syslog = true;
    case kConsume:
      return options.consume = true;
    case kStats:
      options.action = Action::Stats;
      return true;
    default:
      return false;
  }
}

bool IsConsistent(const Options &options) {
  const Wanted &wanted = options.wanted;
  const bool isFiltered = wanted.types != 0xFFFF || wanted.patternCount != 0 || wanted.processes != nullptr ||
                          wanted.since != kUnknownTime || wanted.until != kUnknownTime || options.isLimited;
  const bool isHandled = options.follow || options.consume || options.syslog || options.cursor != nullptr;
  if (options.action == Action::Stats && (isFiltered || isHandled)) {
    Say("--stats goes with --ring and --json only");
    return false;
  }
  if (wanted.patternCount == 0 && (wanted.ignoreCase || wanted.invert)) {
    Say("option '%s' needs an option '-e'", wanted.invert ? "-v" : "-i");
    return false;
  }
  return true;
}

Options ReadViewOptions(int argCount, char **args) {
  Options options;
  Later later;
  for (int option = 0; (option = ::getopt_long(argCount, args, kViewLetters, kViewOptions, nullptr)) != -1;) {
    if (option == 'h') return Print(kHelp);
    if (option == 'V') return PrintVersion();
    if (!TakeViewOption(option, options, later)) return Mistake();
  }
  if (optind < argCount) {
    Refuse("unexpected argument", args[optind]);
    return Mistake();
  }
  return ReadLater(later, options) && IsConsistent(options) ? options : Mistake();
}

bool ReadType(const char *text, int &type) {
  std::uint32_t number = 0;
  if (!tools::ParseNumber(text, LOGCELL_MAX(TYPE), number)) return Refuse("invalid type", text);
  type = static_cast<int>(number);
  return true;
}

/// The options of `devlog write` come before its text: its words may begin with a dash.
Options ReadWriteOptions(int argCount, char **args) {
  Options options;
  options.action = Action::Write;
  options.event = false;
  for (int option = 0; (option = ::getopt_long(argCount, args, "+t:hV", kWriteOptions, nullptr)) != -1;) {
    if (option == 'h') return Print(kHelp);
    if (option == 'V') return PrintVersion();
    if (option == kEvent) {
      options.event = true;
    } else if (option != 't' || !ReadType(optarg, options.type)) {
      return Mistake();
    }
  }
  options.log = !options.event;
  options.words = args + optind;
  return options;
}

}  // namespace

Options ReadOptions(int argCount, char **args) {
  optind = 0;  // starts again, if a command line was read before
  if (argCount < 2 || std::strcmp(args[1], "write") != 0) return ReadViewOptions(argCount, args);
  args[1] = args[0];  // the name in getopt's messages
  return ReadWriteOptions(argCount - 1, args + 1);
}

}  // namespace devlog
