// SPDX-License-Identifier: MIT
#include "tests/support/FaultInjection.h"

#include <atomic>
#include <cstring>

#include "tests/support/Tally.h"

namespace devsupport::test {

namespace {

std::atomic<const char *> g_function{nullptr};
std::atomic<int> g_nth{0};
std::atomic<int> g_calls{0};
std::atomic<bool> g_happened{false};

}  // namespace

FailCall::FailCall(const char *function, int nth) {
  g_nth = nth;
  g_calls = 0;
  g_happened = false;
  g_function = function;
}

FailCall::~FailCall() { g_function = nullptr; }

bool FailCall::Happened() const { return g_happened; }

bool MustFail(const char *function) {
  const char *wanted = g_function;
  if (wanted == nullptr || std::strcmp(wanted, function) != 0) return false;
  const bool now = ++g_calls == g_nth || g_nth == FailCall::kEvery;
  if (now) {
    g_happened = true;
    Tally("fault");
  }
  return now;
}

}  // namespace devsupport::test
