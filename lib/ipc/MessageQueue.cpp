// SPDX-License-Identifier: MIT
// Message queues: System V queues found by an agreed key, with the library's permissions, result codes and reports.

#include <devsupport/ipc/MessageQueue.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include "lib/ipc/PreservedErrno.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

using devsupport::PreservedErrno;

namespace {

constexpr int kCreateFlags = IPC_CREAT | 0666;

struct TDiscarded {
  long nType;
  char acData[244];
};

}  // namespace

int KMsgQue_Open(std::int32_t nKey, int bFlush) {
  const int nMsgQueId = msgget(nKey, kCreateFlags);
  if (nMsgQueId == -1) {
    const PreservedErrno preserved;
    // Kept: the "(2)". There is no first attempt, but existing log filters expect the text.
    std::fprintf(stderr, "%s: msgget(Key:%d)(2) failed(%s)\n", "KMsgQue_Open", nKey, std::strerror(errno));
    return -1;
  }
  if (bFlush != 0) KMsgQue_Flush(nMsgQueId);
  return nMsgQueId;
}

void KMsgQue_Close(std::int32_t nKey) {
  // Kept: IPC_CREAT. For a key that has no queue, this makes one and removes it at once. So the second one to close
  // prints no error.
  const int nMsgQueId = msgget(nKey, kCreateFlags);
  if (nMsgQueId == -1) {
    const PreservedErrno preserved;
    std::fprintf(stderr, "%s: msgget(Key:%d) failed(%s)\n", "KMsgQue_Close", nKey, std::strerror(errno));
    return;
  }
  if (msgctl(nMsgQueId, IPC_RMID, nullptr) == -1) {
    const PreservedErrno preserved;
    std::fprintf(stderr, "%s: msgctl(IPC_RMID) failed(%s)\n", "KMsgQue_Close", std::strerror(errno));
  }
}

int KMsgQue_Send(int nMsgQueId, const void *pMsg, std::int32_t nBytes, int bWait) {
  const int nFlags = bWait != 0 ? 0 : IPC_NOWAIT;
  // A negative size stays negative for the kernel, which refuses it, whatever the width of std::size_t.
  if (msgsnd(nMsgQueId, pMsg, static_cast<std::size_t>(nBytes), nFlags) == 0) return 1;
  // Kept: a queue that is full for a sender who does not wait is reported like any other failure.
  const PreservedErrno preserved;
  std::fprintf(stderr, "%s: msgsnd(MsgQ ID:%d, Flag:%d) failed(%s)\n", "KMsgQue_Send", nMsgQueId, nFlags,
               std::strerror(errno));
  return 0;
}

int KMsgQue_Get(int nMsgQueId, void *pBuf, std::int32_t nBytes, std::int32_t nType, std::int32_t *pnReceived,
                int nFlags) {
  const ssize_t nReceived = msgrcv(nMsgQueId, pBuf, static_cast<std::size_t>(nBytes), nType, nFlags);
  if (nReceived != -1) {
    if (pnReceived != nullptr) *pnReceived = static_cast<std::int32_t>(nReceived);
    return KMSGQUE_RECEIVED;
  }
  // Kept: nothing is retried; the caller decides whether to wait again.
  switch (errno) {
    case E2BIG:
      return KMSGQUE_TOO_LONG;
    case EINTR:
      return KMSGQUE_INTERRUPTED;
    case ENOMSG:
      return KMSGQUE_NO_MESSAGE;
    default:
      break;
  }
  const PreservedErrno preserved;
  // Kept: the space after "ID:", which the report of KMsgQue_Send does not have.
  std::fprintf(stderr, "%s: msgrcv(MsgQ ID: %d, Flag:%d) failed(%s)\n", "KMsgQue_Get", nMsgQueId, nFlags,
               std::strerror(errno));
  return KMSGQUE_FAILED;
}

void KMsgQue_Flush(int nMsgQueId) {
  const PreservedErrno preserved;  // the receive that finds the queue empty is no failure
  TDiscarded discarded;
  // Without MSG_NOERROR a message longer than the buffer would stay and stop the flush.
  while (msgrcv(nMsgQueId, &discarded, sizeof discarded.acData, 0, IPC_NOWAIT | MSG_NOERROR) != -1) {
  }
}
