// SPDX-License-Identifier: MIT
// Shows the state of the rings.

#include "tools/devlog/Stats.h"

#include "tools/devlog/Channel.h"
#include "tools/devlog/Line.h"
#include "tools/devlog/Output.h"
#include "tools/devlog/Print.h"

namespace devlog {

namespace {

constexpr char kHeading[] = "ring   capacity  used  sequence  lost  damaged  attached";

/// "12", or "12+" for twelve or more.
void AddLost(Line &line, const Assembler &assembler) {
  constexpr unsigned kPlaces = 6;
  line.AddNumber(assembler.Lost(), assembler.IsLostExact() ? kPlaces : kPlaces - 1, ' ');
  if (!assembler.IsLostExact()) line.Add('+');
}

void AddFigures(Line &line, const Track &track) {
  const Figures figures = track.ring.Measure();
  const std::string_view name = NameOf(track.ring.Which());
  line.Add(name);
  for (std::size_t place = name.size(); place < 5; ++place) line.Add(' ');
  line.AddNumber(figures.capacity, 10, ' ');
  line.AddNumber(figures.used, 6, ' ');
  line.AddNumber(figures.sequence, 10, ' ');
  AddLost(line, track.assembler);
  line.AddNumber(track.assembler.Damaged(), 9, ' ');
  line.AddNumber(figures.attached, 10, ' ');
}

void AddMember(Line &line, std::string_view name, std::uint32_t value) {
  line.Add(",\"");
  line.Add(name);
  line.Add("\":");
  line.AddNumber(value);
}

void AddFiguresAsJson(Line &line, const Track &track) {
  const Figures figures = track.ring.Measure();
  line.Add("{\"ring\":\"");
  line.Add(NameOf(track.ring.Which()));
  line.Add('"');
  AddMember(line, "capacity", figures.capacity);
  AddMember(line, "used", figures.used);
  AddMember(line, "sequence", figures.sequence);
  AddMember(line, "lost", track.assembler.Lost());
  line.Add(track.assembler.IsLostExact() ? ",\"lost_is_exact\":true" : ",\"lost_is_exact\":false");
  AddMember(line, "damaged", track.assembler.Damaged());
  AddMember(line, "attached", figures.attached);
  line.Add('}');
}

}  // namespace

int ShowStats(const Options &options) {
  static Line line;
  Channel channel(options);
  const int status = channel.Open();
  if (status != kShown) return status;
  Output output(Output::Target::StandardOutput, false);
  if (!options.json) output.Write(kHeading, 0);
  for (Track *track : {&channel.log(), &channel.event()}) {
    if (!track->ring.IsAttached()) continue;
    // Lost are all records written since the ring was created that it does not hold any more.
    track->BeginAnew();
    track->Look();
    track->assembler.CountUpTo(track->ring.Measure().sequence);
    line.Clear();
    if (options.json) {
      AddFiguresAsJson(line, *track);
    } else {
      AddFigures(line, *track);
    }
    output.Write(line.Text(), 0);
  }
  return output.Flush() ? channel.Status() : kOutput;
}

}  // namespace devlog
