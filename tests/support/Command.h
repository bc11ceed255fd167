// SPDX-License-Identifier: MIT
// Runs a real program and captures both outputs and the exit status.
//
//   EXPECT_EQ(Command({CPLD_PATH, "0", "1", "23"}).Run(), (CommandResult{1, "", "No such device\n"}));
#pragma once

#include <sys/types.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace devsupport::test {

struct CommandResult {
  int status = -1;  ///< the exit status, or 1000 + the signal that ended the program
  std::string out;
  std::string err;
  bool operator==(const CommandResult &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const CommandResult &result);

/// One program with its arguments. It is found through PATH unless the name has a slash. By default standard input is
/// empty, and environment and descriptors are those of the test.
class Command {
 public:
  explicit Command(std::vector<std::string> words);

  Command &Environment(const std::string &name, const std::string &value);
  /// Standard input comes from the file.
  Command &InputFrom(const std::string &path);
  /// Standard output goes to the file instead; CommandResult::out stays empty.
  Command &OutputTo(const std::string &path);
  /// Starts the program without a standard output.
  Command &CloseOutput();

  /// Runs the program and waits for its end. Throws std::runtime_error when it cannot be started.
  CommandResult Run() const;

 private:
  std::vector<std::string> words_;
  std::vector<std::string> environment_;
  std::string inputPath_ = "/dev/null";
  std::optional<std::string> outputPath_;
  bool closeOutput_ = false;
};

/// The text cut at its newlines; a last line needs none.
std::vector<std::string> Lines(std::string_view text);

}  // namespace devsupport::test
