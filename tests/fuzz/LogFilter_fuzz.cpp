// SPDX-License-Identifier: MIT
// The list of log parameters: a name's entry in any list is the one that a naive search finds, and nothing is read
// beyond the store's value.
//
// The input is the name, a NUL, and the list as the store holds it: with a terminator or without, of any length.

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/logmgr/LogFilter.h>
#include <devsupport/logmgr/LogInfoShm.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/text/NaiveNumbers.h"

namespace {

constexpr int kDefault = -4711;
constexpr std::size_t kListBytes = 256;
constexpr std::size_t kSearchChars = 127;
constexpr std::size_t kNumberChars = 15;

std::string_view g_stored;

/// The result for the named process by the contract: the first "<name>=" anywhere, then the field after it, up to
/// a comma, a semicolon or the end.
int NaiveParam(const std::string &name, std::string_view stored, int otherwise) {
  if (stored.size() > kListBytes) return otherwise;
  const std::string_view list = stored.substr(0, stored.find('\0'));
  const std::string search = (name + "=").substr(0, kSearchChars);
  const std::size_t found = list.find(search);
  if (found == std::string_view::npos) return otherwise;
  const std::string_view rest = list.substr(found + search.size());
  const std::string field(rest.substr(0, std::min(rest.find_first_of(",;"), kNumberChars)));
  const devsupport::test::Number number = devsupport::test::NaiveInt(field);
  return number.ok != 0 ? number.value : 0;
}

}  // namespace

/// Replaces the store with one record.
extern "C" int __wrap_BerkDb_Get(struct __db *pDb, const char *pKey, char *pBuf, std::int32_t nBufBytes);
extern "C" int __wrap_BerkDb_Get(struct __db * /*pDb*/, const char * /*pKey*/, char *pBuf, std::int32_t nBufBytes) {
  const auto room = static_cast<std::size_t>(nBufBytes);
  if (g_stored.size() > room) return BERKDB_BUFFER_SMALL;
  g_stored.copy(pBuf, g_stored.size());
  if (g_stored.size() < room) pBuf[g_stored.size()] = '\0';
  return BERKDB_OK;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  devsupport::test::FuzzInput input(data, size);
  const std::string name = input.UpTo('\0');
  g_stored = input.Rest();
  EXPECT_EQ(GetDbLogParam(name.c_str(), "dbl", kDefault), NaiveParam(name, g_stored, kDefault));

  int level = kDefault;
  std::uint32_t mask = 4711;
  LogInfo_LoadFilter(name.c_str(), &level, &mask);
  EXPECT_EQ(level, NaiveParam(name, g_stored, 4));
  EXPECT_EQ(mask, static_cast<std::uint32_t>(NaiveParam(name, g_stored, 7)));
  EXPECT_EQ(TLogInfoShm_IsEnabled(level, mask), mask != 0 ? 1 : 0);
  return 0;
}
