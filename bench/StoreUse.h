// SPDX-License-Identifier: MIT
// Shared by the rows of the configuration store: a store in a temporary folder, names, and bare calls of the library.
#pragma once

#include <benchmark/benchmark.h>
#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>

#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/StorePeers.h"

namespace devsupport::bench {

constexpr std::size_t kValueBytes = 128;

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

// The key of the shared memory is fixed, so the process gets a private IPC namespace.
inline void Isolate() {
  static const bool alone = unshare(CLONE_NEWIPC) == 0;
  Must(alone, "unshare");
}

inline void OpenIn(const Folder &home) {
  std::int32_t result = 0;
  if (BerkDb_Open(home.Path().c_str(), nullptr, &result) == 1) return;
  BerkDb_Close();
  throw std::runtime_error("BerkDb_Open: " + std::to_string(result));
}

inline std::string Value(int i) { return std::to_string(1000003 + i); }

// The results of name(0) .. name(count-1), in random order, so that the processor cannot predict it.
template <class Name>
std::vector<std::string> Names(int count, Name name) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) names.push_back(name(i));
  std::shuffle(names.begin(), names.end(), std::mt19937(1));
  return names;
}

inline DBT Bytes(const void *data, std::size_t bytes) {
  DBT dbt{};
  dbt.data = const_cast<void *>(data);
  dbt.size = static_cast<std::uint32_t>(bytes);
  return dbt;
}

// Stores a value under each name, many in one transaction, because each transaction flushes the log. The lock table
// limits how many.
inline void Fill(DB *table, const std::vector<std::string> &keys) {
  constexpr std::size_t kAtOnce = 100;
  DB_ENV *env = BerkDb_GetEnv();
  for (std::size_t i = 0; i < keys.size();) {
    DB_TXN *change = nullptr;
    Must(env->txn_begin(env, nullptr, &change, 0) == 0, "txn_begin");
    for (const std::size_t end = std::min(keys.size(), i + kAtOnce); i < end; ++i) {
      const std::string value = Value(static_cast<int>(i));
      DBT key = Bytes(keys[i].c_str(), keys[i].size() + 1);
      DBT data = Bytes(value.c_str(), value.size() + 1);
      Must(table->put(table, change, &key, &data, 0) == 0, "put");
    }
    Must(change->commit(change, 0) == 0, "commit");
    Must(env->txn_checkpoint(env, 0, 0, 0) == 0, "checkpoint");
  }
}

// The process opens the store once. All rows share it, except that of opening. Each table is filled when first used.
class Store {
 public:
  Store() {
    Isolate();
    OpenIn(home_);
  }
  ~Store() { BerkDb_Close(); }
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  const Folder &Home() const { return home_; }

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
    Fill(table, keys);
    filled_.push_back(table);
    return table;
  }

 private:
  Folder home_;
  std::vector<DB *> filled_;
};

inline DBT Room(void *data, std::size_t bytes) {
  DBT dbt{};
  dbt.data = data;
  dbt.ulen = static_cast<std::uint32_t>(bytes);
  dbt.flags = DB_DBT_USERMEM;
  return dbt;
}

inline int BareGet(DB *table, const std::string &key, char *out, std::size_t room) {
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

// Calls get(key, buffer) for one name after the other.
template <class Get>
void EachValue(benchmark::State &state, const std::vector<std::string> &keys, Get get) {
  Buffer out{};
  EachKey(state, keys, [&](const std::string &key) {
    get(key, out);
    benchmark::DoNotOptimize(out);
  });
}

// A peer's store in a temporary folder, with a value under each name.
template <class Peer>
class FilledPeer {
 public:
  explicit FilledPeer(const std::vector<std::string> &keys) : peer_(folder_.Path()) {
    peer_.Fast(true);
    for (std::size_t i = 0; i < keys.size(); ++i) peer_.Set(keys[i], Value(static_cast<int>(i)));
  }
  Peer *operator->() { return &peer_; }

 private:
  Folder folder_;
  Peer peer_;
};

}  // namespace devsupport::bench
