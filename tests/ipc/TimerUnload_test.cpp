// SPDX-License-Identifier: MIT
// A program that loads the library by hand, starts a timer and unloads the library.

#include <devsupport/ipc/Timer.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>

#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

const Event *g_pExpired;

template <typename Function>
Function *Find(void *library, const char *name, Function * /*declared*/) {
  return reinterpret_cast<Function *>(::dlsym(library, name));
}

TEST(TimerUnload, ATimerThatExpiresAfterwards_StillCallsBack) {
  Child program([] {
    const Event expired;
    g_pExpired = &expired;
    void *const library = ::dlopen(DEVSUPPORT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return 2;
    auto *const create = Find(library, "Timer_CreateAry", &Timer_CreateAry);
    auto *const set = Find(library, "Timer_Set", &Timer_Set);
    std::uint16_t array = 0xFFFF;
    if (create == nullptr || set == nullptr) return 3;
    if (create(
            1, 0, [](std::uint32_t) { g_pExpired->Announce(); }, SIGRTMIN + 1, &array) != 1)
      return 4;
    if (set(&array, 0, 5, nullptr) != 1) return 5;
    if (::dlclose(library) != 0) return 6;
    while (expired.TryWait()) continue;
    expired.Wait();
    return 0;
  });
  EXPECT_EQ(program.Wait(), 0);
}

}  // namespace
