// SPDX-License-Identifier: MIT
// Hash tables with one interface: ours and the peers', with 64-byte entries and text keys.
#pragma once

#include <devsupport/container/MyHash.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "bench/Peers.h"

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

// The key. It is NUL-terminated and has its length, since some tables need the one and some the other.
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

// Each table below has the same four operations: construction for `capacity` entries, Find by key (returns the
// address of the payload), Add a copy of an entry, Delete by key.

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

// The peers with the interface of the standard library's maps.
template <class Map>
class MapTable {
 public:
  explicit MapTable(int capacity) { map_.reserve(static_cast<std::size_t>(capacity)); }
  const Payload *Find(const Name &name) const { return &map_.find(name)->second; }
  void Add(const Entry &entry) { map_.emplace(entry.name, entry.payload); }
  void Delete(const Name &name) { map_.erase(name); }

 private:
  Map map_;
};

// Not noexcept, so that the standard library stores the hash in the node, as it does for std::string.
struct StdHash {
  std::size_t operator()(const Name &name) const { return std::hash<std::string_view>{}(name.View()); }
};
using StdTable = MapTable<std::unordered_map<Name, Payload, StdHash>>;

#if DEVSUPPORT_PEER_ABSEIL
struct AbslHash {
  std::size_t operator()(const Name &name) const {
    return absl::Hash<absl::string_view>{}({name.text.data(), name.length});
  }
};
using AbslTable = MapTable<absl::flat_hash_map<Name, Payload, AbslHash, std::equal_to<Name>>>;
#endif

#if DEVSUPPORT_PEER_ROBIN_MAP
// With the hash stored, as its manual advises for text keys.
using RobinTable = MapTable<
    tsl::robin_map<Name, Payload, StdHash, std::equal_to<Name>, std::allocator<std::pair<Name, Payload>>, true>>;
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

}  // namespace devsupport::bench
