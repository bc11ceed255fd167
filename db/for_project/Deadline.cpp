// SPDX-License-Identifier: MIT
// Counts the time that an operation has waited.

#include "db/for_project/Deadline.h"

namespace devsupport::store {

namespace {

constexpr long kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;

}  // namespace

long Deadline::LeftMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  if (!bStarted_) {
    bStarted_ = true;
    start_ = now;
  }
  const auto nSeconds = static_cast<long>(now.tv_sec - start_.tv_sec);
  if (nSeconds > kLimitMs / kMsPerSecond) return 0;
  return kLimitMs - nSeconds * kMsPerSecond - (now.tv_nsec - start_.tv_nsec) / kNsPerMs;
}

bool Deadline::Pause(long nMs) {
  if (LeftMs() <= nMs) return false;
  const timespec pause = {nMs / kMsPerSecond, nMs % kMsPerSecond * kNsPerMs};
  nanosleep(&pause, nullptr);
  return true;
}

}  // namespace devsupport::store
