// SPDX-License-Identifier: MIT
// One request from its arrival to its answer.

#include "tools/analogsim/Simulator.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "tools/analogsim/Descriptor.h"

namespace analogsim {

namespace {

std::unique_ptr<Store> StoreFor(const Options &options) {
  if (options.stateFile) return std::make_unique<FileStore>(*options.stateFile);
  return std::make_unique<MemoryStore>();
}

}  // namespace

Simulator::Simulator(const Options &options)
    : driver_(options.behaviour),
      store_(StoreFor(options)),
      trace_(options.trace || options.traceBytes),
      traceBytes_(options.traceBytes ? TraceBytes::Yes : TraceBytes::No) {}

Answer Simulator::Handle(std::uint32_t request, const Record &record) {
  Answer answer;
  try {
    store_->Update([&](Registers &registers) { answer = driver_.Handle(request, record, registers); });
  } catch (const std::exception &error) {
    Say(std::string("analogsim: ") + error.what() + '\n');
    answer = Failed(record, EIO);
  }
  if (trace_) Say(TraceLine(request, record, answer, traceBytes_));
  return answer;
}

void Say(const std::string &text) { WriteAll(STDERR_FILENO, text.data(), text.size()); }

}  // namespace analogsim
