// SPDX-License-Identifier: MIT
// Shared ring: a message pushed and taken again, by one process and by several.

#include <devsupport/ipc/MyShareMemory.h>

#include <fcntl.h>
#include <mqueue.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>

#include "bench/Peers.h"
#include "bench/Row.h"
#include "bench/SkipOnError.h"
#include "bench/UndoSemaphore.h"
#include "bench/WorkerProcesses.h"
#include "tests/support/IpcKey.h"
#include "tests/support/SharedBlock.h"

#if DEVSUPPORT_PEER_BOOST
#include <boost/interprocess/ipc/message_queue.hpp>
#endif

namespace devsupport::bench {

namespace {

constexpr std::size_t kMessageBytes = 132;
constexpr std::size_t kCells = 1024;
constexpr std::size_t kLongestMessage = 4096;

struct Shape {
  std::size_t bytes = kMessageBytes;
  std::size_t cells = kCells;
};

// Each channel below is constructed with a shape. Processes forked after that can use it. Push and Get transfer one
// message of `bytes` bytes.

class Ours {
 public:
  explicit Ours(Shape shape) : length_(static_cast<std::uint16_t>(shape.bytes)) {
    if (TShmQueue_Create(ringKey_, semaphoreKey_, static_cast<std::uint32_t>(shape.cells), length_, nullptr,
                         &ring_) == 0)
      throw std::runtime_error("TShmQueue_Create");
  }
  ~Ours() { TShmQueue_Close(&ring_, 1); }
  Ours(const Ours &) = delete;
  Ours &operator=(const Ours &) = delete;

  void Push(const char *message) { TShmQueue_Push(&ring_, message, length_); }
  void Get(char *out) {
    std::uint32_t length = 0;
    TShmQueue_Get(&ring_, out, &length, length_);
    benchmark::DoNotOptimize(length);
  }

 private:
  test::IpcKey ringKey_;
  test::IpcKey semaphoreKey_;
  std::uint16_t length_;
  TShmQueue ring_{};
};

// A mutex in shared memory. When its holder dies, the next process is told so and can take it.
class RobustMutex {
 public:
  RobustMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&*mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }

  void lock() {
    if (pthread_mutex_lock(&*mutex_) == EOWNERDEAD) pthread_mutex_consistent(&*mutex_);
  }
  void unlock() { pthread_mutex_unlock(&*mutex_); }

 private:
  test::SharedBlock<pthread_mutex_t> mutex_;
};

// Two copies, each under the lock. With UndoSemaphore this is the ring's floor. It is never full or empty, and does
// not check for that.
template <class Lock>
class CopiesUnder {
 public:
  explicit CopiesUnder(Shape shape) : bytes_(shape.bytes), size_(sizeof(Indices) + shape.cells * shape.bytes) {
    memory_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    indices_ = static_cast<Indices *>(memory_);
    cells_ = static_cast<char *>(memory_) + sizeof(Indices);
    end_ = shape.cells * shape.bytes;
  }
  ~CopiesUnder() { munmap(memory_, size_); }
  CopiesUnder(const CopiesUnder &) = delete;
  CopiesUnder &operator=(const CopiesUnder &) = delete;

  void Push(const char *message) {
    lock_.lock();
    std::memcpy(cells_ + indices_->put, message, bytes_);
    Step(indices_->put);
    lock_.unlock();
  }
  void Get(char *out) {
    lock_.lock();
    std::memcpy(out, cells_ + indices_->get, bytes_);
    Step(indices_->get);
    lock_.unlock();
  }

 private:
  struct Indices {  // in bytes from the first cell
    std::size_t put;
    std::size_t get;
  };
  void Step(std::size_t &index) const { index = index + bytes_ < end_ ? index + bytes_ : 0; }

  std::size_t bytes_;
  std::size_t size_;
  std::size_t end_;
  void *memory_;
  Indices *indices_;
  char *cells_;
  Lock lock_;
};

class PosixQueue {
 public:
  explicit PosixQueue(Shape shape) : bytes_(shape.bytes) {
    const std::string name = "/devsupport_bench_" + std::to_string(getpid());
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;  // the limit for ordinary users
    attributes.mq_msgsize = static_cast<long>(bytes_);
    queue_ = Check(mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes), "mq_open");
    mq_unlink(name.c_str());
  }
  ~PosixQueue() { mq_close(queue_); }
  PosixQueue(const PosixQueue &) = delete;
  PosixQueue &operator=(const PosixQueue &) = delete;

  void Push(const char *message) { mq_send(queue_, message, bytes_, 0); }
  void Get(char *out) { benchmark::DoNotOptimize(mq_receive(queue_, out, bytes_, nullptr)); }

 private:
  std::size_t bytes_;
  mqd_t queue_;
};

class SystemVQueue {
 public:
  explicit SystemVQueue(Shape shape)
      : bytes_(shape.bytes), id_(Check(msgget(IPC_PRIVATE, 0600), "msgget")), owner_(getpid()) {}
  ~SystemVQueue() {
    if (owner_ == getpid()) msgctl(id_, IPC_RMID, nullptr);
  }
  SystemVQueue(const SystemVQueue &) = delete;
  SystemVQueue &operator=(const SystemVQueue &) = delete;

  // The interface wants a type before the text. So the copy that joins the two is a part of the cost.
  void Push(const char *message) {
    Buffer buffer;
    buffer.type = 1;
    std::memcpy(buffer.text.data(), message, bytes_);
    msgsnd(id_, &buffer, bytes_, 0);
  }
  void Get(char *out) {
    Buffer buffer;
    benchmark::DoNotOptimize(msgrcv(id_, &buffer, bytes_, 0, 0));
    std::memcpy(out, buffer.text.data(), bytes_);
  }

 private:
  struct Buffer {
    long type;
    std::array<char, kLongestMessage> text;
  };

  std::size_t bytes_;
  int id_;
  pid_t owner_;
};

class DatagramPair {
 public:
  explicit DatagramPair(Shape shape) : bytes_(shape.bytes) {
    Check(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends_.data()), "socketpair");
  }
  ~DatagramPair() {
    close(ends_[0]);
    close(ends_[1]);
  }
  DatagramPair(const DatagramPair &) = delete;
  DatagramPair &operator=(const DatagramPair &) = delete;

  void Push(const char *message) { benchmark::DoNotOptimize(send(ends_[0], message, bytes_, 0)); }
  void Get(char *out) { benchmark::DoNotOptimize(recv(ends_[1], out, bytes_, 0)); }

 private:
  std::size_t bytes_;
  std::array<int, 2> ends_{};
};

#if DEVSUPPORT_PEER_BOOST
class BoostQueue {
 public:
  explicit BoostQueue(Shape shape)
      : bytes_(shape.bytes),
        name_("devsupport_bench_" + std::to_string(getpid())),
        queue_(boost::interprocess::create_only, name_.c_str(), shape.cells, shape.bytes) {
    boost::interprocess::message_queue::remove(name_.c_str());  // its memory stays as long as it is mapped
  }

  void Push(const char *message) { queue_.send(message, bytes_, 0); }
  void Get(char *out) {
    std::size_t length = 0;
    unsigned priority = 0;
    queue_.receive(out, bytes_, length, priority);
    benchmark::DoNotOptimize(length);
  }

 private:
  std::size_t bytes_;
  std::string name_;
  boost::interprocess::message_queue queue_;
};
#endif

using Buffer = std::array<char, kLongestMessage>;

using SharedTime = test::SharedBlock<std::atomic<std::int64_t>>;  // in nanoseconds

// Stores the time if it is longer than the longest that any process has stored.
void NoteLongest(const SharedTime &longest, std::chrono::nanoseconds time) {
  std::int64_t known = longest->load(std::memory_order_relaxed);
  while (known < time.count() && !longest->compare_exchange_weak(known, time.count())) continue;
}

template <class Channel>
void PushGet(benchmark::State &state, Shape shape) {
  Channel channel(shape);
  Buffer in{};
  Buffer out{};
  for (auto _ : state) {
    channel.Push(in.data());
    channel.Get(out.data());
    benchmark::ClobberMemory();
  }
}

// Each process pushes a message and takes one, which may be another's. The time is that of one pair by any process.
template <class Channel>
void PushGetBy(benchmark::State &state, int processes) {
  constexpr int kPairsEach = 1000;
  Channel channel({});
  Buffer in{};
  Buffer out{};
  WorkerProcesses workers(processes, kPairsEach, [&] {
    channel.Push(in.data());
    channel.Get(out.data());
  });
  while (state.KeepRunningBatch(processes * kPairsEach)) state.SetIterationTime(workers.Run());
}

// The longest time that one pair took, of 80,000 pairs by all processes together.
template <class Channel>
void LongestPairBy(benchmark::State &state, int processes) {
  using Watch = std::chrono::steady_clock;
  constexpr int kPairs = 80000;
  Channel channel({});
  Buffer in{};
  Buffer out{};
  const SharedTime longest;
  WorkerProcesses workers(processes, kPairs / processes, [&] {
    const Watch::time_point start = Watch::now();
    channel.Push(in.data());
    channel.Get(out.data());
    NoteLongest(longest, Watch::now() - start);
  });
  for (auto _ : state) {
    *longest = 0;
    workers.Run();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::nanoseconds(*longest)).count());
  }
}

template <class Channel>
Body Alone(Shape shape) {
  return SkipOnError(PushGet<Channel>, shape);
}

template <class Channel>
Body LongestBy(int processes) {
  return SkipOnError(LongestPairBy<Channel>, processes);
}

template <class Channel>
Body By(int processes) {
  return SkipOnError(PushGetBy<Channel>, processes);
}

constexpr const char *kFloor = "semop pairs and two copies";
constexpr const char *kYieldingFloor = "semop pairs that yield, and two copies";

void RegisterMessage() {
  const Row row("ring", "push and get a message of 132 bytes through shared memory", kNearTheFloor);
  row.Ours(Alone<Ours>({})).Floor(kFloor, Alone<CopiesUnder<UndoSemaphore>>({}));
  row.Peer("POSIX message queue", Alone<PosixQueue>({})).Peer("System V message queue", Alone<SystemVQueue>({}));
  row.Peer("UNIX datagram pair", Alone<DatagramPair>({}));
  row.Peer("robust mutex and two copies", Alone<CopiesUnder<RobustMutex>>({}));
#if DEVSUPPORT_PEER_BOOST
  row.Peer("boost::interprocess", Alone<BoostQueue>({}));
#endif
}

void RegisterSizes() {
  const Row row("ring_bytes", "push and get a message, by message size in bytes");
  for (const std::size_t bytes : {4U, 16U, 64U, 256U, 1024U, 4096U}) {
    const Shape shape{.bytes = bytes, .cells = kCells};
    const Row point = row.At(static_cast<long>(bytes));
    point.Ours(Alone<Ours>(shape)).Floor(kFloor, Alone<CopiesUnder<UndoSemaphore>>(shape));
    point.Peer("POSIX message queue", Alone<PosixQueue>(shape));
    point.Peer("System V message queue", Alone<SystemVQueue>(shape));
    point.Peer("UNIX datagram pair", Alone<DatagramPair>(shape));
  }
}

void RegisterLengths() {
  const Row row("ring_cells", "push and get a message of 132 bytes, by ring length in cells");
  for (const std::size_t cells : {8U, 64U, 512U, 4096U, 65536U}) {
    const Shape shape{.bytes = kMessageBytes, .cells = cells};
    row.At(static_cast<long>(cells)).Ours(Alone<Ours>(shape)).Floor(kFloor, Alone<CopiesUnder<UndoSemaphore>>(shape));
  }
}

void RegisterProcesses() {
  const Row row("ring_processes", "push and get a message of 132 bytes, by number of processes at it", kTwiceOneAlone,
                Clock::Elapsed);
  for (const int processes : {1, 2, 4, 8}) {
    const Row point = row.At(processes);
    point.Ours(By<Ours>(processes)).Floor(kYieldingFloor, By<CopiesUnder<YieldingUndoSemaphore>>(processes));
    point.Peer("semop pairs that sleep", By<CopiesUnder<UndoSemaphore>>(processes));
    point.Peer("POSIX message queue", By<PosixQueue>(processes));
    point.Peer("System V message queue", By<SystemVQueue>(processes));
    point.Peer("robust mutex and two copies", By<CopiesUnder<RobustMutex>>(processes));
  }
}

void RegisterLongestWait() {
  const Row row("ring_longest_wait", "the longest of 80,000 times that a push and get took, by number of processes",
                kNoAim, Clock::ElapsedOnce);
  for (const int processes : {2, 8}) {
    const Row point = row.At(processes);
    point.Ours(LongestBy<Ours>(processes));
    point.Peer("semop pairs that sleep", LongestBy<CopiesUnder<UndoSemaphore>>(processes));
  }
}

}  // namespace

void RegisterSharedRing() {
  RegisterMessage();
  RegisterSizes();
  RegisterLengths();
  RegisterProcesses();
  RegisterLongestWait();
}

}  // namespace devsupport::bench
