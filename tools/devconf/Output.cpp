// SPDX-License-Identifier: MIT
// Standard output and standard error, held or not.

#include "tools/devconf/Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/devconf/Bytes.h"

namespace devconf {

namespace {

struct Held {
  Bytes bytes[2];
  bool isHolding = false;
};

Held g_held;

std::FILE *FileOf(Stream stream) { return stream == Stream::Out ? stdout : stderr; }

}  // namespace

void Put(Stream stream, std::string_view bytes) {
  if (g_held.isHolding) return g_held.bytes[static_cast<int>(stream)].Append(bytes);
  if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), FileOf(stream));
}

void Format(Stream stream, const char *format, ...) {
  char text[512];
  std::va_list values;
  va_start(values, format);
  const int size = std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  if (size > 0) Put(stream, {text, std::min<std::size_t>(static_cast<std::size_t>(size), sizeof text - 1)});
}

void HoldOutput() { g_held.isHolding = true; }

void ReleaseOutput() {
  g_held.isHolding = false;
  for (const Stream stream : {Stream::Out, Stream::Error}) Put(stream, g_held.bytes[static_cast<int>(stream)].View());
  DropOutput();
}

void DropOutput() {
  g_held.isHolding = false;
  for (Bytes &bytes : g_held.bytes) bytes.Assign({});
}

bool FinishOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  std::fprintf(stderr, "devconf: standard output: %s\n", std::strerror(errno));
  return false;
}

}  // namespace devconf
