// The lock that our shared ring and our log channel have, by hand: for their floors.
#pragma once

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

/// A semaphore whose holder's death gives it back.
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

 private:
  void Operate(short change) {
    sembuf operation{0, change, SEM_UNDO};
    semop(id_, &operation, 1);
  }

  int id_;
  pid_t owner_;
};

}  // namespace devsupport::bench
