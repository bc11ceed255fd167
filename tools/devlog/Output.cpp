// Where the lines go: standard output or syslog.

#include "tools/devlog/Output.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/devlog/Exit.h"

namespace devlog {

Output::Output(bool toSyslog) : toSyslog_(toSyslog) {
  ::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is an exit status of ours
  if (toSyslog_) ::openlog("devlog", 0, LOG_USER);
}

Output::~Output() {
  if (toSyslog_) ::closelog();
}

bool Output::IsTerminal() const { return !toSyslog_ && ::isatty(STDOUT_FILENO) == 1; }

void Output::Write(std::string_view line, int priority) {
  if (toSyslog_) {
    ::syslog(priority, "%.*s", static_cast<int>(line.size()), line.data());
    return;
  }
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::putchar('\n');
}

bool Output::Flush() {
  if (toSyslog_) return true;
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  if (errno != EPIPE)
    Say("the output cannot be written%s%s", errno != 0 ? ": " : "", errno != 0 ? std::strerror(errno) : "");
  return false;
}

bool Output::Wait(int ms) const {
  pollfd reader{STDOUT_FILENO, 0, 0};  // no events asked for: only an error or a hang-up ends the wait
  return ::poll(&reader, toSyslog_ ? 0 : 1, ms) <= 0;
}

}  // namespace devlog
