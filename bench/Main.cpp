// SPDX-License-Identifier: MIT
// The benchmark program: registers the rows of every area and runs those that the command line picks.

#include <benchmark/benchmark.h>
#include <db.h>

#include <string>

#include "bench/Peers.h"
#include "bench/Row.h"

using namespace devsupport::bench;

namespace {

std::string Dotted(int first, int second, int third) {
  return std::to_string(first) + "." + std::to_string(second) + "." + std::to_string(third);
}

// For the head of the report: "<package> <version>", or only the package when the peer is missing.
void TellVersions() {
  benchmark::AddCustomContext("tool:GCC", "g++-" + std::to_string(__GNUC__) + " " __VERSION__ ", -O2");
  benchmark::AddCustomContext("tool:Berkeley DB",
                              "libdb5.3 " + Dotted(DB_VERSION_MAJOR, DB_VERSION_MINOR, DB_VERSION_PATCH));
  benchmark::AddCustomContext("tool:Google Benchmark", "libbenchmark-dev " DEVSUPPORT_BENCHMARK_VERSION);
  for (const Peer &peer : kPeers) {
    const std::string version = peer.version;
    benchmark::AddCustomContext(std::string("peer:") + peer.name,
                                peer.package + (version.empty() ? version : " " + version));
  }
}

}  // namespace

int main(int argc, char **argv) {
  TellVersions();
  RegisterHash();
  RegisterSlots();
  RegisterRingQueue();
  RegisterTokenizer();
  RegisterNumbers();
  RegisterSharedRing();
  RegisterLogChannel();
  RegisterStore();
  RegisterStoreGrowth();
  RegisterStoreHealing();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
