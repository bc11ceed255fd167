// SPDX-License-Identifier: MIT
// Many timer signals to processes that wait for semaphores. For one source of a test program that wraps semop.
#pragma once

#include <sys/sem.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>

#include "tests/support/SharedBlock.h"

namespace devsupport::test {

/// One object for all processes of a test. Each calls Begin() and works while GoesOn() is true.
class SignalStorm {
 public:
  explicit SignalStorm(std::chrono::milliseconds duration) : duration_(duration) { s_counts = &*counts_; }
  ~SignalStorm() { s_counts = nullptr; }
  SignalStorm(const SignalStorm &) = delete;
  SignalStorm &operator=(const SignalStorm &) = delete;

  /// From now on this process gets a signal each millisecond.
  void Begin() {
    struct sigaction action {};
    action.sa_handler = [](int) { s_counts->signals.fetch_add(1); };
    ::sigaction(SIGALRM, &action, nullptr);
    SetInterval(1000);
    end_ = std::chrono::steady_clock::now() + duration_;
  }
  /// True until the time is over and enough waits have been interrupted. Without interrupted waits the test would prove
  /// nothing.
  bool GoesOn() const {
    return std::chrono::steady_clock::now() < end_ || counts_->interruptions < kEnoughInterruptions;
  }
  static void End() { SetInterval(0); }

  std::uint32_t Signals() const { return counts_->signals; }
  std::uint32_t Interruptions() const { return counts_->interruptions; }
  static void CountInterruption() {
    if (s_counts != nullptr) s_counts->interruptions.fetch_add(1);
  }

 private:
  static constexpr std::uint32_t kEnoughInterruptions = 20;
  struct Counts {
    std::atomic<std::uint32_t> signals;
    std::atomic<std::uint32_t> interruptions;
  };

  static void SetInterval(suseconds_t us) {
    const itimerval interval{{0, us}, {0, us}};
    ::setitimer(ITIMER_REAL, &interval, nullptr);
  }

  static inline Counts *s_counts = nullptr;

  std::chrono::milliseconds duration_;
  std::chrono::steady_clock::time_point end_;
  SharedBlock<Counts> counts_;
};

}  // namespace devsupport::test

extern "C" int __real_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count) {
  const int result = __real_semop(id, operations, count);
  if (result == -1 && errno == EINTR) devsupport::test::SignalStorm::CountInterruption();
  return result;
}
