// SPDX-License-Identifier: MIT
// Real second processes for the tests: forked children that run one function, and private namespaces.
#pragma once

#include <sys/types.h>

#include <functional>

namespace devsupport::test {

/// One forked process that runs a function and exits with the function's result.
/// When the object is destroyed, a child that still runs is killed and reaped.
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
/// Create it before the fork.
class Event {
 public:
  Event();
  ~Event();
  Event(const Event &) = delete;
  Event &operator=(const Event &) = delete;

  /// Ends one Wait(). Safe in a signal handler.
  void Announce() const;
  /// Blocks until there is an Announce() and consumes it; continues to wait when a signal interrupts it.
  void Wait() const;
  /// Consumes an Announce(); returns false when there is none.
  bool TryWait() const;

 private:
  int fd_;
};

/// Runs a function in a child with a private System V IPC namespace, and returns the child's exit status. Needs the
/// right to make namespaces (root, or unprivileged user namespaces).
int RunInPrivateIpc(const std::function<int()> &body);

/// True when this process may make private namespaces. Otherwise the test must skip.
bool CanMakeNamespaces();

}  // namespace devsupport::test
