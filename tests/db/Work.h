// SPDX-License-Identifier: MIT
// Work on the store that keeps a journal: what a process has begun and what was acknowledged, in memory that outlives
// it, so that others can say afterwards whether anything is lost, half done or double.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>

namespace devsupport::test {

/// What one worker has done, key by key. Change number n leaves the key with a value made from n, or without one.
struct Journal {
  static constexpr int kKeys = 9;

  std::array<std::atomic<int>, kKeys> begun;
  std::array<std::atomic<int>, kKeys> acknowledged;
  std::atomic<int> changes;  // begun so far
  std::atomic<int> steps;    // finished so far, reads among them
};

/// Mixes all operations on keys of its own: a third each in the parameters, in the phone book and among the lines.
class Worker {
 public:
  /// name  part of all keys and values; no two workers share one
  Worker(Journal &journal, std::string name, std::uint64_t seed);

  /// One operation at random. Says what was wrong with its answer.
  ::testing::AssertionResult Step();
  /// One change, never a read.
  ::testing::AssertionResult Change();
  /// Changes until somebody ends the process; an answer that is wrong ends it, too.
  [[noreturn]] void ChangeForEver();

  /// Whether all that was acknowledged is there; what was under way may be there or not.
  ::testing::AssertionResult HoldsAll() const;
  /// After the worker's death: takes what was under way for done or for never begun, whatever it is.
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
