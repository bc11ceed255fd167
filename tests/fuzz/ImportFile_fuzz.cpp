// SPDX-License-Identifier: MIT
// A file of JSON lines for the configuration store. Accepted text is JSON with the same content for an independent
// reader, too, and is unchanged when it is exported and read again. A rejection names its line, and the lines before
// that one are accepted.

#include "tools/devconf/ImportFile.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"
#include "tests/fuzz/StreamText.h"
#include "tools/devconf/Print.h"

namespace {

using devsupport::test::MemoryFile;
using nlohmann::json;

struct Stored {
  std::string table;
  std::string key;
  std::string value;

  bool operator==(const Stored &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Stored &record) {
  return stream << record.table << ' ' << testing::PrintToString(record.key) << ' '
                << testing::PrintToString(record.value);
}

struct Imported {
  std::vector<Stored> records;
  std::string exported;   ///< the same as a file
  std::string complaint;  ///< empty when the text was accepted
};

void TakeEntries(devconf::ImportFile &file, Imported &imported) {
  const devsupport::test::StreamText out(stdout);
  std::vector<devconf::Entry> entries(file.Entries().begin(), file.Entries().end());
  std::sort(entries.begin(), entries.end(), [](const auto &a, const auto &b) { return a.line < b.line; });
  for (const devconf::Entry &entry : entries) {
    const std::string_view key = file.KeyOf(entry);
    const std::string_view value = file.ValueOf(entry);
    devconf::PrintRecord({entry.table, key, value}, true);
    imported.records.push_back({entry.table->Name(), std::string(key), std::string(value)});
  }
  imported.exported = out.Text();
}

void ExpectFound(devconf::ImportFile &file, const std::vector<Stored> &records) {
  for (const Stored &record : records) EXPECT_TRUE(file.HasTable(*devconf::FindTable(record.table)));
  const auto isBefore = [](const devconf::Entry &a, const devconf::Entry &b) { return a.table < b.table; };
  EXPECT_TRUE(std::is_sorted(file.Entries().begin(), file.Entries().end(), isBefore));
}

Imported Import(std::string_view text) {
  const MemoryFile memory(text);
  Imported imported;
  devconf::ImportFile file;
  bool isTaken = false;
  {
    const devsupport::test::StreamText err(stderr);
    isTaken = file.Load(MemoryFile::Path().c_str()) && file.Check();
    imported.complaint = err.Text();
  }
  EXPECT_EQ(isTaken, imported.complaint.empty()) << imported.complaint;
  if (!isTaken) return imported;
  TakeEntries(file, imported);
  ExpectFound(file, imported.records);
  return imported;
}

/// The bytes of a string whose characters are bytes.
std::string BytesOf(const std::string &string) {
  std::string bytes;
  for (std::size_t i = 0; i < string.size(); ++i) {
    const auto lead = static_cast<unsigned char>(string[i]);
    // Two bytes of UTF-8 at most: characters up to U+00FF.
    bytes += static_cast<char>(lead < 0x80 ? lead : (lead & 3U) << 6 | (static_cast<unsigned>(string[++i]) & 0x3fU));
  }
  return bytes;
}

std::string Terminated(const std::string &text) { return text + '\0'; }

/// The phone book's key for a name.
std::string WithDigits(const std::string &name) {
  constexpr std::string_view kKeypad = "22233344455566677778889999";
  std::string digits;
  for (const char c : name) {
    const char lower = static_cast<char>(c | 0x20);
    if (lower >= 'a' && lower <= 'z')
      digits += kKeypad[static_cast<std::size_t>(lower - 'a')];
    else if ((c >= '0' && c <= '9') || c == ' ')
      digits += c == ' ' ? '0' : c;
    else
      break;
  }
  return Terminated(name) + Terminated(digits);
}

std::optional<Stored> ReadByOthers(const std::string &line) {
  const json object = json::parse(line);
  const std::string table = object.at("table");
  if (object.size() == 1) return std::nullopt;
  EXPECT_EQ(object.size(), 3U);
  Stored record{table, "", ""};
  if (object.contains("key_bytes"))
    record.key = BytesOf(object.at("key_bytes"));
  else
    record.key = table == "tb_pb" ? WithDigits(object.at("key")) : Terminated(object.at("key"));
  record.value = object.contains("value_bytes") ? BytesOf(object.at("value_bytes")) : Terminated(object.at("value"));
  return record;
}

std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    lines.emplace_back(text.substr(0, text.find('\n')));
    text.remove_prefix(std::min(lines.back().size() + 1, text.size()));
  }
  return lines;
}

void ExpectSameByOthers(std::string_view text, const std::vector<Stored> &records) {
  std::vector<Stored> expected;
  for (const std::string &line : LinesOf(text)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (std::optional<Stored> record = ReadByOthers(line); record.has_value()) expected.push_back(*record);
  }
  EXPECT_EQ(records, expected);
}

void ExpectGoodComplaint(std::string_view text, const std::string &complaint) {
  const std::string opening = "devconf: " + MemoryFile::Path() + ":";
  ASSERT_EQ(complaint.substr(0, opening.size()), opening);
  ASSERT_EQ(complaint.find('\n'), complaint.size() - 1) << complaint;
  const std::size_t bad = std::stoul(complaint.substr(opening.size()));
  const std::vector<std::string> lines = LinesOf(text);
  ASSERT_GE(bad, 1U);
  ASSERT_LE(bad, lines.size());
  if (complaint.find("twice") != std::string::npos) return;  // found at the end, in the order of the keys
  std::string before;
  for (std::size_t i = 0; i + 1 < bad; ++i) before += lines[i] + "\n";
  const Imported good = Import(before);
  EXPECT_TRUE(good.complaint.empty() || good.complaint.find("twice") != std::string::npos) << good.complaint;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const Imported imported = Import(text);
  if (!imported.complaint.empty()) {
    ExpectGoodComplaint(text, imported.complaint);
    return 0;
  }
  ExpectSameByOthers(text, imported.records);
  const Imported again = Import(imported.exported);
  EXPECT_EQ(again.complaint, "");
  EXPECT_EQ(again.records, imported.records);
  EXPECT_EQ(again.exported, imported.exported);
  return 0;
}
