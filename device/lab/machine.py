# SPDX-License-Identifier: MIT
"""One emulated device: starts it, gives it commands over a serial line, switches it off, pulls its plug."""

import contextlib
import os
import selectors
import shlex
import socket
import subprocess
import sys
import typing

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.normpath(os.path.join(HERE, "../../build/device"))

# An interrupt of an emulated serial line is sometimes lost. Then no byte passes until the next one. Seen twice in some
# hundred starts on a busy host. An empty line of input causes one and has no other effect.
NUDGE = 15  # seconds without any output

# A long command line is sent to the serial line in pieces, so that no buffer overflows.
PIECE = 512  # characters


class MachineOff(Exception):
    """The machine is off, or gives no sign of life."""


class Disk(typing.NamedTuple):
    """A disk for the machine."""
    file: str     # qemu's words for what it opens
    folder: str   # where the device mounts it
    options: str  # and how


def command_line(mode, disks, further):
    """The words that start qemu. It dies with us, whatever ends us."""
    mounts = ",".join(f"{disk.folder}:{disk.options}" for disk in disks)
    words = ["setpriv", "--pdeathsig", "KILL", "qemu-system-mipsel", "-M", "malta", "-m", "256", "-nic", "none",
             "-vga", "none", "-no-reboot", "-kernel", f"{OUT}/vmlinuz", "-initrd", f"{OUT}/initramfs.cpio.gz",
             "-append", f"console=ttyS0 quiet panic=-1 phone={mode}" + (f" disks={mounts}" if disks else "")]
    for number, disk in enumerate(disks):
        words += ["-drive", f"if=none,id=disk{number},format=raw,cache=writeback,{disk.file}",
                  "-device", f"virtio-blk-pci,drive=disk{number}"]
    return words + further


def shell():
    """Turns this process into a machine with a shell on the terminal."""
    words = command_line("shell", [], ["-nographic"])
    os.execvp(words[0], words)


class Machine:
    """A machine that is on. Its second serial line takes commands and carries their output, its third one the errors.

    Use it in a with statement: at the end the machine is off."""

    def __init__(self, disks=(), name="device", timeout=600, further=()):
        """Switches it on. The first command waits until the machine takes commands.

        name: its console goes to build/device/console-NAME.log
        timeout: seconds without any sign of life after which it counts as dead. Nothing waits for it on the way.
        further: words for qemu"""
        self.timeout = timeout
        self.commands, commands_there = socket.socketpair()
        self.errors, errors_there = socket.socketpair()
        lines = []
        for use, line in ("commands", commands_there), ("errors", errors_there):
            lines += ["-chardev", f"socket,id={use},fd={line.fileno()}", "-serial", f"chardev:{use}"]
        words = command_line("serve", list(disks),
                             ["-display", "none", "-monitor", "none", "-serial", f"file:{OUT}/console-{name}.log", *further] + lines)
        self.process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=sys.stderr,
                                        pass_fds=[commands_there.fileno(), errors_there.fileno()])
        commands_there.close()
        errors_there.close()
        self.is_ready = False

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut()

    def run(self, commands, output=None, errors=None):
        """Runs shell commands, in a shell of their own and without input, and returns their exit status.

        output, errors: called with each piece of bytes as it comes."""
        mark = os.urandom(8).hex()
        self._hand_over(commands)
        self._send(f'sh -c "$c" </dev/null; s=$?; echo "{mark}$s" >&2; echo "{mark}$s"')
        waiting = {self.commands: Answer(mark, output), self.errors: Answer(mark, errors)}
        while waiting:
            for line in self._wait_for(waiting):
                status = waiting[line].take(self._receive(line))
                if status is not None:
                    del waiting[line]
        return status

    def ask(self, commands):
        """Runs commands that must succeed, and returns their output as text."""
        output, errors = bytearray(), bytearray()
        status = self.run(commands, output.extend, errors.extend)
        if status != 0:
            raise RuntimeError(f"on the device: {commands}\nstatus {status}\n{(output + errors).decode()}")
        return output.decode()

    def follow(self, commands):
        """Runs commands and yields each whole line of their output, until the machine goes off."""
        self._hand_over(commands)
        self._send('sh -c "$c" </dev/null')
        rest = b""
        with contextlib.suppress(MachineOff):
            while True:
                *lines, rest = (rest + self._receive(self.commands)).split(b"\n")
                yield from (line.decode() for line in lines)

    def power_off(self):
        """Switches the machine off in good order."""
        self._send("sync; poweroff -f")
        self.process.wait(self.timeout)

    def cut(self):
        """Pulls the plug."""
        self.process.kill()
        self.process.wait()

    def _hand_over(self, commands):
        """Puts the commands into the shell's variable c, piece by piece, as soon as the machine listens."""
        if not self.is_ready:
            self._expect(b"ready\n")
            self.is_ready = True
        self._send("c=")
        for start in range(0, len(commands), PIECE):
            self._send(f'c="$c"{shlex.quote(commands[start:start + PIECE])}; echo')
            self._expect(b"\n")

    def _send(self, line):
        try:
            self.commands.sendall(line.encode() + b"\n")
        except OSError as error:
            raise MachineOff("the machine went off") from error

    def _expect(self, text):
        got = b""
        while len(got) < len(text):
            got += self._receive(self.commands)
        if got != text:
            raise RuntimeError(f"the machine said {got!r} instead of {text!r}")

    def _wait_for(self, lines):
        with selectors.DefaultSelector() as selector:
            for line in lines:
                selector.register(line, selectors.EVENT_READ)
            for _ in range(0, self.timeout, NUDGE):
                ready = selector.select(NUDGE)
                if ready:
                    return [key.fileobj for key, _ in ready]
                self._nudge()
        raise MachineOff(f"no sign of life for {self.timeout} s")

    def _nudge(self):
        if self.is_ready:
            for line in self.commands, self.errors:
                with contextlib.suppress(OSError):  # a machine that is off is noticed when something is received
                    line.send(b"\n")

    def _receive(self, line):
        self._wait_for([line])
        try:
            piece = line.recv(65536)
        except ConnectionError:
            piece = b""
        if not piece:
            raise MachineOff("the machine went off")
        return piece


class Answer:
    """What one line carries for one command: text, then a mark with the status after it."""

    def __init__(self, mark, sink):
        self.mark = mark.encode()
        self.sink = sink or (lambda piece: None)
        self.held = b""

    def take(self, piece):
        """Hands the text on. Returns the status when the mark has come, else None."""
        self.held += piece
        text, found, status = self.held.partition(self.mark)
        if found and status.endswith(b"\n"):
            self.sink(text)
            return int(status)
        if not found:  # the mark may have begun in the last bytes
            self.sink(text[:-len(self.mark)])
            self.held = text[-len(self.mark):]
        return None
