// SPDX-License-Identifier: MIT
// Calls that fail: the n-th system call of a process, of any kind, or its n-th allocation or clock read.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "tests/support/SharedBlock.h"

struct seccomp_notif;

namespace devsupport::test {

enum class CallKind : int { System, Memory, Clock };

/// Which call must fail, and the progress. In memory shared with the failing process.
struct FaultPlan {
  std::atomic<CallKind> kind;
  std::atomic<int> nth;       ///< counted from 1; none for a number that is never reached
  std::atomic<bool> forGood;  ///< later ones fail too: for a system call, those of the same name
  std::atomic<bool> armed;    ///< calls count and fail while it is set
  std::atomic<int> met;       ///< calls counted so far
  std::atomic<int> failed;    ///< number of the first system call that failed, from 1; 0: none

  /// Counts a call; true when it must fail.
  bool Strikes(int call) {
    if (!armed) return false;
    const int number = ++met;
    const bool first = number == nth;
    if (first) failed = call + 1;
    return first || (forGood && failed == call + 1);
  }
};

/// The plan for this process's allocations and clock reads (FailingMemory.cpp); none at first. A program that
/// preloads that file finds its plan through the environment variable DEVSUPPORT_FAULT_PLAN, a file's path.
extern std::atomic<FaultPlan *> g_faultPlan;
/// Number of allocated blocks.
extern std::atomic<long> g_blocks;

/// Runs a function in a child whose system calls fail as the plan says, also after it has become another program.
class FailingCalls {
 public:
  static constexpr int kHung = 2000;  ///< the status of a child that made no call for a minute, and was killed
  static constexpr int kNotPermitted = 2001;

  explicit FailingCalls(FaultPlan &plan) : plan_(plan) {}

  /// Returns as Child::Wait() does, or kHung.
  int Run(const std::function<int()> &body);

  static bool AreAvailable();
  static std::string NameOf(int call);

 private:
  int Supervise(int listener, int process);
  void Answer(int listener);
  bool GivesBack(const seccomp_notif &asked);

  FaultPlan &plan_;
  std::set<std::uint64_t> freeAtZero_;  // semaphores
};

/// True for calls that release something: when they fail, it may stay.
bool Releases(int call);

}  // namespace devsupport::test
