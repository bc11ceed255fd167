// SPDX-License-Identifier: MIT
#include "tests/faults/Sweep.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>

#include "tests/support/Child.h"
#include "tests/support/Tally.h"
#include "tests/support/TestSeed.h"

namespace devsupport::test {

namespace {

constexpr int kCallsOfAnOrdinaryRun = 4;

/// The resources of a process that it could leak.
struct Holdings {
  int descriptors, mappings, objects, timers;
  long blocks;

  bool operator==(const Holdings &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Holdings &held) {
  return stream << held.descriptors << " descriptors, " << held.mappings << " shared mappings, " << held.objects
                << " System V objects, " << held.timers << " timers, " << held.blocks << " allocations";
}

int LinesWith(const char *path, const std::string &text) {
  std::ifstream file(path);
  int lines = 0;
  for (std::string line; std::getline(file, line);)
    if (line.find(text) != std::string::npos) ++lines;
  return lines;
}

Holdings Held() {
  Holdings held{};
  held.blocks = g_blocks;
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  held.descriptors = static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
  held.mappings = LinesWith("/proc/self/maps", "/SYSV");
  for (const char *path : {"/proc/sysvipc/shm", "/proc/sysvipc/sem", "/proc/sysvipc/msg"})
    held.objects += LinesWith(path, "") - 1;
  held.timers = LinesWith("/proc/self/timers", "ID:");
  return held;
}

void SendErrorsTo(int fd) { ::dup2(fd, STDERR_FILENO); }

/// A child's standard error, in memory.
class Said {
 public:
  Said() : fd_(::memfd_create("said", MFD_CLOEXEC)) {}
  ~Said() { ::close(fd_); }
  Said(const Said &) = delete;
  Said &operator=(const Said &) = delete;
  int Descriptor() const { return fd_; }
  std::string Text() const {
    std::string text(static_cast<std::size_t>(std::max<off_t>(0, ::lseek(fd_, 0, SEEK_END))), '\0');
    const ssize_t got = ::pread(fd_, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(0, got)));
    return text;
  }

 private:
  int fd_;
};

/// Runs the scenario with its fault and without, so many times, and returns what the process then holds.
Holdings RunInPairs(const Scenario &scenario, FaultPlan &plan, int pairs = 1) {
  const SharedBlock<Holdings> held;
  const Said said;
  const auto body = [&] {
    SendErrorsTo(said.Descriptor());
    g_faultPlan = &plan;
    for (int run = 0; run < 2 * pairs; ++run) {
      if (run % 2 == 0) plan.met = plan.failed = 0;
      Faults faults(plan, run % 2 == 0);
      scenario(faults);
    }
    g_faultPlan = nullptr;
    *held = Held();
    return 0;
  };
  const int status = FailingCalls(plan).Run([&] {
    if (::unshare(CLONE_NEWIPC) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) return 3;
    return body();
  });
  EXPECT_EQ(status, 0) << (status == FailingCalls::kHung ? "hung\n" : "") << said.Text();
  return *held;
}

/// The C library keeps some early blocks, so the number may differ; it must not grow.
bool Grows(const Scenario &scenario, FaultPlan &plan) {
  const long after = RunInPairs(scenario, plan, 2).blocks;
  const long later = RunInPairs(scenario, plan, 3).blocks;
  return later > after;
}

}  // namespace

void MakePlan(FaultPlan &plan, const FaultKind &kind, int nth) {
  plan.kind = kind.kind;
  plan.forGood = kind.forGood;
  plan.nth = nth;
  plan.armed = false;
  plan.met = plan.failed = 0;
}

bool Faults::Worked(bool worked) const {
  EXPECT_TRUE(worked || Struck()) << "failed without a fault";
  return worked;
}

std::vector<FaultKind> AllKinds() {
  return {{CallKind::System, false}, {CallKind::System, true}, {CallKind::Memory, false},
          {CallKind::Memory, true},  {CallKind::Clock, false}, {CallKind::Clock, true}};
}

std::vector<FaultKind> SystemCalls() { return {{CallKind::System, false}, {CallKind::System, true}}; }

std::string Describe(const FaultPlan &plan) {
  const std::string what = plan.kind == CallKind::Memory  ? "allocation"
                           : plan.kind == CallKind::Clock ? "look at the clock"
                           : plan.failed == 0             ? "system call"
                                                          : FailingCalls::NameOf(plan.failed - 1);
  return what + " as call " + std::to_string(plan.nth.load()) + (plan.forGood ? " and from then on" : "");
}

int StrideOf(int calls, int usual) {
  const char *const given = std::getenv("DEVSUPPORT_CALLS");
  return calls / std::max(1, given != nullptr ? std::atoi(given) : usual) + 1;
}

int FirstOf(int stride, std::uint64_t seed) {
  const bool picks = std::getenv("DEVSUPPORT_CALLS") != nullptr;
  return 1 + (picks ? static_cast<int>(seed % static_cast<unsigned>(stride)) : stride / 2);
}

void Sweep(const Scenario &scenario, Leftovers leftovers, const std::vector<FaultKind> &kinds) {
  if (!FailingCalls::AreAvailable()) GTEST_SKIP() << "the kernel does not let us answer a child's system calls";
  const TestSeed seed;
  const bool heals = leftovers == Leftovers::AfterHealing;
  const SharedBlock<FaultPlan> plan;
  for (const FaultKind &kind : kinds) {
    MakePlan(*plan, kind, INT_MAX);
    const Holdings usual = RunInPairs(scenario, *plan);
    ASSERT_FALSE(::testing::Test::HasFailure()) << "without a fault";
    const int calls = plan->met;
    const int stride = StrideOf(calls, kCallsOfAnOrdinaryRun);
    for (int nth = FirstOf(stride, seed); nth <= calls; nth += stride) {
      MakePlan(*plan, kind, nth);
      Holdings held = RunInPairs(scenario, *plan);
      if (plan->failed == 0) continue;  // the number of attempts differs between runs; this one was not made
      Tally("call");
      const bool mayStay = kind.kind == CallKind::System && (Releases(plan->failed - 1) || (heals && kind.forGood));
      if (heals || (held.blocks != usual.blocks && !mayStay && !Grows(scenario, *plan))) held.blocks = usual.blocks;
      EXPECT_TRUE(held == usual || mayStay) << held << ", usually " << usual;
      ASSERT_FALSE(::testing::Test::HasFailure()) << Describe(*plan);
    }
  }
}

}  // namespace devsupport::test
