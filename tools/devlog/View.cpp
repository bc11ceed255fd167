// SPDX-License-Identifier: MIT
// Shows the records of the rings: once, or with --follow.

#include "tools/devlog/View.h"

#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tools/common/Signals.h"
#include "tools/devlog/Channel.h"
#include "tools/devlog/Filter.h"
#include "tools/devlog/Line.h"
#include "tools/devlog/Merge.h"
#include "tools/devlog/Output.h"
#include "tools/devlog/Pace.h"
#include "tools/devlog/Print.h"

namespace devlog {

namespace {

constexpr std::size_t kTypeDigits = 2;
constexpr int kHousekeepingMs = 100;
constexpr std::size_t kMaxMessages = Assembler::MaxMessages(kLogCells) + Assembler::MaxMessages(kEventCells);

const Message *g_order[kMaxMessages];
Line g_line;
char g_text[kMaxText + 1];

DayTime Now() {
  const time_t now = ::time(nullptr);
  tm local{};
  ::localtime_r(&now, &local);
  return static_cast<DayTime>(((local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec) * 1000);
}

bool HasColours() {
  const char *noColour = std::getenv("NO_COLOR");
  const char *terminal = std::getenv("TERM");
  const bool isWelcome = noColour == nullptr || *noColour == '\0';
  return isWelcome && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

Look LookFor(const Options &options, const Output &output) {
  if (options.json) return Look::Json;
  if (options.colours == Colours::Always) return options.syslog ? Look::Plain : Look::Coloured;
  const bool isColoured = options.colours == Colours::Auto && output.IsTerminal() && HasColours();
  return isColoured ? Look::Coloured : Look::Plain;
}

int PriorityOf(const Message &message) {
  if (message.status != Status::Ok) return LOG_WARNING;
  return message.ring == Ring::Event ? LOG_NOTICE : LOG_INFO;
}

class Viewer {
 public:
  explicit Viewer(const Options &options)
      : options_(options),
        channel_(options),
        filter_(options.wanted),
        output_(options.syslog ? Output::Target::SystemLog : Output::Target::StandardOutput, options.follow),
        look_(LookFor(options, output_)),
        typePlaces_(std::max<std::size_t>(options.names.LongestTypeName(), kTypeDigits)) {}

  int Run();

 private:
  int ShowNews(bool isLimited);
  int Follow();
  /// With --follow, a locked ring is no reason to end: it is tried again.
  static bool IsGoingOn(int status) { return status == kShown || status == kUnusable; }
  std::size_t Deliver(std::size_t first, std::size_t end);
  std::size_t KeepWanted(std::size_t count) const;
  std::size_t FirstOfLast(std::size_t count) const;
  Known KnownOf(const Message &message) const;
  bool Write(const Message &message);

  const Options &options_;
  Channel channel_;
  Filter filter_;
  Output output_;
  Look look_;
  std::size_t typePlaces_;
  Pace pace_;
};

int Viewer::Run() {
  if (!filter_.IsUsable()) {
    Say("invalid regular expression '%s': %s", filter_.Mistaken(), filter_.Complaint());
    return kUsage;
  }
  int status = channel_.Open();
  if (status != kShown) return status;
  if (!channel_.RestoreCursor()) return kOutput;
  status = ShowNews(options_.isLimited);
  if (options_.follow && IsGoingOn(status)) status = Follow();
  return status != kShown ? status : channel_.Status();
}

int Viewer::Follow() {
  for (int sinceHousekeeping = 0;;) {
    const int ms = pace_.NextMs();
    if (!output_.Wait(ms)) return kOutput;
    channel_.OpenMissing();
    sinceHousekeeping += ms;
    const bool isTime = sinceHousekeeping >= kHousekeepingMs;
    if (isTime) channel_.FindRemoved();  // checked first, so that its last records are still shown
    const int status = ShowNews(false);
    if (!IsGoingOn(status)) return status;
    if (!isTime) continue;
    channel_.DropRemoved();
    sinceHousekeeping = 0;
  }
}

int Viewer::ShowNews(bool isLimited) {
  if (!channel_.log().HasNews() && !channel_.event().HasNews()) return kShown;  // most calls end here
  const bool mustFinish = options_.consume || options_.cursor != nullptr;
  const tools::HeldSignals held(mustFinish ? kEndingSignals : std::span<const int>{});
  const DayTime now = Now();
  bool isDone = true;
  for (Track *track : {&channel_.log(), &channel_.event()}) {
    isDone = track->Look() && isDone;
    Place(track->messages, now);
  }
  pace_.Saw(channel_.log().Records(), kLogCells);
  pace_.Saw(channel_.event().Records(), kEventCells);
  std::size_t count = Merge(channel_.log().messages, channel_.event().messages, g_order);
  count = KeepWanted(count);
  const std::size_t first = isLimited ? FirstOfLast(count) : 0;
  const std::size_t end = Deliver(first, count);
  for (std::size_t index = first; index < end; ++index) channel_.Of(g_order[index]->ring).Delivered(*g_order[index]);
  const bool isWritten = end == count;
  // Messages that were not delivered stay in the ring, and after the cursor.
  if (!output_.Flush()) return kOutput;
  for (Track *track : {&channel_.log(), &channel_.event()}) isDone = track->Pass(isWritten) && isDone;
  if (!channel_.SaveCursor() || !isWritten) return kOutput;
  return isDone ? kShown : kUnusable;
}

/// Returns the index after the last message delivered. After the system log closed its socket, all are sent again,
/// because it is not known which it has read.
std::size_t Viewer::Deliver(std::size_t first, std::size_t end) {
  std::size_t index = first;
  output_.Begin();
  while (index < end && Write(*g_order[index])) {
    if (++index == end) output_.AwaitRead();
    if (!output_.HasLost()) continue;
    output_.Begin();
    index = first;
  }
  return index;
}

std::size_t Viewer::KeepWanted(std::size_t count) const {
  std::size_t kept = 0;
  for (std::size_t index = 0; index < count; ++index) {
    const Message &message = *g_order[index];
    const Known known = KnownOf(message);
    if (filter_.Passes(message, known.text, known.process)) g_order[kept++] = &message;
  }
  return kept;
}

/// Notes are not counted: the last N are N messages.
std::size_t Viewer::FirstOfLast(std::size_t count) const {
  std::size_t first = count;
  for (std::uint32_t left = options_.lines; left != 0 && first != 0; --left) {
    do {
      --first;
    } while (first != 0 && g_order[first]->status == Status::Lost);
  }
  return first;
}

/// Only the first record of a message has the name.
Known Viewer::KnownOf(const Message &message) const {
  const Names &names = options_.names;
  Known known{.text = TextOf(message, g_text), .typeName = names.TypeName(message.type), .typePlaces = typePlaces_};
  if (message.status == Status::Ok) known.process = names.ProcessOf(known.text);
  return known;
}

bool Viewer::Write(const Message &message) {
  g_line.Clear();
  AddMessage(g_line, message, KnownOf(message), look_);
  return output_.Write(g_line.Text(), PriorityOf(message));
}

}  // namespace

int Show(const Options &options) { return Viewer(options).Run(); }

}  // namespace devlog
