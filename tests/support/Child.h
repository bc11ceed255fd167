// SPDX-License-Identifier: MIT
// Real second processes for the tests: forked children that run one function, and private namespaces.
#pragma once

#include <sys/types.h>

#include <functional>

namespace devsupport::test {

/// One forked process that runs a function and exits with the function's result.
/// A child that is still running when its object goes is killed and reaped.
class Child {
 public:
  explicit Child(const std::function<int()> &body);
  ~Child();
  Child(Child &&other) noexcept;
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  Child &operator=(Child &&) = delete;

  pid_t Pid() const { return pid_; }
  void Signal(int signal) const;

  /// Waits for the end. Returns the exit status, or 1000 + the signal that ended the child.
  int Wait();

 private:
  int Reap();

  pid_t pid_;
};

/// A wait on an event between processes: one side announces, the other waits for it.
/// Create it before the processes part.
class Event {
 public:
  Event();
  ~Event();
  Event(const Event &) = delete;
  Event &operator=(const Event &) = delete;

  /// Lets one Wait() pass. Safe in a signal handler.
  void Announce() const;
  /// Blocks until an Announce() is there and uses it up; goes on when a signal interrupts.
  void Wait() const;
  /// Uses up an Announce() that is there already; false when there is none.
  bool TryWait() const;

 private:
  int fd_;
};

/// Runs a function in a child that has System V IPC all of its own, and returns the child's exit status.
/// Needs the right to make namespaces (root, or unprivileged user namespaces).
int RunInPrivateIpc(const std::function<int()> &body);

/// True when the machine lets us make private namespaces; where not, say so and skip.
bool CanMakeNamespaces();

}  // namespace devsupport::test
