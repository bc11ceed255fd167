// SPDX-License-Identifier: MIT
// Slot allocator: gives back one of the used slots, chosen at random, and takes another.

#include <devsupport/container/AllotArray.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/Peers.h"
#include "bench/Row.h"

#if DEVSUPPORT_PEER_BOOST
#include <boost/pool/pool.hpp>
#endif

namespace devsupport::bench {

namespace {

constexpr int kCapacity = 1000;
constexpr std::size_t kHeld = 500;

// The order in which used slots are given back.
const std::vector<std::uint32_t> &Victims() {
  static const auto victims = [] {
    std::mt19937 random(4711);
    std::vector<std::uint32_t> made(4096);
    for (auto &victim : made) victim = static_cast<std::uint32_t>(random() % kHeld);
    return made;
  }();
  return victims;
}

// Holds kHeld slots and exchanges them one by one. `Allocator` has Get and Free.
template <class Allocator>
void Exchange(benchmark::State &state) {
  Allocator allocator;
  std::vector<typename Allocator::Slot> held(kHeld);
  for (auto &slot : held) slot = allocator.Get();
  const auto &victims = Victims();
  std::size_t turn = 0;
  for (auto _ : state) {
    auto &slot = held[victims[turn++ % victims.size()]];
    allocator.Free(slot);
    slot = allocator.Get();
    benchmark::ClobberMemory();
  }
  for (auto slot : held) allocator.Free(slot);
}

class Ours {
 public:
  using Slot = int;
  Ours() {
    if (AllotAry_Construct(&slots_, "bench", kCapacity) == 0) std::abort();
  }
  ~Ours() { AllotAry_Destroy(&slots_); }
  Ours(const Ours &) = delete;
  Ours &operator=(const Ours &) = delete;
  Slot Get() { return AllotAry_GetAvaiRoom(&slots_); }
  void Free(Slot slot) { AllotAry_FreeRoom(&slots_, slot); }

 private:
  TAllotArray slots_{};
};

// The floor: the same stores into the same three arrays, inline and unchecked.
class Stores {
 public:
  using Slot = std::uint32_t;
  Stores() : free_(kCapacity), inUse_(kCapacity), position_(kCapacity) {
    for (Slot slot = 0; slot < kCapacity; ++slot) free_[slot] = slot;
  }
  Slot Get() {
    const Slot slot = free_[get_];
    get_ = Next(get_);
    inUse_[count_] = slot;
    position_[slot] = count_++;
    return slot;
  }
  void Free(Slot slot) {
    const Slot last = inUse_[--count_];
    inUse_[position_[slot]] = last;
    position_[last] = position_[slot];
    position_[slot] = kCapacity;
    free_[put_] = slot;
    put_ = Next(put_);
  }

 private:
  static Slot Next(Slot index) { return index + 1 < kCapacity ? index + 1 : 0; }

  std::vector<Slot> free_;
  std::vector<Slot> inUse_;
  std::vector<Slot> position_;
  Slot get_ = 0;
  Slot put_ = 0;
  Slot count_ = 0;
};

// The peers hand out blocks but keep no list of those in use. This list is a part of the job, so it is added here in
// the shortest form: each block holds its position in the list. A block that is given back twice is not detected.
struct Block {
  std::size_t position;
  std::array<char, 56> payload;
};

template <class Blocks>
class Listed {
 public:
  using Slot = Block *;
  Listed() { inUse_.reserve(kCapacity); }
  Slot Get() {
    Slot block = blocks_.Get();
    block->position = inUse_.size();
    inUse_.push_back(block);
    return block;
  }
  void Free(Slot block) {
    Slot last = inUse_.back();
    inUse_[block->position] = last;
    last->position = block->position;
    inUse_.pop_back();
    blocks_.Free(block);
  }

 private:
  Blocks blocks_;
  std::vector<Slot> inUse_;
};

class Malloc {
 public:
  Block *Get() {
    auto *block = static_cast<Block *>(std::malloc(sizeof(Block)));
    if (block == nullptr) std::abort();
    return block;
  }
  void Free(Block *block) { std::free(block); }
};

#if DEVSUPPORT_PEER_BOOST
class BoostPool {
 public:
  Block *Get() { return static_cast<Block *>(pool_.malloc()); }
  void Free(Block *block) { pool_.free(block); }

 private:
  boost::pool<> pool_{sizeof(Block), kCapacity};
};
#endif

}  // namespace

void RegisterSlots() {
  const Row row("slots", "give one of 500 slots back and take another (capacity 1,000)", kNearTheBestPeer);
  row.Ours(Exchange<Ours>)
      .Floor("the same stores, inline", Exchange<Stores>)
      .Peer("malloc and a list", Exchange<Listed<Malloc>>);
#if DEVSUPPORT_PEER_BOOST
  row.Peer("boost::pool and a list", Exchange<Listed<BoostPool>>);
#endif
}

}  // namespace devsupport::bench
