// A child that is moved on instruction by instruction, or system call by system call, and can be looked at in
// between.
#pragma once

#include <sys/ptrace.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <functional>

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace devsupport::test {

/// A child that this process moves on step by step.
class Traced {
 public:
  explicit Traced(const std::function<void()> &operation) : Traced([] {}, operation) {}

  /// The preparation runs freely and is over when this returns.
  Traced(const std::function<void()> &preparation, const std::function<void()> &operation)
      : child_([&] {
          preparation();
          if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return kMayNotTrace;
          ::raise(SIGSTOP);
          operation();
          done_->store(true);
          return 0;
        }) {
    ::waitpid(child_.Pid(), &status_, 0);
  }

  static bool MayTrace() {
    Child child([] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : kMayNotTrace; });
    return child.Wait() == 0;
  }

  /// Goes on to the next instruction (PTRACE_SINGLESTEP) or system call (PTRACE_SYSCALL); false at the end, and where
  /// the kernel has no such step.
  bool Step(__ptrace_request kind) {
    if (*done_ || !WIFSTOPPED(status_)) return false;
    if (::ptrace(kind, child_.Pid(), nullptr, nullptr) != 0) return false;
    ::waitpid(child_.Pid(), &status_, 0);
    return WIFSTOPPED(status_);
  }
  void Kill() {
    child_.Signal(SIGKILL);
    child_.Wait();
  }

 private:
  static constexpr int kMayNotTrace = 77;

  SharedBlock<std::atomic<bool>> done_;
  Child child_;
  int status_ = 0;
};

}  // namespace devsupport::test
