// SPDX-License-Identifier: MIT
// Tokenizer: splits a list of 90 characters, in the form of stored log levels, at every ',' and ';'. Each field's
// place and length are used.

#include <devsupport/text/StrTok.h>
#include <devsupport/text/StrTokScan.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "bench/Peers.h"
#include "bench/Row.h"

#if DEVSUPPORT_PEER_ABSEIL
#include <absl/strings/str_split.h>
#include <absl/strings/string_view.h>
#endif
#if DEVSUPPORT_PEER_BOOST
#include <boost/tokenizer.hpp>
#endif

namespace devsupport::bench {

namespace {

constexpr const char *kDelimiters = ",;";
constexpr std::string_view kList =
    "cpld=3,voip=5;sipd=4,rtpd=1;dspd=2,fxs=3;fxo=7,cfgd=2;web=1,logmgr=6;dhcpc=0,stund=1;ppp=4";
static_assert(kList.size() == 90);

void Use(const char *field, std::size_t length) {
  benchmark::DoNotOptimize(field);
  benchmark::DoNotOptimize(length);
}

template <void (*kSplit)(const char *, std::size_t)>
void Split(benchmark::State &state) {
  const char *list = kList.data();
  std::size_t length = kList.size();
  for (auto _ : state) {
    benchmark::DoNotOptimize(list);  // neither text nor length are known when compiling
    benchmark::DoNotOptimize(length);
    kSplit(list, length);
  }
}

void Ours(const char *list, std::size_t length) {
  TStrTok tok;
  TStrTok_SetSource(&tok, 0, list, static_cast<int>(length));
  while (TStrTok_GoDelimit_AnyChar(&tok, kDelimiters, 0) != 0)
    Use(tok.pTok, static_cast<std::size_t>(tok.pTokEnd - tok.pTok));
}

// The floor: two comparisons for each character.
void TwoCompares(const char *list, std::size_t length) {
  const char *field = list;
  const char *const end = list + length;
  for (const char *p = list; p != end; ++p) {
    if (*p != ',' && *p != ';') continue;
    Use(field, static_cast<std::size_t>(p - field));
    field = p + 1;
  }
  Use(field, static_cast<std::size_t>(end - field));
}

void Strcspn(const char *list, std::size_t /*length*/) {
  for (const char *field = list;;) {
    const std::size_t length = std::strcspn(field, kDelimiters);
    Use(field, length);
    if (field[length] == '\0') return;
    field += length + 1;
  }
}

// It writes into its text, so it needs a copy.
void StrtokR(const char *list, std::size_t length) {
  std::array<char, 128> copy;
  std::memcpy(copy.data(), list, length + 1);
  char *rest = nullptr;
  for (char *field = strtok_r(copy.data(), kDelimiters, &rest); field != nullptr;
       field = strtok_r(nullptr, kDelimiters, &rest))
    Use(field, std::strlen(field));
}

#if DEVSUPPORT_PEER_ABSEIL
void StrSplit(const char *list, std::size_t length) {
  for (const absl::string_view field : absl::StrSplit(absl::string_view(list, length), absl::ByAnyChar(kDelimiters)))
    Use(field.data(), field.size());
}
#endif

#if DEVSUPPORT_PEER_BOOST
void BoostTokenizer(const char *list, std::size_t length) {
  using Tokenizer = boost::tokenizer<boost::char_separator<char>, const char *>;
  const Tokenizer tokens(list, list + length, boost::char_separator<char>(kDelimiters));
  for (const std::string &field : tokens) Use(field.data(), field.size());
}
#endif

}  // namespace

void RegisterTokenizer() {
  const Row row("split", "split a list of 90 characters on ',' and ';'", kAheadOfEveryPeer);
  row.Ours(Split<Ours>).Floor("two comparisons a character", Split<TwoCompares>);
  row.Peer("strcspn", Split<Strcspn>).Peer("strtok_r on a copy", Split<StrtokR>);
#if DEVSUPPORT_PEER_ABSEIL
  row.Peer("absl::StrSplit", Split<StrSplit>);
#endif
#if DEVSUPPORT_PEER_BOOST
  row.Peer("boost::tokenizer", Split<BoostTokenizer>);
#endif
}

}  // namespace devsupport::bench
