// SPDX-License-Identifier: MIT
// Values as log messages show them.

#include <devsupport/logmgr/LogFormat.h>

#include <cstdint>
#include <cstdio>

char *LogFmt_Int(char *pBuf, int nValue) {
  std::sprintf(pBuf, "%d", nValue);
  return pBuf;
}

char *LogFmt_Float(char *pBuf, float fValue) { return LogFmt_Double(pBuf, static_cast<double>(fValue)); }

char *LogFmt_Double(char *pBuf, double dValue) {
  std::sprintf(pBuf, "%f", dValue);
  return pBuf;
}

char *LogFmt_Char(char *pBuf, char cValue) {
  pBuf[0] = cValue;
  pBuf[1] = '\0';
  return pBuf;
}

char *LogFmt_Hex(char *pBuf, int nValue) { return LogFmt_HexU(pBuf, static_cast<unsigned>(nValue)); }

char *LogFmt_HexU(char *pBuf, unsigned int dwValue) {
  std::sprintf(pBuf, "%X", dwValue);
  return pBuf;
}

char *LogFmt_Chn(char *pBuf, int nChannel) {
  std::sprintf(pBuf, "CHN=%d, ", nChannel);
  return pBuf;
}

char *LogFmt_Sid(char *pBuf, std::int16_t nSid) {
  // Kept: the number is widened with its sign before it is shown as bits.
  const int nWide = nSid;
  std::sprintf(pBuf, "SID=%x, ", static_cast<unsigned>(nWide));
  return pBuf;
}
