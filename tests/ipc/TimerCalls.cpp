// SPDX-License-Identifier: MIT
#include "tests/ipc/TimerCalls.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include "tests/support/FaultInjection.h"

namespace devsupport::test {

namespace {

TimerCalls *g_calls = nullptr;

void RunOnce(std::function<void()> &hook) {
  if (!hook) return;
  const std::function<void()> once = std::exchange(hook, nullptr);
  once();
}

bool Fails(const char *function, int error) {
  const bool fails = MustFail(function);
  if (fails) errno = error;
  return fails;
}

}  // namespace

TimerCalls &Calls() {
  if (g_calls == nullptr) g_calls = new TimerCalls;
  return *g_calls;
}

void ForgetTimerCalls() { delete std::exchange(g_calls, new TimerCalls); }

}  // namespace devsupport::test

using devsupport::test::Calls;

extern "C" {

int __real_timer_create(clockid_t clock, sigevent *event, timer_t *timer);
int __wrap_timer_create(clockid_t clock, sigevent *event, timer_t *timer);
int __real_timer_settime(timer_t timer, int flags, const itimerspec *times, itimerspec *old);
int __wrap_timer_settime(timer_t timer, int flags, const itimerspec *times, itimerspec *old);
int __real_timer_delete(timer_t timer);
int __wrap_timer_delete(timer_t timer);
int __real_sigaction(int number, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int number, const struct sigaction *action, struct sigaction *old);
void *__real_malloc(std::size_t size);
void *__wrap_malloc(std::size_t size);
void __real_free(void *block);
void __wrap_free(void *block);

int __wrap_timer_create(clockid_t clock, sigevent *event, timer_t *timer) {
  if (devsupport::test::Fails("timer_create", EAGAIN)) return -1;
  Calls().clock = clock;
  Calls().event = *event;
  const int result = __real_timer_create(clock, event, timer);
  if (result == 0) ++Calls().created;
  devsupport::test::RunOnce(Calls().afterCreate);
  return result;
}

int __wrap_timer_settime(timer_t timer, int flags, const itimerspec *times, itimerspec *old) {
  if (devsupport::test::MustFail("timer_settime")) {
    devsupport::test::RunOnce(Calls().failingSettime);
    errno = EINVAL;
    return -1;
  }
  Calls().settimeFlags = flags;
  Calls().times = *times;
  Calls().wantedOldTimes = old != nullptr;
  devsupport::test::RunOnce(Calls().beforeSettime);
  const int result = __real_timer_settime(timer, flags, times, old);
  if (result != 0) ++Calls().settimeErrors;
  const int error = errno;
  devsupport::test::RunOnce(Calls().afterSettime);
  errno = error;
  return result;
}

int __wrap_timer_delete(timer_t timer) {
  if (devsupport::test::Fails("timer_delete", EINVAL)) return -1;
  devsupport::test::RunOnce(Calls().beforeDelete);
  const int result = __real_timer_delete(timer);
  ++(result == 0 ? Calls().deleted : Calls().deleteErrors);
  return result;
}

int __wrap_sigaction(int number, const struct sigaction *action, struct sigaction *old) {
  if (action != nullptr) {
    static std::mutex several;  // tests make arrays in several threads
    const std::lock_guard lock(several);
    Calls().actionSignal = number;
    Calls().action = *action;
  }
  return __real_sigaction(number, action, old);
}

void *__wrap_malloc(std::size_t size) {
  if (devsupport::test::Fails("malloc", ENOMEM)) return nullptr;
  if (devsupport::test::g_calls == nullptr) return __real_malloc(size);
  devsupport::test::RunOnce(Calls().beforeMalloc);
  Calls().allocated = size;
  ++Calls().blocks;
  return __real_malloc(size);
}

void __wrap_free(void *block) {
  if (devsupport::test::g_calls != nullptr && block != nullptr) --Calls().blocks;
  __real_free(block);
}
}
