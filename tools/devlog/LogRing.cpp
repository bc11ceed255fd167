// SPDX-License-Identifier: MIT
// Reads one ring of the log channel: attaches it without creating anything, and copies it under its lock.

#include "tools/devlog/LogRing.h"

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "lib/ipc/RingAccess.h"
#include "tools/devlog/Exit.h"
#include "tools/devlog/Print.h"

using devsupport::RingEnd;
using devsupport::RingLock;

namespace devlog {

namespace {

constexpr time_t kLockSeconds = 1;

constexpr int ShareKey(Ring ring) { return ring == Ring::Log ? LOGRING_LOG_SHARE_KEY : LOGRING_EVT_SHARE_KEY; }
constexpr int SemKey(Ring ring) { return ring == Ring::Log ? LOGRING_LOG_SEM_KEY : LOGRING_EVT_SEM_KEY; }

const char *WordFor(Ring ring) { return NameOf(ring).data(); }

/// The ring's sizes; all but the address where it is attached.
TShmQueue RecordOf(std::size_t cells) {
  TShmQueue que{};
  que.nSlotCount = static_cast<std::int32_t>(cells + 1);
  que.wCellSize = LOGCELL_BYTES;
  que.dwStride = sizeof(Cell);
  que.semid = -1;
  return que;
}

std::size_t SegmentBytes(const TShmQueue &que) {
  return devsupport::kRingHeadBytes + LOGRING_USER_BYTES + static_cast<std::size_t>(que.nSlotCount) * que.dwStride;
}

/// Semaphore_Lock with a timeout: a writer that is stopped while it writes must not block devlog.
bool LockInTime(int semId) {
  const timespec limit{kLockSeconds, 0};
  sembuf take{0, -1, SEM_UNDO};
  int result = 0;
  do {
    result = ::semtimedop(semId, &take, 1, &limit);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

LogRing::LogRing(Ring ring, std::span<Cell> room) : ring_(ring), room_(room), que_(RecordOf(room.size())) {}

// Detaches only: the last process that closes the ring removes the semaphore, and devlog must not do this.
void LogRing::Detach() {
  if (IsAttached()) ::shmdt(que_.shm.address);
  que_ = RecordOf(room_.size());
  hasPosition_ = false;
  copied_ = {};
}

Found LogRing::Attach(Access access) {
  const int id = ::shmget(ShareKey(ring_), 0, 0);
  if (id == refused_ && (id != -1 || errno == EACCES)) return Found::Missing;
  const Found found = AttachTo(id, access);
  refused_ = found == Found::Unusable ? id : kNone;
  return found;
}

Found LogRing::AttachTo(int id, Access access) {
  shmid_ds status{};
  if (id == -1 || ::shmctl(id, IPC_STAT, &status) != 0) {
    if (errno != EACCES) return Found::Missing;
    Say("the %s ring cannot be read: %s", WordFor(ring_), std::strerror(errno));
    return Found::Unusable;
  }
  void *address = ::shmat(id, nullptr, access == Access::Look ? SHM_RDONLY : 0);
  if (address == reinterpret_cast<void *>(-1)) {  // NOLINT(performance-no-int-to-ptr): how shmat() reports errors
    Say("the %s ring cannot be attached: %s", WordFor(ring_), std::strerror(errno));
    return Found::Unusable;
  }
  access_ = access;
  que_.shm = {id, address};
  que_.header = static_cast<_U_ShmQueue_SHM_VARI *>(address);
  que_.pUserArea = static_cast<std::uint8_t *>(address) + devsupport::kRingHeadBytes;
  que_.cells = que_.pUserArea + LOGRING_USER_BYTES;

  // A new ring has its full size at once, and its creator writes the cell count last.
  const bool isFinished =
      status.shm_segsz < SegmentBytes(que_) || devsupport::LoadOnce(que_.header->dwCellCount) != 0;
  if (isFinished && CheckShape(status.shm_segsz)) {
    // The first copy is made without the lock. It loads the pages of both buffers, so that copying under the lock
    // causes no page faults.
    CopyRange(static_cast<std::uint32_t>(room_.size()), static_cast<std::uint32_t>(room_.size()));
    identity_ = {id, static_cast<std::uint32_t>(status.shm_ctime)};
    return Found::Attached;
  }
  Detach();
  return isFinished ? Found::Unusable : Found::Missing;
}

bool LogRing::CheckShape(std::size_t segmentBytes) {
  if (segmentBytes < SegmentBytes(que_)) {
    Say("the %s ring has %zu bytes; this devlog knows rings of %zu", WordFor(ring_), segmentBytes,
        SegmentBytes(que_));
    return false;
  }
  const _U_ShmQueue_SHM_VARI header = *que_.header;
  if (header.dwCellCount == room_.size() && header.wCellSize == LOGCELL_BYTES &&
      header.dwUserBytes == LOGRING_USER_BYTES) {
    return true;
  }
  Say("the %s ring has %u cells of %u bytes and a user area of %u; this devlog knows rings of %zu, %d and %d",
      WordFor(ring_), header.dwCellCount, header.wCellSize, header.dwUserBytes, room_.size(), LOGCELL_BYTES,
      LOGRING_USER_BYTES);
  return false;
}

void LogRing::GoOnFrom(const Position &position) {
  hasPosition_ = true;
  position_ = position;
}

bool LogRing::GetPosition(Position &position) const {
  if (hasPosition_) position = position_;
  return hasPosition_;
}

bool LogRing::HasNews() const {
  std::uint32_t writeIndex = 0;
  if (!LoadIndex(que_, RingEnd::Write, &writeIndex)) return !saidDamaged_;
  return !hasPosition_ || writeIndex != position_.index || MarkOf(SlotBefore(writeIndex)) != position_.before;
}

Mark LogRing::MarkOf(std::uint32_t slot) const {
  Mark mark{};
  std::memcpy(&mark, SlotAt(slot), sizeof mark);
  return mark;
}

// While the slot before the position is unchanged, fewer records came than the ring has slots, and the write index
// tells how many. If it has changed, all records in the ring are new: either the ring was written once round, or a
// reader emptied it and writing started again at the first slot. In the second case the last slot is unchanged.
bool LogRing::IsOverrun() const {
  return MarkOf(SlotBefore(position_.index)) != position_.before && MarkOf(Last()) != position_.last;
}

bool LogRing::TakeLock() {
  constexpr int kAttempts = 2;  // the semaphore may have been removed and created again
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (que_.semid == -1) {
      que_.semid = access_ == Access::Take ? Semaphore_Create(SemKey(ring_)) : ::semget(SemKey(ring_), 0, 0);
    }
    // Without a semaphore there is no writer: the last one removed it.
    if (que_.semid == -1 && errno == ENOENT) return false;
    if (que_.semid != -1 && LockInTime(que_.semid)) {
      saidLocked_ = false;
      return true;
    }
    if (errno != EIDRM && errno != EINVAL) break;
    que_.semid = -1;
  }
  SayLocked(errno);
  return false;
}

void LogRing::SayLocked(int error) {
  if (saidLocked_) return;
  saidLocked_ = true;
  const char *consequence = access_ == Access::Look ? "; reading without it" : "";
  if (error == EAGAIN) {
    Say("the %s ring's lock is held for long (process %d had it last)%s", WordFor(ring_),
        ::semctl(que_.semid, 0, GETPID), consequence);
  } else {
    Say("the %s ring's lock cannot be used: %s%s", WordFor(ring_), std::strerror(error), consequence);
  }
}

// Copies the newest cells before the write index: one run, or two when they wrap around.
void LogRing::CopyRange(std::uint32_t writeIndex, std::uint32_t count) {
  const auto slots = static_cast<std::uint32_t>(que_.nSlotCount);
  const std::uint32_t begin = writeIndex >= count ? writeIndex - count : writeIndex + slots - count;
  const std::uint32_t firstRun = std::min(count, slots - begin);
  std::memcpy(room_.data(), SlotAt(begin), firstRun * sizeof(Cell));
  std::memcpy(room_.data() + firstRun, SlotAt(0), (count - firstRun) * sizeof(Cell));
}

bool LogRing::CopyNew(News &news) {
  news = {};
  copied_ = {};
  const bool isHeld = TakeLock();
  RingLock lock(que_.semid, isHeld);
  if (!isHeld && access_ == Access::Take) return false;

  std::uint32_t readIndex = 0;
  std::uint32_t writeIndex = 0;
  used_ = 0;
  isUsable_ = LoadIndex(que_, RingEnd::Read, &readIndex) && LoadIndex(que_, RingEnd::Write, &writeIndex);
  if (isUsable_) {
    used_ = static_cast<std::uint32_t>(devsupport::CellsBetween(que_, readIndex, writeIndex));
    std::uint32_t count = used_;
    if (hasPosition_ && MarkOf(SlotBefore(position_.index)) == position_.before) {
      count =
          std::min(used_, static_cast<std::uint32_t>(devsupport::CellsBetween(que_, position_.index, writeIndex)));
    } else if (hasPosition_ && IsOverrun()) {
      news.overrun = static_cast<std::uint32_t>(que_.nSlotCount);
    }
    CopyRange(writeIndex, count);
    end_ = {writeIndex, MarkOf(SlotBefore(writeIndex)), MarkOf(Last())};
    copied_ = news.cells = room_.first(count);
  }
  std::uint16_t counter = 0;
  std::memcpy(&counter, que_.pUserArea, sizeof counter);
  lock.Release();

  sequence_ = LOGCELL_GET(counter, SEQUENCE);
  const bool isNews = !isUsable_ && !saidDamaged_;
  saidDamaged_ = !isUsable_;
  if (isNews) {
    Say("the %s ring is damaged: where it begins or ends is no slot; the next record begins it anew", WordFor(ring_));
  }
  return true;
}

bool LogRing::Pass(std::size_t count) {
  if (!isUsable_) {
    hasPosition_ = false;
    return true;
  }
  const std::size_t left = copied_.size() - count;
  if (left == 0) {
    GoOnFrom(end_);
  } else if (count != 0) {
    const auto index = static_cast<std::uint32_t>((end_.index + room_.size() + 1 - left) % (room_.size() + 1));
    Position position{index, {}, end_.last};
    std::memcpy(&position.before, &copied_[count - 1], sizeof position.before);
    GoOnFrom(position);
  }
  copied_ = copied_.last(left);
  return access_ != Access::Take || !hasPosition_ || TakeUpToPosition();
}

// Does not remove records that came after an overrun, or after another reader took the old ones.
bool LogRing::TakeUpToPosition() {
  const bool isHeld = TakeLock();
  const RingLock lock(que_.semid, isHeld);
  std::uint32_t readIndex = 0;
  std::uint32_t writeIndex = 0;
  if (!isHeld) return false;
  if (!LoadIndex(que_, RingEnd::Read, &readIndex) || !LoadIndex(que_, RingEnd::Write, &writeIndex)) return true;
  const bool isStored = devsupport::CellsBetween(que_, readIndex, position_.index) <=
                        devsupport::CellsBetween(que_, readIndex, writeIndex);
  if (isStored && MarkOf(SlotBefore(position_.index)) == position_.before) {
    StoreIndex(que_, RingEnd::Read, position_.index);
  }
  return true;
}

Figures LogRing::Measure() const {
  shmid_ds status{};
  const bool isThere = ::shmctl(que_.shm.shmid, IPC_STAT, &status) == 0 && status.shm_nattch > 0;
  return {.capacity = static_cast<std::uint32_t>(room_.size()),
          .used = used_,
          .sequence = sequence_,
          .attached = isThere ? static_cast<std::uint32_t>(status.shm_nattch) - 1 : 0};
}

bool LogRing::IsRemoved() const {
  shmid_ds status{};
  return ::shmctl(que_.shm.shmid, IPC_STAT, &status) != 0 || (status.shm_perm.mode & SHM_DEST) != 0;
}

}  // namespace devlog
