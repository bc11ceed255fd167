// SPDX-License-Identifier: MIT
// Records of the store with any bytes, as other programs may have written them: their secondary keys lie inside them
// and are those of a naive reader; the tables' comparison functions are consistent.

#include <db.h>

#include <string>
#include <vector>

#include "db/for_project/DbIndexes.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using devsupport::test::FuzzInput;

/// Bytes in a block of exactly their size.
struct Record {
  explicit Record(std::string_view text) : bytes(text.begin(), text.end()) {
    bytes.shrink_to_fit();
    dbt.data = bytes.data();
    dbt.size = static_cast<u_int32_t>(bytes.size());
  }
  Record(const Record &) = delete;
  Record &operator=(const Record &) = delete;
  std::string Text() const { return {bytes.begin(), bytes.end()}; }

  std::vector<char> bytes;
  DBT dbt{};
};

using Extractor = int (*)(DB *, const DBT *, const DBT *, DBT *);

std::string KeyBy(Extractor extractor, const Record &key, const Record &data) {
  DBT result{};
  EXPECT_EQ(extractor(nullptr, &key.dbt, &data.dbt, &result), 0);
  return result.size == 0 ? "" : std::string(static_cast<char *>(result.data), result.size);
}

std::string UpToNul(const std::string &bytes) { return bytes.substr(0, bytes.find('\0')); }
std::string WithNul(const std::string &bytes) { return bytes.substr(0, UpToNul(bytes).size() + 1); }

void ExpectKeys(const Record &key, const Record &data) {
  const std::string text = UpToNul(data.Text());
  const bool hasNumber = text.find(';') != std::string::npos;
  EXPECT_EQ(KeyBy(devsupport::store::KeyOfStbPb, key, data),
            hasNumber ? text.substr(0, text.find(';')) : WithNul(data.Text()));
  const std::string rest = key.Text().substr(WithNul(key.Text()).size());
  EXPECT_EQ(KeyBy(devsupport::store::KeyOfStb1Pb, key, data), WithNul(rest));
  EXPECT_EQ(KeyBy(devsupport::store::KeyOfStbRoute, key, data), key.Text().substr(0, 3));
}

using Comparison = int (*)(DB *, const DBT *, const DBT *);

int Sign(int number) { return (number > 0) - (number < 0); }

void ExpectOrder(Comparison compare, const Record &a, const Record &b, const Record &c) {
  const auto sign = [&](const Record &x, const Record &y) { return Sign(compare(nullptr, &x.dbt, &y.dbt)); };
  EXPECT_EQ(sign(a, a), 0);
  EXPECT_EQ(sign(a, b), -sign(b, a));
  if (sign(a, b) <= 0 && sign(b, c) <= 0) {
    EXPECT_LE(sign(a, c), 0);
  }
  if (sign(a, b) == 0) {
    EXPECT_EQ(sign(a, c), sign(b, c));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzInput input(data, size);
  const Record a(input.Take(input.Below(256)));
  const Record b(input.Take(input.Below(256)));
  const Record c(input.Rest());
  ExpectKeys(a, b);
  ExpectKeys(c, a);
  ExpectOrder(devsupport::store::CompareTbDm, a, b, c);
  ExpectOrder(devsupport::store::CompareStbRouteDuplicates, a, b, c);
  EXPECT_EQ(Sign(devsupport::store::CompareTbDm(nullptr, &a.dbt, &b.dbt)),
            Sign(UpToNul(b.Text()).compare(UpToNul(a.Text()))));
  return 0;
}
