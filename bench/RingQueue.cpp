// SPDX-License-Identifier: MIT
// Ring queue: pushes a message of 48 bytes and takes the oldest of eight, with and without a mutex.

#include <devsupport/container/MyQueue.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <queue>
#include <type_traits>
#include <vector>

#include "bench/Peers.h"
#include "bench/Row.h"

#if DEVSUPPORT_PEER_BOOST
#include <boost/circular_buffer.hpp>
#endif

namespace devsupport::bench {

namespace {

constexpr std::size_t kCapacity = 256;
constexpr std::size_t kRoom = 64;  // longest message
constexpr std::uint16_t kLength = 48;
constexpr int kHeld = 8;

using Buffer = std::array<char, kRoom>;

// Replaces std::mutex for one thread, at no cost.
struct NoMutex {
  void lock() {}
  void unlock() {}
};

// The message that the peers store: a length and that many bytes, copied in and out as in our queue.
struct Message {
  Message() {}  // NOLINT(modernize-use-equals-default): the bytes stay as they are
  Message(const char *from, std::uint16_t size) { Assign(from, size); }
  Message(const Message &other) { Assign(other.bytes.data(), other.length); }
  Message &operator=(const Message &other) {
    Assign(other.bytes.data(), other.length);
    return *this;
  }
  ~Message() = default;

  void Assign(const char *from, std::uint16_t size) {
    length = size;
    std::memcpy(bytes.data(), from, size);
  }
  std::size_t CopyTo(Buffer &out) const {
    std::memcpy(out.data(), bytes.data(), length);
    return length;
  }

  std::uint16_t length = 0;
  Buffer bytes;
};

// Each queue below has Push, which returns false when the queue is full, and Get, which returns the message's length
// or 0.

template <bool kLocked>
class Ours {
 public:
  Ours() {
    if (TMyQueue_Create(kCapacity, kRoom, &queue_, kLocked ? 1 : 0) == 0) std::abort();
  }
  ~Ours() { TMyQueue_Destroy(&queue_); }
  Ours(const Ours &) = delete;
  Ours &operator=(const Ours &) = delete;

  bool Push(const char *message, std::uint16_t length) { return TMyQueue_Push(&queue_, message, length) != 0; }
  std::size_t Get(Buffer &out) {
    std::uint32_t length = 0;
    return TMyQueue_Get(&queue_, out.data(), &length, kRoom) != 0 ? length : 0;
  }

 private:
  TMyQueue queue_{};
};

// The floor: two copies and two steps. It is never full or empty, and does not check for that.
template <class Mutex>
class Copies {
 public:
  bool Push(const char *message, std::uint16_t length) {
    const std::lock_guard lock(mutex_);
    cells_[put_].Assign(message, length);
    put_ = Next(put_);
    return true;
  }
  std::size_t Get(Buffer &out) {
    const std::lock_guard lock(mutex_);
    const std::size_t length = cells_[get_].CopyTo(out);
    get_ = Next(get_);
    return length;
  }

 private:
  static std::size_t Next(std::size_t index) { return index + 1 < kCapacity ? index + 1 : 0; }

  Mutex mutex_;
  std::vector<Message> cells_{kCapacity, Message()};
  std::size_t put_ = 0;
  std::size_t get_ = 0;
};

template <class Mutex>
class StdQueue {
 public:
  bool Push(const char *message, std::uint16_t length) {
    const std::lock_guard lock(mutex_);
    if (queue_.size() >= kCapacity) return false;
    queue_.emplace(message, length);
    return true;
  }
  std::size_t Get(Buffer &out) {
    const std::lock_guard lock(mutex_);
    if (queue_.empty()) return 0;
    const std::size_t length = queue_.front().CopyTo(out);
    queue_.pop();
    return length;
  }

 private:
  Mutex mutex_;
  std::queue<Message> queue_;
};

#if DEVSUPPORT_PEER_BOOST
template <class Mutex>
class CircularBuffer {
 public:
  bool Push(const char *message, std::uint16_t length) {
    const std::lock_guard lock(mutex_);
    if (buffer_.full()) return false;
    buffer_.push_back(Message());  // no construction in place: add an empty one first, which costs no copy
    buffer_.back().Assign(message, length);
    return true;
  }
  std::size_t Get(Buffer &out) {
    const std::lock_guard lock(mutex_);
    if (buffer_.empty()) return 0;
    const std::size_t length = buffer_.front().CopyTo(out);
    buffer_.pop_front();
    return length;
  }

 private:
  Mutex mutex_;
  boost::circular_buffer<Message> buffer_{kCapacity};
};
#endif

template <class Queue>
void PushGet(benchmark::State &state) {
  Queue queue;
  Buffer in{};
  Buffer out{};
  std::uint16_t length = kLength;
  for (int i = 0; i < kHeld; ++i) queue.Push(in.data(), length);
  for (auto _ : state) {
    benchmark::DoNotOptimize(length);  // the compiler must not know it: messages vary
    benchmark::DoNotOptimize(queue.Push(in.data(), length));
    benchmark::DoNotOptimize(queue.Get(out));
    benchmark::DoNotOptimize(out);
  }
}

template <class Mutex>
void RegisterQueue(const Row &row) {
  row.Ours(PushGet<Ours<!std::is_same_v<Mutex, NoMutex>>>);
  row.Floor("two copies", PushGet<Copies<Mutex>>);
  row.Peer("std::queue", PushGet<StdQueue<Mutex>>);
#if DEVSUPPORT_PEER_BOOST
  row.Peer("boost::circular_buffer", PushGet<CircularBuffer<Mutex>>);
#endif
}

}  // namespace

void RegisterRingQueue() {
  RegisterQueue<NoMutex>({"queue", "push and get a message of 48 bytes", kNearTheBestPeer});
  RegisterQueue<std::mutex>({"queue_mutex", "push and get a message of 48 bytes under a mutex", kNearTheBestPeer});
}

}  // namespace devsupport::bench
