// SPDX-License-Identifier: MIT
// Names for types and processes from a file.

#include "tools/devlog/Names.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/CapturedOutput.h"
#include "tests/support/TempDir.h"
#include "tools/common/Files.h"

namespace {

using devlog::Names;
using namespace devsupport::test;

class NamesOfAFile : public ::testing::Test {
 protected:
  /// Loads the text and returns the error message, without the file's name.
  std::string Load(const std::string &text) {
    EXPECT_TRUE(tools::ReplaceFile(path_.c_str(), text));
    CapturedOutput err(stderr);
    const bool isLoaded = names_->Load(path_.c_str(), false);
    const std::string said = err.Take();
    EXPECT_EQ(isLoaded, said.empty());
    return said.empty() ? said : said.substr(said.find(path_) + path_.size());
  }

  TempDir dir_;
  std::string path_ = (dir_ / "names").string();
  std::unique_ptr<Names> names_{new Names};
};

TEST_F(NamesOfAFile, AreThoseOfItsTypesAndProcesses) {
  EXPECT_EQ(Load("# comment\n\n type 3\tcall # too\ntype 0xf alarm-call\nprocess sipd\n"), "");
  EXPECT_EQ(names_->TypeName(3), "call");
  EXPECT_EQ(names_->TypeName(15), "alarm-call");
  EXPECT_EQ(names_->TypeName(0), "");
  EXPECT_EQ(names_->FindType("call"), 3U);
  EXPECT_EQ(names_->FindType("cal"), 16U);
  EXPECT_EQ(names_->LongestTypeName(), 10U);
  EXPECT_EQ(names_->ProcessOf("sipdregistered"), "sipd");
  EXPECT_EQ(names_->ProcessOf("sip"), "");
}

TEST_F(NamesOfAFile, OfProcesses_AreFoundByTheLongestThatFits) {
  EXPECT_EQ(Load("process sip\nprocess sipd\nprocess si"), "");
  EXPECT_EQ(names_->ProcessOf("sipd: hello"), "sipd");
  EXPECT_EQ(names_->ProcessOf("siphello"), "sip");
}

TEST_F(NamesOfAFile, ThatIsMistaken_NamesTheLine) {
  EXPECT_EQ(Load("type 3 call\ntype 16 x\n"), ":2: invalid type\n");
  EXPECT_EQ(Load("type 3\n"), ":1: invalid name\n");
  EXPECT_EQ(Load("type 3 3x\n"), ":1: invalid name\n");
  EXPECT_EQ(Load("process a b\n"), ":1: invalid name\n");
  EXPECT_EQ(Load("process " + std::string(32, 'a')), ":1: invalid name\n");
  EXPECT_EQ(Load("color 3 red\n"), ":1: a line is 'type NUMBER NAME' or 'process NAME'\n");
  EXPECT_EQ(Load("type 3 call\ntype 4 call\n"), ":2: two types have this name\n");
}

TEST_F(NamesOfAFile, OfTooManyProcesses_AreRefused) {
  std::string text;
  for (char a = 'a'; a <= 'h'; ++a) {
    for (char b = 'a'; b <= 'h'; ++b) text += std::string("process ") + a + b + "\n";
  }
  EXPECT_EQ(Load(text), "");
  EXPECT_EQ(Load("process aa\n"), "");  // already known
  EXPECT_EQ(Load("process x\n"), ":1: too many processes\n");
}

TEST_F(NamesOfAFile, ThatIsNotThere_AreRefusedUnlessItIsOptional) {
  CapturedOutput err(stderr);
  EXPECT_TRUE(names_->Load("/nonexistent/names", true));
  EXPECT_EQ(err.Take(), "");
  CapturedOutput again(stderr);
  EXPECT_FALSE(names_->Load("/nonexistent/names", false));
  EXPECT_EQ(again.Take(), "devlog: the names '/nonexistent/names' cannot be read: No such file or directory\n");
}

}  // namespace
