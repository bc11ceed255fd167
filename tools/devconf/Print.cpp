// Prints records and complaints.

#include "tools/devconf/Print.h"

#include <cerrno>
#include <cstring>

namespace devconf {

namespace {

void Put(std::FILE *stream, std::string_view text) { std::fwrite(text.data(), 1, text.size(), stream); }

// A member whose name says which form its string has.
void PrintBytes(const char *name, std::string_view bytes, bool asText) {
  std::printf(",\"%s%s\":", name, asText ? "" : "_bytes");
  PrintJsonString(asText ? TextOf(bytes) : bytes, asText ? Form::kText : Form::kBytes);
}

void PrintJsonRecord(const Record &record) {
  std::printf("{\"table\":\"%s\"", record.table->name);
  const bool hasName = IsKeyOfName(*record.table, record.key) && IsText(TextOf(record.key));
  PrintBytes("key", record.key, hasName);
  PrintBytes("value", record.value, IsTerminatedText(record.value) && IsText(TextOf(record.value)));
  if (record.index != nullptr) {
    std::printf(",\"index\":\"%s\"", record.index->name);
    PrintBytes("index_key", record.indexKey, IsText(TextOf(record.indexKey)));
  }
  Put(stdout, "}\n");
}

}  // namespace

void PrintShown(std::FILE *stream, std::string_view bytes) {
  while (!bytes.empty()) Put(stream, tools::ShowNext(bytes).View());
}

void PrintJsonString(std::string_view bytes, Form form) {
  std::putchar('"');
  while (!bytes.empty()) Put(stdout, EscapeNext(bytes, form).View());
  std::putchar('"');
}

void PrintRecord(const Record &record, bool json) {
  if (json) {
    PrintJsonRecord(record);
    return;
  }
  if (record.index != nullptr) {
    PrintShown(stdout, TextOf(record.indexKey));
    std::putchar('\t');
  }
  PrintShown(stdout, TextOf(record.key));
  std::putchar('\t');
  PrintShown(stdout, IsTerminatedText(record.value) ? TextOf(record.value) : record.value);
  std::putchar('\n');
}

void PrintTableLine(const Table &table) { std::printf("{\"table\":\"%s\"}\n", table.name); }

void Complain(const char *table, std::string_view key, const char *what) {
  std::fprintf(stderr, "devconf: %s \"", table);
  PrintShown(stderr, TextOf(key));
  std::fprintf(stderr, "\": %s\n", what);
}

void Complain(const char *what, std::string_view word) {
  std::fprintf(stderr, "devconf: %s", what);
  if (!word.empty()) {
    std::fputs(" \"", stderr);
    PrintShown(stderr, word);
    std::fputc('"', stderr);
  }
  std::fputc('\n', stderr);
}

bool FinishOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  std::fprintf(stderr, "devconf: standard output: %s\n", std::strerror(errno));
  return false;
}

}  // namespace devconf
