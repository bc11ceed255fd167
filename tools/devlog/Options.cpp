// The command line of devlog.

#include "tools/devlog/Options.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "tools/common/Numbers.h"
#include "tools/devlog/Numbers.h"

namespace devlog {

namespace {

constexpr char kHelp[] =
    "Usage: devlog [OPTION...]                          shows the records of the log channel\n"
    "       devlog write [-t TYPE] [--event] TEXT...    writes a record\n"
    "\n"
    "  -f, --follow            go on with new records as they come\n"
    "  -n, --lines N           no more than the last N of the messages that are there\n"
    "  -e, --regex REGEX       messages that match this extended regular expression\n"
    "  -t, --type TYPE,...     messages of these types, 0 to 15\n"
    "      --ring RING         log, event or both; both unless given\n"
    "      --since HH:MM[:SS]  messages of this time of day and later\n"
    "      --until HH:MM[:SS]  messages of this time of day and earlier\n"
    "      --json              one JSON object a line\n"
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
    "Exit status: 0 done; 1 no ring; 2 mistaken command line; 3 a ring was removed while it was\n"
    "followed; 4 output not written; 5 a ring cannot be used.\n";

enum LongOnly : int { kRing = 0x100, kSince, kUntil, kJson, kSyslog, kConsume, kStats, kEvent };

constexpr option kViewOptions[] = {
    {"follow", no_argument, nullptr, 'f'},         {"lines", required_argument, nullptr, 'n'},
    {"regex", required_argument, nullptr, 'e'},    {"type", required_argument, nullptr, 't'},
    {"ring", required_argument, nullptr, kRing},   {"since", required_argument, nullptr, kSince},
    {"until", required_argument, nullptr, kUntil}, {"json", no_argument, nullptr, kJson},
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

bool Refuse(const char *argument, const char *why) {
  Say("\"%s\" %s", argument, why);
  return false;
}

bool ReadRing(const char *text, Options &options) {
  options.log = std::strcmp(text, "log") == 0 || std::strcmp(text, "both") == 0;
  options.event = std::strcmp(text, "event") == 0 || std::strcmp(text, "both") == 0;
  return options.log || options.event || Refuse(text, "is none of the rings: log, event or both");
}

bool ReadTime(const char *text, DayTime lastMs, DayTime &time) {
  if (!ToDayTime(text, time)) return Refuse(text, "is no time of day: HH:MM or HH:MM:SS");
  time += lastMs;
  return true;
}

bool ReadLines(const char *text, Options &options) {
  options.isLimited = true;
  return tools::ParseNumber(text, UINT32_MAX, options.lines) || Refuse(text, "is no number of lines");
}

/// One option of the viewer; false when its argument is refused.
bool TakeViewOption(int option, Options &options) {
  constexpr DayTime kRestOfSecond = 999;
  switch (option) {
    case 'f':
      return options.follow = true;
    case 'n':
      return ReadLines(optarg, options);
    case 'e':
      options.wanted.pattern = optarg;
      return true;
    case 't':
      return ToTypes(optarg, options.wanted.types) || Refuse(optarg, "is no list of types from 0 to 15");
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
  const bool isFiltered = wanted.types != 0xFFFF || wanted.pattern != nullptr || wanted.since != kUnknownTime ||
                          wanted.until != kUnknownTime || options.isLimited;
  if (options.action == Action::Stats && (isFiltered || options.follow || options.consume || options.syslog)) {
    Say("--stats goes with --ring and --json only");
    return false;
  }
  if (options.syslog && options.json) {
    Say("--syslog and --json exclude each other");
    return false;
  }
  return true;
}

Options ReadViewOptions(int argCount, char **args) {
  Options options;
  for (int option = 0; (option = ::getopt_long(argCount, args, "fn:e:t:hV", kViewOptions, nullptr)) != -1;) {
    if (option == 'h') return Print(kHelp);
    if (option == 'V') return PrintVersion();
    if (!TakeViewOption(option, options)) return Mistake();
  }
  if (optind < argCount) {
    Say("\"%s\" is no option", args[optind]);
    return Mistake();
  }
  return IsConsistent(options) ? options : Mistake();
}

bool ReadType(const char *text, int &type) {
  std::uint32_t number = 0;
  if (!tools::ParseNumber(text, LOGCELL_MAX(TYPE), number)) return Refuse(text, "is no type from 0 to 15");
  type = static_cast<int>(number);
  return true;
}

/// The options of `devlog write` stand before its text: what follows may begin with a dash.
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
  optind = 0;  // begins anew, should a command line have been read before
  if (argCount < 2 || std::strcmp(args[1], "write") != 0) return ReadViewOptions(argCount, args);
  args[1] = args[0];  // the name in getopt's messages
  return ReadWriteOptions(argCount - 1, args + 1);
}

}  // namespace devlog
