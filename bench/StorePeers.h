// SPDX-License-Identifier: MIT
// The peers of the store, with one interface: Set and Get of a text, in a given folder.
#pragma once

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

#include "bench/Peers.h"

#if DEVSUPPORT_PEER_LMDB
#include <lmdb.h>
#endif
#if DEVSUPPORT_PEER_SQLITE
#include <sqlite3.h>
#endif
#if DEVSUPPORT_PEER_TDB
#include <fcntl.h>
extern "C" {
#include <signal.h>
#include <stdint.h>
#include <sys/stat.h>
#include <tdb.h>
}
#endif

namespace devsupport::bench {

/// Throws when a step has failed that works on a healthy machine.
inline void Must(bool done, const char *what) {
  if (!done) throw std::runtime_error(what);
}

#if DEVSUPPORT_PEER_LMDB
class Lmdb {
 public:
  explicit Lmdb(const std::string &folder) {
    Must(mdb_env_create(&env_) == 0, "mdb_env_create");
    Must(mdb_env_set_mapsize(env_, std::size_t{64} << 20) == 0, "mdb_env_set_mapsize");
    Must(mdb_env_open(env_, folder.c_str(), 0, 0600) == 0, "mdb_env_open");
    MDB_txn *txn = nullptr;
    Must(mdb_txn_begin(env_, nullptr, 0, &txn) == 0, "mdb_txn_begin");
    Must(mdb_dbi_open(txn, nullptr, 0, &table_) == 0, "mdb_dbi_open");
    Must(mdb_txn_commit(txn) == 0, "mdb_txn_commit");
    Must(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader_) == 0, "mdb_txn_begin");
    mdb_txn_reset(reader_);
  }
  ~Lmdb() {
    if (reader_ != nullptr) mdb_txn_abort(reader_);
    if (env_ != nullptr) mdb_env_close(env_);
  }
  Lmdb(const Lmdb &) = delete;
  Lmdb &operator=(const Lmdb &) = delete;

  void Fast(bool fast) { mdb_env_set_flags(env_, MDB_NOSYNC, fast ? 1 : 0); }
  void Set(const std::string &key, const std::string &value) {
    MDB_txn *txn = nullptr;
    MDB_val name = Bytes(key);
    MDB_val data = Bytes(value);
    Must(mdb_txn_begin(env_, nullptr, 0, &txn) == 0, "mdb_txn_begin");
    Must(mdb_put(txn, table_, &name, &data, 0) == 0, "mdb_put");
    Must(mdb_txn_commit(txn) == 0, "mdb_txn_commit");
  }
  // Renews one reader, as the manual advises for short reads.
  void Get(const std::string &key, char *out) {
    MDB_val name = Bytes(key);
    MDB_val data{};
    mdb_txn_renew(reader_);
    if (mdb_get(reader_, table_, &name, &data) == 0) std::memcpy(out, data.mv_data, data.mv_size);
    mdb_txn_reset(reader_);
  }

 private:
  static MDB_val Bytes(const std::string &text) { return {text.size() + 1, const_cast<char *>(text.c_str())}; }

  MDB_env *env_ = nullptr;
  MDB_txn *reader_ = nullptr;
  MDB_dbi table_ = 0;
};
#endif

#if DEVSUPPORT_PEER_SQLITE
class Sqlite {
 public:
  explicit Sqlite(const std::string &folder) {
    Must(sqlite3_open((folder + "/sqlite").c_str(), &db_) == SQLITE_OK, "sqlite3_open");
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=FULL");
    Run("CREATE TABLE parameter(name TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
    Prepare("SELECT value FROM parameter WHERE name=?", &get_);
    Prepare("INSERT OR REPLACE INTO parameter VALUES(?,?)", &set_);
  }
  ~Sqlite() {
    sqlite3_finalize(get_);
    sqlite3_finalize(set_);
    sqlite3_close(db_);
  }
  Sqlite(const Sqlite &) = delete;
  Sqlite &operator=(const Sqlite &) = delete;

  void Fast(bool fast) { Run(fast ? "PRAGMA synchronous=OFF" : "PRAGMA synchronous=FULL"); }
  void Set(const std::string &key, const std::string &value) {
    Bind(set_, 1, key);
    Bind(set_, 2, value);
    Must(sqlite3_step(set_) == SQLITE_DONE, "sqlite3_step");
    sqlite3_reset(set_);
  }
  void Get(const std::string &key, char *out) {
    Bind(get_, 1, key);
    if (sqlite3_step(get_) == SQLITE_ROW) {
      const unsigned char *text = sqlite3_column_text(get_, 0);
      std::memcpy(out, text, static_cast<std::size_t>(sqlite3_column_bytes(get_, 0)) + 1);
    }
    sqlite3_reset(get_);
  }

 private:
  void Run(const char *sql) { Must(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
  void Prepare(const char *sql, sqlite3_stmt **out) {
    Must(sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, out, nullptr) == SQLITE_OK, sql);
  }
  static void Bind(sqlite3_stmt *statement, int place, const std::string &text) {
    sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }

  sqlite3 *db_ = nullptr;
  sqlite3_stmt *get_ = nullptr;
  sqlite3_stmt *set_ = nullptr;
};
#endif

#if DEVSUPPORT_PEER_TDB
class Tdb {
 public:
  explicit Tdb(const std::string &folder)
      : db_(tdb_open((folder + "/tdb").c_str(), 1009, 0, O_RDWR | O_CREAT, 0600)) {
    Must(db_ != nullptr, "tdb_open");
  }
  ~Tdb() { tdb_close(db_); }
  Tdb(const Tdb &) = delete;
  Tdb &operator=(const Tdb &) = delete;

  void Fast(bool /*fast*/) {}  // it waits for the disk in transactions only
  void Set(const std::string &key, const std::string &value) {
    Must(tdb_store(db_, Bytes(key), Bytes(value), 0) == 0, "tdb_store");
  }
  void Get(const std::string &key, char *out) { tdb_parse_record(db_, Bytes(key), Copy, out); }

 private:
  static TDB_DATA Bytes(const std::string &text) {
    return {reinterpret_cast<unsigned char *>(const_cast<char *>(text.c_str())), text.size() + 1};
  }
  static int Copy(TDB_DATA /*key*/, TDB_DATA data, void *out) {
    std::memcpy(out, data.dptr, data.dsize);
    return 0;
  }

  tdb_context *db_;
};
#endif

}  // namespace devsupport::bench
