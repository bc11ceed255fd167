// The command line of devconf.

#include "tools/devconf/Options.h"

#include <cstring>
#include <string_view>

#include "tools/devconf/Json.h"

namespace devconf {

const char kHelp[] =
    "Usage: devconf [OPTIONS] COMMAND\n"
    "Shows and changes the device's configuration store.\n"
    "\n"
    "Settings (tb_parameter):\n"
    "  get NAME              print the value of a setting\n"
    "  set NAME VALUE        store a setting\n"
    "  del NAME              delete a setting\n"
    "Phone book (tb_pb):\n"
    "  pb add NAME DATA      store an entry\n"
    "  pb find DIGITS        print the entries whose name begins with these keypad digits\n"
    "  pb number NUMBER      print the entries with this number\n"
    "Tables:\n"
    "  tables                print the catalogue\n"
    "  list [TABLE [PREFIX]] print the records, of tb_parameter unless told otherwise\n"
    "  find TABLE PREFIX     the same, and say whether there were any\n"
    "  export [TABLE]        write the records of one table, or of all, as JSON lines\n"
    "  import FILE           store the records of such a file; - is standard input\n"
    "  verify                check the indexes and the file; nobody else may use the store\n"
    "  init                  make the database where there is none\n"
    "\n"
    "Options:\n"
    "  --home DIR            folder of the store; /config_fs/DB/ unless given\n"
    "  --file FILE           file in that folder; config.db unless given\n"
    "  --merge               import: keep the records that the file does not have (the default)\n"
    "  --replace             import: delete them, in the tables that the file has\n"
    "  -j, --json            print JSON, one object a line\n"
    "  -h, --help            print this text\n"
    "  -V, --version         print the version\n"
    "  --                    what follows is no option\n"
    "\n"
    "Exit status: 0 done; 1 nothing found; 2 mistaken command line; 3 no database, or it cannot be opened;\n"
    "4 the store refused or failed; 5 mistaken file to import, nothing was changed; 6 verify found damage;\n"
    "7 verify found others at work.\n";

namespace {

struct CommandRow {
  std::string_view name;
  std::string_view second;  // second word of the name, or empty
  Command command;
  int fewest;
  int most;
};

constexpr CommandRow kCommands[] = {
    {"init", "", Command::kInit, 0, 0},
    {"get", "", Command::kGet, 1, 1},
    {"set", "", Command::kSet, 2, 2},
    {"del", "", Command::kDelete, 1, 1},
    {"list", "", Command::kList, 0, 2},
    {"tables", "", Command::kTables, 0, 0},
    {"find", "", Command::kFind, 2, 2},
    {"pb", "add", Command::kPhoneBookAdd, 2, 2},
    {"pb", "find", Command::kPhoneBookFind, 1, 1},
    {"pb", "number", Command::kPhoneBookNumber, 1, 1},
    {"export", "", Command::kExport, 0, 1},
    {"import", "", Command::kImport, 1, 1},
    {"verify", "", Command::kVerify, 0, 0},
};

constexpr int kMostNameWords = 2;

// Reads the words one after the other: options anywhere, everything else in the order it comes.
class Reader {
 public:
  Reader(std::span<const char *const> args, Options &options, Mistake &mistake)
      : args_(args), options_(options), mistake_(mistake) {}

  bool Read() {
    while (next_ < args_.size()) {
      if (!ReadWord(args_[next_++])) return false;
    }
    return stopped_ || Finish();
  }

 private:
  bool Fail(const char *what, const char *word = "") {
    mistake_ = {what, word};
    return false;
  }

  bool ReadWord(const char *word) {
    if (stopped_) return true;
    if (optionsEnded_ || !LooksLikeOption(word)) return TakePlain(word);
    if (std::strcmp(word, "--") == 0) {
      optionsEnded_ = true;
      return true;
    }
    return ReadSwitch(word) || TakeFolder(word, "--home", options_.home) ||
           TakeFolder(word, "--file", options_.file) || (mistake_.what == nullptr && Fail("unknown option", word));
  }

  // A number may have a sign.
  static bool LooksLikeOption(const char *word) {
    return word[0] == '-' && word[1] != '\0' && (word[1] < '0' || word[1] > '9');
  }

  bool ReadSwitch(std::string_view word) {
    if (word == "-h" || word == "--help") return Stop(Command::kHelp);
    if (word == "-V" || word == "--version") return Stop(Command::kVersion);
    if (word == "-j" || word == "--json") return options_.json = true;
    if (word == "--merge") return merge_ = true;
    if (word == "--replace") return options_.replace = true;
    return false;
  }

  bool Stop(Command command) {
    options_.command = command;
    return stopped_ = true;
  }

  // "--home DIR" or "--home=DIR".
  bool TakeFolder(const char *word, std::string_view name, const char *&value) {
    if (!StartsWith(word, name)) return false;
    const char *behind = word + name.size();
    if (*behind != '\0' && *behind != '=') return false;
    if (*behind == '=') {
      value = behind + 1;
    } else if (next_ < args_.size()) {
      value = args_[next_++];
    } else {
      return Fail("nothing behind", word);
    }
    return *value != '\0' || Fail("nothing behind", word);
  }

  bool TakePlain(const char *word) {
    if (plainCount_ == kMostNameWords + Options::kMostWords) return Fail("too many words", word);
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
    if (row == nullptr && std::strcmp(plain_[0], "pb") == 0) return Fail("pb needs add, find or number behind it");
    if (row == nullptr) return Fail("unknown command", plain_[0]);
    const int first = row->second.empty() ? 1 : 2;
    const int count = plainCount_ - first;
    if (count < row->fewest) return Fail("too few words behind", plain_[first - 1]);
    if (count > row->most) return Fail("too many words", plain_[first + row->most]);
    options_.command = row->command;
    for (int i = 0; i < count; ++i) options_.words[i] = plain_[first + i];
    if (merge_ && options_.replace) return Fail("--merge and --replace exclude each other");
    if ((merge_ || options_.replace) && row->command != Command::kImport) {
      return Fail("only import knows", merge_ ? "--merge" : "--replace");
    }
    return true;
  }

  std::span<const char *const> args_;
  Options &options_;
  Mistake &mistake_;
  std::size_t next_ = 1;
  bool optionsEnded_ = false;
  bool stopped_ = false;
  bool merge_ = false;
  const char *plain_[kMostNameWords + Options::kMostWords] = {};
  int plainCount_ = 0;
};

}  // namespace

bool ReadOptions(std::span<const char *const> args, Options &options, Mistake &mistake) {
  return Reader(args, options, mistake).Read();
}

}  // namespace devconf
