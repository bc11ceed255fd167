// SPDX-License-Identifier: MIT
// Configuration store, series: reads by number of records, searches by prefix by number of matches and of records.

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench/Row.h"
#include "bench/SkipOnError.h"
#include "bench/StorePeers.h"
#include "bench/StoreUse.h"

namespace devsupport::bench {

namespace {

constexpr std::array kMatches{10, 100, 1000};
constexpr std::array kRecords{100, 1000, 10000, 100000};
constexpr int kGroup = 10;

// A table with groups of names for each number of matches.
std::string Prefix(int matches) { return "p" + std::to_string(matches) + "."; }

DB *Prefixed() {
  std::vector<std::string> keys;
  for (const int matches : kMatches)
    for (int i = 0; i < matches; ++i) keys.push_back(Prefix(matches) + std::to_string(i));
  return Store::Get().Filled(g_uDb.tb_line, keys);
}

// A table for each number of records, whose names come in groups of ten.
std::string Group(int group) { return "net." + std::to_string(group) + "."; }

std::vector<std::string> Grouped(int records) {
  return Names(records, [](int i) { return Group(i / kGroup) + "parameter." + std::to_string(i % kGroup); });
}

DB *OfSize(int records, const std::vector<std::string> &keys) {
  Store &store = Store::Get();
  DB *table = g_uDb.tb_fkey;
  if (records == 100) table = g_uDb.tb_speedd;
  if (records == 1000) table = g_uDb.tb_dialp;
  if (records == 10000) table = g_uDb.tb_siptk;
  return store.Filled(table, keys);
}

void OursRead(benchmark::State &state, int records) {
  const std::vector<std::string> keys = Grouped(records);
  EachValue(state, keys, [table = OfSize(records, keys)](const std::string &key, Buffer &out) {
    benchmark::DoNotOptimize(BerkDb_Get(table, key.c_str(), out.data(), static_cast<std::int32_t>(out.size())));
  });
}

void BareRead(benchmark::State &state, int records) {
  const std::vector<std::string> keys = Grouped(records);
  EachValue(state, keys, [table = OfSize(records, keys)](const std::string &key, Buffer &out) {
    benchmark::DoNotOptimize(BareGet(table, key, out.data(), out.size()));
  });
}

// A peer's store is filled once, as ours is. TDB does not take part: the number of chains in its file is fixed when
// the file is made.
template <class Peer>
void PeerRead(benchmark::State &state, int records) {
  static std::map<int, FilledPeer<Peer>> stores;
  const std::vector<std::string> keys = Grouped(records);
  FilledPeer<Peer> &peer = stores.try_emplace(records, keys).first->second;
  EachValue(state, keys, [&peer](const std::string &key, Buffer &out) { peer->Get(key, out.data()); });
}

// Both searches return the number of matches.

using Found = std::vector<TDbFindRec>;

int OursSearch(DB *table, const std::string &prefix, Found &found) {
  auto count = static_cast<std::int32_t>(found.size());
  Must(BerkDb_FindPrefix(table, prefix.c_str(), found.data(), &count) == BERKDB_OK, "search");
  return count;
}

// Reads each record into the caller's memory, up to the first key without the prefix.
int BareWalk(DB *table, const std::string &prefix, Found &found) {
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

// Searches for one prefix after the other. Each has that many matches.
template <int (*kSearch)(DB *, const std::string &, Found &)>
void Search(benchmark::State &state, DB *table, const std::vector<std::string> &prefixes, int matches) {
  Found found(static_cast<std::size_t>(matches) + 1);
  EachKey(state, prefixes, [&](const std::string &prefix) {
    Must(kSearch(table, prefix, found) == matches, "all matches");
    benchmark::ClobberMemory();
  });
}

template <int (*kSearch)(DB *, const std::string &, Found &)>
Body ByMatches(int matches) {
  return SkipOnError(
      [matches](benchmark::State &state) { Search<kSearch>(state, Prefixed(), {Prefix(matches)}, matches); });
}

template <int (*kSearch)(DB *, const std::string &, Found &)>
Body ByRecords(int records) {
  return SkipOnError([records](benchmark::State &state) {
    Search<kSearch>(state, OfSize(records, Grouped(records)), Names(records / kGroup, Group), kGroup);
  });
}

}  // namespace

void RegisterStoreGrowth() {
  const Row read("store_read_records", "read a value, by number of records");
  for (const int records : kRecords) {
    const Row point = read.At(records);
    point.Ours(SkipOnError(OursRead, records)).Floor("bare library call", SkipOnError(BareRead, records));
#if DEVSUPPORT_PEER_LMDB
    point.Peer("LMDB", SkipOnError(PeerRead<Lmdb>, records));
#endif
#if DEVSUPPORT_PEER_SQLITE
    point.Peer("SQLite", SkipOnError(PeerRead<Sqlite>, records));
#endif
  }
  const Row byRecords("store_prefix_records", "search by prefix for 10 matches, by number of records");
  for (const int records : kRecords) {
    byRecords.At(records)
        .Ours(ByRecords<OursSearch>(records))
        .Floor("bare cursor walk", ByRecords<BareWalk>(records));
  }
  const Row byMatches("store_prefix_matches", "search by prefix, by number of matches");
  for (const int matches : kMatches) {
    byMatches.At(matches)
        .Ours(ByMatches<OursSearch>(matches))
        .Floor("bare cursor walk", ByMatches<BareWalk>(matches));
  }
}

}  // namespace devsupport::bench
