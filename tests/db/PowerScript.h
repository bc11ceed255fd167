// SPDX-License-Identifier: MIT
// What a process does with the store until the power fails, and what the store should hold after each step.
#pragma once

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/detail/db/DbRecord.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "db/for_project/RecordAccess.h"
#include "tests/db/Deaths.h"
#include "tests/db/PowerRecord.h"

namespace devsupport::test {

inline constexpr int kParameters = 0;
inline constexpr int kReversed = 1;
inline constexpr int kPhoneBook = 2;
inline constexpr int kLines = 8;
inline constexpr int kRoutes = 10;
inline constexpr int kTones = 12;

using Contents = std::map<std::string, std::map<std::string, std::string>>;  // of the primary tables

struct Item {
  int row;
  std::string name;
  std::string value;
};

inline std::string StoredKey(int row, const std::string &name) {
  std::string key = name + '\0';
  if (row != kPhoneBook) return key;
  for (const char c : name) key += _Letter2Num(c);
  return key + '\0';
}

/// What a process does with the store. The same script runs twice: to see what the store should hold after each step,
/// and in a process that is recorded.
class Script {
 public:
  explicit Script(std::string home) : home_(std::move(home)), contents_(1) {}

  /// From here on the script changes the store, and not only the expected contents.
  void Begin() {
    real_ = true;
    victims_ = std::make_unique<Starter>([this](int events) {
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
      PowerRecord::DieAfter(events);
      return BerkDb_Set(g_uDb.tb_tone, "dies", kDyingValue.c_str());
    });
  }

  void Open() const {
    if (!real_) return;
    ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1);
  }
  void Close() const {
    if (real_) BerkDb_Close();
  }
  void Set(int row, const std::string &name, const std::string &value) {
    Keep(row, name, value);
    Do([&] { return BerkDb_Set(*g_auDbTbl[row].ppDb, name.c_str(), value.c_str()); });
  }
  void Delete(int row, const std::string &name) {
    Next()[g_auDbTbl[row].pName].erase(StoredKey(row, name));
    Do([&] { return BerkDb_Del(*g_auDbTbl[row].ppDb, name.c_str()); });
  }
  /// All in one transaction.
  void Batch(const std::vector<Item> &items) {
    Contents &contents = Next();
    std::vector<std::string> bytes;
    for (const auto &[row, name, value] : items) {
      contents[g_auDbTbl[row].pName][StoredKey(row, name)] = value + '\0';
      bytes.push_back(StoredKey(row, name));
      bytes.push_back(value + '\0');
    }
    std::vector<store::Change> changes;
    for (std::size_t i = 0; i < items.size(); ++i)
      changes.push_back(
          {store::Change::Kind::Put, static_cast<std::uint8_t>(items[i].row), bytes[2 * i], bytes[2 * i + 1]});
    Do([&] { return store::ApplyChanges(changes, nullptr).nResult; });
  }
  /// Another process begins a change and is killed after so many of its writes and flushes; this one goes on, or opens
  /// the store after it.
  void SurviveDeath(int events, bool isOpen) {
    if (!isOpen) Close();
    Keep(kTones, "dies", kDyingValue);
    if (real_) {
      PowerRecord::Mark(PowerEvent::Kind::Begun, Step());
      EXPECT_EQ(victims_->Run(events), 1000 + SIGKILL);
    }
    if (!isOpen) Open();
    Set(kTones, "dies", "no more");
  }

  bool Holds(int row, const std::string &name) const {
    const auto table = contents_.back().find(g_auDbTbl[row].pName);
    return table != contents_.back().end() && table->second.contains(StoredKey(row, name));
  }
  const std::vector<Contents> &AfterEachStep() const { return contents_; }

 private:
  inline static const std::string kDyingValue = std::string(5000, 'd');

  std::size_t Step() const { return contents_.size() - 1; }
  Contents &Next() {
    contents_.push_back(contents_.back());
    return contents_.back();
  }
  void Keep(int row, const std::string &name, const std::string &value) {
    Next()[g_auDbTbl[row].pName][StoredKey(row, name)] = value + '\0';
  }
  void Do(const std::function<int()> &change) const {
    if (!real_) return;
    PowerRecord::Mark(PowerEvent::Kind::Begun, Step());
    EXPECT_EQ(change(), 0);
    PowerRecord::Mark(PowerEvent::Kind::Done, Step());
  }

  std::string home_;
  bool real_ = false;
  std::unique_ptr<Starter> victims_;
  std::vector<Contents> contents_;
};

}  // namespace devsupport::test
