// SPDX-License-Identifier: MIT
// The kernel asks a supervisor, the test, before each system call of the child (seccomp's user notification).
#include "tests/faults/FailingCalls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <vector>

#include "tests/support/Child.h"

namespace devsupport::test {

namespace {

constexpr int kQuietMs = 60'000;

// A real kernel never refuses these, or only the C library uses them: waiting for a mutex, giving
// memory back, taking a signal, ending a connection. A close that fails still closes the file, which cannot be
// simulated here (tests/db/StoreFaults_test.cpp does it).
constexpr int kNeverFail[] = {SYS_exit,
                              SYS_exit_group,
                              SYS_rt_sigreturn,
                              SYS_restart_syscall,
                              SYS_futex,
                              SYS_getpid,
                              SYS_gettid,
                              SYS_getppid,
                              SYS_getuid,
                              SYS_geteuid,
                              SYS_getgid,
                              SYS_getegid,
                              SYS_sched_yield,
                              SYS_umask,
                              SYS_munmap,
                              SYS_madvise,
                              SYS_rt_sigprocmask,
                              SYS_tgkill,
                              SYS_execve,
                              SYS_close,
                              SYS_shutdown,
#ifdef SYS_arch_prctl
                              SYS_arch_prctl,
#endif
                              SYS_set_tid_address,
                              SYS_set_robust_list,
                              SYS_rseq};

struct CallFacts {
  int call;
  const char *name;
  int error;
};
#define DEVSUPPORT_CALL(name, error) \
  { SYS_##name, #name, error }
constexpr CallFacts kCalls[] = {
    DEVSUPPORT_CALL(openat, EMFILE),
    DEVSUPPORT_CALL(socket, EMFILE),
    DEVSUPPORT_CALL(mmap, ENOMEM),
    DEVSUPPORT_CALL(mprotect, ENOMEM),
    DEVSUPPORT_CALL(mremap, ENOMEM),
    DEVSUPPORT_CALL(brk, ENOMEM),
    DEVSUPPORT_CALL(shmat, ENOMEM),
    DEVSUPPORT_CALL(clone, EAGAIN),
    DEVSUPPORT_CALL(shmget, ENOSPC),
    DEVSUPPORT_CALL(semget, ENOSPC),
    DEVSUPPORT_CALL(msgget, ENOSPC),
    DEVSUPPORT_CALL(write, ENOSPC),
    DEVSUPPORT_CALL(pwrite64, ENOSPC),
    DEVSUPPORT_CALL(ftruncate, ENOSPC),
    DEVSUPPORT_CALL(semop, ENOMEM),
    DEVSUPPORT_CALL(semctl, EIDRM),
    DEVSUPPORT_CALL(shmctl, EIDRM),
    DEVSUPPORT_CALL(msgsnd, EIDRM),
    DEVSUPPORT_CALL(msgrcv, EIDRM),
    DEVSUPPORT_CALL(msgctl, EIDRM),
    DEVSUPPORT_CALL(timer_create, EAGAIN),
    DEVSUPPORT_CALL(timer_settime, EINVAL),
    DEVSUPPORT_CALL(timer_delete, EINVAL),
    DEVSUPPORT_CALL(kill, EPERM),
    DEVSUPPORT_CALL(rt_sigaction, EINVAL),
    DEVSUPPORT_CALL(shmdt, EINVAL),
    DEVSUPPORT_CALL(sched_setscheduler, EPERM),
    DEVSUPPORT_CALL(read, EIO),
    DEVSUPPORT_CALL(pread64, EIO),
    DEVSUPPORT_CALL(fsync, EIO),
    DEVSUPPORT_CALL(fdatasync, EIO),
    DEVSUPPORT_CALL(ioctl, EIO),
    DEVSUPPORT_CALL(fcntl, EIO),
    DEVSUPPORT_CALL(lseek, EIO),
    DEVSUPPORT_CALL(newfstatat, EIO),
    DEVSUPPORT_CALL(rename, EIO),
    DEVSUPPORT_CALL(unlink, EIO),
    DEVSUPPORT_CALL(getdents64, EIO),
    DEVSUPPORT_CALL(ppoll, EINTR),
    DEVSUPPORT_CALL(poll, EINTR),
    DEVSUPPORT_CALL(semtimedop, ENOMEM),
    DEVSUPPORT_CALL(clock_nanosleep, EINTR),
    DEVSUPPORT_CALL(getrandom, ENOSYS),
};

const CallFacts *Facts(int call) {
  const auto *found =
      std::find_if(std::begin(kCalls), std::end(kCalls), [&](const auto &f) { return f.call == call; });
  return found != std::end(kCalls) ? found : nullptr;
}

/// Makes the kernel ask before all calls except those that never fail. Returns the descriptor for its requests.
int InstallFilter() {
  std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const int call : kNeverFail) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

class Descriptor {
 public:
  explicit Descriptor(long fd) : fd_(static_cast<int>(fd)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

int FailingCalls::Run(const std::function<int()> &body) {
  constexpr int kNone = -1;
  constexpr int kRefused = -2;
  constexpr int kTaken = -3;
  SharedBlock<std::atomic<int>> installed;
  *installed = kNone;
  Child child([&] {
    const int listener = InstallFilter();
    *installed = listener >= 0 ? listener : kRefused;
    if (listener < 0) return 0;
    while (*installed != kTaken) ::sched_yield();
    ::close(listener);
    return body();
  });
  const Descriptor process(::syscall(SYS_pidfd_open, child.Pid(), 0));
  while (*installed == kNone) ::sched_yield();
  if (*installed < 0) return kNotPermitted;
  const Descriptor listener(::syscall(SYS_pidfd_getfd, process.Get(), installed->load(), 0));
  if (listener.Get() < 0) return kNotPermitted;
  *installed = kTaken;
  const int status = Supervise(listener.Get(), process.Get());
  return status != 0 ? status : child.Wait();
}

int FailingCalls::Supervise(int listener, int process) {
  for (;;) {
    std::array<pollfd, 2> waits{{{listener, POLLIN, 0}, {process, POLLIN, 0}}};
    const int ready = ::poll(waits.data(), waits.size(), kQuietMs);
    if (ready == 0) return kHung;
    if ((waits[0].revents & POLLIN) != 0)
      Answer(listener);
    else if ((waits[1].revents & POLLIN) != 0)
      return 0;
  }
}

// Giving a semaphore back does not fail while it exists. The ring's locks are free at 1; the store's are free at 0,
// and taken in two steps.
bool FailingCalls::GivesBack(const seccomp_notif &asked) {
  if (asked.data.nr != SYS_semop && asked.data.nr != SYS_semtimedop) return false;
  if (asked.data.args[2] > 1) {
    freeAtZero_.insert(asked.data.args[0]);
    return false;
  }
  sembuf operation{};
  iovec here{&operation, sizeof operation};
  iovec there{reinterpret_cast<void *>(asked.data.args[1]), sizeof operation};
  return ::process_vm_readv(static_cast<pid_t>(asked.pid), &here, 1, &there, 1, 0) > 0 &&
         (operation.sem_op > 0) != freeAtZero_.contains(asked.data.args[0]);
}

void FailingCalls::Answer(int listener) {
  seccomp_notif asked{};
  if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;  // the child was killed meanwhile
  seccomp_notif_resp answer{};
  answer.id = asked.id;
  // A semaphore that can neither be given its value nor be removed looks held for ever; that is the contract. A wait
  // that is always interrupted is repeated for ever, and so is umockdev's try to accept a connection.
  const int call = asked.data.nr;
  const bool endlessly =
      plan_.forGood && (call == SYS_semctl || call == SYS_poll || call == SYS_ppoll || call == SYS_accept4);
  const bool mayFail = !GivesBack(asked) && !endlessly;
  if (plan_.kind == CallKind::System && mayFail && plan_.Strikes(asked.data.nr)) {
    const CallFacts *const facts = Facts(asked.data.nr);
    // Where the kernel does not move the end of the heap, it gives the old one. 0 lets the C library ask for it.
    if (asked.data.nr != SYS_brk) answer.error = -(facts != nullptr ? facts->error : EIO);
    // Berkeley DB waits twelve seconds for descriptors that another thread could close.
    if (asked.data.nr == SYS_openat && plan_.forGood) answer.error = -EACCES;
  } else {
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  }
  ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
}

bool FailingCalls::AreAvailable() {
  SharedBlock<FaultPlan> plan;
  return FailingCalls(*plan).Run([] { return 0; }) == 0;
}

std::string FailingCalls::NameOf(int call) {
  const CallFacts *const facts = Facts(call);
  return facts != nullptr ? facts->name : "system call number " + std::to_string(call);
}

bool Releases(int call) {
  constexpr int kReleasing[] = {SYS_shmdt, SYS_shmctl, SYS_semctl, SYS_msgctl, SYS_timer_delete};
  return std::find(std::begin(kReleasing), std::end(kReleasing), call) != std::end(kReleasing);
}

}  // namespace devsupport::test
