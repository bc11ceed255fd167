# SPDX-License-Identifier: MIT
"""Results of the benchmark programs, as rows of participants.

Both devsupport_bench and process.py write them in the form of the benchmark library (--benchmark_out=FILE): runs named
"<row>[@<point>]/<role>[:<who>]", and a context that holds, for each row, its aim and title.
"""
import json
import re
import statistics

NAME = re.compile(r"(?P<row>[^/@]+)(@(?P<point>[^/]+))?/(?P<role>ours|floor|peer)(:(?P<who>.*?))?"
                  r"(/manual_time|/repeats:\d+|/iterations:\d+)*$")

TIME = "ns"
COUNTS = ("instructions", "calls", "KiB")  # a run that has one of these keys is measured by it


class Participant:
    """One benchmark: the values of its repetitions, in the row's unit."""

    def __init__(self, role, who, place):
        self.role = role
        self.who = who or ""
        self.place = place  # in the order of registration
        self.values = []

    def label(self):
        return f"{self.role} {self.who}".rstrip()

    def median(self):
        return statistics.median(self.values)

    def quartiles(self):
        if len(self.values) < 2:
            return self.median(), self.median()
        lower, _, upper = statistics.quantiles(self.values, n=4)
        return lower, upper

    def spread(self):
        """Half of what the middle half of the repetitions spans, as a part of the median."""
        lower, upper = self.quartiles()
        return (upper - lower) / 2 / self.median() if self.median() else 0.0


class Verdict:
    """What a row was to reach, and whether it did."""

    def __init__(self, row, ours, rival, rival_label, what):
        self.ours = ours
        self.rival = rival
        self.rival_label = rival_label
        self.ratio = ours.median() / rival.median()
        self.reached = round(self.ratio, 2) <= row.aim  # the ratio as it is shown decides
        self.text = f"{self.ratio:.2f} times {what}; aim at most {row.aim:.2f}: {'reached' if self.reached else 'MISSED'}"


class Row:
    """One job: its participants at each point of the series; an ordinary row has the one point None."""

    def __init__(self, name, context):
        self.name = name
        self.against, ratio, self.title = context[f"row:{name}"].split(" ", 2)
        self.aim = float(ratio)
        self.rival = context.get(f"rival:{name}")  # the one participant that the aim names, where it names one
        self.listing = context.get(f"listing:{name}")  # lines to show as they are
        self.note = context.get(f"note:{name}")
        self.unit = TIME
        self.points = {}
        self.failures = {}  # by participant, the last one's words

    def is_series(self):
        return bool(self.points) and None not in self.points

    def measured(self, point=None):
        return sorted(self.points.get(point, {}).values(), key=lambda p: p.place)

    def labels(self):
        """The participants of a series, in the order of registration."""
        return list(dict.fromkeys(p.label() for point in self.points for p in self.measured(point)))

    def at(self, point, label):
        return self.points.get(point, {}).get(label)

    def verdict(self):
        """None without an aim, and without a peer to be measured by."""
        if self.is_series():
            return self.verdict_of_series()
        ours = next((p for p in self.measured() if p.role == "ours"), None)
        rivals = [p for p in self.measured() if p.role == self.against and self.rival in (None, p.who)]
        if not ours or not rivals:
            return None
        rival = min(rivals, key=Participant.median)
        what = f"the best peer ({rival.who})" if self.against == "peer" else "the floor"
        return Verdict(self, ours, rival, rival.label(), rival.label() if self.rival else what)

    def verdict_of_series(self):
        """A series can be measured by its own first point: its most expensive other point is."""
        ours = [self.at(point, "ours") for point in self.points]
        if self.against != "first" or None in ours or len(ours) < 2:
            return None
        worst = max(ours[1:], key=Participant.median)
        point = next(point for point in self.points if self.at(point, "ours") is worst)
        first = f"ours at {next(iter(self.points))}"
        return Verdict(self, worst, ours[0], first, f"{first}, where it is most, at {point}")

    def add(self, run, name):
        point = int(name["point"]) if (name["point"] or "").isdigit() else name["point"]
        participant = Participant(name["role"], name["who"], run["family_index"])
        if run.get("error_occurred"):
            self.failures[participant.label()] = run["error_message"]
            return
        participant = self.points.setdefault(point, {}).setdefault(participant.label(), participant)
        self.unit = next((unit for unit in COUNTS if unit in run), TIME)
        elapsed = "/manual_time" in run["name"]
        participant.values.append(run["real_time" if elapsed else "cpu_time"] if self.unit == TIME else run[self.unit])


def read(paths):
    """All rows in the order of the files, and the contexts of the files as one: the first file's word goes first."""
    rows, context = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            result = json.load(file)
        context |= {key: value for key, value in result["context"].items() if key not in context}
        for run in result["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            name = NAME.match(run["name"])
            row = rows.setdefault(name["row"], Row(name["row"], result["context"]))
            row.add(run, name)
    for row in rows.values():  # numbers in their order, names as they came
        if all(isinstance(point, int) for point in row.points):
            row.points = dict(sorted(row.points.items()))
    return list(rows.values()), context
