// SPDX-License-Identifier: MIT
// Replays the corpus of one fuzz target: every input that added coverage, and every one that ever
// failed. The program is named after its target: fuzz_Tokenizer replays corpus/Tokenizer.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/TempDir.h"

namespace {

std::filesystem::path Corpus() {
  return std::filesystem::path(CORPORA) / (program_invocation_short_name + std::strlen("fuzz_"));
}

std::vector<std::filesystem::path> Inputs() {
  std::vector<std::filesystem::path> inputs;
  for (const auto &entry : std::filesystem::directory_iterator(Corpus())) inputs.push_back(entry.path());
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

TEST(Corpus, EveryInput_HasTheTargetsProperties) {
  const std::vector<std::filesystem::path> inputs = Inputs();
  ASSERT_FALSE(inputs.empty()) << Corpus();
  for (const std::filesystem::path &input : inputs) {
    SCOPED_TRACE(input.filename().string());
    const std::string text = devsupport::test::FileText(input);
    // A block of exactly the input's size, so that the address sanitizer sees any access outside it.
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ASSERT_FALSE(HasFailure());
  }
}

TEST(Corpus, NoInputAtAll_HasTheTargetsProperties) {
  const std::uint8_t nothing = 0;
  LLVMFuzzerTestOneInput(&nothing, 0);
}

}  // namespace
