// SPDX-License-Identifier: MIT
// The tests of this folder leave no System V object: each program runs once more, alone in a private namespace, and
// the remaining objects are counted. The build names the programs in DEVSUPPORT_IPC_TESTS, separated by blanks.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Child.h"
#include "tests/support/IpcKey.h"

namespace {

using namespace devsupport::test;

struct Program {
  std::string path;
  std::string Name() const { return path.substr(path.rfind('/') + 1); }
};

void PrintTo(const Program &program, std::ostream *out) { *out << program.Name(); }

std::vector<Program> Programs() {
  std::istringstream paths(DEVSUPPORT_IPC_TESTS);
  std::vector<Program> programs;
  for (std::string path; paths >> path;) programs.push_back({path});
  return programs;
}

int RunProgram(const std::string &path) {
  Child child([&]() -> int {
    ::unsetenv("GTEST_OUTPUT");
    ::execl(path.c_str(), path.c_str(), "--gtest_brief=1", nullptr);
    return 127;
  });
  return child.Wait();
}

class LeftBehind : public ::testing::TestWithParam<Program> {};

TEST_P(LeftBehind, ByTheTests_IsNothing) {
  if (!CanMakeNamespaces()) GTEST_SKIP() << "needs the right to make IPC namespaces";
  EXPECT_EQ(RunInPrivateIpc([] {
              EXPECT_EQ(RunProgram(GetParam().path), 0);
              EXPECT_EQ(CountIpcObjects(), 0);
              return 0;
            }),
            0);
}

INSTANTIATE_TEST_SUITE_P(Of, LeftBehind, ::testing::ValuesIn(Programs()),
                         [](const auto &program) { return program.param.Name(); });

}  // namespace
