# SPDX-License-Identifier: MIT
"""The figures of script/fleet as the pages show them."""

HOPS = {"writer": "programs that write", "devlog": "`devlog`", "relay": "rsyslog on the devices",
        "central": "central rsyslog, with the files", "database": "PostgreSQL"}
SECTION = """## A fleet

Written by `script/fleet --write`: what each program needs to pass on the records of simulated devices, all on one machine,
while these programs are restarted and killed. `docs/fleet.md` describes the trial.
"""


def table(figures):
    """The figures as docs/fleet.md shows them."""
    lines = ["| | processes | records a second, mean | highest second | processor time for a record | memory of one |",
             "|---|---:|---:|---:|---:|---:|"]
    for hop, name in HOPS.items():
        peak = figures[f"{hop}-peak"]
        lines.append(f"| {name} | {figures[f'{hop}-processes']} | {figures[f'{hop}-rate']:,} | "
                     f"{format(peak, ',') if peak else ''} | {figures[f'{hop}-nanoseconds'] / 1000:.1f} µs | "
                     f"{figures[f'{hop}-kilobytes'] / 1024:.1f} MiB |")
    return "\n".join(["", *lines, "", f"{figures['records']:,} records of {figures['devices']} devices; missing at the end: "
                      f"{figures['missing']:,}, out of order: {figures['out-of-order']:,}. {figures['repeated-on-arrival']:,} "
                      f"arrived twice; in the files that people read, repeated: {figures['repeated-in-files']:,}.", "", ""])
