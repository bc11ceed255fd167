// Hash table: 64-byte entries with text keys, found, and replaced one by one in a full table.

#include <devsupport/container/MyHash.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Peers.h"
#include "Row.h"

#if DEVSUPPORT_PEER_ABSEIL
#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>
#include <absl/strings/string_view.h>
#endif
#if DEVSUPPORT_PEER_ROBIN_MAP
#include <tsl/robin_map.h>
#endif
#if DEVSUPPORT_PEER_GLIB
#include <glib.h>
#endif
#if DEVSUPPORT_PEER_UTHASH
#include <uthash.h>
#endif

namespace devsupport::bench {

namespace {

// The key: NUL-terminated for who wants that, its length beside it for who wants that.
struct Name {
  std::array<char, 23> text;
  std::uint8_t length;

  std::string_view View() const { return {text.data(), length}; }
  bool operator==(const Name &other) const { return View() == other.View(); }
};

struct Payload {
  std::array<std::uint32_t, 10> words;
};

struct Entry {
  Name name;
  Payload payload;
};
static_assert(sizeof(Entry) == 64);

// Every table below has the same four operations: made with room for `capacity` entries, Find by key (the address
// of the payload), Add a copy of an entry, Delete by key.

class OursTable {
 public:
  explicit OursTable(int capacity) {
    if (TMyHash_Create(&table_, "bench", capacity, capacity, sizeof(Entry), IsMatch, DataKey, ArgKey) == 0)
      std::abort();
  }
  ~OursTable() { TMyHash_Free(&table_); }
  OursTable(const OursTable &) = delete;
  OursTable &operator=(const OursTable &) = delete;

  const Payload *Find(const Name &name) const {
    return &static_cast<const Entry *>(TMyHash_Find(&table_, &name, nullptr))->payload;
  }
  std::uint32_t BucketOf(const Name &name) const { return TMyHash_KeyToIdx(&table_, name.text.data(), name.length); }
  void Add(const Entry &entry) { TMyHash_Add(&table_, &entry, nullptr); }
  void Delete(const Name &name) {
    int slot = -1;
    TMyHash_Find(&table_, &name, &slot);
    TMyHash_Delete(&table_, slot);
  }

 private:
  static int IsMatch(const void *entry, const void *name) {
    return static_cast<const Entry *>(entry)->name == *static_cast<const Name *>(name) ? 1 : 0;
  }
  static const void *DataKey(const void *entry, int *length) {
    return ArgKey(&static_cast<const Entry *>(entry)->name, length);
  }
  static const void *ArgKey(const void *name, int *length) {
    const auto *key = static_cast<const Name *>(name);
    *length = key->length;
    return key->text.data();
  }

  TMyHash table_{};
};

class StdTable {
 public:
  explicit StdTable(int capacity) { map_.reserve(static_cast<std::size_t>(capacity)); }
  const Payload *Find(const Name &name) const { return &map_.find(name)->second; }
  void Add(const Entry &entry) { map_.emplace(entry.name, entry.payload); }
  void Delete(const Name &name) { map_.erase(name); }

 private:
  struct Hash {
    // Not noexcept: the library then keeps the hash in the node, as it does for std::string.
    std::size_t operator()(const Name &name) const { return std::hash<std::string_view>{}(name.View()); }
  };
  std::unordered_map<Name, Payload, Hash> map_;
};

#if DEVSUPPORT_PEER_ABSEIL
class AbslTable {
 public:
  explicit AbslTable(int capacity) { map_.reserve(static_cast<std::size_t>(capacity)); }
  const Payload *Find(const Name &name) const { return &map_.find(name)->second; }
  void Add(const Entry &entry) { map_.emplace(entry.name, entry.payload); }
  void Delete(const Name &name) { map_.erase(name); }

 private:
  struct Hash {
    std::size_t operator()(const Name &name) const {
      return absl::Hash<absl::string_view>{}({name.text.data(), name.length});
    }
  };
  absl::flat_hash_map<Name, Payload, Hash, std::equal_to<Name>> map_;
};
#endif

#if DEVSUPPORT_PEER_ROBIN_MAP
class RobinTable {
 public:
  explicit RobinTable(int capacity) { map_.reserve(static_cast<std::size_t>(capacity)); }
  const Payload *Find(const Name &name) const { return &map_.find(name)->second; }
  void Add(const Entry &entry) { map_.emplace(entry.name, entry.payload); }
  void Delete(const Name &name) { map_.erase(name); }

 private:
  struct Hash {
    std::size_t operator()(const Name &name) const { return std::hash<std::string_view>{}(name.View()); }
  };
  // With the hash stored, as its manual advises for text keys.
  tsl::robin_map<Name, Payload, Hash, std::equal_to<Name>, std::allocator<std::pair<Name, Payload>>, true> map_;
};
#endif

#if DEVSUPPORT_PEER_GLIB
class GlibTable {
 public:
  explicit GlibTable(int /*capacity*/) : table_(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, g_free)) {}
  ~GlibTable() { g_hash_table_destroy(table_); }
  GlibTable(const GlibTable &) = delete;
  GlibTable &operator=(const GlibTable &) = delete;

  const Payload *Find(const Name &name) const {
    return &static_cast<const Entry *>(g_hash_table_lookup(table_, name.text.data()))->payload;
  }
  void Add(const Entry &entry) {
    auto *copy = static_cast<Entry *>(g_memdup2(&entry, sizeof entry));
    g_hash_table_insert(table_, copy->name.text.data(), copy);
  }
  void Delete(const Name &name) { g_hash_table_remove(table_, name.text.data()); }

 private:
  GHashTable *table_;
};
#endif

#if DEVSUPPORT_PEER_UTHASH
// The macros of uthash cast and convert as C does.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wcast-qual"
class UthashTable {
 public:
  explicit UthashTable(int /*capacity*/) {}
  ~UthashTable() {
    Node *node = nullptr;
    Node *next = nullptr;
    HASH_ITER(hh, head_, node, next) {
      HASH_DEL(head_, node);
      std::free(node);
    }
  }
  UthashTable(const UthashTable &) = delete;
  UthashTable &operator=(const UthashTable &) = delete;

  const Payload *Find(const Name &name) const { return &FindNode(name)->entry.payload; }
  void Add(const Entry &entry) {
    auto *node = static_cast<Node *>(std::malloc(sizeof(Node)));
    if (node == nullptr) std::abort();
    node->entry = entry;
    HASH_ADD_KEYPTR(hh, head_, node->entry.name.text.data(), node->entry.name.length, node);
  }
  void Delete(const Name &name) {
    Node *node = FindNode(name);
    HASH_DEL(head_, node);
    std::free(node);
  }

 private:
  struct Node {
    Entry entry;
    UT_hash_handle hh;
  };
  Node *FindNode(const Name &name) const {
    Node *node = nullptr;
    HASH_FIND(hh, head_, name.text.data(), name.length, node);
    return node;
  }

  Node *head_ = nullptr;
};
#pragma GCC diagnostic pop
#endif

// A lookup and a replacement bring what they need with them, in the order of use: reading them is not what is
// measured.
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

// What is done to a full table of `capacity` entries: each entry looked up once, in random order; then every entry
// replaced by another, in random order, and those by the first ones again, so that it can be done over and over.
struct Script {
  explicit Script(int capacity) {
    std::mt19937 random(4711);
    const auto count = static_cast<std::uint32_t>(capacity);
    std::vector<Entry> others;
    for (std::uint32_t i = 0; i < count; ++i) {
      entries.push_back(MakeEntry(1000 + 7 * i));
      others.push_back(MakeEntry(1000 + 7 * i + 3));
    }
    std::vector<std::uint32_t> places(count);
    for (std::uint32_t i = 0; i < count; ++i) places[i] = i;
    std::shuffle(places.begin(), places.end(), random);
    for (const std::uint32_t place : places) lookups.push_back({entries[place].name, place});
    for (const std::uint32_t place : places) replacements.push_back({entries[place].name, others[place], place});
    std::shuffle(places.begin(), places.end(), random);
    for (const std::uint32_t place : places) replacements.push_back({others[place].name, entries[place], place});
  }

  std::vector<Entry> entries;
  std::vector<Lookup> lookups;
  std::vector<Replacement> replacements;
};

template <int kCapacity>
const Script &ScriptOf() {
  static const Script script(kCapacity);
  return script;
}

// Goes round through a list for ever, across the repetitions of a benchmark.
template <class T>
const T &NextOf(const std::vector<T> &list, std::size_t &position) {
  const T &item = list[position];
  if (++position == list.size()) position = 0;
  return item;
}

template <class Table, int kCapacity>
std::unique_ptr<Table> MakeFullTable() {
  auto table = std::make_unique<Table>(kCapacity);
  for (const Entry &entry : ScriptOf<kCapacity>().entries) table->Add(entry);
  return table;
}

template <class Table, int kCapacity>
void Find(benchmark::State &state) {
  static const auto table = MakeFullTable<Table, kCapacity>();
  const auto &lookups = ScriptOf<kCapacity>().lookups;
  std::size_t position = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table->Find(NextOf(lookups, position).name)->words[0]);
  }
}

template <class Table, int kCapacity>
void Replace(benchmark::State &state) {
  static const auto table = MakeFullTable<Table, kCapacity>();
  static std::size_t position = 0;
  const auto &replacements = ScriptOf<kCapacity>().replacements;
  for (auto _ : state) {
    const Replacement &replacement = NextOf(replacements, position);
    table->Delete(replacement.victim);
    table->Add(replacement.fresh);
    benchmark::ClobberMemory();
  }
}

// The first floor: the hash that the contract names, lookup3, which our table cannot do without.
template <int kCapacity>
void HashOnly(benchmark::State &state) {
  static const auto table = MakeFullTable<OursTable, kCapacity>();
  const auto &lookups = ScriptOf<kCapacity>().lookups;
  std::size_t position = 0;
  for (auto _ : state) benchmark::DoNotOptimize(table->BucketOf(NextOf(lookups, position).name));
}

// The other floors: where the entry is need not be found out.
template <int kCapacity>
void FindInKnownPlace(benchmark::State &state) {
  const Script &script = ScriptOf<kCapacity>();
  std::size_t position = 0;
  for (auto _ : state) {
    const Lookup &lookup = NextOf(script.lookups, position);
    const Entry &entry = script.entries[lookup.place];
    benchmark::DoNotOptimize(entry.name == lookup.name ? entry.payload.words[0] : 0U);
  }
}

template <int kCapacity>
void ReplaceInKnownPlace(benchmark::State &state) {
  const Script &script = ScriptOf<kCapacity>();
  static std::vector<Entry> entries = script.entries;
  static std::size_t position = 0;
  for (auto _ : state) {
    const Replacement &replacement = NextOf(script.replacements, position);
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

}  // namespace

void RegisterHash() {
  RegisterCapacity<1000>("1000", "1,000");
  RegisterCapacity<100000>("100000", "100,000");
}

}  // namespace devsupport::bench
