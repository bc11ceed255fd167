// SPDX-License-Identifier: MIT
// Runs cpld with random command lines and checks what each run prints and its exit status. It is a separate program,
// so that all runs use the same simulated driver.
//
// usage: random_runs CPLD RUNS SEED

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tests/cpld/RandomWords.h"

namespace {

struct Run {
  std::string output;  ///< of both streams
  int status = 0;      ///< as waitpid() gives it
};

std::string ReadToEnd(int fd) {
  std::string text;
  char buffer[1024];
  for (ssize_t got = 0; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(got));
  return text;
}

Run RunOnce(const char *program, std::vector<std::string> words) {
  std::vector<char *> args{const_cast<char *>("cpld")};
  for (std::string &word : words) args.push_back(word.data());
  args.push_back(nullptr);

  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  ::posix_spawn_file_actions_addclose(&actions, ends[0]);
  ::posix_spawn_file_actions_addclose(&actions, ends[1]);
  pid_t pid = -1;
  if (::posix_spawn(&pid, program, &actions, nullptr, args.data(), environ) != 0) std::abort();
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);

  Run run;
  run.output = ReadToEnd(ends[0]);
  ::close(ends[0]);
  ::waitpid(pid, &run.status, 0);
  return run;
}

bool IsAnswer(const std::string &output) {
  int channel = 0;
  int number = 0;
  unsigned data = 0;
  unsigned value = 0;
  if (std::sscanf(output.c_str(), "ch=%d, reg%d, data=0x%x value=0x%x", &channel, &number, &data, &value) != 4)
    return false;
  char again[128];
  std::snprintf(again, sizeof again, "ch=%i, reg%i, data=0x%x value=0x%x\n", channel, number, data, value);
  return output == again;
}

bool IsUsage(std::string_view output) {
  return output.starts_with("usage: cpld ") && output.ends_with("(1:debug on, 0:debug off)\n");
}

bool IsGood(const Run &run) {
  if (!WIFEXITED(run.status)) return false;
  if (WEXITSTATUS(run.status) == 1) return run.output.empty();
  if (WEXITSTATUS(run.status) != 0) return false;
  return IsUsage(run.output) || run.output == "debug on\n" || run.output == "debug off\n" || IsAnswer(run.output);
}

void Report(const std::vector<std::string> &words, const Run &run) {
  std::fprintf(stderr, "cpld");
  for (const std::string &word : words) std::fprintf(stderr, " '%s'", word.c_str());
  std::fprintf(stderr, "\nended with wait status 0x%x and printed:\n%s\n", static_cast<unsigned>(run.status),
               run.output.c_str());
}

}  // namespace

int main(int argCount, char *args[]) {
  if (argCount != 4) return EXIT_FAILURE;
  const int runs = std::atoi(args[2]);
  cpld_test::RandomWords random(std::strtoull(args[3], nullptr, 10));
  for (int count = 0; count < runs; ++count) {
    const std::vector<std::string> words = random.Line();
    const Run run = RunOnce(args[1], words);
    if (IsGood(run)) continue;
    Report(words, run);
    return EXIT_FAILURE;
  }
  std::printf("%d runs\n", runs);
  return EXIT_SUCCESS;
}
