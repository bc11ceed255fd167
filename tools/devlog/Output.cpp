// SPDX-License-Identifier: MIT
// Where the lines go: standard output or the system log.

#include "tools/devlog/Output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "tools/common/Signals.h"
#include "tools/devlog/Exit.h"

namespace devlog {

namespace {

constexpr int kRetryMs = 250;
constexpr int kMaxReadMs = 16;

}  // namespace

Output::Output(Target target, bool isWaiting) : target_(target), isWaiting_(isWaiting) {
  ::signal(SIGPIPE, SIG_IGN);  // a closed pipe gives an exit status instead
}

bool Output::IsTerminal() const { return target_ == Target::StandardOutput && ::isatty(STDOUT_FILENO) == 1; }

bool Output::Write(std::string_view line, int priority) {
  if (target_ == Target::SystemLog) return WriteToSystemLog(line, priority);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::putchar('\n');
  return true;
}

bool Output::WriteToSystemLog(std::string_view line, int priority) {
  bool hasSaid = false;
  while (!systemLog_.Send(priority, line)) {
    if (!hasSaid) {
      Say("the system log takes no message: %s%s", std::strerror(errno), isWaiting_ ? "; waiting" : "");
    }
    hasSaid = true;
    if (!isWaiting_ || tools::IsAnyPending(kEndingSignals)) return false;
    ::poll(nullptr, 0, kRetryMs);
  }
  if (hasSaid) Say("the system log takes messages again");
  return true;
}

void Output::AwaitRead() {
  if (!isWaiting_) return;
  for (int ms = 1; systemLog_.HasUnread() && !tools::IsAnyPending(kEndingSignals);
       ms = std::min(2 * ms, kMaxReadMs)) {
    ::poll(nullptr, 0, ms);
  }
  systemLog_.CheckPeer();  // checked last: a socket that is closed loses its messages
}

bool Output::Flush() {
  if (target_ == Target::SystemLog) return true;
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  if (errno != EPIPE)
    Say("the output cannot be written%s%s", errno != 0 ? ": " : "", errno != 0 ? std::strerror(errno) : "");
  return false;
}

bool Output::Wait(int ms) const {
  pollfd reader{STDOUT_FILENO, 0, 0};  // no events asked for: only an error or a hang-up ends the wait
  return ::poll(&reader, target_ == Target::SystemLog ? 0 : 1, ms) <= 0;
}

}  // namespace devlog
