// SPDX-License-Identifier: MIT
#include "tests/db/Work.h"

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/db/DbRecord.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "tests/db/Store.h"

namespace devsupport::test {

namespace {

using ::testing::AssertionFailure;
using ::testing::AssertionResult;
using ::testing::AssertionSuccess;

const std::string kAbsent = "<" + std::to_string(BERKDB_NOT_FOUND) + ">";

enum class Place { Parameter, PhoneBook, Line };

Place PlaceOf(int key) { return static_cast<Place>(key % 3); }

DB *TableOf(int key) {
  switch (PlaceOf(key)) {
    case Place::Parameter:
      return g_uDb.tb_parameter;
    case Place::PhoneBook:
      return g_uDb.tb_pb;
    default:
      return g_uDb.tb_line;
  }
}

constexpr bool IsDeletion(int change) { return change % 7 == 0; }

}  // namespace

Worker::Worker(Journal &journal, std::string name, std::uint64_t seed)
    : journal_(journal), name_(std::move(name)), random_(seed) {}

std::string Worker::KeyName(int key) const { return name_ + " " + std::to_string(key); }

// Parameters are numbers. In the phone book, the text before the semicolon is also a key.
std::string Worker::Value(int key, int change) const {
  if (IsDeletion(change)) return kAbsent;
  if (PlaceOf(key) == Place::Parameter) return std::to_string(change);
  return name_ + ":" + std::to_string(change) + ";" + std::string(static_cast<std::size_t>(change % 90), 'x');
}

std::string Worker::Stored(int key) const { return Value(key, journal_.acknowledged[static_cast<std::size_t>(key)]); }

std::string Worker::Found(int key) const { return Get(TableOf(key), KeyName(key).c_str()); }

AssertionResult Worker::Step() {
  AssertionResult result = AssertionSuccess();
  switch (random_() % 6) {
    case 0:
    case 1:
      result = Change();
      break;
    case 2:
      result = ReadByIndex();
      break;
    case 3:
      result = Search();
      break;
    default:
      result = Read();
  }
  ++journal_.steps;
  return result;
}

AssertionResult Worker::Change() {
  const int key = static_cast<int>(random_() % Journal::kKeys);
  const int change = ++journal_.changes;
  const std::string name = KeyName(key);
  const std::string value = Value(key, change);
  journal_.begun[static_cast<std::size_t>(key)] = change;
  int code = 0;
  if (IsDeletion(change)) {
    code = BerkDb_Del(TableOf(key), name.c_str());
    if (code == BERKDB_NOT_FOUND) code = BERKDB_OK;
  } else if (PlaceOf(key) == Place::Line) {
    code = BerkDb_Put(TableOf(key), name.c_str(), value.c_str(), static_cast<std::int32_t>(value.size() + 1));
  } else {
    code = BerkDb_Set(TableOf(key), name.c_str(), value.c_str());
  }
  if (code != BERKDB_OK) return AssertionFailure() << "change " << change << " of " << name << ": code " << code;
  journal_.acknowledged[static_cast<std::size_t>(key)] = change;
  return AssertionSuccess();
}

void Worker::ChangeForEver() {
  for (;;) {
    if (const AssertionResult result = Change(); !result) {
      std::fprintf(stderr, "%s: %s\n", name_.c_str(), result.message());
      ::_exit(3);
    }
    ++journal_.steps;
  }
}

AssertionResult Worker::Read() {
  const int key = static_cast<int>(random_() % Journal::kKeys);
  std::string found = Found(key);
  if (PlaceOf(key) == Place::Parameter && random_() % 2 == 0) {
    const std::int32_t number = GetDbParamToInt(KeyName(key).c_str(), -1);
    found = number == -1 ? kAbsent : std::to_string(number);
  }
  if (found == Stored(key)) return AssertionSuccess();
  return AssertionFailure() << KeyName(key) << " holds " << found << " instead of " << Stored(key);
}

AssertionResult Worker::ReadByIndex() {
  const int key = 1 + 3 * static_cast<int>(random_() % (Journal::kKeys / 3));
  const std::string stored = Stored(key);
  const std::string indexed = stored.substr(0, stored.find(';'));
  char primary[64] = "";
  char value[128] = "";
  const int code = BerkDb_PGet(g_uDb.stb_pb, indexed.c_str(), static_cast<std::int32_t>(indexed.size()), primary,
                               sizeof primary, value, sizeof value);
  const bool right =
      stored == kAbsent ? code == BERKDB_NOT_FOUND : code == BERKDB_OK && primary == KeyName(key) && value == stored;
  if (right) return AssertionSuccess();
  return AssertionFailure() << indexed << " of " << KeyName(key) << ": code " << code << ", finds " << primary << ", "
                            << value;
}

AssertionResult Worker::Search() {
  int expected = 0;
  for (int key = 1; key < Journal::kKeys; key += 3) expected += Stored(key) != kAbsent ? 1 : 0;
  TDbFindRec records[Journal::kKeys];
  std::int32_t count = Journal::kKeys;
  const int code = BerkDb_FindPrefix(g_uDb.tb_pb, (name_ + " ").c_str(), records, &count);
  if (code == BERKDB_OK && count == expected) return AssertionSuccess();
  return AssertionFailure() << "search for " << name_ << ": code " << code << ", " << count << " found instead of "
                            << expected;
}

AssertionResult Worker::HoldsAll() const {
  for (int key = 0; key < Journal::kKeys; ++key) {
    const std::string found = Found(key);
    const int begun = journal_.begun[static_cast<std::size_t>(key)];
    if (found == Stored(key) || found == Value(key, begun)) continue;
    return AssertionFailure() << KeyName(key) << " holds " << found << "; acknowledged was " << Stored(key)
                              << ", begun " << Value(key, begun);
  }
  return AssertionSuccess();
}

void Worker::DecideWhatWasUnderWay() {
  for (int key = 0; key < Journal::kKeys; ++key) {
    const int begun = journal_.begun[static_cast<std::size_t>(key)];
    if (Found(key) == Value(key, begun)) journal_.acknowledged[static_cast<std::size_t>(key)] = begun;
    journal_.begun[static_cast<std::size_t>(key)] = journal_.acknowledged[static_cast<std::size_t>(key)].load();
  }
}

}  // namespace devsupport::test
