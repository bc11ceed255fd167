// SPDX-License-Identifier: MIT
// Segments by key: creation, messages of failures, removal, and the number of users.

#include <devsupport/ipc/ShareMem.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/IpcKey.h"

DEVSUPPORT_FAULT_POINT(int, shmget, (key_t key, std::size_t size, int flags), (key, size, flags), -1, EACCES)
DEVSUPPORT_FAULT_POINT(void *, shmat, (int id, const void *address, int flags), (id, address, flags),
                       reinterpret_cast<void *>(std::intptr_t{-1}), ENOMEM)
DEVSUPPORT_FAULT_POINT(int, shmctl, (int id, int command, shmid_ds *status), (id, command, status), -1, EPERM)

namespace {

using namespace devsupport::test;

constexpr int kUntouched = -4711;  // a value that no operation writes to a flag
void *const kNotAttached = reinterpret_cast<void *>(std::intptr_t{-1});

bool SegmentExists(int key) { return ::shmget(key, 0, 0) != -1; }

unsigned long AttachmentsOf(int key) {
  shmid_ds status{};
  return ::shmctl(::shmget(key, 0, 0), IPC_STAT, &status) == 0 ? status.shm_nattch : 4711;
}

std::string ReportOf(char step, int key, int error) {
  char text[512];
  std::snprintf(text, sizeof text, "\n *** share memory create fail(%c), key=0x%X (%s) ***\n:%s\n", step,
                static_cast<unsigned>(key), std::strerror(error), std::strerror(error));
  return text;
}

class ShareMem : public ::testing::Test {
 protected:
  void *Create(std::uint32_t size) { return ShareMem_Create(key, size, &shm, &created); }
  void TearDown() override {
    if (shm.address != nullptr && shm.address != kNotAttached) ::shmdt(shm.address);
  }

  IpcKey key;
  TShareMem shm{kUntouched, nullptr};
  int created = kUntouched;
};

TEST_F(ShareMem, Create_OfNewKey_MakesAZeroFilledSegmentForEverybody) {
  CapturedOutput err(stderr);
  auto *bytes = static_cast<unsigned char *>(Create(5000));
  EXPECT_EQ(err.Take(), "");
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(created, 1);
  EXPECT_EQ(shm.address, bytes);
  EXPECT_EQ(shm.shmid, ::shmget(key, 0, 0));
  shmid_ds status{};
  ASSERT_EQ(::shmctl(shm.shmid, IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_segsz, 5000u);
  EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
  EXPECT_TRUE(std::all_of(bytes, bytes + 5000, [](unsigned char byte) { return byte == 0; }));
}

TEST_F(ShareMem, Create_OfExistingKey_ShowsItsContentsAndIsNotTheCreator) {
  std::memcpy(Create(100), "contents", 9);
  TShareMem again{kUntouched, nullptr};
  int createdAgain = kUntouched;
  void *address = ShareMem_Create(key, 100, &again, &createdAgain);
  ASSERT_NE(address, nullptr);
  EXPECT_NE(address, shm.address);
  EXPECT_EQ(createdAgain, 0);
  EXPECT_EQ(again.shmid, shm.shmid);
  EXPECT_STREQ(static_cast<char *>(address), "contents");
  std::memcpy(address, "CONTENTS", 9);
  EXPECT_STREQ(static_cast<char *>(shm.address), "CONTENTS");
  ::shmdt(address);
}

TEST_F(ShareMem, Create_OfLargerSegment_Attaches) {
  ASSERT_NE(Create(100), nullptr);
  ::shmdt(shm.address);
  EXPECT_NE(Create(50), nullptr);
  EXPECT_EQ(created, 0);
}

TEST_F(ShareMem, Create_OfSmallerSegment_PrintsMessageAAndReturnsNull) {
  ASSERT_NE(Create(100), nullptr);
  TShareMem larger{kUntouched, nullptr};
  int createdLarger = kUntouched;
  CapturedOutput err(stderr);
  void *address = ShareMem_Create(key, 101, &larger, &createdLarger);
  EXPECT_EQ(err.Take(), ReportOf('a', key, EINVAL));
  EXPECT_EQ(address, nullptr);
  EXPECT_EQ(larger.shmid, -1);
  EXPECT_EQ(createdLarger, 0);
  EXPECT_EQ(AttachmentsOf(key), 1u);
}

TEST_F(ShareMem, Create_WhenTheSystemRefuses_PrintsMessageAWithTheErrorTextTwice) {
  FailCall fail("shmget", FailCall::kEvery);
  CapturedOutput err(stderr);
  TShareMem refused{kUntouched, nullptr};
  EXPECT_EQ(ShareMem_Create(0x0ABCDEF1, 100, &refused, &created), nullptr);
  EXPECT_EQ(err.Take(),
            "\n *** share memory create fail(a), key=0xABCDEF1 (Permission denied) ***\n:Permission denied\n");
  EXPECT_EQ(refused.shmid, -1);
  EXPECT_EQ(created, 0);
}

TEST_F(ShareMem, Create_WithNegativeKey_PrintsItAs32BitHexadecimal) {
  FailCall fail("shmget", FailCall::kEvery);
  CapturedOutput err(stderr);
  TShareMem refused{};
  EXPECT_EQ(ShareMem_Create(-2, 100, &refused, &created), nullptr);
  EXPECT_EQ(err.Take(), ReportOf('a', -2, EACCES));
}

TEST_F(ShareMem, Create_WhenOnlyTheExclusiveRequestFails_IsNotTheCreator) {
  FailCall fail("shmget", 1);
  EXPECT_NE(Create(100), nullptr);
  EXPECT_TRUE(fail.Happened());
  EXPECT_EQ(created, 0);
}

TEST_F(ShareMem, Create_WhenNewSegmentCannotBeAttached_PrintsMessageBAndRemovesIt) {
  FailCall fail("shmat", 1);
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(100), nullptr);
  EXPECT_EQ(err.Take(), ReportOf('b', key, ENOMEM));
  EXPECT_EQ(shm.address, kNotAttached);
  EXPECT_NE(shm.shmid, -1);
  EXPECT_EQ(created, 1);
  EXPECT_FALSE(SegmentExists(key));
}

TEST_F(ShareMem, Create_WhenUnusedSegmentOfOthersCannotBeAttached_RemovesItToo) {
  ASSERT_NE(::shmget(key, 100, IPC_CREAT | 0600), -1);
  FailCall fail("shmat", 1);
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(100), nullptr);
  EXPECT_EQ(err.Take(), ReportOf('b', key, ENOMEM));
  EXPECT_EQ(created, 0);
  EXPECT_FALSE(SegmentExists(key));
}

TEST_F(ShareMem, Create_WhenSegmentInUseCannotBeAttached_LeavesItToItsUsers) {
  ASSERT_NE(Create(100), nullptr);
  TShareMem second{kUntouched, nullptr};
  FailCall fail("shmat", 1);
  CapturedOutput err(stderr);
  EXPECT_EQ(ShareMem_Create(key, 100, &second, &created), nullptr);
  EXPECT_EQ(err.Take(), ReportOf('b', key, ENOMEM));
  EXPECT_EQ(AttachmentsOf(key), 1u);
}

TEST_F(ShareMem, Close_ByTheLastUserWithRemoval_RemovesTheSegment) {
  ASSERT_NE(Create(100), nullptr);
  int wasLast = kUntouched;
  EXPECT_EQ(ShareMem_Close(&shm, 1, &wasLast), 1);
  EXPECT_EQ(wasLast, 1);
  EXPECT_FALSE(SegmentExists(key));
}

TEST_F(ShareMem, Close_ByTheLastUserWithoutRemoval_LeavesTheSegmentAndReportsLast) {
  ASSERT_NE(Create(100), nullptr);
  int wasLast = kUntouched;
  EXPECT_EQ(ShareMem_Close(&shm, 0, &wasLast), 1);
  EXPECT_EQ(wasLast, 1);
  EXPECT_TRUE(SegmentExists(key));
  EXPECT_EQ(AttachmentsOf(key), 0u);
}

TEST_F(ShareMem, Close_WhileOthersUseTheSegment_LeavesItAndReportsNotLast) {
  ASSERT_NE(Create(100), nullptr);
  TShareMem second{};
  ASSERT_NE(ShareMem_Create(key, 100, &second, &created), nullptr);
  int wasLast = kUntouched;
  EXPECT_EQ(ShareMem_Close(&second, 1, &wasLast), 1);
  EXPECT_EQ(wasLast, 0);
  EXPECT_EQ(AttachmentsOf(key), 1u);
}

TEST_F(ShareMem, Close_WhenDetachingFails_Returns0AndStillRemoves) {
  ASSERT_NE(Create(100), nullptr);
  ::shmdt(shm.address);
  int wasLast = kUntouched;
  EXPECT_EQ(ShareMem_Close(&shm, 1, &wasLast), 0);
  EXPECT_EQ(wasLast, 1);
  EXPECT_FALSE(SegmentExists(key));
  shm.address = nullptr;
}

TEST_F(ShareMem, Close_WhenTheStatusCannotBeRead_Returns0AndReportsNotLast) {
  ASSERT_NE(Create(100), nullptr);
  int wasLast = kUntouched;
  FailCall fail("shmctl", 1);
  EXPECT_EQ(ShareMem_Close(&shm, 1, &wasLast), 0);
  EXPECT_EQ(wasLast, 0);
  EXPECT_TRUE(SegmentExists(key));
  shm.address = nullptr;
}

TEST_F(ShareMem, Close_WhenRemovingFails_Returns0AndReportsLast) {
  ASSERT_NE(Create(100), nullptr);
  int wasLast = kUntouched;
  FailCall fail("shmctl", 2);
  EXPECT_EQ(ShareMem_Close(&shm, 1, &wasLast), 0);
  EXPECT_TRUE(fail.Happened());
  EXPECT_EQ(wasLast, 1);
  EXPECT_TRUE(SegmentExists(key));
  shm.address = nullptr;
}

TEST_F(ShareMem, FindKeyAttchCount_OfUnknownKey_Is0) { EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 0); }

TEST_F(ShareMem, FindKeyAttchCount_OfAnUnusedSegment_Is0) {
  ASSERT_NE(::shmget(key, 100, IPC_CREAT | 0666), -1);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 0);
}

TEST_F(ShareMem, FindKeyAttchCount_CountsTheProcessesOfThisKeyOnly) {
  const IpcKey otherKey;
  ASSERT_NE(::shmget(otherKey, 100, IPC_CREAT | 0666), -1);
  ASSERT_NE(Create(100), nullptr);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 1);
  Event attached;
  Event leave;
  Child child([&] {  // it inherits the attachment, which counts
    attached.Announce();
    leave.Wait();
    return 0;
  });
  attached.Wait();
  EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 2);
  leave.Announce();
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 1);
}

TEST_F(ShareMem, FindKeyAttchCount_WhenTheTableCannotBeRead_Is0) {
  ASSERT_NE(Create(100), nullptr);
  FailCall fail("shmctl", 1);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(key), 0);
  EXPECT_TRUE(fail.Happened());
}

TEST(ShareMemTable, FindKeyAttchCount_SkipsPlacesThatItMayNotSee) {
  if (!CanMakeNamespaces()) GTEST_SKIP() << "needs the right to make IPC namespaces";
  EXPECT_EQ(RunInPrivateIpc([] {
              TShareMem shm[2];
              int created = 0;
              for (int i = 0; i < 2; ++i) EXPECT_NE(ShareMem_Create(i + 1, 100, &shm[i], &created), nullptr);
              for (const int key : {1, 2}) {
                FailCall fail("shmctl", 2);  // the first asks for the highest index, the second for place 0
                EXPECT_EQ(ShareMem_FindKeyAttchCount(key), key - 1);
                EXPECT_TRUE(fail.Happened());
              }
              return 0;
            }),
            0);
}

TEST(ShareMemTable, FindKeyAttchCount_FindsTheSegmentOfTheHighestIndexToo) {
  if (!CanMakeNamespaces()) GTEST_SKIP() << "needs the right to make IPC namespaces";
  // In a private namespace the places in the system's table are 0, 1 and 2. The one in the middle is freed.
  EXPECT_EQ(RunInPrivateIpc([] {
              TShareMem shm[3];
              int created = 0;
              int wasLast = 0;
              EXPECT_EQ(ShareMem_FindKeyAttchCount(1), 0);
              for (int i = 0; i < 3; ++i) EXPECT_NE(ShareMem_Create(i + 1, 100, &shm[i], &created), nullptr);
              EXPECT_EQ(ShareMem_Close(&shm[1], 1, &wasLast), 1);
              EXPECT_EQ(ShareMem_FindKeyAttchCount(1), 1);
              EXPECT_EQ(ShareMem_FindKeyAttchCount(2), 0);
              EXPECT_EQ(ShareMem_FindKeyAttchCount(3), 1);
              return 0;
            }),
            0);
}

TEST_F(ShareMem, Create_ByManyProcessesAtOnce_HasOneCreator) {
  Event go;
  std::vector<Child> children;
  for (int i = 0; i < 20; ++i) {
    children.emplace_back([&] {
      go.Wait();
      TShareMem mine{};
      int first = kUntouched;
      return ShareMem_Create(key, 100, &mine, &first) != nullptr ? first : 2;
    });
  }
  for (int i = 0; i < 20; ++i) go.Announce();
  int creators = 0;
  for (Child &child : children) {
    const int result = child.Wait();
    EXPECT_LE(result, 1);
    creators += result;
  }
  EXPECT_EQ(creators, 1);
}

}  // namespace
