// SPDX-License-Identifier: MIT
// Secondary keys and orders of the tables.

#include "db/for_project/DbIndexes.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "db/for_project/DbText.h"

namespace devsupport::store {

namespace {

constexpr std::size_t kRouteGroupBytes = 3;

int Answer(DBT *pResult, std::string_view key) {
  *pResult = DBT{};
  // The library reads these bytes only; its record type has no constant data pointer.
  pResult->data = const_cast<char *>(key.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  pResult->size = static_cast<u_int32_t>(key.size());
  return 0;
}

// A route as "number,text". Formatted in pieces, so that a text of any length is compared whole.
struct Route {
  char szNumber[8] = "";  // "-128," at most; empty for a record without a byte
  std::string_view text;

  explicit Route(std::string_view bytes) {
    if (bytes.empty()) return;
    std::snprintf(szNumber, sizeof szNumber, "%d,", static_cast<std::int8_t>(bytes.front()));
    text = TextOf(After(bytes, 1));
  }
};

}  // namespace

// Kept: the key has no terminator when ';' ends it, and has one when the end of the text does.
int KeyOfStbPb(DB * /*pIndex*/, const DBT * /*pKey*/, const DBT *pData, DBT *pResult) {
  const std::string_view text = TextOf(Bytes(*pData));
  const std::size_t dwEnd = text.find(';');
  return Answer(pResult, dwEnd != std::string_view::npos ? First(text, dwEnd) : TextWithTerminator(Bytes(*pData)));
}

// A key that was not made from a name has no digits after it: its secondary key is empty.
int KeyOfStb1Pb(DB * /*pIndex*/, const DBT *pKey, const DBT * /*pData*/, DBT *pResult) {
  const std::string_view key = Bytes(*pKey);
  return Answer(pResult, TextWithTerminator(After(key, TextWithTerminator(key).size())));
}

int KeyOfStbRoute(DB * /*pIndex*/, const DBT *pKey, const DBT * /*pData*/, DBT *pResult) {
  return Answer(pResult, First(Bytes(*pKey), kRouteGroupBytes));
}

// Kept: b is compared with a, so that the table runs downwards.
int CompareTbDm(DB * /*pTable*/, const DBT *pA, const DBT *pB) {
  return TextOf(Bytes(*pB)).compare(TextOf(Bytes(*pA)));
}

// Kept: b is compared with a here, too. Texts of up to 18 characters are the rule; of longer ones, all counts, so
// that two routes are never taken for one.
int CompareStbRouteDuplicates(DB * /*pIndex*/, const DBT *pA, const DBT *pB) {
  const Route a(Bytes(*pA));
  const Route b(Bytes(*pB));
  // No number is the beginning of another one with its comma, so comparing piece by piece compares the whole.
  const int nNumbers = std::string_view(b.szNumber).compare(a.szNumber);
  return nNumbers != 0 ? nNumbers : b.text.compare(a.text);
}

}  // namespace devsupport::store
