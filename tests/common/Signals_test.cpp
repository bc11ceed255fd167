// SPDX-License-Identifier: MIT
// Blocked signals, and closed standard descriptors.

#include "tools/common/Signals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/Child.h"
#include "tools/common/StandardDescriptors.h"

namespace {

using devsupport::test::Child;

constexpr int kSignals[] = {SIGTERM, SIGHUP};

TEST(HeldSignals, WaitUntilItGoes) {
  Child child([] {
    const tools::HeldSignals held(kSignals);
    ::raise(SIGTERM);
    if (!tools::IsAnyPending(kSignals)) ::_exit(1);
    return 0;  // the destructor unblocks the signal
  });
  EXPECT_EQ(child.Wait(), 1000 + SIGTERM);
}

TEST(HeldSignals, LeaveOthersAlone) {
  EXPECT_EQ(Child([] {
              const tools::HeldSignals held(kSignals);
              ::raise(SIGINT);
              return 0;
            }).Wait(),
            1000 + SIGINT);
}

TEST(IsAnyPending, AsksForTheseSignalsOnly) {
  EXPECT_EQ(Child([] {
              constexpr int kOther[] = {SIGINT};
              const tools::HeldSignals held(kOther);
              ::raise(SIGINT);
              ::_exit(tools::IsAnyPending(kSignals) || !tools::IsAnyPending(kOther) ? 1 : 0);
              return 0;
            }).Wait(),
            0);
}

TEST(OccupyStandardDescriptors, OccupiesTheClosedOnesSoThatTheirUseFails) {
  EXPECT_EQ(Child([] {
              ::close(STDIN_FILENO);
              ::close(STDOUT_FILENO);
              char byte = 0;
              const bool isDone = tools::OccupyStandardDescriptors() && ::read(STDIN_FILENO, &byte, 1) == -1 &&
                                  ::write(STDOUT_FILENO, &byte, 1) == -1;
              ::_exit(isDone && ::open("/dev/null", O_RDONLY) > STDERR_FILENO ? 0 : 1);
              return 0;
            }).Wait(),
            0);
}

}  // namespace
