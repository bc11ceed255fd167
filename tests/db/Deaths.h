// SPDX-License-Identifier: MIT
// How processes die in the tests of the store.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace devsupport::test {

/// Kills this process at its n-th fsync from now on, which is in the middle of an operation that writes.
void DieAtSync(int nth = 1);

/// Opens the store and is killed in the middle of a change. Returns only when that failed.
int DieInside(const std::string &home);

/// Starts processes that inherit nothing of the store, even when this process has it open then.
class Starter {
 public:
  /// body  run by each process with its number
  explicit Starter(const std::function<int(int)> &body);

  /// Runs one process to its end. Returns its status as Child::Wait does.
  int Run(int number) const;

 private:
  struct Order {
    std::atomic<int> number;
    std::atomic<int> status;
  };

  SharedBlock<Order> order_;
  Event ordered_;
  Event done_;
  Child starter_;
};

/// Whether the process has ended and only its status is left.
bool HasEnded(const Child &child);

}  // namespace devsupport::test
