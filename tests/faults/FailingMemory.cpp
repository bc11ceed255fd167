// SPDX-License-Identifier: MIT
// Allocations and clock reads that fail: these functions replace those of the C library, in a test that links them
// and in a program that preloads them.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <ctime>

#include "tests/faults/FailingCalls.h"

extern "C" {
void *__libc_malloc(std::size_t bytes);
void *__libc_calloc(std::size_t count, std::size_t bytes);
void *__libc_realloc(void *old, std::size_t bytes);
void __libc_free(void *block);
}

namespace devsupport::test {

std::atomic<FaultPlan *> g_faultPlan{nullptr};
std::atomic<long> g_blocks{0};

namespace {

bool Strikes(CallKind kind, int error) {
  FaultPlan *const plan = g_faultPlan;
  if (plan == nullptr || plan->kind != kind || !plan->Strikes(0)) return false;
  errno = error;
  return true;
}

void *Counted(void *block) {
  if (block != nullptr) ++g_blocks;
  return block;
}

[[gnu::constructor]] void FindPlan() {
  const char *const path = std::getenv("DEVSUPPORT_FAULT_PLAN");
  const int fd = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
  if (fd < 0) return;
  void *const map = ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (map == MAP_FAILED) return;
  g_faultPlan = static_cast<FaultPlan *>(map);
}

using Main = int (*)(int, char **, char **);
using StartMain = int (*)(Main, int, char **, void (*)(), void (*)(), void (*)(), void *);

}  // namespace
}  // namespace devsupport::test

using devsupport::test::CallKind;
using devsupport::test::Counted;
using devsupport::test::g_blocks;
using devsupport::test::g_faultPlan;
using devsupport::test::Main;
using devsupport::test::StartMain;
using devsupport::test::Strikes;

// Faults begin with main, so that the calls of constructors do not fail.
extern "C" int __libc_start_main(Main main, int argCount, char **args, void (*init)(), void (*fini)(),
                                 void (*loaderFini)(), void *stackEnd) {
  static Main s_main = nullptr;
  s_main = main;
  const auto armedMain = [](int count, char **words, char **variables) {
    if (g_faultPlan != nullptr) g_faultPlan.load()->armed = true;
    return s_main(count, words, variables);
  };
  const auto real = reinterpret_cast<StartMain>(::dlsym(RTLD_NEXT, "__libc_start_main"));
  return real(armedMain, argCount, args, init, fini, loaderFini, stackEnd);
}
extern "C" void *malloc(std::size_t bytes) {
  return Strikes(CallKind::Memory, ENOMEM) ? nullptr : Counted(__libc_malloc(bytes));
}
extern "C" void *calloc(std::size_t count, std::size_t bytes) {
  return Strikes(CallKind::Memory, ENOMEM) ? nullptr : Counted(__libc_calloc(count, bytes));
}
extern "C" void *realloc(void *old, std::size_t bytes) {
  if (Strikes(CallKind::Memory, ENOMEM)) return nullptr;
  void *const block = __libc_realloc(old, bytes);
  return old == nullptr ? Counted(block) : block;
}
extern "C" void free(void *block) {
  if (block != nullptr) --g_blocks;
  __libc_free(block);
}
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
  static const auto s_real = reinterpret_cast<decltype(&clock_gettime)>(::dlsym(RTLD_NEXT, "clock_gettime"));
  return Strikes(CallKind::Clock, EINVAL) ? -1 : s_real(clock, time);
}
