// SPDX-License-Identifier: MIT
// What the rows of the configuration store share: a store in a folder of its own, names, and the library's bare
// calls.
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

// The key of the shared memory is fixed, so the process gets a place of its own in which nobody else has it.
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

// The names that `name` gives to 0 .. count-1, in an order that the machine cannot guess.
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

// Puts values under the names, many in one transaction: the store would flush its log for each. No more at once than
// the lock table has room for.
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

}  // namespace devsupport::bench
