// SPDX-License-Identifier: MIT
// devlog --syslog with the test's own system log: /dev/log in a mount namespace.

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>

#include "tests/devlog/Devlog.h"

namespace {

using namespace devlog_test;
using devsupport::test::CommandResult;

/// A /dev with only null and log.
class SystemLog : public RecordedRings {
 protected:
  int socket_ = -1;

  void SetUp() override {
    RecordedRings::SetUp();
    if (IsSkipped()) return;
    isPrivate_ = EnterPrivateDev();
    if (!isPrivate_) GTEST_SKIP() << "the machine does not let us make a private /dev";
    Listen();
  }
  /// Restores the system's /dev for the next test of this process.
  void TearDown() override {
    ::close(socket_);
    if (isPrivate_) {
      EXPECT_EQ(::umount2("/dev", MNT_DETACH), 0);
    }
    RecordedRings::TearDown();
  }

  void Listen() {
    socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    ASSERT_EQ(::bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  }

  /// The next message; waits for it.
  std::string NextToCome() const {
    pollfd message{socket_, POLLIN, 0};
    ::poll(&message, 1, -1);
    return Next();
  }

  /// The next message, without the time before the program's name.
  std::string Next() const {
    char bytes[8192];
    const ssize_t got = ::recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got <= 0) return "<none>";
    const std::string text(bytes, static_cast<std::size_t>(got));
    return text.substr(0, text.find('>') + 1) + text.substr(text.find("devlog: "));
  }

 private:
  bool isPrivate_ = false;

  static bool EnterPrivateDev() {
    if (::unshare(CLONE_NEWNS) != 0) return false;
    const int null = ::open("/dev/null", O_PATH | O_CLOEXEC);
    const std::string before = "/proc/self/fd/" + std::to_string(null);
    const bool isDone = ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        ::mount("none", "/dev", "tmpfs", 0, nullptr) == 0 &&
                        ::close(::creat("/dev/null", 0666)) == 0 &&
                        ::mount(before.c_str(), "/dev/null", nullptr, MS_BIND, nullptr) == 0;
    ::close(null);
    return isDone;
  }
};

TEST_F(SystemLog, GetsEachMessageWithItsRingTypeAndTime) {
  Log().Write({{.text = "one", .sequence = 0, .type = 3, .hour = 1}, {.text = "%s\n", .sequence = 2, .hour = 3}});
  Event().Write({.text = "two", .type = 15, .hour = 2});
  EXPECT_EQ(Devlog({"--syslog"}).Run(), (CommandResult{0, "", ""}));
  EXPECT_EQ(Next(), "<14>devlog: 01:34:56.789 log    3  one");
  EXPECT_EQ(Next(), "<13>devlog: 02:34:56.789 event 15  two");
  EXPECT_EQ(Next(), "<12>devlog: 03:34:56.789 log    -  (1 record lost)");
  EXPECT_EQ(Next(), "<14>devlog: 03:34:56.789 log    0  %s\\x0a");
  EXPECT_EQ(Next(), "<none>");
}

TEST_F(SystemLog, ThatIsNotThere_IsToldAndNothingIsTaken) {
  ::unlink("/dev/log");
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  for (const Words &words : {Words{"--syslog"}, Words{"--syslog", "--consume"}}) {
    const CommandResult result = Devlog(words).Run();
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err, "devlog: the system log takes no message: No such file or directory\n");
    EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 2);
  }
}

TEST_F(SystemLog, WhoseDaemonHasGone_IsToldAndNothingIsTaken) {
  Log().Write({.text = "one"});
  ::close(socket_);
  const CommandResult result = Devlog({"--syslog", "--consume"}).Run();
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(result.err, "devlog: the system log takes no message: Connection refused\n");
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
}

// How many unread messages a datagram socket can hold.
unsigned QueueLength() {
  unsigned length = 10;
  std::ifstream("/proc/sys/net/unix/max_dgram_qlen") >> length;
  return length + 1;
}

// Only messages that the socket accepted are removed from the ring.
TEST_F(SystemLog, ThatIsFull_GetsTheRestNextTime) {
  const unsigned messages = std::min(2 * QueueLength() + 5, 1000U);
  for (unsigned number = 0; number < messages; ++number) {
    Log().Write({.text = std::to_string(number), .sequence = number});
  }
  EXPECT_EQ(Devlog({"--syslog", "--consume"}).Run().status, 4);
  unsigned got = 0;
  const auto takeAll = [&] {
    for (std::string text = Next(); text != "<none>"; text = Next()) {
      EXPECT_EQ(text, "<14>devlog: 12:34:56.789 log    0  " + std::to_string(got++));
    }
  };
  takeAll();
  EXPECT_GT(got, 0U);
  EXPECT_EQ(static_cast<unsigned>(TShmQueue_GetCount(&Log().Queue())), messages - got);
  while (got < messages) {
    Devlog({"--syslog", "--consume"}).Run();
    takeAll();
  }
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 0);
}

TEST_F(SystemLog, ThatIsStartedLater_GetsWhatWasFollowedMeanwhile) {
  ::close(socket_);
  ::unlink("/dev/log");
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  RunningDevlog devlog({"-f", "--syslog", "--consume", "--ring", "log"});
  while (devlog.Said().empty()) ::sched_yield();
  EXPECT_EQ(devlog.Said(), "devlog: the system log takes no message: No such file or directory; waiting\n");
  Listen();
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  one");
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  two");
}

TEST_F(SystemLog, ThatIsAwaited_DoesNotKeepDevlogFromEnding) {
  ::close(socket_);
  Log().Write({.text = "one"});
  RunningDevlog devlog({"-f", "--syslog", "--consume"});
  while (devlog.Said().empty()) ::sched_yield();
  devlog.Process().Signal(SIGTERM);
  EXPECT_EQ(devlog.Wait(), 1000 + SIGTERM);
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
}

// Messages that a daemon has not read are lost when it closes its socket.
TEST_F(SystemLog, ThatEndsBeforeItHasReadAll_IsFollowedByOneThatGetsAllOfIt) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  RunningDevlog devlog({"-f", "--syslog", "--consume", "--ring", "log"});
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  one");
  pollfd second{socket_, POLLIN, 0};
  ::poll(&second, 1, -1);
  ::close(socket_);
  ::unlink("/dev/log");
  Listen();
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  one");
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  two");
  while (TShmQueue_GetCount(&Log().Queue()) != 0) ::sched_yield();
}

TEST_F(SystemLog, ThatHasReadAllBeforeItEnds_IsFollowedByOneThatGetsNewOnesOnly) {
  Log().Write({.text = "one", .sequence = 0});
  RunningDevlog devlog({"-f", "--syslog", "--consume", "--ring", "log"});
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  one");
  while (TShmQueue_GetCount(&Log().Queue()) != 0) ::sched_yield();
  ::close(socket_);
  ::unlink("/dev/log");
  Listen();
  Log().Write({.text = "two", .sequence = 1});
  EXPECT_EQ(NextToCome(), "<14>devlog: 12:34:56.789 log    0  two");
}

TEST_F(SystemLog, ThatReadsNothing_DoesNotKeepDevlogFromEnding) {
  Log().Write({.text = "one", .sequence = 0});
  RunningDevlog devlog({"-f", "--syslog", "--consume", "--ring", "log"});
  pollfd first{socket_, POLLIN, 0};
  ::poll(&first, 1, -1);
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
  devlog.Process().Signal(SIGTERM);
  EXPECT_EQ(devlog.Wait(), 1000 + SIGTERM);
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 0);  // it is in the socket, where the system log can still read it
}

TEST_F(SystemLog, GetsJsonWhenThatIsAskedFor) {
  Log().Write({.text = "one", .sequence = 7, .type = 3});
  EXPECT_EQ(Devlog({"--syslog", "--json"}).Run().status, 0);
  EXPECT_EQ(Next(),
            R"(<14>devlog: {"time":"12:34:56.789","ring":"log","type":3,"type_name":"","sequence":7,"records":1,)"
            R"("status":"ok","detail":"","process":"","text":"one"})");
  EXPECT_EQ(Next(), "<none>");
}

TEST_F(SystemLog, GetsWhatIsChosenOnly) {
  Log().Write({{.text = "one", .sequence = 0, .type = 3}, {.text = "two", .sequence = 1, .type = 4}});
  EXPECT_EQ(Devlog({"--syslog", "-t", "4"}).CloseOutput().Run().status, 0);
  EXPECT_EQ(Next(), "<14>devlog: 12:34:56.789 log    4  two");
  EXPECT_EQ(Next(), "<none>");
}

}  // namespace
