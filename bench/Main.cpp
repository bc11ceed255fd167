// The benchmark program: registers the rows of every area and runs those that the command line picks.

#include <benchmark/benchmark.h>

#include <string>

#include "Peers.h"
#include "Row.h"

using namespace devsupport::bench;

namespace {

void TellPeers() {
  for (const Peer &peer : kPeers) {
    const std::string version = peer.version;
    benchmark::AddCustomContext(std::string("peer:") + peer.name,
                                version.empty() ? std::string("missing ") + peer.package : version);
  }
  benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
}

}  // namespace

int main(int argc, char **argv) {
  TellPeers();
  RegisterHash();
  RegisterSlots();
  RegisterRingQueue();
  RegisterTokenizer();
  RegisterNumbers();
  RegisterSharedRing();
  RegisterLogChannel();
  RegisterStore();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
