// SPDX-License-Identifier: MIT
// Changes of the store with a journal: begun and acknowledged changes, in memory that remains after the process has
// ended, so that others can check whether a change is lost, half done or made twice.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>

namespace devsupport::test {

/// The changes of one worker, for each key. Change number n leaves the key with a value made from n, or without one.
struct Journal {
  static constexpr int kKeys = 9;

  std::array<std::atomic<int>, kKeys> begun;
  std::array<std::atomic<int>, kKeys> acknowledged;
  std::atomic<int> changes;  // begun so far
  std::atomic<int> steps;    // finished so far, including reads
};

/// Mixes all operations on private keys: one third each in the parameters, in the phone book and in the lines.
class Worker {
 public:
  /// name  part of all keys and values; no two workers share one
  Worker(Journal &journal, std::string name, std::uint64_t seed);

  /// One random operation. Returns what was wrong with its result.
  ::testing::AssertionResult Step();
  /// One change, never a read.
  ::testing::AssertionResult Change();
  /// Makes changes until the process is killed. A wrong result also ends it.
  [[noreturn]] void ChangeForEver();

  /// Whether all acknowledged changes are there. A change that was being made may be there or not.
  ::testing::AssertionResult HoldsAll() const;
  /// After the worker's death: notes whether the change that was being made is there.
  void DecideWhatWasUnderWay();

 private:
  ::testing::AssertionResult Read();
  ::testing::AssertionResult ReadByIndex();
  ::testing::AssertionResult Search();
  std::string KeyName(int key) const;
  std::string Value(int key, int change) const;
  std::string Stored(int key) const;
  std::string Found(int key) const;

  Journal &journal_;
  std::string name_;
  std::mt19937_64 random_;
};

}  // namespace devsupport::test
