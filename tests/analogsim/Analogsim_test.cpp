// SPDX-License-Identifier: MIT
// The real analogsim with real commands: exit statuses, signals, trace, state shared by sessions.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tests/analogsim/Simulated.h"
#include "tests/support/Child.h"
#include "tests/support/Command.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"

namespace {

using analogsim_test::Simulated;
using analogsim_test::Words;
using namespace devsupport::test;

constexpr int kOwnFailure = 125;

/// A shell script run with the simulated driver. $0 is cpld; further words are $1, $2, ...
Command Script(const Words &options, const std::string &script, const Words &further = {}) {
  Words command{"sh", "-c", script, CPLD_PATH};
  command.insert(command.end(), further.begin(), further.end());
  return Simulated(options, command);
}

int StatusOf(const std::string &script) { return Script({}, script).Run().status; }

// Exit status.

TEST(AnalogsimStatus, IsTheCommands) {
  EXPECT_EQ(StatusOf("exit 0"), 0);
  EXPECT_EQ(StatusOf("exit 7"), 7);
  EXPECT_EQ(StatusOf("exit 125"), 125);
}

TEST(AnalogsimStatus, OfACommandThatASignalEnded_Is128AndTheSignal) {
  EXPECT_EQ(StatusOf("kill -KILL $$"), 137);
  EXPECT_EQ(StatusOf("kill -INT $$"), 130);
}

TEST(AnalogsimStatus, OfAMissingCommand_Is127WithAMessage) {
  EXPECT_EQ(Simulated({}, {"/no/such/command"}).Run(),
            (CommandResult{127, "", "analogsim: cannot run /no/such/command: No such file or directory\n"}));
}

TEST(AnalogsimStatus, OfACommandThatCannotBeRun_Is126WithAMessage) {
  const CommandResult result = Simulated({}, {"/"}).Run();
  EXPECT_EQ(result.status, 126);
  EXPECT_EQ(result.err, "analogsim: cannot run /: Permission denied\n");
}

TEST(AnalogsimStatus, OfMistakenOptions_Is125AndNothingRuns) {
  const CommandResult result = Simulated({"--bogus"}, {"echo", "ran"}).Run();
  EXPECT_EQ(result.status, kOwnFailure);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err, "");
}

TEST(Analogsim, WithoutACommand_RunsTheUsersShell) {
  const TempDir dir;
  const std::string shell = dir / "shell";
  WriteFile(shell, "#!/bin/sh\nexit 42\n");
  std::filesystem::permissions(shell, std::filesystem::perms::owner_all);
  EXPECT_EQ(Simulated({}, {}).Environment("SHELL", shell).Run().status, 42);
}

// Signals.

TEST(AnalogsimSignals, SentToIt_ReachTheCommand) {
  EXPECT_EQ(StatusOf("trap 'exit 9' TERM; kill -TERM $PPID; while :; do sleep 0.01; done"), 9);
  EXPECT_EQ(StatusOf("trap 'exit 8' HUP; kill -HUP $PPID; while :; do sleep 0.01; done"), 8);
}

TEST(AnalogsimSignals, ThatEndTheCommand_LeaveNothingBehind) {
  const TempDir dir;
  EXPECT_EQ(
      Script({}, "kill -TERM $PPID; while :; do sleep 0.01; done").Environment("TMPDIR", dir.Path()).Run().status,
      143);
  EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

TEST(AnalogsimSignals, BrokenPipes_EndCommandsThatDoNotIgnoreThem) {
  ::signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(StatusOf("kill -PIPE $$"), 141);
  ::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(StatusOf("kill -PIPE $$"), 0);
}

// Environment of the command.

TEST(AnalogsimDevice, LooksLikeACharacterDevice) { EXPECT_EQ(StatusOf("test -c /dev/analog/0"), 0); }

TEST(AnalogsimDevice, IsNoTerminal) { EXPECT_NE(StatusOf("stty -F /dev/analog/0"), 0); }

TEST(AnalogsimDevice, ServesSeveralProcessesAtOnce) {
  const CommandResult result = Script({"--trace"},
                                      "for channel in 0 1 2 3; do "
                                      "  (for reg in 1 2 3 4 5 6 7 8; do $0 1 $channel $reg $channel$reg; done) & "
                                      "done; wait")
                                   .Run();
  EXPECT_EQ(Lines(result.out).size(), 32U);
  Words trace = Lines(result.err);
  Words expected;
  for (const char channel : {'0', '1', '2', '3'}) {
    for (const char reg : {'1', '2', '3', '4', '5', '6', '7', '8'}) {
      char value[8];
      std::snprintf(value, sizeof value, "0x%x", static_cast<unsigned>(10 * (channel - '0') + (reg - '0')));
      expected.push_back(std::string("analogsim: ANALOG_SET_DIRECT_REG channel ") + channel + " register " + reg +
                         " value " + value + " -> " + value + " result 0");
    }
  }
  std::sort(trace.begin(), trace.end());
  std::sort(expected.begin(), expected.end());
  // "00" to "08" are octal for cpld: the digits 1 to 7 are the same, 08 is 0.
  std::replace(expected.begin(), expected.end(),
               std::string("analogsim: ANALOG_SET_DIRECT_REG channel 0 register 8 value 0x8 -> 0x8 result 0"),
               std::string("analogsim: ANALOG_SET_DIRECT_REG channel 0 register 8 value 0x0 -> 0x0 result 0"));
  EXPECT_EQ(trace, expected);
}

TEST(AnalogsimEnvironment, KeepsWhatTheUserPreloads) {
  const CommandResult result =
      Simulated({}, {"sh", "-c", "echo $LD_PRELOAD"}).Environment("LD_PRELOAD", "libm.so.6").Run();
  EXPECT_EQ(result.out, "libumockdev-preload.so.0:libm.so.6\n");
}

/// A connection to the socket of the simulated device of a session.
class Connection {
 public:
  explicit Connection(const std::string &world) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/ioctl/dev/analog/0", world.c_str());
    connected_ = ::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  }
  ~Connection() { ::close(fd_); }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  bool IsConnected() const { return connected_; }
  void Send(const std::string &bytes) const { ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

 private:
  int fd_;
  bool connected_ = false;
};

std::string RandomBytes(std::mt19937_64 &random) {
  // Sometimes a first word that the socket knows, so that it also reads the words after it.
  std::string bytes(random() % 100, '\0');
  for (char &byte : bytes) byte = static_cast<char>(random());
  if (random() % 2 == 0) bytes.insert(0, {static_cast<char>(random() % 10), 0, 0, 0, 0, 0, 0, 0});
  return bytes;
}

TEST(Analogsim, GarbageAtTheDevicesSocket_DoesNotAffectOtherCommands) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const TempDir folder;
  const std::string started = folder / "started";
  const std::string finish = folder / "finish";
  ASSERT_EQ(::mkfifo(started.c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(finish.c_str(), 0600), 0);
  Child session([&] {
    const CommandResult result =
        Script({}, "echo $UMOCKDEV_DIR >$1; read line <$2; $0 1 1 23 0x30; $0 0 1 23", {started, finish}).Run();
    EXPECT_EQ(result.out, "ch=1, reg23, data=0x30 value=0x0\nch=1, reg23, data=0x30 value=0x0\n");
    EXPECT_EQ(result.err, "");
    return result.status;
  });
  std::string world;
  std::getline(std::ifstream(started), world);
  const Connection silent(world);
  ASSERT_TRUE(silent.IsConnected());
  silent.Send("half");
  for (int i = 0; i < 500; ++i) {
    const Connection connection(world);
    ASSERT_TRUE(connection.IsConnected()) << "connection " << i;
    connection.Send(RandomBytes(random));
  }
  EXPECT_FALSE(std::filesystem::exists(world + "/ioctl/_default"));
  std::ofstream(finish) << "go on\n";
  EXPECT_EQ(session.Wait(), 0);
}

TEST(Analogsim, InsideAnother_HasAnotherDevice) {
  const CommandResult result = Script({}, "$0 1 1 1 7; $1 -- $0 0 1 1; $0 0 1 1", {ANALOGSIM_PATH}).Run();
  EXPECT_EQ(result.out,
            "ch=1, reg1, data=0x7 value=0x0\n"
            "ch=1, reg1, data=0x0 value=0x0\n"
            "ch=1, reg1, data=0x7 value=0x0\n");
}

TEST(Analogsim, WithClosedStandardDescriptors_StillServesItsCommand) {
  const TempDir dir;
  Command command(
      {"sh", "-c", "exec \"$@\" <&- 2>&-", "sh", ANALOGSIM_PATH, "--trace", "--", CPLD_PATH, "0", "1", "23"});
  command.Environment("ASAN_OPTIONS", "verify_asan_link_order=0");
  const CommandResult result = command.Run();
  EXPECT_EQ(result.out, "ch=1, reg23, data=0x0 value=0x0\n");
  EXPECT_EQ(result.status, 0);
}

TEST(AnalogsimDevice, ThatCannotBeServed_IsAnErrorBeforeTheCommand) {
  const TempDir dir;
  const std::string folder = dir / std::string(100, 'a');  // a socket's path has room for 107 characters
  std::filesystem::create_directory(folder);
  for (const std::string &unusable : {folder, std::string("/no/such/folder")}) {
    const CommandResult result = Simulated({}, {"echo", "ran"}).Environment("TMPDIR", unusable).Run();
    EXPECT_EQ(result.status, kOwnFailure);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("analogsim: cannot make "), std::string::npos) << result.err;
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

// Options.

TEST(AnalogsimTrace, IsSilentUnlessAskedFor) { EXPECT_EQ(Script({}, "$0 1 1 23 7; $0 4 1; $0 7 1").Run().err, ""); }

TEST(AnalogsimTrace, HasOneLineForEachRequest) {
  EXPECT_EQ(
      Script({"--trace"}, "$0 1 1 23 0x30; $0 0 1 23; $0 3 1 5 1; $0 2 1 5; $0 4 1; $0 4 0; $0 7 1 2").Run().err,
      "analogsim: ANALOG_SET_DIRECT_REG channel 1 register 23 value 0x30 -> 0x30 result 0\n"
      "analogsim: ANALOG_GET_DIRECT_REG channel 1 register 23 value 0x0 -> 0x30 result 0\n"
      "analogsim: ANALOG_SET_INDIRECT_REG channel 1 register 5 value 0x1 -> 0x1 result 0\n"
      "analogsim: ANALOG_GET_INDIRECT_REG channel 1 register 5 value 0x0 -> 0x1 result 0\n"
      "analogsim: ANALOG_SET_REG_DEBUG debug on register 0 value 0x0 -> 0x0 result 0\n"
      "analogsim: ANALOG_SET_REG_DEBUG debug off register 0 value 0x0 -> 0x0 result 0\n"
      "analogsim: request 0 channel 1 register 2 value 0x0 -> 0x0 result -1 ENOTTY\n");
}

TEST(AnalogsimChannels, BeyondTheirNumber_Fail) {
  EXPECT_EQ(Script({"--channels", "2", "--trace"}, "$0 0 1 9; $0 0 2 9").Run().err,
            "analogsim: ANALOG_GET_DIRECT_REG channel 1 register 9 value 0x0 -> 0x0 result 0\n"
            "analogsim: ANALOG_GET_DIRECT_REG channel 2 register 9 value 0x0 -> 0x0 result -1 ENXIO\n");
}

TEST(AnalogsimFail, MakesEveryRequestFailAndKeepsTheRegisters) {
  const TempDir dir;
  const std::string state = dir / "state.json";
  Script({"--state", state}, "$0 1 1 23 7").Run();
  const CommandResult result = Script({"--state", state, "--fail", "EBUSY", "--trace"}, "$0 1 1 23 8; $0 4 1").Run();
  EXPECT_EQ(result.out, "ch=1, reg23, data=0x8 value=0xffffffff\ndebug off\n");
  EXPECT_EQ(result.err,
            "analogsim: ANALOG_SET_DIRECT_REG channel 1 register 23 value 0x8 -> 0x8 result -1 EBUSY\n"
            "analogsim: ANALOG_SET_REG_DEBUG debug on register 0 value 0x0 -> 0x0 result -1 EBUSY\n");
  EXPECT_EQ(Script({"--state", state}, "$0 0 1 23").Run().out, "ch=1, reg23, data=0x7 value=0x0\n");
}

// The state file.

class AnalogsimState : public ::testing::Test {
 protected:
  Words Options() const { return {"--state", state_}; }

  TempDir dir_;
  std::string state_ = dir_ / "state.json";
};

TEST_F(AnalogsimState, IsKeptBetweenRuns) {
  Script(Options(), "$0 1 1 23 0x30; $0 3 2 300 -1; $0 4 1").Run();
  EXPECT_EQ(Script(Options(), "$0 0 1 23; $0 2 2 300; $0 2 1 23").Run().out,
            "ch=1, reg23, data=0x30 value=0x0\n"
            "ch=2, reg300, data=0xffffffff value=0x0\n"
            "ch=1, reg23, data=0x0 value=0x0\n");
  EXPECT_NE(FileText(state_).find("\"debug\": true"), std::string::npos);
}

TEST_F(AnalogsimState, ThatIsDamaged_StopsBeforeTheCommandAndStaysAsItIs) {
  WriteFile(state_, "{\"version\": 1, \"chann");
  const CommandResult result = Script(Options(), "echo ran").Run();
  EXPECT_EQ(result.status, kOwnFailure);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(result.err.starts_with("analogsim: " + state_ + " is damaged and was left as it is: ")) << result.err;
  EXPECT_EQ(FileText(state_), "{\"version\": 1, \"chann");
}

TEST_F(AnalogsimState, DamagedDuringTheSession_FailsTheRequestAndStaysAsItIs) {
  const CommandResult result =
      Script(Options(), "$0 1 1 23 7; echo rubbish >$1; $0 1 1 23 8; cat $1", {state_}).Run();
  EXPECT_EQ(result.out,
            "ch=1, reg23, data=0x7 value=0x0\n"
            "ch=1, reg23, data=0x8 value=0xffffffff\n"
            "rubbish\n");
  EXPECT_TRUE(result.err.starts_with("analogsim: " + state_ + " is damaged")) << result.err;
}

TEST_F(AnalogsimState, ThatCannotBeMade_IsAnErrorBeforeTheCommand) {
  const CommandResult result = Script({"--state", "/proc/no/state.json"}, "echo ran").Run();
  EXPECT_EQ(result.status, kOwnFailure);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("/proc/no"), std::string::npos) << result.err;
}

TEST_F(AnalogsimState, SharedByTwoSessions_LosesNothing) {
  const auto session = [this](const std::string &channel) {
    return [this, channel] {
      return Script(Options(), "reg=0; while [ $reg -lt 30 ]; do $0 1 $1 $reg 0x30; reg=$((reg+1)); done", {channel})
          .Run()
          .status;
    };
  };
  Child first(session("0"));
  Child second(session("1"));
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  const CommandResult result =
      Script(Options(), "reg=0; while [ $reg -lt 30 ]; do $0 0 0 $reg; $0 0 1 $reg; reg=$((reg+1)); done").Run();
  const Words lines = Lines(result.out);
  EXPECT_EQ(lines.size(), 60U);
  for (const std::string &line : lines) EXPECT_NE(line.find("data=0x30 value=0x0"), std::string::npos) << line;
}

TEST_F(AnalogsimState, ChangedByAnotherSession_IsSeenAtOnce) {
  EXPECT_EQ(
      Script(Options(), "$0 1 1 23 7; $1 --state $2 -- $0 1 1 23 8; $0 0 1 23", {ANALOGSIM_PATH, state_}).Run().out,
      "ch=1, reg23, data=0x7 value=0x0\n"
      "ch=1, reg23, data=0x8 value=0x0\n"
      "ch=1, reg23, data=0x8 value=0x0\n");
}

}  // namespace
