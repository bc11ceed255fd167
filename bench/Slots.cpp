// Slot allocator: one of the slots in use given back, chosen at random, and another one taken.

#include <devsupport/container/AllotArray.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Peers.h"
#include "Row.h"

#if DEVSUPPORT_PEER_BOOST
#include <boost/pool/pool.hpp>
#endif

namespace devsupport::bench {

namespace {

constexpr int kCapacity = 1000;
constexpr std::size_t kHeld = 500;
constexpr std::size_t kBlockBytes = 64;  // for the peers that hand out memory instead of numbers

// Which of the held slots goes next.
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
  for (const auto &slot : held) allocator.Free(slot);
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

// The peers keep no list of what is in use and notice no double release.
class Malloc {
 public:
  using Slot = void *;
  Slot Get() {
    Slot block = std::malloc(kBlockBytes);
    benchmark::DoNotOptimize(block);
    return block;
  }
  void Free(Slot slot) { std::free(slot); }
};

#if DEVSUPPORT_PEER_BOOST
class BoostPool {
 public:
  using Slot = void *;
  Slot Get() { return pool_.malloc(); }
  void Free(Slot slot) { pool_.free(slot); }

 private:
  boost::pool<> pool_{kBlockBytes, kCapacity};
};
#endif

}  // namespace

void RegisterSlots() {
  const Row row("slots", "give one of 500 slots back and take another (capacity 1,000)", kNearTheBestPeer);
  row.Ours(Exchange<Ours>).Floor("the same stores, inline", Exchange<Stores>).Peer("malloc + free", Exchange<Malloc>);
#if DEVSUPPORT_PEER_BOOST
  row.Peer("boost::pool (no list of slots in use)", Exchange<BoostPool>);
#endif
}

}  // namespace devsupport::bench
