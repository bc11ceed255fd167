// SPDX-License-Identifier: MIT
// Writes and checks the seal.

#include "db/for_project/StoreSeal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "db/for_project/HomeFiles.h"
#include "db/for_project/LibraryHooks.h"

namespace devsupport::store {

namespace {

constexpr char kFirstLine[] = "devsupport store seal 1\n";
constexpr char kEnding[] = ".seal";
constexpr int kMode = 0660;

// Names of the library's log files: "log." and ten digits.
constexpr std::size_t kLogNameBytes = 15;

// A store with more log files than this has not been closed in order for a long time.
constexpr std::size_t kMaxLogs = 512;

// Enough for the first line, the tables' file, the log files and the last line.
constexpr std::size_t kSealBytes = 64 + PATH_MAX + kMaxLogs * 48;

// CRC-32 with the polynomial of Ethernet, bits reversed.
constexpr auto kCrcTable = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t dwCrc = i;
    for (int nBit = 0; nBit < 8; ++nBit) dwCrc = (dwCrc >> 1) ^ ((dwCrc & 1) != 0 ? 0xEDB88320U : 0U);
    table[i] = dwCrc;
  }
  return table;
}();

class Crc {
 public:
  void Add(const void *pData, std::size_t dwBytes) {
    const auto *pByte = static_cast<const unsigned char *>(pData);
    for (std::size_t i = 0; i < dwBytes; ++i) dwCrc_ = (dwCrc_ >> 8) ^ kCrcTable[(dwCrc_ ^ pByte[i]) & 0xFF];
  }
  std::uint32_t Value() const { return ~dwCrc_; }

 private:
  std::uint32_t dwCrc_ = 0xFFFFFFFFU;
};

class File {
 public:
  File(int nFolder, const char *pPath, int nFlags, int nMode = 0)
      : nFd_(OpenAboveStandardAt(nFolder, pPath, nFlags | O_NONBLOCK | O_NOCTTY, nMode)) {}
  ~File() {
    const int nError = errno;
    if (nFd_ >= 0) close(nFd_);
    errno = nError;
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  int Fd() const { return nFd_; }

 private:
  int nFd_;
};

// Size and checksum of a file, or of its beginning.
struct Content {
  std::uint64_t qwBytes = 0;
  std::uint32_t dwCrc = 0;

  bool operator==(const Content &) const = default;
};

// Reads at most qwMost bytes. Returns 0 or an error number. qwAll: size of the whole file.
int ReadContent(const File &file, std::uint64_t qwMost, Content &content, std::uint64_t &qwAll) {
  struct stat status = {};
  if (file.Fd() < 0 || fstat(file.Fd(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  qwAll = static_cast<std::uint64_t>(status.st_size);
  Crc crc;
  content = {};
  char aBuffer[4096];
  while (content.qwBytes < qwMost) {
    const auto dwWanted = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof aBuffer, qwMost - content.qwBytes));
    const ssize_t nRead = read(file.Fd(), aBuffer, dwWanted);
    if (nRead < 0 && errno == EINTR) continue;
    if (nRead < 0) return errno;
    if (nRead == 0) break;
    crc.Add(aBuffer, static_cast<std::size_t>(nRead));
    content.qwBytes += static_cast<std::uint64_t>(nRead);
  }
  content.dwCrc = crc.Value();
  return 0;
}

bool IsLogName(const char *pName) {
  return std::strlen(pName) == kLogNameBytes - 1 && std::strncmp(pName, "log.", 4) == 0 &&
         std::strspn(pName + 4, "0123456789") == kLogNameBytes - 5;
}

// Calls visit(name) for each log file, as VisitNames does.
template <typename TVisit>
int VisitLogs(int nHomeFd, TVisit visit) {
  return VisitNames(nHomeFd, [&](const char *pName) { return IsLogName(pName) ? visit(pName) : 0; });
}

bool BeginsAsSeal(int nHomeFd, const char *pName) {
  const File file(nHomeFd, pName, O_RDONLY);
  char szBegin[sizeof kFirstLine] = "";
  return read(file.Fd(), szBegin, sizeof szBegin - 1) > 0 && std::strcmp(szBegin, kFirstLine) == 0;
}

// The text of a seal, on the heap for the time of one call.
class SealText {
 public:
  SealText() : pText_(static_cast<char *>(std::malloc(kSealBytes))) {}
  ~SealText() { std::free(pText_); }
  SealText(const SealText &) = delete;
  SealText &operator=(const SealText &) = delete;

  bool Exists() const { return pText_ != nullptr; }
  char *Text() { return pText_; }
  const char *Text() const { return pText_; }
  std::size_t Bytes() const { return dwBytes_; }

  /// False when there is no room for it and the last line.
  [[gnu::format(printf, 2, 3)]] bool Append(const char *pFormat, ...) {
    const std::size_t dwRoom = kSealBytes - kEndBytes - dwBytes_;
    std::va_list values;
    va_start(values, pFormat);
    const int nBytes = std::vsnprintf(pText_ + dwBytes_, dwRoom, pFormat, values);
    va_end(values);
    if (static_cast<std::size_t>(nBytes) >= dwRoom) return false;
    dwBytes_ += static_cast<std::size_t>(nBytes);
    return true;
  }

  void AppendEnd() {
    std::snprintf(pText_ + dwBytes_, kEndBytes + 1, kEndFormat, CrcOf(dwBytes_));
    dwBytes_ += kEndBytes;
  }

  // Reads a seal. False when the file is no seal, or an unfinished one.
  bool Read(const File &file) {
    const ssize_t nRead = read(file.Fd(), pText_, kSealBytes - 1);
    if (nRead < static_cast<ssize_t>(kEndBytes)) return false;
    dwBytes_ = static_cast<std::size_t>(nRead);
    pText_[dwBytes_] = '\0';
    char szEnd[kEndBytes + 1];
    std::snprintf(szEnd, sizeof szEnd, kEndFormat, CrcOf(dwBytes_ - kEndBytes));
    return std::strcmp(pText_ + dwBytes_ - kEndBytes, szEnd) == 0 &&
           std::strncmp(pText_, kFirstLine, sizeof kFirstLine - 1) == 0;
  }

 private:
  static constexpr char kEndFormat[] = "end %08x\n";
  static constexpr std::size_t kEndBytes = 13;

  unsigned CrcOf(std::size_t dwBytes) const {
    Crc crc;
    crc.Add(pText_, dwBytes);
    return crc.Value();
  }

  char *pText_;
  std::size_t dwBytes_ = 0;
};

// Name of the seal, or of the file that becomes the seal.
class SealName {
 public:
  SealName(const char *pFile, const char *pEnding) {
    const int nBytes = std::snprintf(szName_, sizeof szName_, "%s%s", pFile, pEnding);
    if (static_cast<std::size_t>(nBytes) >= sizeof szName_) szName_[0] = '\0';  // no file has this name
  }
  const char *Text() const { return szName_; }

 private:
  char szName_[PATH_MAX];
};

int RemoveName(int nHomeFd, const char *pName) {
  if (unlinkat(nHomeFd, pName, 0) != 0) return errno == ENOENT ? 0 : errno;
  return FlushFolder(nHomeFd);
}

// What of the files has changed since the seal.
class Comparison {
 public:
  Comparison(int nHomeFd, const char *pFile) : nHomeFd_(nHomeFd), pFile_(pFile) {}

  // Takes one line of the seal: "<size> <checksum> <name>". False when the line has another form.
  bool Take(const char *pLine) {
    unsigned long long qwBytes = 0;
    unsigned dwCrc = 0;
    int nName = 0;
    if (std::sscanf(pLine, "%llu %8x %n", &qwBytes, &dwCrc, &nName) != 2) return false;
    Compare(pLine + nName, {qwBytes, dwCrc});
    return true;
  }

  SealFinding Result() {
    if (bTablesGone_) return {};  // a new store begins
    // Log files after the last sealed one: the store was used.
    VisitLogs(nHomeFd_, [this](const char *pName) {
      if (std::strcmp(pName, szLastLog_) > 0) bGrown_ = true;
      return 0;
    });
    if (*szDamagedLog_ != '\0') return Finding(SealState::Damaged, szDamagedLog_);
    if (bGrown_) return Finding(SealState::Stale, "");
    if (*szMissingLog_ != '\0') return Finding(SealState::Damaged, szMissingLog_);
    return bTablesDiffer_ ? Finding(SealState::Changed, pFile_) : Finding(SealState::Fits, "");
  }

 private:
  void Compare(const char *pName, const Content &sealed) {
    const bool bLog = IsLogName(pName);
    const File file(nHomeFd_, pName, O_RDONLY);
    Content content;
    std::uint64_t qwAll = 0;
    const int nError = ReadContent(file, sealed.qwBytes, content, qwAll);
    const bool bSame = nError == 0 && content == sealed;
    if (!bLog) {
      bTablesGone_ = nError == ENOENT;
      bTablesDiffer_ = !bSame || qwAll != sealed.qwBytes;
      return;
    }
    if (std::strcmp(pName, szLastLog_) > 0) CopyName(szLastLog_, pName);
    if (nError == ENOENT) {
      CopyName(szMissingLog_, pName);  // the library removes old ones when it writes new ones
    } else if (!bSame) {
      CopyName(szDamagedLog_, pName);
    } else if (qwAll > sealed.qwBytes) {
      bGrown_ = true;
    }
  }

  static SealFinding Finding(SealState state, const char *pFile) {
    SealFinding finding;
    finding.state = state;
    std::snprintf(finding.szFile, sizeof finding.szFile, "%s", pFile);
    return finding;
  }

  static void CopyName(char (&szName)[kLogNameBytes], const char *pName) {
    std::memcpy(szName, pName, kLogNameBytes);
  }

  int nHomeFd_;
  const char *pFile_;
  bool bTablesGone_ = false;
  bool bTablesDiffer_ = true;  // a seal without the tables' file does not fit
  bool bGrown_ = false;
  char szLastLog_[kLogNameBytes] = "";
  char szMissingLog_[kLogNameBytes] = "";
  char szDamagedLog_[kLogNameBytes] = "";
};

// Flushes a file and adds its line.
int Seal(int nHomeFd, const char *pName, SealText &text) {
  const File file(nHomeFd, pName, O_RDONLY);
  if (file.Fd() < 0 || fsync(file.Fd()) != 0) return errno;
  Content content;
  std::uint64_t qwAll = 0;
  if (const int nError = ReadContent(file, UINT64_MAX, content, qwAll); nError != 0) return nError;
  return text.Append("%llu %08x %s\n", static_cast<unsigned long long>(content.qwBytes),
                     static_cast<unsigned>(content.dwCrc), pName)
             ? 0
             : ENOMEM;
}

int WriteAll(int nHomeFd, const char *pName, const SealText &text) {
  const File file(nHomeFd, pName, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, kMode);
  if (file.Fd() < 0) return errno;
  const ssize_t nWritten = write(file.Fd(), text.Text(), text.Bytes());
  if (nWritten < 0) return errno;
  if (static_cast<std::size_t>(nWritten) != text.Bytes()) return ENOSPC;
  return fsync(file.Fd()) == 0 ? 0 : errno;
}

}  // namespace

SealFinding CheckSeal(int nHomeFd, const char *pFile) {
  SealText text;
  if (!text.Exists() || !text.Read(File(nHomeFd, SealName(pFile, kEnding).Text(), O_RDONLY))) return {};
  Comparison comparison(nHomeFd, pFile);
  char *pLine = text.Text() + sizeof kFirstLine - 1;
  while (std::strncmp(pLine, "end ", 4) != 0) {
    char *pEnd = std::strchr(pLine, '\n');
    if (pEnd == nullptr) return {};
    *pEnd = '\0';
    if (!comparison.Take(pLine)) return {};
    pLine = pEnd + 1;
  }
  return comparison.Result();
}

int WriteSeal(int nHomeFd, const char *pFile) {
  SealText text;
  if (!text.Exists()) return ENOMEM;
  text.Append("%s", kFirstLine);
  int nError = Seal(nHomeFd, pFile, text);
  if (nError == 0) nError = VisitLogs(nHomeFd, [&](const char *pName) { return Seal(nHomeFd, pName, text); });
  if (nError != 0) return nError;
  text.AppendEnd();
  const SealName name(pFile, kEnding);
  const SealName unfinished(pFile, ".seal.new");
  nError = WriteAll(nHomeFd, unfinished.Text(), text);
  if (nError == 0 && renameat(nHomeFd, unfinished.Text(), nHomeFd, name.Text()) != 0) nError = errno;
  if (nError != 0) {
    unlinkat(nHomeFd, unfinished.Text(), 0);
    return nError;
  }
  return FlushFolder(nHomeFd);
}

int RemoveSeal(int nHomeFd, const char *pFile) { return RemoveName(nHomeFd, SealName(pFile, kEnding).Text()); }

int RemoveSeals(int nHomeFd) {
  return VisitNames(nHomeFd, [=](const char *pName) {
    return std::string_view(pName).ends_with(kEnding) && BeginsAsSeal(nHomeFd, pName) ? RemoveName(nHomeFd, pName)
                                                                                      : 0;
  });
}

}  // namespace devsupport::store
