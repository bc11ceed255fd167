// SPDX-License-Identifier: MIT
// Information from the kernel about other processes. They can end at any time.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace devdoctor {

struct Process {
  pid_t pid = 0;
  char name[32] = "";
  char state = '\0';  ///< as in /proc: R, S, T stopped, Z ended, ...; NUL: there is no such process

  bool IsAlive() const { return state != '\0' && state != 'Z' && state != 'X'; }
  bool IsStopped() const { return state == 'T' || state == 't'; }
};

Process Look(pid_t pid);

/// "sipd (123)", or "process 123, which is dead".
struct Described {
  explicit Described(pid_t pid);
  char text[64];
};

/// The names and numbers of the processes that have a segment attached, with commas between them; "nobody" without
/// any. Processes without read permission are left out.
struct Attached {
  enum class Who { All, Writers };
  explicit Attached(int shmId, Who who = Who::All);
  char text[512];
  std::size_t count = 0;
};

}  // namespace devdoctor
