// SPDX-License-Identifier: MIT
// The command line of devconf.

#include "tools/devconf/Options.h"

#include <getopt.h>

#include <cstring>
#include <string_view>

namespace devconf {

namespace {

// Options that only some commands know, as bits.
enum Known : unsigned {
  kTable = 1,
  kFrom = 2,
  kRaw = 4,
  kEscape = 8,
  kMerge = 16,
  kReplace = 32,
  kOffline = 64,
  kImportMode = kMerge | kReplace
};

// The complaint when another command has the option.
constexpr struct {
  Known bit;
  Mistake mistake;
} kRestricted[] = {
    {kTable, {"only get, set and del know", "--table"}},
    {kFrom, {"only set knows", "--from"}},
    {kRaw, {"only get knows", "--raw"}},
    {kEscape, {"only get, set and del know", "--escape"}},
    {kMerge, {"only import and diff know", "--merge"}},
    {kReplace, {"only import and diff know", "--replace"}},
    {kOffline, {"only commands that read know", "--offline"}},
};

struct CommandRow {
  std::string_view name;
  std::string_view second;  // second word of the name, or empty
  Command command;
  int fewest;
  int most;
  unsigned known = 0;
};

constexpr CommandRow kCommands[] = {
    {"init", "", Command::Init, 0, 0},
    {"get", "", Command::Get, 1, 1, kTable | kRaw | kEscape | kOffline},
    {"set", "", Command::Set, 1, 2, kTable | kFrom | kEscape},
    {"del", "", Command::Delete, 1, 1, kTable | kEscape},
    {"list", "", Command::List, 0, 2, kOffline},
    {"tables", "", Command::Tables, 0, 0, kOffline},
    {"find", "", Command::Find, 2, 2, kOffline},
    {"pb", "add", Command::PhoneBookSet, 1, 2, kFrom | kEscape},
    {"pb", "set", Command::PhoneBookSet, 1, 2, kFrom | kEscape},
    {"pb", "del", Command::PhoneBookDelete, 1, 1, kEscape},
    {"pb", "find", Command::PhoneBookFind, 1, 1, kOffline},
    {"pb", "number", Command::PhoneBookNumber, 1, 1, kOffline},
    {"export", "", Command::Export, 0, 1, kOffline},
    {"import", "", Command::Import, 1, 1, kImportMode},
    {"diff", "", Command::Diff, 1, 1, kImportMode | kOffline},
    {"batch", "", Command::Batch, 0, 1},
    {"watch", "", Command::Watch, 0, 2},
    {"verify", "", Command::Verify, 0, 0, kOffline},
    {"salvage", "", Command::Salvage, 0, 0, kOffline},
};

enum Long : int {
  kHomeOption = 1000,
  kFileOption,
  kOfflineOption,
  kFromOption,
  kMergeOption,
  kReplaceOption,
  kRawOption,
  kEscapeOption
};

constexpr option kLongOptions[] = {
    {"home", required_argument, nullptr, kHomeOption},
    {"file", required_argument, nullptr, kFileOption},
    {"offline", required_argument, nullptr, kOfflineOption},
    {"table", required_argument, nullptr, 't'},
    {"from", required_argument, nullptr, kFromOption},
    {"merge", no_argument, nullptr, kMergeOption},
    {"replace", no_argument, nullptr, kReplaceOption},
    {"raw", no_argument, nullptr, kRawOption},
    {"escape", no_argument, nullptr, kEscapeOption},
    {"json", no_argument, nullptr, 'j'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

// "-": other words are returned in their order, as 1. ":": a missing argument is distinguished from an unknown
// option.
constexpr char kShortOptions[] = "-:t:jhV";

constexpr int kPlainWord = 1;
constexpr int kMostNameWords = 2;

// A number may have a sign, and a certificate begins with a row of dashes.
bool IsNoOption(const char *word) {
  return (word[0] == '-' && word[1] >= '0' && word[1] <= '9') || std::strncmp(word, "---", 3) == 0;
}

class Reader {
 public:
  Reader(std::span<const char *const> args, Options &options, Mistake &mistake)
      : args_(args), options_(options), mistake_(mistake) {}

  bool Read() {
    optind = 0;  // starts again
    opterr = 0;
    int at = 1;
    while (at < Count()) {
      // Without this, getopt would take such a word for options.
      if (optind != 0 && IsNoOption(args_[static_cast<std::size_t>(at)])) {
        if (!TakePlain(args_[static_cast<std::size_t>(at)])) return false;
        optind = ++at;
        continue;
      }
      const int found = ::getopt_long(Count(), Arguments(), kShortOptions, kLongOptions, nullptr);
      if (found == -1) break;
      if (!Take(found, args_[static_cast<std::size_t>(at)])) return false;
      if (stopped_) return true;
      at = optind;
    }
    for (at = optind > 0 ? optind : 1; at < Count(); ++at) {
      if (!TakePlain(args_[static_cast<std::size_t>(at)])) return false;
    }
    return Finish();
  }

 private:
  int Count() const { return static_cast<int>(args_.size()); }

  // getopt's declaration allows it to move the words; the "-" in the short options prevents that.
  char *const *Arguments() const {
    return const_cast<char *const *>(args_.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  }

  bool Fail(const char *what, const char *word = "") {
    mistake_ = {what, word};
    return false;
  }

  bool Take(int found, const char *word) {
    switch (found) {
      case kPlainWord:
        return TakePlain(optarg);
      case 'h':
        return Stop(Command::Help);
      case 'V':
        return Stop(Command::Version);
      case 'j':
        return options_.json = true;
      case 't':
        return Use(kTable) && TakeText(options_.table, word);
      case kHomeOption:
        return TakeText(options_.home, word);
      case kFileOption:
        return TakeText(options_.file, word);
      case kOfflineOption:
        return Use(kOffline) && TakeText(options_.offline, word);
      case kFromOption:
        return Use(kFrom) && TakeText(options_.from, word);
      case kMergeOption:
        return Use(kMerge);
      case kReplaceOption:
        return Use(kReplace) && (options_.replace = true);
      case kRawOption:
        return Use(kRaw) && TakeWriting(Writing::Raw);
      case kEscapeOption:
        return Use(kEscape) && TakeWriting(Writing::Escaped);
      case ':':
        return Fail("missing argument after", word);
      default:
        return Fail("unknown option", word);
    }
  }

  bool Stop(Command command) {
    options_.command = command;
    return stopped_ = true;
  }

  bool TakeText(const char *&value, const char *word) {
    value = optarg;
    return *value != '\0' || Fail("missing argument after", word);
  }

  // Notes that an option was given that not every command knows.
  bool Use(Known bit) {
    used_ |= bit;
    return true;
  }

  bool TakeWriting(Writing writing) {
    if (options_.writing != Writing::ByOutput && options_.writing != writing) {
      return Fail("--raw and --escape exclude each other");
    }
    options_.writing = writing;
    return true;
  }

  bool TakePlain(const char *word) {
    if (plainCount_ == kMostNameWords + Options::kMostWords) return Fail("unexpected argument:", word);
    plain_[plainCount_++] = word;
    return true;
  }

  const CommandRow *FindCommand() const {
    const std::string_view second = plainCount_ > 1 ? plain_[1] : "";
    for (const CommandRow &row : kCommands) {
      if (row.name == plain_[0] && (row.second.empty() || row.second == second)) return &row;
    }
    return nullptr;
  }

  bool Finish() {
    if (plainCount_ == 0) return Fail("no command");
    const CommandRow *row = FindCommand();
    if (row == nullptr && std::strcmp(plain_[0], "pb") == 0) {
      return Fail("pb needs one of the words set, del, find and number");
    }
    if (row == nullptr) return Fail("unknown command", plain_[0]);
    const int first = row->second.empty() ? 1 : 2;
    const int count = plainCount_ - first;
    if (count < FewestWords(*row)) return Fail("missing argument after", plain_[first - 1]);
    if (count > row->most) return Fail("unexpected argument:", plain_[first + row->most]);
    options_.command = row->command;
    for (int i = 0; i < count; ++i) options_.words[i] = plain_[first + i];
    return CheckOptions(*row);
  }

  // A value is a word, unless it comes from a file.
  int FewestWords(const CommandRow &row) const {
    return (row.known & kFrom) != 0 && options_.from == nullptr ? row.most : row.fewest;
  }

  bool CheckOptions(const CommandRow &row) {
    for (const auto &[bit, mistake] : kRestricted) {
      if ((used_ & ~row.known & bit) != 0) return Fail(mistake.what, mistake.word);
    }
    if ((used_ & kMerge) != 0 && options_.replace) return Fail("--merge and --replace exclude each other");
    if (options_.from != nullptr && options_.words[1] != nullptr)
      return Fail("--from and a value exclude each other");
    return true;
  }

  std::span<const char *const> args_;
  Options &options_;
  Mistake &mistake_;
  bool stopped_ = false;
  unsigned used_ = 0;
  const char *plain_[kMostNameWords + Options::kMostWords] = {};
  int plainCount_ = 0;
};

}  // namespace

bool ReadOptions(std::span<const char *const> args, Options &options, Mistake &mistake) {
  return Reader(args, options, mistake).Read();
}

}  // namespace devconf
