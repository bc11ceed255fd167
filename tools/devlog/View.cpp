// Shows the rings: once, or on and on.

#include "tools/devlog/View.h"

#include <syslog.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tools/common/Signals.h"
#include "tools/devlog/Channel.h"
#include "tools/devlog/Filter.h"
#include "tools/devlog/Line.h"
#include "tools/devlog/Merge.h"
#include "tools/devlog/Output.h"
#include "tools/devlog/Print.h"

namespace devlog {

namespace {

constexpr int kPollMs = 150;
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
  return output.IsTerminal() && HasColours() ? Look::Coloured : Look::Plain;
}

int PriorityOf(const Message &message) {
  if (message.status != Status::Ok) return LOG_WARNING;
  return message.ring == Ring::Event ? LOG_NOTICE : LOG_INFO;
}

// What was taken out of a ring is shown before one of these ends us.
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

class Viewer {
 public:
  explicit Viewer(const Options &options)
      : options_(options),
        channel_(options),
        filter_(options.wanted),
        output_(options.syslog),
        look_(LookFor(options, output_)) {}

  int Run();

 private:
  int ShowNews(bool isLimited);
  int Follow();
  /// A ring that is locked just now will be unlocked; there is time when we follow.
  static bool IsGoingOn(int status) { return status == kShown || status == kUnusable; }
  bool IsAnyRemoved();
  void SayRemoved();
  std::size_t KeepWanted(std::size_t count) const;
  std::size_t FirstOfLast(std::size_t count) const;
  void Write(const Message &message);

  const Options &options_;
  Channel channel_;
  Filter filter_;
  Output output_;
  Look look_;
};

int Viewer::Run() {
  if (!filter_.IsUsable()) {
    Say("\"%s\" is no regular expression: %s", options_.wanted.pattern, filter_.Complaint());
    return kUsage;
  }
  int status = channel_.Open();
  if (status != kShown) return status;
  status = ShowNews(options_.isLimited);
  if (options_.follow && IsGoingOn(status)) status = Follow();
  return status != kShown ? status : channel_.Status();
}

int Viewer::Follow() {
  for (;;) {
    if (!output_.Wait(kPollMs)) return kOutput;
    channel_.OpenMissing();
    const bool isRemoved = IsAnyRemoved();  // asked first: what came before it is still shown
    const int status = ShowNews(false);
    if (!IsGoingOn(status)) return status;
    if (!isRemoved) continue;
    SayRemoved();
    return kRingRemoved;
  }
}

bool Viewer::IsAnyRemoved() {
  const LogRing &log = channel_.log().ring;
  const LogRing &event = channel_.event().ring;
  return (log.IsAttached() && log.IsRemoved()) || (event.IsAttached() && event.IsRemoved());
}

void Viewer::SayRemoved() {
  for (const Track *track : {&channel_.log(), &channel_.event()}) {
    if (!track->ring.IsAttached() || !track->ring.IsRemoved()) continue;
    Say("the %s ring was removed", NameOf(track->ring.Which()).data());
  }
}

int Viewer::ShowNews(bool isLimited) {
  const tools::HeldSignals held(options_.consume ? kEndingSignals : std::span<const int>{});
  const DayTime now = Now();
  bool isDone = true;
  for (Track *track : {&channel_.log(), &channel_.event()}) {
    isDone = track->Look() && isDone;
    Place(track->messages, now);
  }
  std::size_t count = Merge(channel_.log().messages, channel_.event().messages, g_order);
  count = KeepWanted(count);
  for (std::size_t index = isLimited ? FirstOfLast(count) : 0; index < count; ++index) Write(*g_order[index]);
  if (!output_.Flush()) return kOutput;
  return isDone ? kShown : kUnusable;
}

std::size_t Viewer::KeepWanted(std::size_t count) const {
  std::size_t kept = 0;
  for (std::size_t index = 0; index < count; ++index) {
    const Message &message = *g_order[index];
    if (filter_.Passes(message, TextOf(message, g_text))) g_order[kept++] = &message;
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

void Viewer::Write(const Message &message) {
  g_line.Clear();
  AddMessage(g_line, message, TextOf(message, g_text), look_);
  output_.Write(g_line.Text(), PriorityOf(message));
}

}  // namespace

int Show(const Options &options) { return Viewer(options).Run(); }

}  // namespace devlog
