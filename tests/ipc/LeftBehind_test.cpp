// The tests of this folder leave no System V object behind: each program runs once more, alone in a private
// namespace, and what is there afterwards is counted. The build names the programs in DEVSUPPORT_IPC_TESTS, separated
// by blanks.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/Child.h"
#include "support/IpcKey.h"

namespace {

using devsupport::test::CanMakeNamespaces;
using devsupport::test::Child;
using devsupport::test::CountIpcObjects;
using devsupport::test::RunInPrivateIpc;

std::vector<std::string> Programs() {
  std::istringstream paths(DEVSUPPORT_IPC_TESTS);
  std::vector<std::string> programs;
  for (std::string path; paths >> path;) programs.push_back(path);
  return programs;
}

int RunProgram(const std::string &program) {
  Child child([&]() -> int {
    ::unsetenv("GTEST_OUTPUT");
    ::execl(program.c_str(), program.c_str(), "--gtest_brief=1", nullptr);
    return 127;
  });
  return child.Wait();
}

class LeftBehind : public ::testing::TestWithParam<std::string> {};

TEST_P(LeftBehind, ByTheTests_IsNothing) {
  if (!CanMakeNamespaces()) GTEST_SKIP() << "needs the right to make IPC namespaces";
  EXPECT_EQ(RunInPrivateIpc([] {
              EXPECT_EQ(RunProgram(GetParam()), 0);
              EXPECT_EQ(CountIpcObjects(), 0);
              return 0;
            }),
            0);
}

std::string NameOf(const ::testing::TestParamInfo<std::string> &info) {
  return info.param.substr(info.param.rfind('/') + 1);
}

INSTANTIATE_TEST_SUITE_P(Of, LeftBehind, ::testing::ValuesIn(Programs()), NameOf);

}  // namespace
