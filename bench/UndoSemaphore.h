// SPDX-License-Identifier: MIT
// The lock of the shared ring and the log channel, written by hand for their floors.
#pragma once

#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace devsupport::bench {

/// Throws when a system call has failed.
inline int Check(int result, const char *what) {
  if (result == -1) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

/// A semaphore that the kernel releases when its holder dies. A process that finds it taken sleeps.
class UndoSemaphore {
 public:
  UndoSemaphore() : id_(Check(semget(IPC_PRIVATE, 1, 0600), "semget")), owner_(getpid()) { unlock(); }
  ~UndoSemaphore() {
    if (owner_ == getpid()) semctl(id_, 0, IPC_RMID);
  }
  UndoSemaphore(const UndoSemaphore &) = delete;
  UndoSemaphore &operator=(const UndoSemaphore &) = delete;

  void lock() { Operate(-1); }
  void unlock() { Operate(1); }

 protected:
  bool Operate(short change, short flags = 0) {
    sembuf operation{0, change, static_cast<short>(SEM_UNDO | flags)};
    return semop(id_, &operation, 1) == 0;
  }

 private:
  int id_;
  pid_t owner_;
};

/// The same, but a process that finds it taken yields the processor and tries again some times before it sleeps.
class YieldingUndoSemaphore : public UndoSemaphore {
 public:
  void lock() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      if (Operate(-1, IPC_NOWAIT)) return;
      sched_yield();
    }
    Operate(-1);
  }

 private:
  static constexpr int kAttempts = 20;
};

}  // namespace devsupport::bench
