// SPDX-License-Identifier: MIT
#include "tests/support/IpcKey.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>

namespace devsupport::test {

namespace {

// 0x40000000 + 22 bits of process id + 8 bits of counter: different from the keys that the system uses.
int NextKey() {
  static std::atomic<unsigned> counter{0};
  const unsigned pid = static_cast<unsigned>(::getpid()) & 0x3FFFFFu;
  return static_cast<int>(0x40000000u | pid << 8 | (counter++ & 0xFFu));
}

int CountLines(const char *path) {
  std::ifstream file(path);
  int lines = -1;  // the first line is a heading
  for (std::string line; std::getline(file, line);) ++lines;
  return lines < 0 ? 0 : lines;
}

}  // namespace

IpcKey::IpcKey() : key_(NextKey()), ownerPid_(::getpid()) {}

IpcKey::~IpcKey() {
  if (::getpid() != ownerPid_) return;  // a forked copy
  if (const int id = ::shmget(key_, 0, 0); id >= 0) ::shmctl(id, IPC_RMID, nullptr);
  if (const int id = ::semget(key_, 0, 0); id >= 0) ::semctl(id, 0, IPC_RMID);
  if (const int id = ::msgget(key_, 0); id >= 0) ::msgctl(id, IPC_RMID, nullptr);
}

int CountIpcObjects() {
  return CountLines("/proc/sysvipc/shm") + CountLines("/proc/sysvipc/sem") + CountLines("/proc/sysvipc/msg");
}

}  // namespace devsupport::test
