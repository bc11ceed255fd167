// SPDX-License-Identifier: MIT
// Configuration store: a setting read and set, the store opened. The rows over growing stores are in StoreGrowth.cpp.

#include <devsupport/db/DbParam.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/Row.h"
#include "bench/SkipOnError.h"
#include "bench/StorePeers.h"
#include "bench/StoreUse.h"
#include "bench/WorkerProcesses.h"

namespace devsupport::bench {

namespace {

constexpr int kRecords = 500;
constexpr const char *kFloor = "bare library call";

std::vector<std::string> Keys() {
  return Names(kRecords, [](int i) { return "net.parameter." + std::to_string(i); });
}

DB *Parameters() {
  Store &store = Store::Get();
  return store.Filled(g_uDb.tb_parameter, Keys());
}

void OursRead(benchmark::State &state) {
  Parameters();
  EachValue(state, Keys(), [](const std::string &key, Buffer &out) {
    GetDbParamToStr(key.c_str(), out.data(), static_cast<std::int32_t>(out.size()), "");
  });
}

void BareRead(benchmark::State &state) {
  EachValue(state, Keys(), [table = Parameters()](const std::string &key, Buffer &out) {
    benchmark::DoNotOptimize(BareGet(table, key, out.data(), out.size()));
  });
}

template <class Peer>
void PeerRead(benchmark::State &state) {
  const std::vector<std::string> keys = Keys();
  FilledPeer<Peer> peer(keys);
  EachValue(state, keys, [&peer](const std::string &key, Buffer &out) { peer->Get(key, out.data()); });
}

void OursNumber(benchmark::State &state) {
  Parameters();
  EachKey(state, Keys(), [](const std::string &key) { benchmark::DoNotOptimize(GetDbParamToInt(key.c_str(), 0)); });
}

void BareNumber(benchmark::State &state) {
  DB *table = Parameters();
  std::array<char, 32> text{};
  EachKey(state, Keys(), [&](const std::string &key) {
    const long number =
        BareGet(table, key, text.data(), text.size()) == 0 ? std::strtol(text.data(), nullptr, 10) : 0;
    benchmark::DoNotOptimize(number);
  });
}

// Measures elapsed time, for jobs that wait for the disk.
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
  const std::vector<std::string> keys = Keys();
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

// Each process has the store open and reads one name after the other. The time is that of one read by any process.
// Processes open the store in their first job, so the first run is not measured.
void ReadBy(benchmark::State &state, int processes) {
  constexpr int kReadsEach = 2000;
  Isolate();
  Parameters();
  const Folder &home = Store::Get().Home();
  const std::vector<std::string> keys = Keys();
  BerkDb_Close();
  WorkerProcesses workers(processes, kReadsEach, [&home, &keys, open = false, i = std::size_t{0}]() mutable {
    if (!open) OpenIn(home);
    open = true;
    Buffer out{};
    GetDbParamToStr(keys[i].c_str(), out.data(), static_cast<std::int32_t>(out.size()), "");
    benchmark::DoNotOptimize(out);
    if (++i == keys.size()) i = 0;
  });
  OpenIn(home);
  workers.Run();
  while (state.KeepRunningBatch(processes * kReadsEach)) state.SetIterationTime(workers.Run());
}

void RegisterReaders() {
  const Row row("store_readers", "read one of 500 settings as a text, by number of processes at it", kTwiceOneAlone,
                Clock::Elapsed);
  for (const int processes : {1, 2, 4, 8}) row.At(processes).Ours(SkipOnError(ReadBy, processes));
}

void RegisterReads() {
  const Row read("store_read", "read one of 500 settings as a text", kNearTheFloor);
  read.Ours(SkipOnError(OursRead)).Floor(kFloor, SkipOnError(BareRead));
  const Row number("store_read_number", "read one of 500 settings as a number", kNearTheFloor);
  number.Ours(SkipOnError(OursNumber)).Floor("bare library call and strtol", SkipOnError(BareNumber));
#if DEVSUPPORT_PEER_LMDB
  read.Peer("LMDB", SkipOnError(PeerRead<Lmdb>));
#endif
#if DEVSUPPORT_PEER_SQLITE
  read.Peer("SQLite", SkipOnError(PeerRead<Sqlite>));
#endif
#if DEVSUPPORT_PEER_TDB
  read.Peer("TDB", SkipOnError(PeerRead<Tdb>));
#endif
}

void RegisterSet() {
  const Row row("store_set", "set one of 500 settings, on the disk when it returns", kNearTheFloor, Clock::Elapsed);
  row.Ours(SkipOnError(OursSet)).Floor("bare put and sync", SkipOnError(BareSet));
#if DEVSUPPORT_PEER_LMDB
  row.Peer("LMDB", SkipOnError(PeerSet<Lmdb>));
#endif
#if DEVSUPPORT_PEER_SQLITE
  row.Peer("SQLite, WAL", SkipOnError(PeerSet<Sqlite>));
#endif
}

}  // namespace

void RegisterStore() {
  RegisterReads();
  RegisterReaders();
  RegisterSet();
  const Row open("store_open", "open the store and close it", kNoAim, Clock::Elapsed);
  open.Ours(SkipOnError(OursOpen));
}

}  // namespace devsupport::bench
