// SPDX-License-Identifier: MIT
// Writes to the configuration store on a disk whose power fails: first checks that all acknowledged changes are
// there, then writes until it is stopped, and prints one line for each acknowledged change.
//
//   device_store_writer ACKNOWLEDGED
//
// The changes are a function of their number, so that every run knows what each of them left in the store. After a
// power cut the store holds all changes up to the last acknowledged one, and perhaps the next one, whose
// acknowledgement was not yet printed. The line "found N" gives the number of the last one. Any other content ends
// the program with status 1.

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

constexpr std::uint32_t kKeys = 24;         // of each table
constexpr std::uint32_t kLongest = 120;     // characters of a value
constexpr std::uint32_t kInFlight = 1;      // changes whose acknowledgement can be lost in the power cut
constexpr std::uint32_t kDeletesOneIn = 6;  // changes

struct TTable {
  const char *name;
  struct __db *const *ppHandle;
  const char *keyBegin;
};

// A plain table, the two that have indexes, and the one in descending order.
const TTable kTables[] = {{"tb_parameter", &g_uDb.tb_parameter, "setting "},
                          {"tb_pb", &g_uDb.tb_pb, "Person "},
                          {"tb_route", &g_uDb.tb_route, "10"},
                          {"tb_dm", &g_uDb.tb_dm, "dm"}};
constexpr std::uint32_t kTableCount = sizeof kTables / sizeof kTables[0];

struct TChange {
  std::uint32_t table;
  std::string key;
  std::string value;  // empty = delete
};

std::string Key(std::uint32_t table, std::uint32_t number) {
  return kTables[table].keyBegin + std::to_string(number);
}

std::uint32_t Scramble(std::uint32_t number) {
  number = (number ^ (number >> 16)) * 0x7feb352du;
  number = (number ^ (number >> 15)) * 0x846ca68bu;
  return number ^ (number >> 16);
}

TChange Change(std::uint32_t number) {
  const std::uint32_t dice = Scramble(number);
  const std::uint32_t table = dice % kTableCount;
  TChange change{table, Key(table, dice / 8 % kKeys), ""};
  if (dice / 1024 % kDeletesOneIn != 0) {
    change.value = std::to_string(number) + ';';
    change.value.append(dice / 8192 % kLongest, static_cast<char>('a' + number % 26));
  }
  return change;
}

/// The content that the store must have: the value of each key of each table; a missing key has none.
using Content = std::map<std::pair<std::uint32_t, std::string>, std::string>;

void Apply(const TChange &change, Content &content) { content[{change.table, change.key}] = change.value; }

std::string ReadValue(std::uint32_t table, const std::string &key) {
  char szValue[512] = "";
  const int nCode = BerkDb_Get(*kTables[table].ppHandle, key.c_str(), szValue, sizeof szValue);
  if (nCode == BERKDB_OK) return szValue;
  return nCode == BERKDB_NOT_FOUND ? "" : "error " + std::to_string(nCode);
}

/// The first key with a different value in the store; none when the store holds the content.
std::string Difference(const Content &content) {
  for (const auto &[place, wanted] : content) {
    const std::string got = ReadValue(place.first, place.second);
    if (got != wanted) {
      return std::string(kTables[place.first].name) + " \"" + place.second + "\": \"" + got + "\" instead of \"" +
             wanted + '"';
    }
  }
  return "";
}

bool Write(const TChange &change) {
  struct __db *const pTable = *kTables[change.table].ppHandle;
  if (!change.value.empty()) return BerkDb_Set(pTable, change.key.c_str(), change.value.c_str()) == BERKDB_OK;
  const int nCode = BerkDb_Del(pTable, change.key.c_str());
  return nCode == BERKDB_OK || nCode == BERKDB_NOT_FOUND;
}

/// Returns when the line has left the machine. Only then is the change acknowledged.
void Say(const char *pWord, std::uint32_t number) {
  std::printf("%s%u\n", pWord, number);
  std::fflush(stdout);
  ::tcdrain(STDOUT_FILENO);
}

/// The number of the last change in the store. When it is not an expected one, prints why and returns -1.
std::int64_t Found(std::uint32_t acknowledged) {
  Content content;
  for (std::uint32_t table = 0; table < kTableCount; ++table)
    for (std::uint32_t key = 0; key < kKeys; ++key) content[{table, Key(table, key)}] = "";
  for (std::uint32_t number = 1; number <= acknowledged; ++number) Apply(Change(number), content);
  const std::string difference = Difference(content);
  if (difference.empty()) return acknowledged;
  for (std::uint32_t number = acknowledged + 1; number <= acknowledged + kInFlight; ++number) {
    Apply(Change(number), content);
    if (Difference(content).empty()) return number;
  }
  std::printf("lost: after change %u, %s\n", acknowledged, difference.c_str());
  return -1;
}

}  // namespace

int main(int nArgCount, char *apArgs[]) {
  if (nArgCount != 2) return 2;
  const auto acknowledged = static_cast<std::uint32_t>(std::strtoul(apArgs[1], nullptr, 10));
  std::int32_t nResult = 0;
  if (BerkDb_Open(nullptr, nullptr, &nResult) == 0) {
    std::printf("lost: the store does not open, code %d\n", nResult);
    return 1;
  }
  const std::int64_t found = Found(acknowledged);
  if (found < 0) return 1;
  auto number = static_cast<std::uint32_t>(found);
  Say("found ", number);
  while (Write(Change(++number))) Say("", number);
  std::printf("lost: change %u was refused\n", number);
  return 1;
}
