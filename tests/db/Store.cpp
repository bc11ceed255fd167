// SPDX-License-Identifier: MIT
#include "tests/db/Store.h"

#include <db.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <stdexcept>

#include "tests/support/CapturedOutput.h"

#ifdef __SANITIZE_THREAD__
// The library is not instrumented: the sanitizer sees its mutexes, but not the other locks that make their order
// safe.
extern "C" const char *__tsan_default_suppressions();
extern "C" const char *__tsan_default_suppressions() {
  return "deadlock:libdb-5.3.so\nrace:libdb-5.3.so\nmutex:libdb-5.3.so\n";
}
#endif

namespace devsupport::test {

namespace {

struct Output {
  int status;
  std::string text;
};

Output RunCommand(const std::string &command) {
  std::FILE *pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string text;
  char buffer[4096];
  for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, got);
  return {::pclose(pipe), text};
}

std::string FromHex(const std::string &line) {
  std::string bytes;
  for (std::size_t i = 1; i + 1 < line.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(line.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::string CString(const std::string &bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string StbPbKey(const std::string & /*key*/, const std::string &data) {
  const std::string text = CString(data);
  const std::size_t semicolon = text.find(';');
  return semicolon != std::string::npos ? text.substr(0, semicolon) : data.substr(0, text.size() + 1);
}

std::string Stb1PbKey(const std::string &key, const std::string & /*data*/) {
  const std::string rest = key.substr(std::min(key.size(), CString(key).size() + 1));
  return rest.substr(0, CString(rest).size() + 1);
}

std::string StbRouteKey(const std::string &key, const std::string & /*data*/) { return key.substr(0, 3); }

}  // namespace

const IndexRule kIndexRules[] = {
    {"stb_pb", "tb_pb", StbPbKey}, {"stb_1_pb", "tb_pb", Stb1PbKey}, {"stb_route", "tb_route", StbRouteKey}};

void StoreTest::ExpectSoundFile() const {
  EXPECT_TRUE(Verify());
  EXPECT_TRUE(IndexesAgree());
}

void StoreTest::SetUp() {
  if (::unshare(CLONE_NEWIPC) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    GTEST_SKIP() << "the machine does not let us make a private IPC namespace";
  }
  // In memory where possible: data of a killed process survives there as on a disk, and flushes are fast.
  const char *const memory = "/dev/shm";
  const bool inMemory = std::getenv("TMPDIR") == nullptr && ::access(memory, W_OK | X_OK) == 0;
  std::string path = (inMemory ? memory : std::filesystem::temp_directory_path().string()) + "/store-XXXXXX";
  ASSERT_NE(::mkdtemp(path.data()), nullptr);
  home_ = path;
}

void StoreTest::TearDown() {
  BerkDb_Close();
  if (!home_.empty()) std::filesystem::remove_all(home_);
}

void StoreTest::Open() {
  std::int32_t result = -4711;
  ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 1) << "code " << result;
  ASSERT_EQ(result, 0);
}

void StoreTest::Reopen() {
  BerkDb_Close();
  Open();
}

Records StoreTest::Dump(const std::string &table) const {
  const Output output = RunCommand("db5.3_dump -s " + table + " " + FilePath());
  if (output.status != 0) throw std::runtime_error("db5.3_dump failed on " + table);
  Records records;
  bool inData = false;
  std::string key;
  bool haveKey = false;
  for (const std::string &line : Lines(output.text)) {
    if (line == "DATA=END") break;
    if (inData && haveKey) records.emplace_back(key, FromHex(line));
    if (inData && !haveKey) key = FromHex(line);
    if (inData) haveKey = !haveKey;
    if (line == "HEADER=END") inData = true;
  }
  return records;
}

::testing::AssertionResult StoreTest::Verify() const {
  const Output output = RunCommand("db5.3_verify -o " + FilePath() + " 2>&1");
  if (output.status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << output.text;
}

::testing::AssertionResult StoreTest::IndexesAgree() const {
  for (const auto &[index, primary, ruleKey] : kIndexRules) {
    Records expected;
    for (const auto &[key, data] : Dump(primary)) expected.emplace_back(ruleKey(key, data), key);
    Records seen = Dump(index);
    std::sort(expected.begin(), expected.end());
    std::sort(seen.begin(), seen.end());
    if (seen != expected) {
      return ::testing::AssertionFailure() << index << " holds " << seen.size() << " records and " << primary
                                           << " makes " << expected.size() << ", or others";
    }
  }
  return ::testing::AssertionSuccess();
}

Records ReadAll(DB *pDb) {
  Records records;
  DBC *cursor = nullptr;
  if (pDb->cursor(pDb, nullptr, &cursor, 0) != 0) return records;
  DBT key = {};
  DBT data = {};
  while (cursor->get(cursor, &key, &data, DB_NEXT) == 0) {
    records.emplace_back(std::string(static_cast<char *>(key.data), key.size),
                         std::string(static_cast<char *>(data.data), data.size));
  }
  cursor->close(cursor);
  return records;
}

std::map<std::string, Records> ReadAllTables() {
  std::map<std::string, Records> tables;
  for (const TDbTbl &row : g_auDbTbl) tables[row.pName] = ReadAll(*row.ppDb);
  return tables;
}

std::ostream &operator<<(std::ostream &out, const Opening &opening) {
  return out << opening.opened << ", code " << opening.code << ", printed: " << opening.printed;
}

Opening TryToOpen(const std::string &home) {
  CapturedOutput err(stderr);
  std::int32_t code = -4711;
  const int opened = BerkDb_Open(home.c_str(), nullptr, &code);
  return {opened, code, err.Take()};
}

Opening RefusedOpening(const std::string &home, const std::string &reason) {
  return {0, BERKDB_OPEN_ENVIRONMENT, "FAIL to open environment " + home + ": " + reason + kSourceLine};
}

std::string Get(struct __db *pDb, const char *pKey) {
  char buffer[256] = "untouched";
  const int code = BerkDb_Get(pDb, pKey, buffer, sizeof buffer);
  return code == BERKDB_OK ? buffer : "<" + std::to_string(code) + ">";
}

DBC *CursorOnFirst(DB *pDb) {
  char key[256] = "";
  char data[256];
  DBC *cursor = nullptr;
  int step = -4711;
  EXPECT_EQ(BerkDb_CursorGet(pDb, &cursor, key, 0, data, sizeof data, DB_FIRST, &step), BERKDB_OK);
  EXPECT_EQ(step, 0);
  return cursor;
}

int Count(const char *variable, int normal) {
  const char *given = std::getenv(variable);
  return given != nullptr ? std::atoi(given) : normal;
}

int Stride() { return std::clamp(100 / std::max(1, Count("DEVSUPPORT_STORE_ROUNDS", 100)), 1, 10); }

}  // namespace devsupport::test
