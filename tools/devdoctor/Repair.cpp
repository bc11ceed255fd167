// SPDX-License-Identifier: MIT
// What can be repaired without doing harm.

#include "tools/devdoctor/Repair.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/devdoctor/Process.h"

namespace devdoctor {

namespace {

bool IsAgreed() {
  char answer[16] = "";
  std::fflush(stdout);
  return std::fgets(answer, sizeof answer, stdin) != nullptr && (answer[0] == 'y' || answer[0] == 'Y');
}

/// No process has it attached, and its first word is still not written.
bool RemoveUnfinishedSegment(int id) {
  shmid_ds status{};
  if (::shmctl(id, IPC_STAT, &status) != 0) return false;
  if (status.shm_nattch != 0) {
    errno = EBUSY;
    return false;
  }
  return ::shmctl(id, IPC_RMID, nullptr) == 0;
}

/// The lock is still taken, and the process that took it is dead.
bool FreeSemaphore(int id) {
  const pid_t holder = ::semctl(id, 0, GETPID);
  if (::semctl(id, 0, GETVAL) != 0 || holder <= 0 || Look(holder).IsAlive()) {
    errno = EBUSY;
    return false;
  }
  sembuf give{0, 1, IPC_NOWAIT};
  return ::semop(id, &give, 1) == 0;
}

bool Do(const Repair &step) {
  return step.kind == Repair::Kind::FreeSemaphore ? FreeSemaphore(step.id) : RemoveUnfinishedSegment(step.id);
}

}  // namespace

void Repairs::Propose(const Repair &repair) {
  if (count_ != kMax) steps_[count_++] = repair;
}

void Repairs::Offer() const {
  if (count_ == 0) std::puts("There is nothing that can be repaired without doing harm.");
  for (const Repair *step = steps_; step != steps_ + count_; ++step) {
    const bool isSemaphore = step->kind == Repair::Kind::FreeSemaphore;
    std::printf(isSemaphore ? "%s: give the semaphore %d back, which a dead process has taken? [y/N] "
                            : "%s: remove the unfinished segment %d, which nobody uses? [y/N] ",
                step->object, step->id);
    if (!IsAgreed()) {
      std::puts("left as it is");
    } else if (Do(*step)) {
      std::puts("done");
    } else {
      std::printf("not done: %s\n", std::strerror(errno));
    }
  }
  std::fflush(stdout);
}

}  // namespace devdoctor
