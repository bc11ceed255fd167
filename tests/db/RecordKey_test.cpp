// SPDX-License-Identifier: MIT
// Keys made from names: the keypad digits, and the phone book's key.

#include <db.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/detail/db/DbRecord.h>

#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>

#include "db/for_project/RecordKey.h"
#include "tests/db/RecordFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(void *, malloc, (std::size_t n), (n), nullptr, ENOMEM)

namespace {

using namespace devsupport::test;

using PhoneBookKey = Record;

TEST(Letter2Num, MapsLettersToTheirKeys) {
  std::string digits;
  for (char c = 'a'; c <= 'z'; ++c) digits += _Letter2Num(c);
  EXPECT_EQ(digits, "22233344455566677778889999");
  for (char c = 'A'; c <= 'Z'; ++c) EXPECT_EQ(_Letter2Num(c), digits[static_cast<std::size_t>(c - 'A')]);
}

TEST(Letter2Num, MapsDigitsToThemselvesAndABlankTo0) {
  for (char c = '0'; c <= '9'; ++c) EXPECT_EQ(_Letter2Num(c), c);
  EXPECT_EQ(_Letter2Num(' '), '0');
}

TEST(Letter2Num, MapsEverythingElseToNoKey) {
  for (int c = -128; c < 128; ++c) {
    const char character = static_cast<char>(c);
    if (c >= 0 && (std::isalnum(c) || c == ' ')) continue;
    EXPECT_EQ(_Letter2Num(character), '\0') << c;
  }
}

TEST_F(PhoneBookKey, EndsTheDigitsAtTheFirstCharacterWithoutAKey) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Jo-Ann", "1"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "-", "2"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "", "3"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_pb, ""), "3");
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), (Records{{Text("\0"), Text("3")},
                                    {Text("-\0"), Text("2")},
                                    {Text("Jo-Ann\0"
                                          "56"),
                                     Text("1")}}));
}

TEST_F(PhoneBookKey, WorksOnBothSidesOfTheInlineKey) {
  for (const std::size_t length : {126u, 127u, 128u, 129u}) {
    const std::string name(length, 'a');
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, name.c_str(), "v"), BERKDB_OK);
    EXPECT_EQ(Get(g_uDb.tb_pb, name.c_str()), "v");
    EXPECT_EQ(BerkDb_Del(g_uDb.tb_pb, name.c_str()), BERKDB_OK);
  }
}

TEST(PhoneBookKeyRoom, OfANameOfAnyLength_HoldsItsKey) {
  using devsupport::store::PhoneBookKey;
  constexpr unsigned char kFence = 0xA5;
  for (const std::size_t length : {0u, 126u, 127u, 128u, 129u, 1000u}) {
    alignas(PhoneBookKey) unsigned char room[sizeof(PhoneBookKey) + 8];
    std::memset(room, kFence, sizeof room);
    auto *pKey = ::new (room) PhoneBookKey(std::string(length, 'a').c_str());
    EXPECT_EQ(pKey->Record().size, 2 * length + 2);
    pKey->~PhoneBookKey();
    for (std::size_t i = sizeof(PhoneBookKey); i < sizeof room; ++i) EXPECT_EQ(room[i], kFence) << length;
  }
}

TEST_F(PhoneBookKey, OfALongName_WithoutMemory_Is10) {
  const std::string name(200, 'n');
  CapturedOutput err(stderr);
  int code = -4711;
  {
    const FailCall fail("malloc", 1);
    code = BerkDb_Set(g_uDb.tb_pb, name.c_str(), "v");
    EXPECT_TRUE(fail.Happened());
  }
  EXPECT_EQ(code, BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(ENOMEM) + Short(ENOMEM));
}

}  // namespace
