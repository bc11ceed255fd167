// SPDX-License-Identifier: MIT
// A child that runs instruction by instruction, or system call by system call, and can be checked in between.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/StepRecord.h"

namespace devsupport::test {

/// Steps a process under the user emulator, which has no ptrace, with its plugin (StepRecord.h).
class EmulatorSteps {
 public:
  EmulatorSteps() : fd_(::memfd_create("steps", MFD_CLOEXEC)) {
    if (fd_ < 0 || ::ftruncate(fd_, sizeof(StepRecord)) != 0)
      throw std::runtime_error("cannot make a record of steps");
    record_ =
        static_cast<StepRecord *>(::mmap(nullptr, sizeof(StepRecord), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0));
  }
  ~EmulatorSteps() {
    ::munmap(record_, sizeof(StepRecord));
    ::close(fd_);
  }
  EmulatorSteps(const EmulatorSteps &) = delete;
  EmulatorSteps &operator=(const EmulatorSteps &) = delete;

  /// The emulator reads this record for this process from now on. False when there is no emulator.
  bool Attach(StepKind kind) const {
    record_->nKind = kind;
    ::syscall(SYS_close, kStepCall, fd_);
    return record_->bAttached != 0;
  }
  StepRecord &Record() const { return *record_; }

  /// True when this process runs in such an emulator.
  static bool AreThere() {
    static const bool areThere = EmulatorSteps().Attach(kRunFreely);
    return areThere;
  }

 private:
  int fd_;
  StepRecord *record_;
};

/// A child that this process runs step by step.
class Traced {
 public:
  explicit Traced(const std::function<void()> &operation) : Traced([] {}, operation) {}

  /// The preparation runs without stops and has ended when the constructor returns. The rest after the operation's last
  /// step also runs without stops.
  Traced(
      const std::function<void()> &preparation, const std::function<void()> &operation,
      const std::function<void()> &afterwards = [] {})
      : emulator_(EmulatorSteps::AreThere() ? std::make_unique<EmulatorSteps>() : nullptr), child_([&] {
          preparation();
          if (!StopMyself()) return kMayNotTrace;
          operation();
          done_->store(true);
          if (emulator_) emulator_->Record().nLeft = 0;
          afterwards();
          return 0;
        }) {
    AwaitNews(0);
  }

  static bool MayTrace() {
    if (EmulatorSteps::AreThere()) return true;
    Child child([] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : kMayNotTrace; });
    return child.Wait() == 0;
  }

  /// Runs to the next instruction (PTRACE_SINGLESTEP) or system call (PTRACE_SYSCALL). Returns false at the end, and
  /// when the kernel does not support the step.
  bool Step(__ptrace_request kind) {
    if (*done_ || state_ != kStopped) return false;
    return Continue(kind, 1) && AwaitNews(0) && state_ == kStopped;
  }
  /// Runs so many of them, or to the end. Returns how many it ran.
  unsigned Steps(__ptrace_request kind, unsigned most) {
    if (emulator_ && kind == PTRACE_SINGLESTEP && most != 0 && state_ == kStopped) {  // at once
      const unsigned before = emulator_->Record().nTaken;
      Continue(kind, most);
      AwaitNews(0);
      return emulator_->Record().nTaken - before;
    }
    unsigned taken = 0;
    while (taken < most && Step(kind)) ++taken;
    return taken;
  }
  void Kill() {
    child_.Signal(SIGKILL);
    child_.Wait();
  }

  /// Runs the child to its end, or until it sleeps because it waits for another process: then it is stopped. Returns
  /// true at its end.
  bool RunOn() {
    while (state_ != kEnded) {
      if (state_ == kStopped) Continue(PTRACE_CONT, 0);
      while (state_ == kRunning && !AwaitNews(WNOHANG)) {
        if (Sleeps()) {
          child_.Signal(SIGSTOP);
          AwaitNews(0);
          return state_ == kEnded;
        }
        ::sched_yield();
      }
    }
    return true;
  }
  /// Runs the child to its end. Returns 0 when the operation has returned.
  int Finish() {
    while (!RunOn()) ::sched_yield();
    return child_.Wait();
  }
  /// Runs this child and another one to their ends, never both at once: each has its turn when the other one waits.
  void FinishInTurn(Traced &other) {
    for (bool ended = false; !ended; ::sched_yield()) {
      const bool otherEnded = other.RunOn();
      ended = RunOn() && otherEnded;
    }
    EXPECT_EQ(child_.Wait(), 0);
    EXPECT_EQ(other.child_.Wait(), 0);
  }
  /// Queues a signal with a value, which the child gets at its next step.
  void Queue(int signal, int value) const {
    sigval carried{};
    carried.sival_int = value;
    ::sigqueue(child_.Pid(), signal, carried);
  }

 private:
  static constexpr int kMayNotTrace = 77;
  enum State { kStopped, kRunning, kEnded };

  // The child, before the operation.
  bool StopMyself() const {
    if (emulator_) return emulator_->Attach(kStepInstructions);
    return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && ::raise(SIGSTOP) == 0;
  }
  // By so many steps of a kind; without end with PTRACE_CONT.
  bool Continue(__ptrace_request kind, unsigned steps) {
    if (!emulator_) {
      if (::ptrace(kind, child_.Pid(), nullptr, ToDeliver()) != 0) return false;
    } else {
      StepRecord &record = emulator_->Record();
      record.nKind = kind == PTRACE_SINGLESTEP ? kStepInstructions : kind == PTRACE_SYSCALL ? kStepCalls : kRunFreely;
      record.nLeft = steps;
      child_.Signal(SIGCONT);
    }
    state_ = kRunning;
    return true;
  }
  // A child that has ended is left for Wait to reap.
  bool AwaitNews(int options) {
    siginfo_t news{};
    ::waitid(P_PID, static_cast<id_t>(child_.Pid()), &news, WEXITED | WSTOPPED | WNOWAIT | options);
    if (news.si_pid == 0) return false;
    state_ = news.si_code == CLD_TRAPPED || news.si_code == CLD_STOPPED ? kStopped : kEnded;
    if (state_ == kStopped) ::waitpid(child_.Pid(), &status_, WUNTRACED);
    return true;
  }
  // The signal that has stopped the child, when it is not one of tracing.
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
  std::unique_ptr<EmulatorSteps> emulator_;
  Child child_;
  State state_ = kRunning;
  int status_ = 0;
};

}  // namespace devsupport::test
