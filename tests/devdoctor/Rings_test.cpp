// SPDX-License-Identifier: MIT
// What devdoctor says about the rings and the queues: each fault is produced and reported.

#include <devsupport/ipc/MyShareMemory.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <time.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/devdoctor/Devdoctor.h"
#include "tests/logmgr/LogRing.h"
#include "tests/support/Child.h"
#include "tests/support/IpcKey.h"

namespace {

using namespace devdoctor_test;
using namespace devsupport::test;
using ::testing::HasSubstr;
using ::testing::Not;

const Words kNoStore{"--home", "/nonexistent"};
constexpr std::size_t kLogBytes = 292 + 1025 * 140;

class NoRings : public ChannelTest {};
class Rings : public OpenChannelTest {};

TEST_F(NoRings, AreWell) {
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("log ring: there is none"));
  EXPECT_THAT(result.out, HasSubstr("0 errors, 0 warnings\n"));
  EXPECT_EQ(CountIpcObjects(), 0);
}

TEST_F(Rings, ThatAreWell_AreDescribed) {
  for (int number = 0; number < 3; ++number) TLogInfoShm_Write("hello", 0, 0);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("rights 0666, attached by devdoctor_Rings"));
  EXPECT_THAT(result.out, HasSubstr("(" + std::to_string(::getpid()) + ")"));
  EXPECT_THAT(result.out, HasSubstr("log ring: 3 of 1024 cells used; it was not yet written once round"));
  EXPECT_EQ(SemValue(kLogRing), 1);
  for (int number = 0; number < 1030; ++number) TLogInfoShm_Write("hello", 0, 0);
  EXPECT_THAT(Devdoctor(kNoStore).out, HasSubstr("log ring: 1024 of 1024 cells used; it was written once round"));
}

TEST_F(Rings, WhoseLockAStoppedProcessHolds_NameIt) {
  const Child child([] {
    const int id = ::semget(kLogRing.semKey, 0, 0);
    sembuf take{0, -1, SEM_UNDO};
    ::semop(id, &take, 1);
    ::raise(SIGSTOP);
    return 0;
  });
  const std::string out = Await(kNoStore, "which is stopped; ");
  EXPECT_THAT(out, HasSubstr("ERROR: log ring: its lock has been held for "));
  EXPECT_THAT(out, HasSubstr("kill -CONT " + std::to_string(child.Pid())));
  EXPECT_EQ(Devdoctor(kNoStore).status, 2);
  EXPECT_EQ(SemValue(kLogRing), 0);
}

TEST_F(Rings, WhoseLockADeadProcessLeft_AreRepairedWhenThatIsAgreed) {
  Child child([] {
    const int id = ::semget(kLogRing.semKey, 0, 0);
    sembuf take{0, -1, 0};
    return ::semop(id, &take, 1);
  });
  ASSERT_EQ(child.Wait(), 0);
  EXPECT_THAT(Await(kNoStore, "who took it is dead"), HasSubstr("devdoctor --repair"));
  EXPECT_THAT(Answered("n\\n", "--repair --home /nonexistent").out, HasSubstr("left as it is"));
  EXPECT_EQ(SemValue(kLogRing), 0);
  EXPECT_THAT(Answered("y\\n", "--repair --home /nonexistent").out, HasSubstr("[y/N] done\n"));
  EXPECT_EQ(SemValue(kLogRing), 1);
  EXPECT_THAT(Answered("y\\n", "--repair --home /nonexistent").out, HasSubstr("nothing that can be repaired"));
}

TEST_F(Rings, WhoseSemaphoreWasRemoved_SayWhoWritesWithoutIt) {
  ::semctl(::semget(kLogRing.semKey, 0, 0), 0, IPC_RMID);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: log ring: its semaphore was removed"));
  EXPECT_THAT(result.out, HasSubstr("(" + std::to_string(::getpid()) + ")"));
}

// The last writer removes the semaphore; a reader such as devlog stays attached.
TEST_F(NoRings, ThatOnlyAReaderHas_AreWellWithoutASemaphore) {
  ASSERT_EQ(TLogInfoShm_Open(0, 0, nullptr), 1);
  ASSERT_EQ(TLogInfoShm_Close(), 1);
  const void *reader = ::shmat(::shmget(kLogRing.shareKey, 0, 0), nullptr, SHM_RDONLY);
  const CommandResult result = Devdoctor(kNoStore);
  ::shmdt(reader);
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("(" + std::to_string(::getpid()) + ")"));
  EXPECT_THAT(result.out, HasSubstr("log ring: no semaphore, and nobody who needs one"));
}

TEST_F(Rings, WhoseSemaphoreLetsSeveralIn_SaySo) {
  sembuf give{0, 1, 0};
  ASSERT_EQ(::semop(::semget(kLogRing.semKey, 0, 0), &give, 1), 0);
  EXPECT_THAT(Devdoctor(kNoStore).out, HasSubstr("ERROR: log ring: its semaphore lets 2 in at once"));
}

TEST_F(NoRings, AForeignSegmentAtTheirKey_IsNamed) {
  for (const std::size_t bytes : {16U, 4096U}) {
    const int id = ::shmget(kLogRing.shareKey, bytes, IPC_CREAT | 0600);
    const CommandResult result = Devdoctor(kNoStore);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, HasSubstr("is no ring: it has " + std::to_string(bytes) + " bytes instead of 143792"));
    EXPECT_THAT(result.out, HasSubstr("ipcrm -m " + std::to_string(id)));
    EXPECT_THAT(result.out, HasSubstr("WARNING: log ring: its rights are 0600"));
    ::shmctl(id, IPC_RMID, nullptr);
  }
}

TEST_F(NoRings, AHalfMadeRing_IsNamedAndRemovedWhenThatIsAgreed) {
  Child child([] { return ::shmget(kLogRing.shareKey, kLogBytes, IPC_CREAT | 0666) == -1 ? 1 : 0; });
  const pid_t maker = child.Pid();
  ASSERT_EQ(child.Wait(), 0);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: log ring: it was never finished; made by process " +
                                    std::to_string(maker) + ", which is dead"));
  EXPECT_THAT(Answered("", "--repair --home /nonexistent").out, HasSubstr("left as it is"));
  EXPECT_TRUE(SegmentExists(kLogRing));
  EXPECT_THAT(Answered("y\\n", "--repair --home /nonexistent").out, HasSubstr("[y/N] done\n"));
  EXPECT_FALSE(SegmentExists(kLogRing));
}

TEST_F(Rings, WhoseHeaderIsScribbled_SaySo) {
  const RawRing raw(kLogRing);
  for (const std::size_t index : {12U, 16U}) {
    const std::uint32_t before = raw.Word(index);
    const std::uint32_t wrong = 1025;
    std::memcpy(raw.Bytes() + index, &wrong, sizeof wrong);
    EXPECT_THAT(Devdoctor(kNoStore).out, HasSubstr("are no slots: somebody wrote over its header"));
    std::memcpy(raw.Bytes() + index, &before, sizeof before);
  }
  const std::uint32_t cells = 1000;
  std::memcpy(raw.Bytes(), &cells, sizeof cells);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("its header tells of 1000 cells of 136 bytes"));
}

TEST_F(Rings, WithDamagedCells_CountThem) {
  TLogInfoShm_Write("hello", 0, 0);
  const std::uint32_t wrong = 4711;
  std::memcpy(RawRing(kLogRing).Slot(0), &wrong, sizeof wrong);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("WARNING: log ring: 1 cells are damaged"));
}

TEST_F(Rings, OfAnyBytes_NeverStopIt) {
  const RawRing raw(kLogRing);
  for (int byte = 0; byte < 256; byte += 17) {
    std::memset(raw.Bytes(), byte, raw.Size());
    EXPECT_LE(Devdoctor(kNoStore).status, 2);
  }
}

TEST_F(Rings, AsJsonAndAsMetrics_HaveOneObjectOrSampleALine) {
  const CommandResult json = Devdoctor({"--json", "--home", "/nonexistent"});
  EXPECT_EQ(json.status, 0);
  for (const std::string &line : Lines(json.out)) {
    EXPECT_TRUE(line.starts_with("{\"kind\":\"") && line.ends_with("}")) << line;
  }
  EXPECT_THAT(json.out,
              HasSubstr("{\"kind\":\"figure\",\"object\":\"log ring\",\"name\":\"capacity_cells\",\"value\":"
                        "1024}\n"));
  EXPECT_THAT(json.out, HasSubstr("{\"kind\":\"end\",\"errors\":0,\"warnings\":0,\"complete\":true}\n"));

  const CommandResult metrics = Devdoctor({"--prometheus", "--home", "/nonexistent"});
  EXPECT_EQ(metrics.status, 0);
  EXPECT_THAT(metrics.out, HasSubstr("# TYPE devdoctor_used_cells gauge\n"
                                     "devdoctor_used_cells{object=\"log ring\"} 0\n"
                                     "devdoctor_used_cells{object=\"event ring\"} 0\n"));
  EXPECT_THAT(metrics.out, HasSubstr("devdoctor_faults{severity=\"error\"} 0\n"));
}

// Queues, and the objects of one process.

TEST_F(NoRings, AQueueWhoseUsersAreDead_IsStaleWhileMessagesWait) {
  const int id = ::msgget(0x4711, IPC_CREAT | 0666);
  Child child([id] {
    const struct {
      long type;
      char text[4];
    } message{1, "abc"};
    return ::msgsnd(id, &message, sizeof message.text, 0);
  });
  ASSERT_EQ(child.Wait(), 0);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("(key 0x4711) holds 1 message of 4 bytes, and its users are dead"));
  ::msgctl(id, IPC_RMID, nullptr);
  EXPECT_EQ(Devdoctor(kNoStore).status, 0);
}

TEST_F(NoRings, ASegmentWhoseUsersAreDead_IsStaleWhileNobodyHasItAttached) {
  Child maker([] { return ::shmget(0x4711, 100, IPC_CREAT | 0666) == -1; });
  ASSERT_EQ(maker.Wait(), 0);
  const int id = ::shmget(0x4711, 0, 0);
  CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out,
              HasSubstr("(key 0x4711) of 100 bytes is attached nowhere, and who made and used it is dead"));
  EXPECT_THAT(result.out, HasSubstr("'ipcrm -m " + std::to_string(id) + "'"));
  const void *attached = ::shmat(id, nullptr, 0);
  EXPECT_EQ(Devdoctor(kNoStore).status, 0);
  ::shmdt(attached);
  ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(NoRings, ASemaphoreThatADeadProcessTook_IsStale) {
  const int id = ::semget(0x4711, 1, IPC_CREAT | 0666);
  const auto add = [id](short what) {
    sembuf step{0, what, 0};
    return ::semop(id, &step, 1);
  };
  ASSERT_EQ(add(1), 0);
  EXPECT_EQ(Devdoctor(kNoStore).status, 0);
  Child taker([&] { return add(-1); });
  const std::string number = std::to_string(taker.Pid());
  ASSERT_EQ(taker.Wait(), 0);
  const CommandResult result = Devdoctor(kNoStore);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("(key 0x4711) is taken, by process " + number + ", which is dead; 0 wait"));
  ::semctl(id, 0, IPC_RMID);
}

TEST_F(NoRings, WithoutTheKernelsLists_AreNotCalledWell) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("none", "/proc/sysvipc", "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "the machine does not let us mount";
  }
  const CommandResult result = Devdoctor(kNoStore);
  ::umount("/proc/sysvipc");
  EXPECT_EQ(result.status, 2);
  for (const char *list :
       {"segments: /proc/sysvipc/shm", "semaphores: /proc/sysvipc/sem", "queues: /proc/sysvipc/msg"})
    EXPECT_THAT(result.out, HasSubstr(std::string(list) + " cannot be read: No such file or directory"));
}

TEST_F(NoRings, OfAProcess_TellItsQueues) {
  const int id = ::msgget(0x4711, IPC_CREAT | 0666);
  const struct {
    long type;
    char text[4];
  } message{1, "abc"};
  ASSERT_EQ(::msgsnd(id, &message, sizeof message.text, 0), 0);
  const CommandResult result = Devdoctor({"-p", std::to_string(::getpid()), "--home", "/nonexistent"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("process: sent to queue " + std::to_string(id) + " (key 0x4711) last"));
  EXPECT_THAT(result.out, HasSubstr("timers"));
}

TEST_F(NoRings, OfAProcessThatIsNotThere_SaysSo) {
  Child child([] { return 0; });
  const pid_t pid = child.Pid();
  child.Wait();
  EXPECT_EQ(Devdoctor({"-p", std::to_string(pid), "--home", "/nonexistent"}).status, 2);
}

TEST_F(NoRings, MistakenCommandLines_EndWith3) {
  for (const Words &words : {Words{"--bogus"}, Words{"-p", "0"}, Words{"x"}, Words{"--repair", "--json"}}) {
    const CommandResult result = Devdoctor(words);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("devdoctor --help lists the options.\n"));
  }
  EXPECT_EQ(Devdoctor({"--help"}).status, 0);
  EXPECT_THAT(Devdoctor({"--version"}).out, HasSubstr("devdoctor "));
}

}  // namespace
