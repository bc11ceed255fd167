# SPDX-License-Identifier: MIT
"""The emulated device from the command line, for script/device: shell | run COMMANDS | test [PART...]."""

import signal
import sys

import machine
import suite


def run(commands):
    """Boots, runs the commands, hands on what they print, switches off. Returns their status."""
    def to(stream):
        def sink(piece):
            stream.write(piece)
            stream.flush()
        return sink
    with machine.Machine() as device:
        status = device.run(commands, to(sys.stdout.buffer), to(sys.stderr.buffer))
        device.power_off()
    return status


def main(mode, *words):
    # A signal raises an exception, so that the machines are stopped before the end.
    for number in signal.SIGTERM, signal.SIGHUP:
        signal.signal(number, lambda number, frame: sys.exit(128 + number))
    try:
        if mode == "shell":
            machine.shell()
        return run(*words) if mode == "run" else suite.test(words)
    except machine.MachineOff as error:
        print(f"{error}; see {machine.OUT}/console-device.log", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 128 + signal.SIGINT


sys.exit(main(*sys.argv[1:]))
