// SPDX-License-Identifier: MIT
// Checks the configuration store without opening it: files, gate, members, regions. Everything in shared memory is
// checked before it is used.

#include "tools/devdoctor/Store.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "db/for_project/Processes.h"
#include "db/for_project/StoreGate.h"
#include "db/for_project/StoreKeys.h"
#include "tools/devdoctor/Closed.h"
#include "tools/devdoctor/Process.h"

namespace devdoctor {

namespace {

using devsupport::store::GateMember;
using devsupport::store::GateRecord;
using devsupport::store::kGateKey;
using devsupport::store::kMaxRegions;
using devsupport::store::kShmKey;

constexpr char kStore[] = "store";
constexpr char kGate[] = "store gate";
constexpr std::uint64_t kFreeBytesNeeded = std::uint64_t{160} * 1024;  // what the reserve and a change take
constexpr std::uint64_t kFreeBytesWanted = std::uint64_t{1024} * 1024;

class Path {
 public:
  Path(const char *home, const char *name) {
    const std::size_t length = std::strlen(home);
    const bool hasSlash = length != 0 && home[length - 1] == '/';
    const int size = std::snprintf(text_, sizeof text_, "%s%s%s", home, hasSlash ? "" : "/", name);
    if (size < 0 || static_cast<std::size_t>(size) >= sizeof text_) text_[0] = '\0';
  }
  const char *Text() const { return text_; }

 private:
  char text_[PATH_MAX];
};

/// Checks the first page of a table file. False when there is no file.
bool CheckFile(Report &report, const Path &path) {
  struct stat status {};
  const auto unreadable = [&report] {
    report.Fault(Severity::Error, kStore, "unreadable", "run devdoctor as root", "the file cannot be read: %s",
                 std::strerror(errno));
    return false;
  };
  if (::stat(path.Text(), &status) != 0) {
    if (errno != ENOENT) return unreadable();
    report.Note(kStore, "no file %s: no program has stored anything yet", path.Text());
    return false;
  }
  report.Note(kStore, "file %s of %llu bytes", path.Text(), static_cast<unsigned long long>(status.st_size));
  report.Figure(kStore, "file_bytes", static_cast<std::uint64_t>(status.st_size));
  const int fd = ::open(path.Text(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return unreadable();
  constexpr std::uint32_t kMagic = 0x053162;
  constexpr std::size_t kMagicAt = 12;
  constexpr std::size_t kPageSizeAt = 20;
  std::uint8_t page[32] = {};
  const ssize_t got = ::read(fd, page, sizeof page);
  ::close(fd);
  std::uint32_t magic = 0;
  std::uint32_t pageSize = 0;
  std::memcpy(&magic, page + kMagicAt, sizeof magic);
  std::memcpy(&pageSize, page + kPageSizeAt, sizeof pageSize);
  const bool isSound = got == sizeof page && magic == kMagic && pageSize >= 512 &&
                       static_cast<std::uint64_t>(status.st_size) % pageSize == 0;
  if (isSound) return true;
  report.Fault(Severity::Error, kStore, "broken_file", kVerifyAdvice, "the file is not one of tables, or was cut");
  return true;
}

void CheckRoom(Report &report, const char *home) {
  struct statvfs status {};
  if (::statvfs(home, &status) != 0) return;
  const std::uint64_t free = std::uint64_t{status.f_bavail} * status.f_frsize;
  report.Note(kStore, "%llu KiB free where it is", static_cast<unsigned long long>(free / 1024));
  report.Figure(kStore, "free_bytes", free);
  if (free < kFreeBytesWanted) {
    const bool isFull = free < kFreeBytesNeeded;
    report.Fault(isFull ? Severity::Error : Severity::Warning, kStore, isFull ? "disk_full" : "disk_nearly_full",
                 "make room on this file system", "only %llu KiB are free: %s",
                 static_cast<unsigned long long>(free / 1024), isFull ? "changes are refused" : "soon changes fail");
  }
}

/// A copy of the gate's record, made without its lock.
class Gate {
 public:
  bool Copy(int id) {
    const void *address = ::shmat(id, nullptr, SHM_RDONLY);
    if (address == reinterpret_cast<void *>(-1)) return false;  // NOLINT: how shmat() reports errors
    std::memcpy(bytes_, address, sizeof bytes_);
    ::shmdt(address);
    return true;
  }
  template <typename T>
  T At(std::size_t offset) const {
    T value;
    std::memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }
  const char *Home() const { return reinterpret_cast<const char *>(bytes_ + offsetof(GateRecord, szHome)); }

 private:
  std::uint8_t bytes_[sizeof(GateRecord)];
};

/// True when a living process has the store open.
bool CheckMembers(Report &report, const Gate &gate) {
  unsigned living = 0;
  unsigned dead = 0;
  for (std::uint32_t place = 0; place < GateRecord::kMembers; ++place) {
    const auto member = gate.At<GateMember>(offsetof(GateRecord, aMembers) + place * sizeof(GateMember));
    if (member.nPid == 0) continue;
    if (!devsupport::store::IsAlive(member.nPid, member.qwStart)) {
      ++dead;
      continue;
    }
    ++living;
    const Described who(member.nPid);
    report.Note(kStore, "open in %s", who.text);
  }
  report.Figure(kStore, "members", living);
  report.Figure(kStore, "dead_members", dead);
  if (dead != 0) {
    report.Fault(Severity::Warning, kStore, "dead_members", "nothing: the next program that uses the store cleans up",
                 "%u program%s ended without closing it", dead, Plural(dead));
  }
  return living != 0;
}

void CheckInside(Report &report, const Gate &gate) {
  const auto inside = gate.At<std::int32_t>(offsetof(GateRecord, nInside));
  if (inside == 0) return;
  const Process process = Look(inside);
  if (!process.IsAlive()) {
    report.Fault(Severity::Warning, kGate, "died_inside", "nothing: the next program that uses the store heals it",
                 "process %d died in the middle of an operation", inside);
  } else if (process.IsStopped()) {
    char advice[96];
    std::snprintf(advice, sizeof advice, "let it go on with 'kill -CONT %d', or end it", inside);
    report.Fault(Severity::Error, kGate, "stopped_inside", advice,
                 "%s (%d) is stopped in the middle of an operation, and all others wait", process.name, inside);
  } else {
    report.Note(kGate, "%s (%d) is inside", process.name, inside);
  }
}

/// True when the store may be open.
bool CheckRecord(Report &report, const Gate &gate, const struct stat *home) {
  const auto word = [&gate](std::size_t offset) { return gate.At<std::uint32_t>(offset); };
  if (word(offsetof(GateRecord, dwMagic)) != GateRecord::kMagic ||
      word(offsetof(GateRecord, dwBytes)) != sizeof(GateRecord)) {
    report.Fault(Severity::Error, kGate, "foreign_segment",
                 "when no program has the store open: remove it with ipcrm; else find who wrote over it",
                 "the segment at key 0x%x is no gate of this library, was never finished, or was written over",
                 static_cast<unsigned>(kGateKey));
    return true;
  }
  report.Note(kGate, "of %.*s, generation %u, %u open cursors", static_cast<int>(GateRecord::kHomeBytes), gate.Home(),
              word(offsetof(GateRecord, dwGeneration)), word(offsetof(GateRecord, dwCursors)));
  report.Figure(kStore, "open_cursors", word(offsetof(GateRecord, dwCursors)));
  report.Figure(kStore, "generation", word(offsetof(GateRecord, dwGeneration)));
  const bool isOfHome = home != nullptr && gate.At<std::uint64_t>(offsetof(GateRecord, qwInode)) == home->st_ino &&
                        gate.At<std::uint64_t>(offsetof(GateRecord, qwDevice)) == home->st_dev;
  if (!isOfHome) {
    report.Fault(Severity::Warning, kGate, "another_home", "name the store's folder with --home",
                 "it belongs to another folder than the one that was looked at");
  }
  const bool isOpen = CheckMembers(report, gate);
  CheckInside(report, gate);
  if (word(offsetof(GateRecord, dwGeneration)) == 0) {
    report.Fault(Severity::Warning, kStore, "must_recover",
                 "nothing: the next program that uses the store recovers it", "its shared memory must be made anew");
  }
  if (word(offsetof(GateRecord, bNoReserve)) != 0) {
    report.Fault(Severity::Error, kStore, "no_reserve", "make room on the file system of the store",
                 "its reserve is used up: changes are refused until there is room");
  }
  if (word(offsetof(GateRecord, bIndexDoubt)) != 0) {
    report.Fault(Severity::Warning, kStore, "index_doubt", "see what 'devconf verify' says",
                 "an index may lack entries");
  }
  return isOpen && isOfHome;
}

/// True when the store may be open.
bool CheckGate(Report &report, const struct stat *home) {
  const int id = ::shmget(kGateKey, 0, 0);
  if (id == -1 && errno == ENOENT) {
    report.Note(kStore, "no program has opened it since the system started");
    return false;
  }
  shmid_ds status{};
  if (id == -1 || ::shmctl(id, IPC_STAT, &status) != 0) {
    report.Fault(Severity::Error, kGate, "unreadable", "run devdoctor as root, or in the group of the store's folder",
                 "it may not be looked at: %s", std::strerror(errno));
    return true;
  }
  const Described maker(status.shm_cpid);
  const bool isOurs = home == nullptr || devsupport::store::IsOurs(status.shm_perm, *home);
  if (!isOurs || status.shm_segsz < sizeof(GateRecord)) {
    report.Fault(Severity::Error, kGate, "foreign_segment",
                 "stop who made it, remove it with 'ipcrm -M 0x12345677', and start the programs again",
                 "the segment at key 0x%x is not ours: %zu bytes, rights %04o, user %u; made by %s",
                 static_cast<unsigned>(kGateKey), static_cast<std::size_t>(status.shm_segsz),
                 status.shm_perm.mode & 0777U, static_cast<unsigned>(status.shm_perm.cuid), maker.text);
    return true;
  }
  Gate gate;
  return !gate.Copy(id) || CheckRecord(report, gate, home);
}

/// The process that opens or closes takes semaphore 0, the next one takes semaphore 1. The value 0 means free.
void CheckGateSemaphores(Report &report) {
  const int id = ::semget(kGateKey, 0, 0);
  if (id == -1) return;
  semid_ds status{};
  union {
    int val;
    semid_ds *buf;
  } argument{};
  argument.buf = &status;
  if (::semctl(id, 0, IPC_STAT, argument) != 0) return;
  if (status.sem_nsems != 2) {
    report.Fault(Severity::Error, kGate, "foreign_semaphores", "find who made them, and remove them with ipcrm",
                 "there are %lu semaphores instead of 2", static_cast<unsigned long>(status.sem_nsems));
    return;
  }
  for (int number = 0; number < 2; ++number) {
    const int value = ::semctl(id, number, GETVAL);
    const pid_t holder = ::semctl(id, number, GETPID);
    if (value <= 0) continue;
    const Process process = Look(holder);
    const char *what = number == 0 ? "opening or closing" : "waiting at the gate";
    if (process.IsStopped()) {
      char advice[96];
      std::snprintf(advice, sizeof advice, "let it go on with 'kill -CONT %d', or end it", static_cast<int>(holder));
      report.Fault(Severity::Error, kGate, "stopped_holder", advice, "%s (%d) is stopped while %s", process.name,
                   static_cast<int>(holder), what);
    } else {
      const Described who(holder);
      report.Note(kGate, "%s: %s", what, who.text);
    }
  }
}

void CheckRegions(Report &report) {
  std::uint64_t bytes = 0;
  unsigned regions = 0;
  for (long region = 0; region < kMaxRegions; ++region) {
    const int id = ::shmget(static_cast<key_t>(kShmKey + region), 0, 0);
    shmid_ds status{};
    if (id == -1 || ::shmctl(id, IPC_STAT, &status) != 0) continue;
    ++regions;
    bytes += status.shm_segsz;
  }
  report.Figure(kStore, "regions", regions);
  report.Figure(kStore, "region_bytes", bytes);
  if (regions != 0) {
    report.Note(kStore, "%u regions of shared memory, %llu KiB", regions,
                static_cast<unsigned long long>(bytes / 1024));
  }
}

}  // namespace

void CheckStore(Report &report, const char *home, const char *file) {
  struct stat status {};
  const bool hasHome = ::stat(home, &status) == 0;
  bool hasFile = false;
  if (hasHome) {
    hasFile = CheckFile(report, Path(home, file));
    CheckRoom(report, home);
  } else if (errno == ENOENT || errno == ENOTDIR) {
    report.Note(kStore, "no folder %s: %s", home, std::strerror(errno));
  } else {
    report.Fault(Severity::Error, kStore, "unreadable", "run devdoctor as root",
                 "the folder %s cannot be looked at: %s", home, std::strerror(errno));
  }
  const bool isOpen = CheckGate(report, hasHome ? &status : nullptr);
  if (hasFile) CheckClosed(report, home, file, isOpen);
  CheckGateSemaphores(report);
  CheckRegions(report);
}

}  // namespace devdoctor
