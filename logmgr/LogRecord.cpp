// SPDX-License-Identifier: MIT
// Builders of log messages: one for formats, one for pieces, each with a message buffer on the stack.

#include <devsupport/detail/logmgr/LogRecord.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogRecord.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr std::size_t kMessageBytes = 512;
constexpr std::size_t kLocationBytes = 64;
constexpr char kLocationFormat[] = " \\%s %d";

// A message made of pieces: always terminated, of at most 511 characters.
class Message {
 public:
  Message() { szText_[0] = '\0'; }
  void Append(const char *pPiece) {
    if (pPiece == nullptr) return;
    void *pAfterNul = ::memccpy(pEnd_, pPiece, '\0', Room());
    pEnd_ = pAfterNul != nullptr ? static_cast<char *>(pAfterNul) - 1 : pEnd_ + Room();
    *pEnd_ = '\0';
  }
  const char *Text() const { return szText_; }

 private:
  // For characters, besides the NUL.
  std::size_t Room() const { return static_cast<std::size_t>(szText_ + kMessageBytes - 1 - pEnd_); }

  char szText_[kMessageBytes];
  char *pEnd_ = szText_;
};

void Cat(const char *pFile, int nLine, int nType, int nExtra, std::initializer_list<const char *> pieces) {
  Message message;
  for (const char *pPiece : pieces) message.Append(pPiece);
  // Kept: the location has its own format, whatever LogInfo_SetLocFmt was given, and is cut to its own buffer.
  char szLocation[kLocationBytes] = "";
  std::snprintf(szLocation, sizeof szLocation, kLocationFormat, pFile != nullptr ? pFile : "", nLine);
  message.Append(szLocation);
  TLogInfoShm_Write(message.Text(), nType, nExtra);
}

}  // namespace

constinit const char *_g_pLogInfoLocFmt = kLocationFormat;

void LogInfo_Printf(int nType, const char *pFormat, ...) {
  char szText[kMessageBytes] = "";
  va_list args;
  va_start(args, pFormat);
  std::vsnprintf(szText, sizeof szText, pFormat, args);
  va_end(args);
  TLogInfoShm_Write(szText, nType, 1);
}

void LogInfo_PrintfEvt(int nType, const char *pFormat, ...) {
  char szText[kMessageBytes] = "";
  va_list args;
  va_start(args, pFormat);
  std::vsnprintf(szText, sizeof szText, pFormat, args);
  va_end(args);
  TLogInfoShm_Write_Evt(szText, nType);
}

const char *LogInfo_SetLocFmt(const char *pFormat) {
  _g_pLogInfoLocFmt = pFormat;
  return pFormat;
}

// The twelve differ in nothing but the number of pieces.
#define PIECES_1 const char *p1
#define PIECES_2 PIECES_1, const char *p2
#define PIECES_3 PIECES_2, const char *p3
#define PIECES_4 PIECES_3, const char *p4
#define PIECES_5 PIECES_4, const char *p5
#define PIECES_6 PIECES_5, const char *p6
#define PIECES_7 PIECES_6, const char *p7
#define PIECES_8 PIECES_7, const char *p8
#define PIECES_9 PIECES_8, const char *p9
#define PIECES_10 PIECES_9, const char *p10
#define PIECES_11 PIECES_10, const char *p11
#define PIECES_12 PIECES_11, const char *p12
#define CAT(n, ...)                                                                      \
  void LogInfo_Cat##n(const char *pFile, int nLine, int nType, int nExtra, PIECES_##n) { \
    Cat(pFile, nLine, nType, nExtra, {__VA_ARGS__});                                     \
  }

CAT(1, p1)
CAT(2, p1, p2)
CAT(3, p1, p2, p3)
CAT(4, p1, p2, p3, p4)
CAT(5, p1, p2, p3, p4, p5)
CAT(6, p1, p2, p3, p4, p5, p6)
CAT(7, p1, p2, p3, p4, p5, p6, p7)
CAT(8, p1, p2, p3, p4, p5, p6, p7, p8)
CAT(9, p1, p2, p3, p4, p5, p6, p7, p8, p9)
CAT(10, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10)
CAT(11, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11)
CAT(12, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12)
