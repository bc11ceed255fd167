// SPDX-License-Identifier: MIT
#include <devsupport/text/Version.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace {

TEST(Version, OfTheLibrary_IsThatOfThePackage) { EXPECT_STREQ(DevSupport_Version(), PROJECT_VERSION); }

TEST(Version, OfTheHeaders_IsThatOfTheLibrary) {
  char szText[32];
  std::snprintf(szText, sizeof szText, "%d.%d.%d", DEVSUPPORT_VERSION / 10000, DEVSUPPORT_VERSION / 100 % 100,
                DEVSUPPORT_VERSION % 100);
  EXPECT_STREQ(szText, DevSupport_Version());
}

}  // namespace
