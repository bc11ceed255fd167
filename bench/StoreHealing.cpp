// SPDX-License-Identifier: MIT
// Configuration store after the death of a process: how long the next read of another process takes, by number of
// records.

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <map>
#include <string>

#include "bench/Row.h"
#include "bench/SkipOnError.h"
#include "bench/StoreUse.h"
#include "bench/WorkerProcesses.h"

namespace devsupport::bench {

namespace {

constexpr std::array kRecords{100, 1000, 10000, 100000};

std::string NameOf(int i) { return "parameter." + std::to_string(i); }

// A closed home with that many records. Each is filled once.
const Folder &HomeWith(int records) {
  static std::map<int, Folder> homes;
  const auto [place, isNew] = homes.try_emplace(records);
  const Folder &home = place->second;
  if (!isNew) return home;
  OpenIn(home);
  Fill(g_uDb.tb_fkey, Names(records, NameOf));
  BerkDb_Close();
  return home;
}

// Opens the store in a process of its own, which is killed in the middle of a change.
void DieIn(const Folder &home) {
  const pid_t victim = fork();
  if (victim == 0) {
    OpenIn(home);
    db_env_set_func_fsync([](int) { return raise(SIGKILL); });
    BerkDb_Set(g_uDb.tb_tone, "dies", "inside");
    _exit(1);
  }
  int status = 0;
  Must(victim > 0 && waitpid(victim, &status, 0) == victim && WIFSIGNALED(status), "a killed process");
}

void Read() {
  Buffer out{};
  Must(BerkDb_Get(g_uDb.tb_fkey, NameOf(1).c_str(), out.data(), static_cast<std::int32_t>(out.size())) == BERKDB_OK,
       "a read");
}

void Heal(benchmark::State &state, int records) {
  Isolate();
  Store::Shared().reset();
  const Folder &home = HomeWith(records);
  WorkerProcesses survivor(1, 1, [&home, open = false]() mutable {
    if (!open) OpenIn(home);
    open = true;
    Read();
  });
  survivor.Run();
  for (auto _ : state) {
    DieIn(home);
    state.SetIterationTime(survivor.Run());
  }
}

// When no other process has the store open: the next process opens, recovers and reads.
void OpenAfterwards(benchmark::State &state, int records) {
  Isolate();
  Store::Shared().reset();
  const Folder &home = HomeWith(records);
  for (auto _ : state) {
    DieIn(home);
    WorkerProcesses opener(1, 1, [&home] {
      OpenIn(home);
      Read();
    });
    state.SetIterationTime(opener.Run());
  }
}

}  // namespace

void RegisterStoreHealing() {
  const Row row("store_heal_records", "go on after a process was killed inside, by number of records", kNoAim,
                Clock::ElapsedOnce);
  for (const int records : kRecords) {
    row.At(records)
        .Ours(SkipOnError(Heal, records))
        .Floor("opening when nobody is left", SkipOnError(OpenAfterwards, records));
  }
}

}  // namespace devsupport::bench
