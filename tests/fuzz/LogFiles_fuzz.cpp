// SPDX-License-Identifier: MIT
// devlog's two files: the names of types and processes, and the place where the last run stopped. Accepted text is
// the same when it is written and read again; rejected text gets an error message.

#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"
#include "tests/fuzz/StreamText.h"
#include "tests/support/TempDir.h"
#include "tools/devlog/Cursor.h"
#include "tools/devlog/Names.h"

namespace {

using devlog::Bookmark;
using devlog::Cursor;
using devlog::Names;
using devsupport::test::FuzzInput;
using devsupport::test::MemoryFile;
using devsupport::test::StreamText;

void ExpectNames(std::string_view text) {
  const MemoryFile file(text);
  Names names;
  const StreamText err(stderr);
  const bool isTaken = names.Load(MemoryFile::Path().c_str(), false);
  ASSERT_EQ(isTaken, err.Text().empty()) << err.Text();
  if (!isTaken) return;
  for (unsigned type = 0; type < Names::kTypes; ++type) {
    const std::string_view name = names.TypeName(type);
    if (name.empty()) continue;
    EXPECT_TRUE(Names::IsName(name));
    EXPECT_LE(name.size(), names.LongestTypeName());
    EXPECT_LE(names.FindType(name), type);
  }
  const std::string_view process = names.ProcessOf(text);
  EXPECT_EQ(process, text.substr(0, process.size()));
}

bool IsSame(const Bookmark *a, const Bookmark *b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->ring == b->ring && a->position.index == b->position.index && a->position.before == b->position.before &&
         a->position.last == b->position.last && a->expected == b->expected;
}

void ExpectCursor(std::string_view text) {
  static const devsupport::test::TempDir s_folder;
  const std::string path = s_folder / "cursor";
  devsupport::test::WriteFile(path, std::string(text));
  const StreamText err(stderr);
  Cursor first(path.c_str());
  const bool isTaken = first.Load();
  ASSERT_EQ(isTaken, err.Text().empty());
  if (!isTaken) return;
  Cursor second(path.c_str());
  for (const devlog::Ring ring : {devlog::Ring::Log, devlog::Ring::Event})
    if (const Bookmark *bookmark = first.Find(ring)) second.Set(ring, *bookmark);
  ASSERT_TRUE(second.Save());
  Cursor third(path.c_str());
  ASSERT_TRUE(third.Load());
  for (const devlog::Ring ring : {devlog::Ring::Log, devlog::Ring::Event}) {
    EXPECT_TRUE(IsSame(second.Find(ring), third.Find(ring)));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzInput input(data, size);
  if (input.Below(2) == 0)
    ExpectNames(input.Rest());
  else
    ExpectCursor(input.Rest());
  return 0;
}
