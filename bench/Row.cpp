// SPDX-License-Identifier: MIT
// Registers rows with the benchmark library. Title and aim reach the report in the context of the results.

#include "bench/Row.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace devsupport::bench {

namespace {

std::string AimText(Aim aim) {
  constexpr std::array kAgainst{"nothing", "peer", "floor", "first"};
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%s %.2f", kAgainst[static_cast<std::size_t>(aim.against)], aim.ratio);
  return text.data();
}

}  // namespace

Row::Row(std::string name, const std::string &title, Aim aim, Clock clock) : name_(std::move(name)), clock_(clock) {
  benchmark::AddCustomContext("row:" + name_, AimText(aim) + " " + title);
}

Row Row::At(long point) const {
  Row row = *this;
  row.name_ += "@" + std::to_string(point);
  return row;
}

const Row &Row::Add(const std::string &who, const Body &body) const {
  auto *made = benchmark::RegisterBenchmark((name_ + "/" + who).c_str(), body);
  if (clock_ != Clock::Cpu) made->UseManualTime();
  if (clock_ == Clock::ElapsedOnce) made->Iterations(1);
  // The number of jobs in each run, for counting instructions (bench/counted.py).
  if (const char *jobs = std::getenv("DEVSUPPORT_BENCH_JOBS")) made->Iterations(std::atol(jobs));
  return *this;
}

}  // namespace devsupport::bench
