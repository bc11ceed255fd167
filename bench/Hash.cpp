// SPDX-License-Identifier: MIT
// Hash table: finds 64-byte entries by text keys, and replaces them one by one in a full table; by capacity.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/HashTables.h"
#include "bench/Row.h"

namespace devsupport::bench {

namespace {

// Lookups and replacements are prepared in the order of use and hold all that they need, since preparing them must
// not be measured.
struct Lookup {
  Name name;
  std::uint32_t place;  // for the floor: where the entry is
};
struct Replacement {
  Name victim;
  Entry fresh;
  std::uint32_t place;
};

Entry MakeEntry(std::uint32_t number) {
  Entry entry{};
  const int length = std::snprintf(entry.name.text.data(), entry.name.text.size(), "sip:%u@pbx.local", number);
  entry.name.length = static_cast<std::uint8_t>(length);
  entry.payload.words.fill(number);
  return entry;
}

Entry FirstEntry(std::uint32_t place) { return MakeEntry(1000 + 7 * place); }
Entry OtherEntry(std::uint32_t place) { return MakeEntry(1000 + 7 * place + 3); }

// 0 .. count-1 in random order.
std::vector<std::uint32_t> Shuffled(std::uint32_t count, std::uint32_t seed) {
  std::vector<std::uint32_t> places(count);
  for (std::uint32_t i = 0; i < count; ++i) places[i] = i;
  std::shuffle(places.begin(), places.end(), std::mt19937(seed));
  return places;
}

// The content of a full table, and one lookup for each entry, in random order.
struct Filling {
  explicit Filling(std::uint32_t capacity) {
    for (std::uint32_t i = 0; i < capacity; ++i) entries.push_back(FirstEntry(i));
    for (const std::uint32_t place : Shuffled(capacity, 4711)) lookups.push_back({entries[place].name, place});
  }

  std::vector<Entry> entries;
  std::vector<Lookup> lookups;
};

template <int kCapacity>
const Filling &FillingOf() {
  static const Filling filling(kCapacity);
  return filling;
}

// Replaces each entry by another in random order, then these by the first ones, so that it can be repeated.
template <int kCapacity>
const std::vector<Replacement> &ReplacementsOf() {
  static const std::vector<Replacement> replacements = [] {
    std::vector<Replacement> made;
    for (const std::uint32_t i : Shuffled(kCapacity, 4711)) made.push_back({FirstEntry(i).name, OtherEntry(i), i});
    for (const std::uint32_t i : Shuffled(kCapacity, 4712)) made.push_back({OtherEntry(i).name, FirstEntry(i), i});
    return made;
  }();
  return replacements;
}

// The next item of a list; after the last one, the first again. The position is kept between repetitions.
template <class T>
const T &NextOf(const std::vector<T> &list, std::size_t &position) {
  const T &item = list[position];
  if (++position == list.size()) position = 0;
  return item;
}

template <class Table, int kCapacity>
std::unique_ptr<Table> MakeFullTable() {
  auto table = std::make_unique<Table>(kCapacity);
  for (const Entry &entry : FillingOf<kCapacity>().entries) table->Add(entry);
  return table;
}

template <class Table, int kCapacity>
void Find(benchmark::State &state) {
  static const auto table = MakeFullTable<Table, kCapacity>();
  const auto &lookups = FillingOf<kCapacity>().lookups;
  std::size_t position = 0;
  for (auto _ : state) benchmark::DoNotOptimize(table->Find(NextOf(lookups, position).name)->words[0]);
}

template <class Table, int kCapacity>
void Replace(benchmark::State &state) {
  static const auto table = MakeFullTable<Table, kCapacity>();
  static std::size_t position = 0;
  const auto &replacements = ReplacementsOf<kCapacity>();
  for (auto _ : state) {
    const Replacement &replacement = NextOf(replacements, position);
    table->Delete(replacement.victim);
    table->Add(replacement.fresh);
    benchmark::ClobberMemory();
  }
}

// The first floor: only lookup3, the hash that the contract requires.
template <int kCapacity>
void HashOnly(benchmark::State &state) {
  static const auto table = MakeFullTable<OursTable, kCapacity>();
  const auto &lookups = FillingOf<kCapacity>().lookups;
  std::size_t position = 0;
  for (auto _ : state) benchmark::DoNotOptimize(table->BucketOf(NextOf(lookups, position).name));
}

// The other floors: the place of the entry is known.
template <int kCapacity>
void FindInKnownPlace(benchmark::State &state) {
  const Filling &filling = FillingOf<kCapacity>();
  std::size_t position = 0;
  for (auto _ : state) {
    const Lookup &lookup = NextOf(filling.lookups, position);
    const Entry &entry = filling.entries[lookup.place];
    benchmark::DoNotOptimize(entry.name == lookup.name ? entry.payload.words[0] : 0U);
  }
}

template <int kCapacity>
void ReplaceInKnownPlace(benchmark::State &state) {
  const auto &replacements = ReplacementsOf<kCapacity>();
  static std::vector<Entry> entries = FillingOf<kCapacity>().entries;
  static std::size_t position = 0;
  for (auto _ : state) {
    const Replacement &replacement = NextOf(replacements, position);
    entries[replacement.place] = replacement.fresh;
    benchmark::ClobberMemory();
  }
}

template <int kCapacity>
void RegisterCapacity(const std::string &name, const std::string &capacity) {
  const Row find("hash_find_" + name, "find one of " + capacity + " entries of 64 bytes by its text key",
                 kNearTheBestPeer);
  const Row replace("hash_replace_" + name, "delete one of " + capacity + " entries by its key and add another",
                    kNearTheBestPeer);
  find.Ours(Find<OursTable, kCapacity>).Floor("lookup3 alone", HashOnly<kCapacity>);
  find.Floor("place known, one comparison", FindInKnownPlace<kCapacity>);
  replace.Ours(Replace<OursTable, kCapacity>).Floor("place known, one copy", ReplaceInKnownPlace<kCapacity>);
  find.Peer("std::unordered_map", Find<StdTable, kCapacity>);
  replace.Peer("std::unordered_map", Replace<StdTable, kCapacity>);
#if DEVSUPPORT_PEER_ABSEIL
  find.Peer("absl::flat_hash_map", Find<AbslTable, kCapacity>);
  replace.Peer("absl::flat_hash_map", Replace<AbslTable, kCapacity>);
#endif
#if DEVSUPPORT_PEER_ROBIN_MAP
  find.Peer("tsl::robin_map", Find<RobinTable, kCapacity>);
  replace.Peer("tsl::robin_map", Replace<RobinTable, kCapacity>);
#endif
#if DEVSUPPORT_PEER_GLIB
  find.Peer("GHashTable", Find<GlibTable, kCapacity>);
  replace.Peer("GHashTable", Replace<GlibTable, kCapacity>);
#endif
#if DEVSUPPORT_PEER_UTHASH
  find.Peer("uthash", Find<UthashTable, kCapacity>);
  replace.Peer("uthash", Replace<UthashTable, kCapacity>);
#endif
}

template <int kCapacity>
void RegisterPoint(const Row &row) {
  const Row point = row.At(kCapacity);
  point.Ours(Find<OursTable, kCapacity>).Floor("lookup3 alone", HashOnly<kCapacity>);
  point.Peer("std::unordered_map", Find<StdTable, kCapacity>);
#if DEVSUPPORT_PEER_ABSEIL
  point.Peer("absl::flat_hash_map", Find<AbslTable, kCapacity>);
#endif
#if DEVSUPPORT_PEER_ROBIN_MAP
  point.Peer("tsl::robin_map", Find<RobinTable, kCapacity>);
#endif
}

void RegisterGrowth() {
  const Row row("hash_capacity", "find an entry of 64 bytes by its text key in a full table, by capacity in entries");
  RegisterPoint<10>(row);
  RegisterPoint<100>(row);
  RegisterPoint<1000>(row);
  RegisterPoint<10000>(row);
  RegisterPoint<100000>(row);
  RegisterPoint<1000000>(row);
}

}  // namespace

void RegisterHash() {
  RegisterCapacity<1000>("1000", "1,000");
  RegisterCapacity<100000>("100000", "100,000");
  RegisterGrowth();
}

}  // namespace devsupport::bench
