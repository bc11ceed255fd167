// SPDX-License-Identifier: MIT
// Part of every test program in a build that counts executed lines: a process that aborts first writes its counters.

#include <csignal>

#include "tests/support/Coverage.h"

namespace {

[[maybe_unused]] const auto g_installed = std::signal(SIGABRT, [](int signal) {
  std::signal(signal, SIG_DFL);
  devsupport::test::KeepCoverage();
  std::raise(signal);
});

}  // namespace
