// What the tests of the network units share: one private network for each test, and requests that fail on demand.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "support/PrivateNetwork.h"

namespace devsupport::test {

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

}  // namespace devsupport::test
