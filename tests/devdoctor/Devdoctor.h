// SPDX-License-Identifier: MIT
// Runs the real devdoctor on objects that the test has made, in a private IPC namespace.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/Command.h"

namespace devdoctor_test {

using Words = std::vector<std::string>;

inline devsupport::test::CommandResult Devdoctor(Words words) {
  words.insert(words.begin(), DEVDOCTOR_PATH);
  return devsupport::test::Command(words).Run();
}

/// The same, with answers on standard input.
inline devsupport::test::CommandResult Answered(const std::string &answers, const std::string &words) {
  return devsupport::test::Command({"/bin/sh", "-c", "printf '" + answers + "' | " DEVDOCTOR_PATH " " + words}).Run();
}

/// Repeats until the fault is reported: some count only after a while.
inline std::string Await(const Words &words, const std::string &text) {
  for (;;) {
    const devsupport::test::CommandResult result = Devdoctor(words);
    if (result.out.find(text) != std::string::npos) return result.out;
  }
}

}  // namespace devdoctor_test
