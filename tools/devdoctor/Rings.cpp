// SPDX-License-Identifier: MIT
// The two rings of the log channel, read without their locks. Everything in them is checked before it is used.

#include "tools/devdoctor/Rings.h"

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/detail/logmgr/LogCell.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "lib/ipc/RingAccess.h"
#include "tools/devdoctor/Process.h"

namespace devdoctor {

namespace {

constexpr time_t kHeldLong = 2;  // seconds; a writer holds the lock for microseconds

struct Ring {
  const char *name;
  int shareKey;
  int semKey;
  std::uint32_t cells;

  std::uint32_t Slots() const { return cells + 1; }
  std::size_t Bytes() const {
    return devsupport::kRingHeadBytes + LOGRING_USER_BYTES + std::size_t{Slots()} * (LOGCELL_BYTES + 4);
  }
};

constexpr Ring kRings[] = {
    {"log ring", LOGRING_LOG_SHARE_KEY, LOGRING_LOG_SEM_KEY, LOGRING_LOG_CELLS},
    {"event ring", LOGRING_EVT_SHARE_KEY, LOGRING_EVT_SEM_KEY, LOGRING_EVT_CELLS},
};

/// A segment, attached read-only while it lives.
class View {
 public:
  explicit View(int id) : address_(::shmat(id, nullptr, SHM_RDONLY)) {}
  ~View() {
    if (IsAttached()) ::shmdt(address_);
  }
  View(const View &) = delete;
  View &operator=(const View &) = delete;

  bool IsAttached() const { return address_ != reinterpret_cast<void *>(-1); }  // NOLINT: how shmat() reports errors
  const std::uint8_t *Bytes() const { return static_cast<const std::uint8_t *>(address_); }

 private:
  const void *address_;
};

std::uint64_t AgeOf(time_t moment) {
  const time_t now = ::time(nullptr);
  return moment != 0 && now > moment ? static_cast<std::uint64_t>(now - moment) : 0;
}

class RingCheck {
 public:
  RingCheck(const Ring &ring, Report &report, Repairs &repairs) : ring_(ring), report_(report), repairs_(repairs) {}

  void Run() {
    const int id = ::shmget(ring_.shareKey, 0, 0);
    if (id == -1 && errno == ENOENT) {
      report_.Note(ring_.name, "there is none: no program has opened the log channel since the system started");
      return;
    }
    shmid_ds status{};
    if (id == -1 || ::shmctl(id, IPC_STAT, &status) != 0) {
      report_.Fault(Severity::Error, ring_.name, "unreadable", "run devdoctor as root", "it may not be looked at: %s",
                    std::strerror(errno));
      return;
    }
    const Attached users(id);
    report_.Note(ring_.name, "segment %d of %zu bytes, rights %04o, attached by %s", id,
                 static_cast<std::size_t>(status.shm_segsz), status.shm_perm.mode & 0777U, users.text);
    report_.Figure(ring_.name, "segment_bytes", status.shm_segsz);
    report_.Figure(ring_.name, "attachments", status.shm_nattch);
    if ((status.shm_perm.mode & 0666U) != 0666U) {
      report_.Fault(Severity::Warning, ring_.name, "rights", "make it again with the rights 0666",
                    "its rights are %04o: not every program can write to it", status.shm_perm.mode & 0777U);
    }
    CheckSegment(id, status);
    CheckSemaphore(id);
  }

 private:
  void CheckSegment(int id, const shmid_ds &status) {
    const Described maker(status.shm_cpid);
    char advice[128];
    std::snprintf(advice, sizeof advice,
                  "stop who made it, remove it with 'ipcrm -m %d', and start the programs that write logs again", id);
    if (status.shm_segsz < ring_.Bytes()) {
      report_.Fault(Severity::Error, ring_.name, "foreign_segment", advice,
                    "the segment at key 0x%x is no ring: it has %zu bytes instead of %zu; made by %s", ring_.shareKey,
                    static_cast<std::size_t>(status.shm_segsz), ring_.Bytes(), maker.text);
      return;
    }
    const View view(id);
    if (!view.IsAttached()) {
      report_.Fault(Severity::Error, ring_.name, "unreadable", "run devdoctor as root", "it cannot be attached: %s",
                    std::strerror(errno));
      return;
    }
    _U_ShmQueue_SHM_VARI header;
    std::memcpy(&header, view.Bytes(), sizeof header);
    if (header.dwCellCount == 0) {
      CheckUnfinished(id, status, maker);
    } else if (header.dwCellCount != ring_.cells || header.wCellSize != LOGCELL_BYTES ||
               header.dwUserBytes != LOGRING_USER_BYTES) {
      report_.Fault(
          Severity::Error, ring_.name, "foreign_segment", advice,
          "its header tells of %u cells of %u bytes: it is another program's segment, another build's ring, "
          "or somebody wrote over it; made by %s",
          header.dwCellCount, header.wCellSize, maker.text);
    } else if (header.dwReadIdx >= ring_.Slots() || header.dwWriteIdx >= ring_.Slots()) {
      report_.Fault(Severity::Error, ring_.name, "scribbled_header",
                    "find the program that writes where it must not; the next record makes the ring empty and usable",
                    "its indexes %u and %u are no slots: somebody wrote over its header", header.dwReadIdx,
                    header.dwWriteIdx);
    } else {
      CheckCells(view, header);
    }
  }

  void CheckUnfinished(int id, const shmid_ds &status, const Described &maker) {
    if (Look(status.shm_cpid).IsAlive() && AgeOf(status.shm_ctime) < kHeldLong) return;  // it is being made now
    report_.Fault(Severity::Error, ring_.name, "unfinished",
                  "start a program that writes logs: it finishes the ring; or remove it with devdoctor --repair",
                  "it was never finished; made by %s", maker.text);
    if (status.shm_nattch == 0) repairs_.Propose({Repair::Kind::RemoveUnfinishedSegment, ring_.name, id});
  }

  void CheckCells(const View &view, const _U_ShmQueue_SHM_VARI &header) {
    const std::uint8_t *slots = view.Bytes() + devsupport::kRingHeadBytes + LOGRING_USER_BYTES;
    const auto lengthOf = [slots](std::uint32_t slot) {
      return devsupport::LoadSlotLength(slots + std::size_t{slot} * (LOGCELL_BYTES + 4));
    };
    std::uint32_t used = 0;
    std::uint32_t damaged = 0;
    for (std::uint32_t slot = header.dwReadIdx; slot != header.dwWriteIdx; slot = (slot + 1) % ring_.Slots()) {
      ++used;
      const std::uint32_t length = lengthOf(slot);
      if (length < LOGCELL_LENGTH(0) || length > LOGCELL_BYTES) ++damaged;
    }
    const bool hasLapped = lengthOf(ring_.Slots() - 1) != 0;
    report_.Note(ring_.name, "%u of %u cells used; %s", used, ring_.cells,
                 hasLapped ? "it was written once round, or more often" : "it was not yet written once round");
    report_.Figure(ring_.name, "used_cells", used);
    report_.Figure(ring_.name, "capacity_cells", ring_.cells);
    report_.Figure(ring_.name, "damaged_cells", damaged);
    if (damaged != 0) {
      report_.Fault(Severity::Warning, ring_.name, "damaged_cells",
                    "look at them with devlog; they go when the ring has been written once round",
                    "%u cells are damaged", damaged);
    }
  }

  void CheckSemaphore(int segmentId) {
    const int id = ::semget(ring_.semKey, 0, 0);
    if (id == -1 && errno == ENOENT) {
      const Attached writers(segmentId, Attached::Who::Writers);
      if (writers.count != 0) {
        report_.Fault(Severity::Error, ring_.name, "no_semaphore", "start these programs again",
                      "its semaphore was removed, and it is written without a lock by %s", writers.text);
      } else {
        report_.Note(ring_.name, "no semaphore, and nobody who needs one");
      }
      return;
    }
    semid_ds status{};
    union {
      int val;
      semid_ds *buf;
    } argument{};
    argument.buf = &status;
    if (id == -1 || ::semctl(id, 0, IPC_STAT, argument) != 0) {
      report_.Fault(Severity::Error, ring_.name, "unreadable", "run devdoctor as root",
                    "its semaphore may not be looked at: %s", std::strerror(errno));
      return;
    }
    const int value = ::semctl(id, 0, GETVAL);
    const pid_t last = ::semctl(id, 0, GETPID);
    const int waiting = ::semctl(id, 0, GETNCNT);
    report_.Figure(ring_.name, "semaphore_value", value > 0 ? static_cast<std::uint64_t>(value) : 0);
    report_.Figure(ring_.name, "semaphore_waiting", waiting > 0 ? static_cast<std::uint64_t>(waiting) : 0);
    if (value == 0) {
      CheckHolder(id, last, status.sem_otime != 0 ? status.sem_otime : status.sem_ctime, waiting);
    } else if (value > 1 || status.sem_nsems != 1) {
      report_.Fault(Severity::Error, ring_.name, "semaphore_value",
                    "stop all programs that use the ring, remove the semaphore with ipcrm, and start them again",
                    "its semaphore lets %d in at once", value);
    } else if (last != 0) {
      const Described who(last);
      report_.Note(ring_.name, "semaphore %d free; last used by %s", id, who.text);
    }
  }

  void CheckHolder(int id, pid_t holder, time_t since, int waiting) {
    const Process process = Look(holder);
    const std::uint64_t age = AgeOf(since);
    if (age < kHeldLong) return;  // a write in progress
    char advice[160];
    const unsigned long long seconds = age;
    if (holder <= 0) {
      report_.Fault(Severity::Error, ring_.name, "lock_held", "look for it outside of this container",
                    "its lock has been held for %llu s by a process that cannot be seen from here; %d wait", seconds,
                    waiting);
      return;
    }
    if (!process.IsAlive()) {
      report_.Fault(Severity::Error, ring_.name, "lock_of_the_dead", "give it back with devdoctor --repair",
                    "its lock has been taken for %llu s, and who took it is dead; %d wait", seconds, waiting);
      repairs_.Propose({Repair::Kind::FreeSemaphore, ring_.name, id});
      return;
    }
    std::snprintf(advice, sizeof advice,
                  process.IsStopped()
                      ? "let it go on with 'kill -CONT %d', or end it: the kernel gives the lock back"
                      : "see what it waits for; when it is ended, the kernel gives the lock back (%d)",
                  static_cast<int>(holder));
    report_.Fault(Severity::Error, ring_.name, "lock_held", advice,
                  "its lock has been held for %llu s by %s (%d)%s; "
                  "%d wait",
                  seconds, process.name, static_cast<int>(holder), process.IsStopped() ? ", which is stopped" : "",
                  waiting);
  }

  const Ring &ring_;
  Report &report_;
  Repairs &repairs_;
};

}  // namespace

void CheckRings(Report &report, Repairs &repairs) {
  for (const Ring &ring : kRings) RingCheck(ring, report, repairs).Run();
}

}  // namespace devdoctor
