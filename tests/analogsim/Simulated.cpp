// SPDX-License-Identifier: MIT
#include "tests/analogsim/Simulated.h"

#include <cstdlib>

namespace analogsim_test {

namespace {

std::string SanitizerOptions() {
  const char *given = std::getenv("ASAN_OPTIONS");
  const std::string ours = "verify_asan_link_order=0";
  return given != nullptr ? given + (':' + ours) : ours;
}

}  // namespace

devsupport::test::Command Simulated(const Words &options, const Words &command) {
  Words words{ANALOGSIM_PATH};
  words.insert(words.end(), options.begin(), options.end());
  words.emplace_back("--");
  words.insert(words.end(), command.begin(), command.end());
  devsupport::test::Command simulated(words);
  simulated.Environment("ASAN_OPTIONS", SanitizerOptions());
  return simulated;
}

Words ReceivedRecords(const std::string &trace) {
  static const std::string kMark = " bytes ";
  Words records;
  for (const std::string &line : devsupport::test::Lines(trace)) {
    const std::size_t mark = line.find(kMark);
    if (mark != std::string::npos) records.push_back(line.substr(mark + kMark.size()));
  }
  return records;
}

}  // namespace analogsim_test
