// SPDX-License-Identifier: MIT
// How processes die in the tests of the store.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace devsupport::test {

/// Lets this process die inside the library at its n-th fsync from here on: in the middle of an operation that writes.
void DieAtSync(int nth = 1);

/// Opens the store and dies in the middle of a change. Returns only when that went wrong.
int DieInside(const std::string &home);

/// Starts processes that have nothing of this one's store, whatever it has open by then.
class Starter {
 public:
  /// body  what each process does with the number that it is given
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

/// Whether the process is no longer there but for its status.
bool HasEnded(const Child &child);

}  // namespace devsupport::test
