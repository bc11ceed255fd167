// SPDX-License-Identifier: MIT
// Opening the log channel, opening it again, failing to open it, and closing it.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <gmock/gmock.h>
#include <sys/msg.h>

#include <memory>

#include "tests/logmgr/LogRing.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/IpcKey.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

void WriteEverything() {
  const std::string text(300, 'x');
  TLogInfoShm_Write(text.c_str(), 1, 1);
  TLogInfoShm_WriteN(text.c_str(), 301, 1);
  TLogInfoShm_Write_Evt(text.c_str(), 1);
  TLogInfoShm_WriteN_Evt(text.c_str(), 301, 1);
}

// Objects of another program. The first segment and the first semaphore of a namespace have identifier 0, which is
// also the identifier in a record of zeros.
class Strangers {
 public:
  Strangers()
      : shmId_(::shmget(4711, 65536, IPC_CREAT | 0600)),
        semId_(::semget(4711, 1, IPC_CREAT | 0600)),
        queId_(::msgget(4711, IPC_CREAT | 0600)) {}

  bool HaveIdentifier0() const { return shmId_ == 0 && semId_ == 0; }
  bool AreUntouched() const {
    shmid_ds shm{};
    semid_ds sem{};
    union {
      int val;
      semid_ds *buf;
    } argument{};
    argument.buf = &sem;
    return ::shmctl(shmId_, IPC_STAT, &shm) == 0 && shm.shm_atime == 0 && shm.shm_dtime == 0 &&
           ::semctl(semId_, 0, IPC_STAT, argument) == 0 && sem.sem_otime == 0 && ::semctl(semId_, 0, GETVAL) == 0;
  }

 private:
  int shmId_;
  int semId_;
  int queId_;
};

// --- opening -----------------------------------------------------------------------------------------------------

class Channel : public ChannelTest {};

TEST_F(Channel, Open_OnAFreshSystem_MakesBothRings) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  EXPECT_EQ(TLogInfoShm_Open(4, 7, "name"), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
  for (const RingFacts &facts : {kLogRing, kEventRing}) {
    const RawRing ring(facts);
    EXPECT_EQ(ring.Word(0), facts.cells);
    EXPECT_EQ(ring.Half(4), 136);
    EXPECT_EQ(ring.Word(8), 36u);
    EXPECT_EQ(ring.ReadIndex(), 0u);
    EXPECT_EQ(ring.WriteIndex(), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(ring.Bytes()) + 256, 36), std::string(36, '\0'));
    EXPECT_EQ(SemValue(facts), 1);
    shmid_ds status{};
    ASSERT_EQ(::shmctl(::shmget(facts.shareKey, 0, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, ring.Size());
    EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
  }
}

TEST_F(Channel, Open_SetsFilterAndName) {
  ASSERT_EQ(TLogInfoShm_Open(-3, 0x80000001u, "name"), 1);
  EXPECT_EQ(_g_uLogInfoShmData.nFilterLevel, -3);
  EXPECT_EQ(_g_uLogInfoShmData.dwFilterMask, 0x80000001u);
  EXPECT_STREQ(_g_uLogInfoShmData.szName, "name");
  EXPECT_EQ(_g_uLogInfoShmData.nNameLen, 4);
}

TEST_F(Channel, Open_WithALongName_KeepsItsFirst31Characters) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "0123456789012345678901234567890123456789"), 1);
  EXPECT_STREQ(_g_uLogInfoShmData.szName, "0123456789012345678901234567890");
  EXPECT_EQ(_g_uLogInfoShmData.nNameLen, 31);
  TLogInfoShm_Write("!", 1, 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("0123456789012345678901234567890!"));
}

TEST_F(Channel, Open_WithoutAName_PutsNoneInFront) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "name"), 1);
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    ASSERT_EQ(TLogInfoShm_Open(4, 7, none), 1);
    EXPECT_STREQ(_g_uLogInfoShmData.szName, "");
    EXPECT_EQ(_g_uLogInfoShmData.nNameLen, 0);
    TLogInfoShm_Write("text", 1, 1);
  }
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("text", "text"));
}

TEST_F(Channel, Open_OfRingsThatAreThere_LeavesThemAlone) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("first", 1, 1);
  const RawRing ring(kLogRing);
  ring.SetHalf(RawRing::kUserArea, 0x5123);
  ring.SetHalf(RawRing::kUserArea + 2, 0x6456);
  Child second([] {
    EXPECT_EQ(TLogInfoShm_Open(1, 1, "second:"), 1);
    TLogInfoShm_Write("x", 1, 1);
    EXPECT_EQ(TLogInfoShm_Close(), 1);
    return 0;
  });
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_EQ(ring.Counter(), 0x5124u);
  EXPECT_EQ(ring.Half(RawRing::kUserArea + 2), 0x6456);
  EXPECT_THAT(ring.Texts(), ElementsAre("first", "second:x"));
  EXPECT_EQ(ring.Records().back().sequence, 0x123u);
}

// A creator that died before it had finished leaves a segment without a cell count. The process that finishes it
// counts as its creator.
TEST_F(Channel, Open_AsCreator_ClearsTheCountersAndKeepsTheBitsAbove) {
  for (const RingFacts &facts : {kLogRing, kEventRing}) {
    const std::size_t bytes = RawRing::kFirstSlot + (facts.cells + 1) * RawRing::kStride;
    ASSERT_NE(::shmget(facts.shareKey, bytes, IPC_CREAT | 0666), -1);
    const RawRing ring(facts);
    std::memset(ring.Bytes() + RawRing::kUserArea, 0xFF, 36);
  }
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  for (const RingFacts &facts : {kLogRing, kEventRing}) {
    const RawRing ring(facts);
    EXPECT_EQ(ring.Half(RawRing::kUserArea), 0xF000);
    EXPECT_EQ(ring.Half(RawRing::kUserArea + 2), 0xF000);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(ring.Bytes()) + 260, 32), std::string(32, '\xFF'));
    EXPECT_EQ(SemValue(facts), 1);
  }
}

TEST_F(Channel, OpenAgain_KeepsTheLocksThatReadersKnow) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  const int logLock = ::semget(kLogRing.semKey, 0, 0);
  const int eventLock = ::semget(kEventRing.semKey, 0, 0);
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  EXPECT_EQ(::semget(kLogRing.semKey, 0, 0), logLock);
  EXPECT_EQ(::semget(kEventRing.semKey, 0, 0), eventLock);
}

TEST_F(Channel, OpenAgain_StaysAttachedOnce) {
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
    TLogInfoShm_Write("x", 1, 1);
  }
  EXPECT_EQ(Attachments(kLogRing), 1u);
  EXPECT_EQ(Attachments(kEventRing), 1u);
  EXPECT_EQ(SemValue(kLogRing), 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("x", "x", "x"));
}

TEST_F(Channel, OpenAgain_AfterTheRingsWereRemoved_MakesNewOnes) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("old", 1, 1);
  for (const RingFacts &facts : {kLogRing, kEventRing}) ::shmctl(::shmget(facts.shareKey, 0, 0), IPC_RMID, nullptr);
  TLogInfoShm_Write("into the void", 1, 1);
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("new", 1, 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("new"));
  EXPECT_EQ(Attachments(kEventRing), 1u);
}

// --- failing to open ---------------------------------------------------------------------------------------------

constexpr char kLogMismatch[] =
    "\n*** TShmQueue created fail : CellCount or CellSize or UserSize not match, ShareKey=1895, SemaphoreKey=2151 "
    "***\n";
constexpr char kEventMismatch[] =
    "\n*** TShmQueue created fail : CellCount or CellSize or UserSize not match, ShareKey=1893, SemaphoreKey=2149 "
    "***\n";

// A ring of another build: it has other sizes and more bytes.
void LeaveOtherRing(const RingFacts &facts) {
  TShmQueue other{};
  TShmQueueOpt opt{36, 0, 0};
  ASSERT_EQ(TShmQueue_Create(facts.shareKey, facts.semKey, facts.cells, 140, &opt, &other), 1);
}

class MismatchedChannel : public Channel {};

TEST_F(MismatchedChannel, Open_WithAnotherLogRing_FailsAndDoesNotTryTheEventRing) {
  LeaveOtherRing(kLogRing);
  CapturedOutput err(stderr);
  EXPECT_EQ(TLogInfoShm_Open(2, 3, "name"), 0);
  EXPECT_EQ(err.Take(), kLogMismatch);
  EXPECT_FALSE(SegmentExists(kEventRing));
  EXPECT_EQ(SemValue(kLogRing), 1);
  EXPECT_EQ(Attachments(kLogRing), 1u);  // that of LeaveOtherRing
  EXPECT_EQ(_g_uLogInfoShmData.nFilterLevel, 2);
  EXPECT_STREQ(_g_uLogInfoShmData.szName, "name");
}

TEST_F(MismatchedChannel, Write_AfterAFailedOpen_TouchesNothing) {
  LeaveOtherRing(kLogRing);
  CapturedOutput err(stderr);
  EXPECT_EQ(TLogInfoShm_Open(2, 3, "name"), 0);
  err.Take();
  const RawRing ring(kLogRing);
  const std::string before(reinterpret_cast<char *>(ring.Bytes()), ring.Size());
  WriteEverything();
  EXPECT_EQ(std::string(reinterpret_cast<char *>(ring.Bytes()), ring.Size()), before);
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_EQ(SemValue(kLogRing), 1);
}

TEST_F(MismatchedChannel, Open_WithAnotherEventRing_FailsAndLeavesTheLogRingOpen) {
  LeaveOtherRing(kEventRing);
  CapturedOutput err(stderr);
  EXPECT_EQ(TLogInfoShm_Open(4, 7, nullptr), 0);
  EXPECT_EQ(err.Take(), kEventMismatch);
  TLogInfoShm_Write_Evt("lost", 1);
  TLogInfoShm_Write("kept", 1, 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("kept"));
  EXPECT_THAT(RawRing(kEventRing).Texts(), IsEmpty());
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_EQ(Attachments(kLogRing), 0u);
}

TEST_F(MismatchedChannel, Open_AfterItWasOpen_LeavesTheOldRing) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  const RawRing old(kLogRing);
  ::shmctl(::shmget(kLogRing.shareKey, 0, 0), IPC_RMID, nullptr);
  LeaveOtherRing(kLogRing);
  CapturedOutput err(stderr);
  EXPECT_EQ(TLogInfoShm_Open(4, 7, nullptr), 0);
  EXPECT_EQ(err.Take(), kLogMismatch);
  WriteEverything();
  EXPECT_THAT(old.Texts(), IsEmpty());
}

// --- not open ----------------------------------------------------------------------------------------------------

class ClosedChannel : public ChannelTest {
 protected:
  void SetUp() override {
    ChannelTest::SetUp();
    if (IsSkipped()) return;
    strangers = std::make_unique<Strangers>();
    ASSERT_TRUE(strangers->HaveIdentifier0());
  }
  std::unique_ptr<Strangers> strangers;
};

TEST_F(ClosedChannel, Write_BeforeItIsOpen_TouchesNothing) {
  WriteEverything();
  EXPECT_TRUE(strangers->AreUntouched());
  EXPECT_EQ(CountIpcObjects(), 3);
}

TEST_F(ClosedChannel, Close_BeforeItIsOpen_TouchesNothing) {
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_TRUE(strangers->AreUntouched());
  EXPECT_EQ(CountIpcObjects(), 3);
}

TEST_F(ClosedChannel, Write_AfterItWasClosed_TouchesNothing) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "name"), 1);
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  WriteEverything();
  EXPECT_TRUE(strangers->AreUntouched());
  EXPECT_THAT(RawRing(kLogRing).Texts(), IsEmpty());
  EXPECT_THAT(RawRing(kEventRing).Texts(), IsEmpty());
}

TEST_F(ClosedChannel, Close_LeavesTheRingsInTheSystem) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("kept", 1, 1);
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_EQ(Attachments(kLogRing), 0u);
  EXPECT_EQ(Attachments(kEventRing), 0u);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("kept"));
}

TEST_F(ClosedChannel, Close_KeepsFilterAndName) {
  ASSERT_EQ(TLogInfoShm_Open(3, 9, "name"), 1);
  TLogInfoShm_Close();
  EXPECT_EQ(TLogInfoShm_IsEnabled(3, 8), 1);
  EXPECT_STREQ(_g_uLogInfoShmData.szName, "name");
}

TEST_F(ClosedChannel, Close_Twice_IsAsOnce) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_EQ(TLogInfoShm_Close(), 1);
  EXPECT_TRUE(strangers->AreUntouched());
}

TEST_F(ClosedChannel, OpenAfterClose_ContinuesWithTheSameRings) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("a", 1, 1);
  TLogInfoShm_Close();
  ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  TLogInfoShm_Write("b", 1, 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("a", "b"));
  EXPECT_EQ(RawRing(kLogRing).Records().back().sequence, 1u);
  EXPECT_EQ(SemValue(kLogRing), 1);
}

}  // namespace
