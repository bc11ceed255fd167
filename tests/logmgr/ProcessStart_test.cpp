// SPDX-License-Identifier: MIT
// The start of a daemon: its pid file, its priority, and its signals in the kernel.

#include <devsupport/logmgr/ProcessStart.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

struct SchedulerCall {
  int calls = 0;
  int pid = -1;
  int policy = -1;
  int priority = -1;
  int result = 0;
} g_scheduler;

}  // namespace

extern "C" int __wrap_sched_setscheduler(pid_t pid, int policy, const sched_param *param);
extern "C" int __wrap_sched_setscheduler(pid_t pid, int policy, const sched_param *param) {
  g_scheduler = {g_scheduler.calls + 1, pid, policy, param->sched_priority, g_scheduler.result};
  return g_scheduler.result;
}

namespace {

using namespace devsupport::test;

// --- pid file ----------------------------------------------------------------------------------------------------

TEST(PidFile, HoldsTheNumberWithoutANewline) {
  const TempDir dir;
  EXPECT_EQ(WritePidFile((dir / "pid").c_str()), 0);
  EXPECT_EQ(FileText(dir / "pid"), std::to_string(::getpid()));
}

TEST(PidFile, ThatWasLonger_IsEmptiedFirst) {
  const TempDir dir;
  WriteFile(dir / "pid", "12345678901234567890\nmore\n");
  EXPECT_EQ(WritePidFile((dir / "pid").c_str()), 0);
  EXPECT_EQ(FileText(dir / "pid"), std::to_string(::getpid()));
}

TEST(PidFile, ThatCannotBeOpened_PrintsNothing) {
  const TempDir dir;
  CapturedOutput err(stderr);
  EXPECT_EQ(WritePidFile((dir / "none" / "pid").c_str()), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(err.Take(), "");
}

TEST(PidFile, OnAFullDisk_IsAnEof) { EXPECT_EQ(WritePidFile("/dev/full"), EOF); }

TEST(PidFile, LeavesNoDescriptorOpen) {
  const TempDir dir;
  const int before = ::dup(0);
  ::close(before);
  WritePidFile((dir / "pid").c_str());
  WritePidFile("/dev/full");
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(after, before);
}

// --- priority ----------------------------------------------------------------------------------------------------

TEST(Priority, IsAskedForThisProcessByTurns) {
  g_scheduler = {};
  EXPECT_EQ(SetRealtimePriority(42), 0);
  EXPECT_EQ(g_scheduler.calls, 1);
  EXPECT_EQ(g_scheduler.pid, ::getpid());
  EXPECT_EQ(g_scheduler.policy, SCHED_RR);
  EXPECT_EQ(g_scheduler.priority, 42);
}

TEST(Priority, Refused_IsTheSystemsAnswer) {
  g_scheduler = {};
  g_scheduler.result = -1;
  EXPECT_EQ(SetRealtimePriority(100), -1);
}

// --- signals -----------------------------------------------------------------------------------------------------

/// One mask of /proc/self/status as signal numbers.
std::set<int> Kernel(const char *mask) {
  std::istringstream status(FileText("/proc/self/status"));
  std::set<int> numbers;
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(mask, 0) != 0) continue;
    // Hexadecimal digits, as many as the processor's signals need, those of the lowest numbers last.
    int lowest = 1;
    for (auto digit = line.rbegin(); *digit != '\t'; ++digit, lowest += 4) {
      const int bits = std::stoi(std::string(1, *digit), nullptr, 16);
      for (int i = 0; i < 4; ++i)
        if ((bits >> i & 1) != 0) numbers.insert(lowest + i);
    }
  }
  return numbers;
}

volatile sig_atomic_t g_lastSignal = 0;
void Remember(int number) { g_lastSignal = number; }

bool IsTheSystemsOwn(int number) { return number == SIGKILL || number == SIGSTOP; }
// The C library keeps the signals between the last ordinary and the first real-time one for itself.
bool IsTheLibrarysOwn(int number) { return number > 31 && number < SIGRTMIN; }

/// Runs the body in a process that has set its signals.
void InStartedProcess(const std::function<void()> &body) {
  Child child([&] {
    EXPECT_EQ(Signal_InitHandlers(Remember), 0);
    body();
    return 0;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST(Signals, AsTheKernelHasThem_AreHandledOrIgnored) {
  InStartedProcess([] {
    const std::set<int> handled = {1, 2, 3, 6, 9, 14, 15, 23, 50};
    const std::set<int> caught = Kernel("SigCgt");
    const std::set<int> ignored = Kernel("SigIgn");
    for (int number = 1; number <= SIGRTMAX; ++number) {
      if (IsTheSystemsOwn(number) || IsTheLibrarysOwn(number)) continue;
      EXPECT_EQ(caught.count(number), handled.count(number)) << number;
      EXPECT_NE(ignored.count(number), handled.count(number)) << number;
    }
  });
}

constexpr unsigned kEveryFlag = SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_ONSTACK | unsigned{SA_RESETHAND};

TEST(Signals, ThatAreHandled_HaveNoFlagsAndBlockNoOthers) {
  InStartedProcess([] {
    for (const int number : {1, 15, 50}) {
      struct sigaction action {};
      EXPECT_EQ(::sigaction(number, nullptr, &action), 0);
      EXPECT_EQ(action.sa_handler, Remember);
      EXPECT_EQ(static_cast<unsigned>(action.sa_flags) & kEveryFlag, 0u);
      for (int other = 1; other <= 31; ++other) EXPECT_EQ(::sigismember(&action.sa_mask, other), 0);
    }
  });
}

TEST(Signals, ThatAreHandled_ReachTheHandler) {
  InStartedProcess([] {
    for (const int number : {1, 2, 3, 6, 14, 15, 23, 50}) {
      if (IsTheSystemsOwn(number)) continue;  // 23 stops a process where the device's processor numbers the signals
      EXPECT_EQ(::raise(number), 0);
      ::usleep(1);  // the thread sanitizer delivers signals at calls that may block
      EXPECT_EQ(g_lastSignal, number);
    }
  });
}

TEST(Signals, ThatAreIgnored_GoByUnseen) {
  InStartedProcess([] {
    for (const int number : {10, 12, 13, 17, 20, 52, 53, 64}) EXPECT_EQ(::raise(number), 0);
    EXPECT_EQ(g_lastSignal, 0);
  });
}

TEST(Signals, OfEndedChildren_AreIgnoredToo) {
  InStartedProcess([] {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
    EXPECT_EQ(errno, ECHILD);  // the kernel has removed it already
  });
}

TEST(Signals, AddHandler_GivesOneMoreTheSameHandler) {
  InStartedProcess([] {
    EXPECT_EQ(Signal_AddHandler(SIGUSR1), 0);
    EXPECT_EQ(Kernel("SigCgt").count(SIGUSR1), 1u);
    ::raise(SIGUSR1);
    ::usleep(1);
    EXPECT_EQ(g_lastSignal, SIGUSR1);
  });
}

TEST(Signals, AddHandler_OfWhatCannotBeHandled_IsRefused) {
  InStartedProcess([] {
    for (const int number : {SIGKILL, SIGSTOP, 0, -1, 4711}) EXPECT_EQ(Signal_AddHandler(number), -1);
  });
}

TEST(Signals, AddHandler_BeforeAnyHandlers_IsTheSystemsDefault) {
  Child child([] {
    ::signal(SIGUSR1, SIG_IGN);
    EXPECT_EQ(Signal_AddHandler(SIGUSR1), 0);
    EXPECT_EQ(Kernel("SigIgn").count(SIGUSR1), 0u);
    EXPECT_EQ(Kernel("SigCgt").count(SIGUSR1), 0u);
    return 0;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST(Signals, InitHandlers_Again_ReplacesTheHandler) {
  InStartedProcess([] {
    EXPECT_EQ(Signal_AddHandler(SIGUSR1), 0);
    EXPECT_EQ(Signal_InitHandlers(SIG_DFL), 0);
    EXPECT_EQ(Kernel("SigCgt").count(SIGTERM), 0u);
    EXPECT_EQ(Kernel("SigIgn").count(SIGTERM), 0u);
    EXPECT_EQ(Kernel("SigIgn").count(SIGUSR1), 1u);
  });
}

}  // namespace
