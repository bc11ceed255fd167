// SPDX-License-Identifier: MIT
// Rows of the report: one job, done by our code, by its floor and by the peers. See bench/README.md.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace devsupport::bench {

/// How a row is measured.
enum class Clock {
  Cpu,          ///< CPU time of this process: for jobs in one thread
  Elapsed,      ///< elapsed time as the body reports it (State::SetIterationTime): for several processes
  ElapsedOnce,  ///< the same, but a repetition is one iteration even when the reported time is short
};

/// The aim of the row: at most `ratio` times the best peer, the floor or, for a series, its own first point.
struct Aim {
  enum class Against { Nothing, BestPeer, Floor, FirstPoint };
  Against against;
  double ratio;
};
constexpr Aim kNoAim{Aim::Against::Nothing, 0};
constexpr Aim kAheadOfEveryPeer{Aim::Against::BestPeer, 1.0};
constexpr Aim kNearTheBestPeer{Aim::Against::BestPeer, 1.2};  ///< where the contract has costs that peers do not have
constexpr Aim kNearTheFloor{Aim::Against::Floor, 1.05};
constexpr Aim kTwiceOneAlone{Aim::Against::FirstPoint, 2.0};  ///< for a series by number of processes

/// Repeats the job: `for (auto _ : state)`.
using Body = std::function<void(benchmark::State &)>;

/// Registers the benchmarks of one row as "<row>/ours", "<row>/floor:<what>" and "<row>/peer:<who>".
class Row {
 public:
  Row(std::string name, const std::string &title, Aim aim = kNoAim, Clock clock = Clock::Cpu);

  /// The same row at a point of a series, "<row>@<point>". The report shows a series as one table.
  Row At(long point) const;

  const Row &Ours(const Body &body) const { return Add("ours", body); }
  const Row &Floor(const std::string &what, const Body &body) const { return Add("floor:" + what, body); }
  const Row &Peer(const std::string &who, const Body &body) const { return Add("peer:" + who, body); }

 private:
  const Row &Add(const std::string &who, const Body &body) const;

  std::string name_;
  Clock clock_;
};

/// One function for each area, in the source file of that name.
void RegisterHash();
void RegisterSlots();
void RegisterRingQueue();
void RegisterTokenizer();
void RegisterNumbers();
void RegisterSharedRing();
void RegisterLogChannel();
void RegisterStore();
void RegisterStoreGrowth();
void RegisterStoreHealing();

}  // namespace devsupport::bench
