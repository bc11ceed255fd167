// SPDX-License-Identifier: MIT
// A child that is moved on instruction by instruction, or system call by system call, and can be looked at in
// between.
#pragma once

#include <sched.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace devsupport::test {

/// A child that this process moves on step by step.
class Traced {
 public:
  explicit Traced(const std::function<void()> &operation) : Traced([] {}, operation) {}

  /// The preparation runs freely and is over when this returns; so does what comes after the operation's last step.
  Traced(
      const std::function<void()> &preparation, const std::function<void()> &operation,
      const std::function<void()> &afterwards = [] {})
      : child_([&] {
          preparation();
          if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return kMayNotTrace;
          ::raise(SIGSTOP);
          operation();
          done_->store(true);
          afterwards();
          return 0;
        }) {
    AwaitNews(0);
  }

  static bool MayTrace() {
    Child child([] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : kMayNotTrace; });
    return child.Wait() == 0;
  }

  /// Goes on to the next instruction (PTRACE_SINGLESTEP) or system call (PTRACE_SYSCALL); false at the end, and where
  /// the kernel has no such step.
  bool Step(__ptrace_request kind) {
    if (*done_ || state_ != kStopped) return false;
    if (::ptrace(kind, child_.Pid(), nullptr, ToDeliver()) != 0) return false;
    state_ = kRunning;
    AwaitNews(0);
    return state_ == kStopped;
  }
  void Kill() {
    child_.Signal(SIGKILL);
    child_.Wait();
  }

  /// Lets the child run to its end, or until it sleeps because somebody else has to go on first. True at its end.
  bool RunOn() {
    while (state_ != kEnded) {
      if (state_ == kStopped) ::ptrace(PTRACE_CONT, child_.Pid(), nullptr, ToDeliver());
      state_ = kRunning;
      while (state_ == kRunning && !AwaitNews(WNOHANG)) {
        if (Sleeps()) return false;
        ::sched_yield();
      }
    }
    return true;
  }
  /// Lets the child run to its end. Returns 0 when the operation has come back.
  int Finish() {
    while (!RunOn()) ::sched_yield();
    return child_.Wait();
  }
  /// Queues a signal that carries a value; the child meets it at its next step.
  void Queue(int signal, int value) const {
    sigval carried{};
    carried.sival_int = value;
    ::sigqueue(child_.Pid(), signal, carried);
  }

 private:
  static constexpr int kMayNotTrace = 77;
  enum State { kStopped, kRunning, kEnded };

  // A child that has ended is left for Wait to reap.
  bool AwaitNews(int options) {
    siginfo_t news{};
    ::waitid(P_PID, static_cast<id_t>(child_.Pid()), &news, WEXITED | WSTOPPED | WNOWAIT | options);
    if (news.si_pid == 0) return false;
    state_ = news.si_code == CLD_TRAPPED || news.si_code == CLD_STOPPED ? kStopped : kEnded;
    if (state_ == kStopped) ::waitpid(child_.Pid(), &status_, 0);
    return true;
  }
  // The signal that the child has been stopped for, if it is one of its own.
  void *ToDeliver() const {
    const int signal = WSTOPSIG(status_);
    return reinterpret_cast<void *>(std::intptr_t{signal == SIGTRAP || signal == SIGSTOP ? 0 : signal});
  }
  bool Sleeps() const {
    std::ifstream file("/proc/" + std::to_string(child_.Pid()) + "/stat");
    std::string text;
    std::getline(file, text);
    return text.find(") S ") != std::string::npos;
  }

  SharedBlock<std::atomic<bool>> done_;
  Child child_;
  State state_ = kRunning;
  int status_ = 0;
};

}  // namespace devsupport::test
