// SPDX-License-Identifier: MIT
// The record operations against a plain map.

#include <db.h>
#include <devsupport/db/DbRecord.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>

#include "tests/db/RecordFixture.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

TEST_F(Record, RandomScript_AgreesWithAPlainMap) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  DB *tables[] = {g_uDb.tb_parameter, g_uDb.tb_dm, g_uDb.tb_pb, g_uDb.tb_route};
  std::map<std::string, std::string> oracle[4];
  for (int step = 0; step < 1500; ++step) {
    const std::size_t which = below(4);
    const std::string key(1 + below(6), static_cast<char>('a' + below(5)));
    const std::string value = std::to_string(below(1000)) + (below(2) ? ";x" : "");
    auto &map = oracle[which];
    const auto known = map.find(key);
    switch (below(3)) {
      case 0:
        ASSERT_EQ(BerkDb_Set(tables[which], key.c_str(), value.c_str()), BERKDB_OK);
        map[key] = value;
        break;
      case 1:
        ASSERT_EQ(BerkDb_Del(tables[which], key.c_str()), known == map.end() ? BERKDB_NOT_FOUND : BERKDB_OK);
        map.erase(key);
        break;
      default:
        ASSERT_EQ(Get(tables[which], key.c_str()), known == map.end() ? "<7>" : known->second);
    }
  }
  BerkDb_Close();
  ExpectSoundFile();
  const char *const names[] = {"tb_parameter", "tb_dm", "tb_pb", "tb_route"};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Dump(names[i]).size(), oracle[i].size());
}

}  // namespace
