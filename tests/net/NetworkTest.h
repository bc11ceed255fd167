// SPDX-License-Identifier: MIT
// Fixture of the network tests: a private network for each test, and a check that no descriptor stays open.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/CapturedOutput.h"
#include "tests/support/PrivateNetwork.h"

namespace devsupport::test {

/// The file of the link driver.
inline constexpr const char *kLinkFile = "/proc/avalanche/cpmac_link";

/// Each test runs in a private network, whose only interface is a loopback that is down.
class NetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!CanMakePrivateNetworks()) GTEST_SKIP() << "needs `ip` and the right to make network and mount namespaces";
    EnterPrivateNetwork();
    descriptors_ = CountDescriptors();
  }
  void TearDown() override {
    RevealFolders();
    if (IsSkipped()) return;
    EXPECT_EQ(CountDescriptors(), descriptors_) << "descriptors leaked";
  }

 private:
  int descriptors_ = 0;
};

/// Asks for a link state. The query must not print anything and must close its descriptors.
inline int AskSilently(int (*query)()) {
  const int before = CountDescriptors();
  int result = -4711;
  {
    CapturedOutput err(stderr);
    result = query();
    EXPECT_EQ(err.Take(), "");
  }
  EXPECT_EQ(CountDescriptors(), before) << "descriptors leaked";
  return result;
}

}  // namespace devsupport::test
