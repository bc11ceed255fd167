// SPDX-License-Identifier: MIT
// What devdoctor says about the store: each fault is produced, and named.

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/db/Store.h"
#include "tests/devdoctor/Devdoctor.h"
#include "tests/support/Child.h"
#include "tests/support/SmallMedium.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devdoctor_test;
using devsupport::test::Child;
using devsupport::test::CommandResult;
using devsupport::test::Event;
using devsupport::test::SmallMedium;
using devsupport::test::StoreTest;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kGateKey = 0x12345677;

class Store : public StoreTest {
 protected:
  CommandResult Look() const { return Devdoctor({"--home", home_}); }
};

TEST_F(Store, ThatNobodyOpened_IsWell) {
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("no program has stored anything yet"));
  EXPECT_THAT(result.out, HasSubstr("store: no program has opened it since the system started"));
}

TEST_F(Store, ThatIsOpen_TellsWhoHasIt) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "name", "value"), BERKDB_OK);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("store: open in devdoctor_Store ("));
  EXPECT_THAT(result.out, HasSubstr("(" + std::to_string(::getpid()) + ")"));
  EXPECT_THAT(result.out, HasSubstr("store gate: of " + home_));
  EXPECT_THAT(result.out, HasSubstr("regions of shared memory"));
}

TEST_F(Store, WhoseProgramWasKilled_SaysThatTheNextOneCleansUp) {
  const Event isOpen;
  Child child([&] {
    Open();
    isOpen.Announce();
    ::pause();
    return 0;
  });
  isOpen.Wait();
  child.Signal(SIGKILL);
  child.Wait();
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: 1 programs ended without closing it"));
}

TEST_F(Store, WhoseOpeningIsStopped_NamesTheHolder) {
  Open();
  const Child child([] {
    const int id = ::semget(kGateKey, 0, 0);
    sembuf take{0, 1, SEM_UNDO};
    ::semop(id, &take, 1);
    ::raise(SIGSTOP);
    return 0;
  });
  const std::string out = Await({"--home", home_}, "is stopped while opening or closing");
  EXPECT_THAT(out, HasSubstr("kill -CONT " + std::to_string(child.Pid())));
}

TEST_F(Store, WhoseFileIsBroken_SaysSo) {
  for (const std::string &text : {std::string("garbage"), std::string(4096, '\0')}) {
    devsupport::test::WriteFile(FilePath(), text);
    const CommandResult result = Look();
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, HasSubstr("ERROR: store: the file is not one of tables, or was cut"));
    EXPECT_THAT(result.out, HasSubstr("devconf verify"));
  }
}

TEST_F(Store, WhoseFileWasCut_SaysSo) {
  Open();
  BerkDb_Close();
  EXPECT_EQ(Look().status, 0);
  struct stat status {};
  ASSERT_EQ(::stat(FilePath().c_str(), &status), 0);
  ASSERT_EQ(::truncate(FilePath().c_str(), status.st_size - 100), 0);
  EXPECT_EQ(Look().status, 2);
}

TEST_F(Store, AForeignSegmentAtTheGatesKey_IsNamed) {
  const int id = ::shmget(kGateKey, 64, IPC_CREAT | 0660);
  ASSERT_NE(id, -1);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: store gate: the segment at key 0x12345677 is not ours: 64 bytes"));
  ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Store, AScribbledGate_IsNamed) {
  Open();
  void *gate = ::shmat(::shmget(kGateKey, 0, 0), nullptr, 0);
  ASSERT_NE(gate, reinterpret_cast<void *>(-1));
  std::uint32_t before = 0;
  std::memcpy(&before, gate, sizeof before);
  std::memset(gate, 0x55, sizeof before);
  const CommandResult result = Look();
  std::memcpy(gate, &before, sizeof before);
  ::shmdt(gate);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("is no gate of this library, was never finished, or was written over"));
}

TEST_F(Store, OfAnotherHome_SaysSo) {
  Open();
  const devsupport::test::TempDir other;
  const CommandResult result = Devdoctor({"--home", other.Path().string()});
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store gate: it belongs to another folder"));
}

TEST_F(Store, OnAFullDisk_SaysSo) {
  if (!SmallMedium::CanMake()) GTEST_SKIP() << "the machine does not let us mount";
  const SmallMedium medium(home_, 4 * 1024 * 1024);
  EXPECT_EQ(Look().status, 0);
  medium.LeaveFree(500 * 1024);
  CommandResult result = Look();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("soon changes fail"));
  medium.LeaveFree(16 * 1024);
  result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: store: only "));
  EXPECT_THAT(result.out, HasSubstr("changes are refused"));
}

}  // namespace
