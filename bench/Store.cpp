// Configuration store: a setting read and set, the store opened, a prefix searched; by matches and by records.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/db/DbRecord.h>

#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Guarded.h"
#include "Row.h"
#include "StorePeers.h"

namespace devsupport::bench {

namespace {

constexpr int kRecords = 500;
constexpr std::size_t kValueBytes = 128;
constexpr const char *kFloor = "bare library call";

class Folder {
 public:
  Folder() : path_((std::filesystem::temp_directory_path() / "devsupport-bench-XXXXXX").string()) {
    Must(mkdtemp(path_.data()) != nullptr, "mkdtemp");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  const std::string &Path() const { return path_; }

 private:
  std::string path_;
};

// The key of the shared memory is fixed, so the process gets a place of its own in which nobody else has it.
void Isolate() {
  static const bool alone = unshare(CLONE_NEWIPC) == 0;
  Must(alone, "unshare");
}

void OpenIn(const Folder &home) {
  std::int32_t result = 0;
  if (BerkDb_Open(home.Path().c_str(), nullptr, &result) == 1) return;
  BerkDb_Close();
  throw std::runtime_error("BerkDb_Open: " + std::to_string(result));
}

std::string Key(int i) { return "net.parameter." + std::to_string(i); }
std::string Value(int i) { return std::to_string(1000003 + i); }

// The names in an order that the machine cannot guess.
std::vector<std::string> Keys(int records) {
  std::vector<std::string> keys;
  for (int i = 0; i < records; ++i) keys.push_back(Key(i));
  std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
  return keys;
}

// The process opens the store once; all rows but that of opening share it. Each table is filled when first used.
class Store {
 public:
  Store() {
    Isolate();
    OpenIn(home_);
  }
  ~Store() { BerkDb_Close(); }
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  static std::unique_ptr<Store> &Shared() {
    static std::unique_ptr<Store> store;
    return store;
  }
  static Store &Get() {
    if (!Shared()) Shared() = std::make_unique<Store>();
    return *Shared();
  }

  DB *Filled(DB *table, const std::vector<std::string> &keys) {
    if (std::find(filled_.begin(), filled_.end(), table) != filled_.end()) return table;
    DB_ENV *env = BerkDb_GetEnv();
    env->set_flags(env, DB_TXN_NOSYNC, 1);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const std::string value = Value(static_cast<int>(i));
      const auto bytes = static_cast<std::int32_t>(value.size() + 1);
      Must(BerkDb_Put(table, keys[i].c_str(), value.c_str(), bytes) == BERKDB_OK, "BerkDb_Put");
    }
    env->set_flags(env, DB_TXN_NOSYNC, 0);
    filled_.push_back(table);
    return table;
  }

 private:
  Folder home_;
  std::vector<DB *> filled_;
};

DB *Parameters() {
  Store &store = Store::Get();
  return store.Filled(g_uDb.tb_parameter, Keys(kRecords));
}

DBT Bytes(const void *data, std::size_t bytes) {
  DBT dbt{};
  dbt.data = const_cast<void *>(data);
  dbt.size = static_cast<std::uint32_t>(bytes);
  return dbt;
}

DBT Room(void *data, std::size_t bytes) {
  DBT dbt{};
  dbt.data = data;
  dbt.ulen = static_cast<std::uint32_t>(bytes);
  dbt.flags = DB_DBT_USERMEM;
  return dbt;
}

int BareGet(DB *table, const std::string &key, char *out, std::size_t room) {
  DBT name = Bytes(key.c_str(), key.size() + 1);
  DBT data = Room(out, room);
  return table->get(table, nullptr, &name, &data, 0);
}

// Calls read(key) for one name after the other.
template <class Read>
void EachKey(benchmark::State &state, const std::vector<std::string> &keys, Read read) {
  std::size_t i = 0;
  for (auto _ : state) {
    read(keys[i]);
    if (++i == keys.size()) i = 0;
  }
}

using Buffer = std::array<char, kValueBytes>;

void OursRead(benchmark::State &state) {
  Parameters();
  Buffer out{};
  EachKey(state, Keys(kRecords), [&](const std::string &key) {
    GetDbParamToStr(key.c_str(), out.data(), static_cast<std::int32_t>(out.size()), "");
    benchmark::DoNotOptimize(out);
  });
}

void BareRead(benchmark::State &state) {
  DB *table = Parameters();
  Buffer out{};
  EachKey(state, Keys(kRecords), [&](const std::string &key) {
    benchmark::DoNotOptimize(BareGet(table, key, out.data(), out.size()));
    benchmark::DoNotOptimize(out);
  });
}

template <class Peer>
void PeerRead(benchmark::State &state) {
  const Folder folder;
  Peer peer(folder.Path());
  const std::vector<std::string> keys = Keys(kRecords);
  peer.Fast(true);
  for (std::size_t i = 0; i < keys.size(); ++i) peer.Set(keys[i], Value(static_cast<int>(i)));
  Buffer out{};
  EachKey(state, keys, [&](const std::string &key) {
    peer.Get(key, out.data());
    benchmark::DoNotOptimize(out);
  });
}

void OursNumber(benchmark::State &state) {
  Parameters();
  EachKey(state, Keys(kRecords),
          [](const std::string &key) { benchmark::DoNotOptimize(GetDbParamToInt(key.c_str(), 0)); });
}

void BareNumber(benchmark::State &state) {
  DB *table = Parameters();
  std::array<char, 32> text{};
  EachKey(state, Keys(kRecords), [&](const std::string &key) {
    const long number =
        BareGet(table, key, text.data(), text.size()) == 0 ? std::strtol(text.data(), nullptr, 10) : 0;
    benchmark::DoNotOptimize(number);
  });
}

// What waits for the disk is measured in elapsed time.
template <class Job>
void Elapsed(benchmark::State &state, Job job) {
  using Watch = std::chrono::steady_clock;
  for (auto _ : state) {
    const Watch::time_point start = Watch::now();
    job();
    state.SetIterationTime(std::chrono::duration<double>(Watch::now() - start).count());
  }
}

// Sets one name after the other.
template <class Set>
void EachSet(benchmark::State &state, Set set) {
  const std::vector<std::string> keys = Keys(kRecords);
  const std::string value = Value(0);
  std::size_t i = 0;
  Elapsed(state, [&] {
    set(keys[i], value);
    if (++i == keys.size()) i = 0;
  });
}

void OursSet(benchmark::State &state) {
  DB *table = Parameters();
  EachSet(state, [table](const std::string &key, const std::string &value) {
    Must(BerkDb_Set(table, key.c_str(), value.c_str()) == BERKDB_OK, "BerkDb_Set");
  });
}

void BareSet(benchmark::State &state) {
  DB *table = Parameters();
  EachSet(state, [table](const std::string &key, const std::string &value) {
    DBT name = Bytes(key.c_str(), key.size() + 1);
    DBT data = Bytes(value.c_str(), value.size() + 1);
    Must(table->put(table, nullptr, &name, &data, 0) == 0, "put");
    Must(table->sync(table, 0) == 0, "sync");
  });
}

template <class Peer>
void PeerSet(benchmark::State &state) {
  const Folder folder;
  Peer peer(folder.Path());
  EachSet(state, [&peer](const std::string &key, const std::string &value) { peer.Set(key, value); });
}

void OursOpen(benchmark::State &state) {
  Isolate();
  Store::Shared().reset();
  const Folder home;
  Elapsed(state, [&home] {
    OpenIn(home);
    BerkDb_Close();
  });
}

constexpr std::array kMatches{10, 100, 1000};

std::string Prefix(int matches) { return "p" + std::to_string(matches) + "."; }

DB *Prefixed() {
  std::vector<std::string> keys;
  for (const int matches : kMatches) {
    for (int i = 0; i < matches; ++i) keys.push_back(Prefix(matches) + std::to_string(i));
  }
  return Store::Get().Filled(g_uDb.tb_line, keys);
}

void OursPrefix(benchmark::State &state, int matches) {
  DB *table = Prefixed();
  const std::string prefix = Prefix(matches);
  std::vector<TDbFindRec> found(static_cast<std::size_t>(matches) + 1);
  for (auto _ : state) {
    auto count = static_cast<std::int32_t>(found.size());
    Must(BerkDb_FindPrefix(table, prefix.c_str(), found.data(), &count) == BERKDB_OK && count == matches, "search");
    benchmark::ClobberMemory();
  }
}

// Every record lands where the caller wants it, and the walk ends at the first key without the prefix.
int BareWalk(DB *table, const std::string &prefix, std::vector<TDbFindRec> &found) {
  DBC *cursor = nullptr;
  Must(table->cursor(table, nullptr, &cursor, 0) == 0, "cursor");
  std::memcpy(found[0].szKey, prefix.c_str(), prefix.size() + 1);
  std::uint32_t step = DB_SET_RANGE;
  std::size_t count = 0;
  for (; count < found.size(); ++count, step = DB_NEXT) {
    DBT key = Room(found[count].szKey, sizeof found[count].szKey);
    DBT data = Room(found[count].szData, sizeof found[count].szData);
    key.size = static_cast<std::uint32_t>(prefix.size());
    if (cursor->get(cursor, &key, &data, step) != 0) break;
    if (std::memcmp(found[count].szKey, prefix.data(), prefix.size()) != 0) break;
  }
  cursor->close(cursor);
  return static_cast<int>(count);
}

void BarePrefix(benchmark::State &state, int matches) {
  DB *table = Prefixed();
  const std::string prefix = Prefix(matches);
  std::vector<TDbFindRec> found(static_cast<std::size_t>(matches) + 1);
  for (auto _ : state) {
    Must(BareWalk(table, prefix, found) == matches, "walk");
    benchmark::ClobberMemory();
  }
}

// A table of its own for each size.
DB *OfSize(int records, const std::vector<std::string> &keys) {
  Store &store = Store::Get();
  DB *table = g_uDb.tb_fkey;
  if (records == 100) table = g_uDb.tb_speedd;
  if (records == 1000) table = g_uDb.tb_dialp;
  if (records == 10000) table = g_uDb.tb_siptk;
  return store.Filled(table, keys);
}

void OursGrowth(benchmark::State &state, int records) {
  const std::vector<std::string> keys = Keys(records);
  DB *table = OfSize(records, keys);
  Buffer out{};
  EachKey(state, keys, [&](const std::string &key) {
    benchmark::DoNotOptimize(BerkDb_Get(table, key.c_str(), out.data(), static_cast<std::int32_t>(out.size())));
    benchmark::DoNotOptimize(out);
  });
}

void BareGrowth(benchmark::State &state, int records) {
  const std::vector<std::string> keys = Keys(records);
  DB *table = OfSize(records, keys);
  Buffer out{};
  EachKey(state, keys, [&](const std::string &key) {
    benchmark::DoNotOptimize(BareGet(table, key, out.data(), out.size()));
    benchmark::DoNotOptimize(out);
  });
}

void RegisterReads() {
  const Row read("store_read", "read one of 500 settings as a text", kNearTheFloor);
  read.Ours(Guarded(OursRead)).Floor(kFloor, Guarded(BareRead));
  const Row number("store_read_number", "read one of 500 settings as a number", kNearTheFloor);
  number.Ours(Guarded(OursNumber)).Floor("bare library call and strtol", Guarded(BareNumber));
#if DEVSUPPORT_PEER_LMDB
  read.Peer("LMDB", Guarded(PeerRead<Lmdb>));
#endif
#if DEVSUPPORT_PEER_SQLITE
  read.Peer("SQLite", Guarded(PeerRead<Sqlite>));
#endif
#if DEVSUPPORT_PEER_TDB
  read.Peer("TDB", Guarded(PeerRead<Tdb>));
#endif
}

void RegisterSet() {
  const Row row("store_set", "set one of 500 settings, on the disk when it returns", kNearTheFloor, Clock::kElapsed);
  row.Ours(Guarded(OursSet)).Floor("bare put and sync", Guarded(BareSet));
#if DEVSUPPORT_PEER_LMDB
  row.Peer("LMDB", Guarded(PeerSet<Lmdb>));
#endif
#if DEVSUPPORT_PEER_SQLITE
  row.Peer("SQLite, WAL", Guarded(PeerSet<Sqlite>));
#endif
}

}  // namespace

void RegisterStore() {
  RegisterReads();
  RegisterSet();
  const Row open("store_open", "open the store and close it", kNoAim, Clock::kElapsed);
  open.Ours(Guarded(OursOpen));
  const Row prefix("store_prefix", "search by prefix, by number of matches");
  for (const int matches : kMatches) {
    prefix.At(matches)
        .Ours(Guarded([matches](benchmark::State &state) { OursPrefix(state, matches); }))
        .Floor("bare cursor walk", Guarded([matches](benchmark::State &state) { BarePrefix(state, matches); }));
  }
  const Row growth("store_growth", "read a value, by number of records");
  for (const int records : {100, 1000, 10000, 100000}) {
    growth.At(records)
        .Ours(Guarded([records](benchmark::State &state) { OursGrowth(state, records); }))
        .Floor(kFloor, Guarded([records](benchmark::State &state) { BareGrowth(state, records); }));
  }
}

}  // namespace devsupport::bench
