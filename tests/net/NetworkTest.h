// SPDX-License-Identifier: MIT
// What the tests of the network units share: a private network for each test, with an eye on its descriptors.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/CapturedOutput.h"
#include "tests/support/PrivateNetwork.h"

namespace devsupport::test {

/// What the link file's driver offers.
inline constexpr const char *kLinkFile = "/proc/avalanche/cpmac_link";

/// Base of all tests that need interfaces of their own.
class NetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!CanMakePrivateNetworks()) GTEST_SKIP() << "needs `ip` and the right to make network and mount namespaces";
  }

  /// Runs the test's body in a private network; no descriptor may be left open by it.
  static void InPrivateNetwork(const std::function<void()> &body) {
    EXPECT_EQ(RunInPrivateNetwork([&] {
                const int before = CountDescriptors();
                body();
                EXPECT_EQ(CountDescriptors(), before) << "descriptors leaked";
              }),
              0);
  }
};

/// Asks for a link state; nothing may be printed and no descriptor left open on the way.
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
