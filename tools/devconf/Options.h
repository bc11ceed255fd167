// SPDX-License-Identifier: MIT
// The command line of devconf. Reads it without printing or changing anything.
#pragma once

#include <cstdint>
#include <span>

namespace devconf {

enum class Command : std::uint8_t {
  Help,
  Version,
  Init,
  Get,
  Set,
  Delete,
  List,
  Tables,
  Find,
  PhoneBookSet,
  PhoneBookDelete,
  PhoneBookFind,
  PhoneBookNumber,
  Export,
  Import,
  Diff,
  Batch,
  Watch,
  Verify,
  Salvage
};

/// How bytes are written on the command line and on the output.
enum class Writing : std::uint8_t {
  ByOutput,  ///< escaped on a terminal, as they are anywhere else
  Raw,
  Escaped
};

struct Options {
  static constexpr int kMostWords = 2;

  Command command = Command::Help;
  const char *home = "/config_fs/DB/";
  const char *file = "config.db";  ///< in the home
  const char *offline = nullptr;   ///< a copied file to read instead
  const char *table = nullptr;     ///< of get, set and del
  const char *from = nullptr;      ///< where the value of set is; "-" is standard input
  Writing writing = Writing::ByOutput;
  bool json = false;
  bool replace = false;  ///< import, diff
  /// What follows the command. A word that was left out is nullptr.
  const char *words[kMostWords] = {};
};

/// What is wrong with a command line: a text, and the word it is about or "".
struct Mistake {
  const char *what = nullptr;
  const char *word = "";
};

/// Reads the command line; args[0] is passed over. Returns true, or false with the mistake.
bool ReadOptions(std::span<const char *const> args, Options &options, Mistake &mistake);

/// What --help prints.
extern const char kHelp[];

}  // namespace devconf
