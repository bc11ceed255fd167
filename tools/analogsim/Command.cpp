// SPDX-License-Identifier: MIT
// Runs the user's command to its end, with its signals where they belong.

#include "tools/analogsim/Command.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace analogsim {

namespace {

// SIGPIPE is blocked too, so that the simulation continues when the reader of the trace ends.
constexpr int kHeld[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE};

std::vector<char *> Pointers(const std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string &text : texts) pointers.push_back(const_cast<char *>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

/// The command starts with the signals as we found them.
class SpawnAttributes {
 public:
  explicit SpawnAttributes(const CommandSignals &signals) {
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setsigmask(&attributes_, &signals.Before());
    ::posix_spawnattr_setsigdefault(&attributes_, &signals.Defaults());
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes &) = delete;
  SpawnAttributes &operator=(const SpawnAttributes &) = delete;

  const posix_spawnattr_t *Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

/// A terminal sends its signals to the command and to us. A signal that was sent only to us is passed on.
void HandOn(const siginfo_t &info, pid_t command) {
  const bool isOurBusiness = info.si_signo == SIGCHLD || info.si_signo == SIGPIPE;
  if (!isOurBusiness && info.si_code <= 0) ::kill(command, info.si_signo);
}

int WaitForEnd(pid_t command, const sigset_t &held) {
  int status = 0;
  while (::waitpid(command, &status, WNOHANG) == 0) {
    siginfo_t info;
    if (::sigwaitinfo(&held, &info) > 0) HandOn(info, command);
  }
  return WIFSIGNALED(status) ? status::kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

CommandSignals::CommandSignals() : held_(kHeld) {
  struct sigaction pipe {};
  ::sigaction(SIGPIPE, nullptr, &pipe);
  ::sigemptyset(&defaults_);
  if (pipe.sa_handler == SIG_DFL) ::sigaddset(&defaults_, SIGPIPE);
  ::signal(SIGCHLD, SIG_DFL);  // if our caller ignores it, the command's status is lost
}

int RunCommand(const std::vector<std::string> &words, const std::vector<std::string> &environment,
               const CommandSignals &signals) {
  const SpawnAttributes attributes(signals);
  pid_t command = -1;
  const int error = ::posix_spawnp(&command, words.front().c_str(), nullptr, attributes.Get(), Pointers(words).data(),
                                   Pointers(environment).data());
  if (error != 0) {
    std::fprintf(stderr, "analogsim: cannot run %s: %s\n", words.front().c_str(), std::strerror(error));
    return error == ENOENT ? status::kNotFound : status::kNotRunnable;
  }
  return WaitForEnd(command, signals.Held());
}

}  // namespace analogsim
