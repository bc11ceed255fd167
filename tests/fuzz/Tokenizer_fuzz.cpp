// SPDX-License-Identifier: MIT
// The tokenizer, its scans by sets and its conversions: a script of operations from the input gives the same
// results, copies and fields of the record as the naive tokenizer.

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/text/StrTokScript.h"

#include <cstdint>

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  devsupport::test::FuzzInput input(data, size);
  devsupport::test::StrTokScript script([&](std::size_t limit) { return input.Below(limit); });
  for (int step = 0; !input.IsUsedUp(); ++step) {
    script.Step(step);
    script.Compare();
  }
  return 0;
}
