// SPDX-License-Identifier: MIT
// A sweep makes each call of an operation fail in turn: the first one, the second one, and so on to the last, each
// once and each from then on.
//
//   void RingCanBeFilled(Faults &faults) {
//     TShmQueue ring;
//     int created = -1;
//     faults.Strike([&] { created = TShmQueue_Create(...); });   // calls in here fail
//     EXPECT_TRUE(faults.Worked(created == 1) || created == 0);  // one run has no fault and must work
//     if (created == 1) TShmQueue_Close(&ring, 1);
//   }
//
// The scenario runs in a child with System V IPC of its own, twice: with a fault and, to see that everything still
// works, without one. Afterwards the process must hold exactly what it holds after two runs without a fault:
// descriptors, mappings, System V objects, timers, memory.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/faults/FailingCalls.h"

namespace devsupport::test {

class Faults {
 public:
  Faults(FaultPlan &plan, bool strikes) : plan_(plan), strikes_(strikes) {}

  /// Runs the operation whose calls must fail.
  void Strike(const std::function<void()> &operation) {
    plan_.armed = strikes_;
    operation();
    plan_.armed = false;
  }
  /// Passes the result on; without a fault a failed operation fails the test.
  bool Worked(bool worked) const;
  /// True when the run has met its fault.
  bool Struck() const { return strikes_ && plan_.failed != 0; }

 private:
  FaultPlan &plan_;
  bool strikes_;
};

enum class Leftovers { None, AfterHealing };

using Scenario = std::function<void(Faults &)>;

/// The kinds of faults, for each n.
struct FaultKind {
  CallKind kind;
  bool forGood;
};
std::vector<FaultKind> AllKinds();
std::vector<FaultKind> SystemCalls();
void MakePlan(FaultPlan &plan, const FaultKind &kind, int nth);
std::string Describe(const FaultPlan &plan);

/// The distance between calls that are tried. An ordinary run tries about the usual number of calls;
/// DEVSUPPORT_CALLS=1000000 in the environment tries all.
int StrideOf(int calls, int usual);

/// The first call that a run tries: the seed picks it when DEVSUPPORT_CALLS is set; an ordinary run always tries the
/// same ones.
int FirstOf(int stride, std::uint64_t seed);

/// Runs the scenario once for each call that it makes; an ordinary run tries some of them.
/// Expectations that fail name the call.
/// leftovers  AfterHealing: allocations may stay, and when calls go on failing System V objects, too
void Sweep(const Scenario &scenario, Leftovers leftovers = Leftovers::None,
           const std::vector<FaultKind> &kinds = AllKinds());

}  // namespace devsupport::test
