// SPDX-License-Identifier: MIT
// Containers, files, addresses and the start of a process while their calls fail.
#include <devsupport/container/AllotArray.h>
#include <devsupport/container/MyHash.h>
#include <devsupport/container/MyQueue.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/detail/diag/LogFile.h>
#include <devsupport/diag/Diagnostics.h>
#include <devsupport/diag/LogFile.h>
#include <devsupport/diag/TraceNow.h>
#include <devsupport/ipc/ThreadMutex.h>
#include <devsupport/logmgr/ProcessStart.h>
#include <devsupport/net/LinkStatus.h>
#include <devsupport/net/LocalAddress.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/faults/Sweep.h"
#include "tests/support/TempDir.h"

namespace {

using devsupport::test::Faults;
using devsupport::test::FileText;
using devsupport::test::Sweep;
using devsupport::test::TempDir;

TEST(AllotArray, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TAllotArray array{};
    int room = -1;
    int made = -1;
    int again = -1;
    faults.Strike([&] {
      made = AllotAry_Construct(&array, "array", 4);
      if (made != 1) return;
      room = AllotAry_GetAvaiRoom(&array);
      AllotAry_FreeRoom(&array, room);
      AllotAry_FreeRoom(&array, room);  // which is reported
      EXPECT_EQ(AllotAry_IsInUse(&array, 4), 0);
      again = AllotAry_ReConstruct(&array, 8);
    });
    if (faults.Worked(made == 1)) {
      EXPECT_EQ(room, 0);
    }
    if (faults.Worked(again == 1)) {
      EXPECT_EQ(AllotAry_GetUnUseCnt(&array), 8);
    }
    AllotAry_Destroy(&array);
  });
}

TEST(Hash, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TMyHash hash{};
    const auto key = [](const void *from, int *bytes) {
      *bytes = sizeof(int);
      return from;
    };
    const auto match = [](const void *data, const void *arg) {
      return std::memcmp(data, arg, sizeof(int)) == 0 ? 1 : 0;
    };
    const int value = 4711;
    int made = -1;
    int slot = -1;
    faults.Strike([&] {
      made = TMyHash_Create(&hash, "hash", 3, 4, sizeof value, match, key, key);
      if (made != 1) return;
      TMyHash_Add(&hash, &value, &slot);
      EXPECT_EQ(TMyHash_IsInUse(&hash, 4), 0);  // which is reported
      EXPECT_EQ(TMyHash_Delete(&hash, 4), 0);
    });
    if (!faults.Worked(made == 1)) return;
    EXPECT_EQ(TMyHash_Find(&hash, &value, nullptr), TMyHash_GetDataPtr(&hash, slot));
    TMyHash_Free(&hash);
  });
}

TEST(Queue, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TMyQueue queue{};
    char text[8] = "";
    int made = -1;
    faults.Strike([&] {
      made = TMyQueue_Create(2, 8, &queue, 1);
      if (made != 1) return;
      EXPECT_EQ(TMyQueue_Push(&queue, "text", 5), 1);
      EXPECT_EQ(TMyQueue_Get(&queue, text, nullptr, sizeof text), 1);
    });
    if (!faults.Worked(made == 1)) return;
    EXPECT_STREQ(text, "text");
    TMyQueue_Destroy(&queue);
  });
}

TEST(Mutex, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    pthread_mutex_t mutex;
    bool right = false;
    faults.Strike([&] {
      right = ThreadMutex_Create(&mutex) == 0 && ThreadMutex_Lock(&mutex) == 0 && ThreadMutex_UnLock(&mutex) == 0 &&
              ThreadMutex_TryLock(&mutex) == 0 && ThreadMutex_UnLock(&mutex) == 0 && ThreadMutex_Close(&mutex) == 0;
    });
    EXPECT_TRUE(right);
  });
}

TEST(LogFile, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    const TempDir folder;
    const std::string path = folder / "log";
    int written = -1;
    faults.Strike([&] {
      written = _WriteLogAt(path.c_str(), "first", "file", 1);
      _WriteLog(path.c_str(), "second");
      WriteLogFmt(path.c_str(), "third");
    });
    const std::string text = std::filesystem::exists(path) ? FileText(path) : "";
    // 0 is also the answer when the file could not be opened.
    const bool complete = text.find("first") < text.find("second") && text.find("second") < text.find("third") &&
                          text.find("third") != std::string::npos;
    EXPECT_TRUE(faults.Worked(written == 0 && complete) || faults.Struck()) << text;
    if (text.find("first") == std::string::npos) {
      EXPECT_TRUE(faults.Struck());
    }
  });
}

TEST(Diagnostics, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    int printed = -1;
    faults.Strike([&] {
      printed = MyErrPrintf("%s %d\n", "text", 1);
      MyErrOutputDefault("text");
      BerkDb_ErrCall(nullptr, "prefix", "text");
      TraceNow("label");
    });
    faults.Worked(printed >= 0);
  });
}

std::jmp_buf g_aborted;

TEST(FatalReport, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    const auto previous = std::signal(SIGABRT, [](int) { std::longjmp(g_aborted, 1); });
    volatile bool aborted = false;
    faults.Strike([&aborted] {
      if (setjmp(g_aborted) != 0)
        aborted = true;
      else
        MyDebugBreak("%s", "text");
    });
    EXPECT_TRUE(aborted);
    std::signal(SIGABRT, previous);
  });
}

TEST(ProcessStart, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    const TempDir folder;
    const std::string path = folder / "pid";
    int written = -1;
    int priority = -1;
    int handlers = -1;
    int added = -1;
    faults.Strike([&] {
      written = WritePidFile(path.c_str());
      priority = SetRealtimePriority(1);
      handlers = Signal_InitHandlers([](int) {});
      added = Signal_AddHandler(SIGUSR1);
    });
    const std::string text = std::filesystem::exists(path) ? FileText(path) : "";
    const bool complete = std::strtol(text.c_str(), nullptr, 10) == ::getpid();
    EXPECT_TRUE(complete || faults.Struck()) << text;
    EXPECT_TRUE(priority == 0 || priority == -1);
    faults.Worked(written == 0 && handlers == 0 && added == 0);
  });
}

TEST(Network, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    char address[64] = "";
    char address6[64] = "";
    char name[16] = "";
    TIfAddrInfo all[8];
    int found = -1;
    int count = -1;
    int links[4] = {-1, -1, -1, -1};
    faults.Strike([&] {
      found = GetLocalIp(address, "lo");
      GetLocalIPv6(address6, "lo");
      count = GetLocalIfList(all, 8);
      links[0] = GetLinkStatus("lo");
      links[1] = GetCpmacLink();
      links[2] = GetEswLink();
      links[3] = FindEthIf(name);
    });
    if (found == 1) {
      EXPECT_STREQ(address, "127.0.0.1");
    }
    EXPECT_GE(count, 0);
    EXPECT_TRUE(std::all_of(std::begin(links), std::end(links), [](int link) { return link == 0 || link == 1; }));
  });
}

}  // namespace
