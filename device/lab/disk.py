# SPDX-License-Identifier: MIT
"""A disk whose power can fail: it keeps what was written in a volatile cache until the machine flushes it.

Served to qemu as a network block device over a local socket. When the power fails, each block of the cache that was
not flushed has, at random, its old content or that of any write since the last flush: a real disk promises no more,
neither in which order it writes nor that it writes at all."""

import contextlib
import os
import socket
import struct
import tempfile
import threading

BLOCK = 4096  # bytes; written whole or not at all

# The protocol's numbers: https://github.com/NetworkBlockDevice/nbd/blob/master/doc/proto.md
GREETING = struct.pack(">8s8sH", b"NBDMAGIC", b"IHAVEOPT", 0b11)  # fixed newstyle, no padding
OPTION_REPLY = 0x3E889045565A9
OPT_EXPORT_NAME, OPT_GO = 1, 7
REP_ACK, REP_INFO, REP_UNSUPPORTED = 1, 3, 0x80000001
HAS_FLAGS, SEND_FLUSH = 1, 4
REPLY = 0x67446698
READ, WRITE, DISCONNECT, FLUSH = 0, 1, 2, 3
EINVAL = 22


class Blocks:
    """The content: what is safe lies in a file, what is not in the cache."""

    def __init__(self, path, random):
        self.file = os.open(path, os.O_RDWR)
        self.size = os.fstat(self.file).st_size
        self.random = random
        self.cache = {}  # block number -> contents since the last flush, the newest last

    def close(self):
        os.close(self.file)

    def _newest(self, number):
        if number in self.cache:
            return self.cache[number][-1]
        return os.pread(self.file, BLOCK, number * BLOCK)

    def read(self, offset, length):
        first, last = offset // BLOCK, (offset + length + BLOCK - 1) // BLOCK
        data = b"".join(self._newest(number) for number in range(first, last))
        return data[offset - first * BLOCK:][:length]

    def write(self, offset, data):
        while data:
            number, start = divmod(offset, BLOCK)
            piece = data[:BLOCK - start]
            before = self._newest(number)
            self.cache.setdefault(number, []).append(before[:start] + piece + before[start + len(piece):])
            offset, data = offset + len(piece), data[len(piece):]

    def flush(self):
        for number, contents in self.cache.items():
            os.pwrite(self.file, contents[-1], number * BLOCK)
        self.cache.clear()

    def lose_power(self):
        for number, contents in self.cache.items():
            survivor = self.random.randint(0, len(contents))
            if survivor > 0:
                os.pwrite(self.file, contents[survivor - 1], number * BLOCK)
        self.cache.clear()


class Server:
    """Serves the blocks to one machine, until that is off. Use it in a with statement around the machine."""

    def __init__(self, path, random):
        """path: the file that holds the content, as long as the disk."""
        self.blocks = Blocks(path, random)
        self.changes_left = None  # until the power fails; None = it does not
        self.has_power_failed = False
        self.on_power_failure = lambda: None
        self.folder = tempfile.TemporaryDirectory()
        self.path = os.path.join(self.folder.name, "disk")
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen(1)
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()
        self.blocks.lose_power()
        self.blocks.close()
        self.folder.cleanup()

    def fail_after(self, changes):
        """Lets the power fail when so many more requests to write or flush have come."""
        self.changes_left = changes

    def _serve(self):
        with contextlib.suppress(OSError):  # the listener was closed, or the machine went off
            connection, _ = self.listener.accept()
            with connection:
                line = Line(connection)
                agree(line, self.blocks.size)
                while self._answer(line):
                    pass

    def _answer(self, line):
        """Answers one request. False when there is no other to answer."""
        _, _, kind, handle, offset, length = line.receive(">IHHQQI")
        if kind == DISCONNECT:
            return False
        data = line.receive_bytes(length) if kind == WRITE else b""
        if kind != READ and self._is_power_failing():
            # The request has arrived, but it is never acknowledged.
            if kind == WRITE:
                self.blocks.write(offset, data)
            self.blocks.lose_power()
            self.has_power_failed = True
            self.on_power_failure()
            return False
        error, answer = self._carry_out(kind, offset, length, data)
        line.send(struct.pack(">IIQ", REPLY, error, handle) + answer)
        return True

    def _is_power_failing(self):
        if self.changes_left is None:
            return False
        self.changes_left -= 1
        return self.changes_left < 0

    def _carry_out(self, kind, offset, length, data):
        """The error number and the data of the answer."""
        if kind == READ:
            return 0, self.blocks.read(offset, length)
        if kind == WRITE:
            self.blocks.write(offset, data)
        elif kind == FLUSH:
            self.blocks.flush()
        else:
            return EINVAL, b""
        return 0, b""


class Line:
    """A connection that carries records of fixed form."""

    def __init__(self, connection):
        self.connection = connection
        self.file = connection.makefile("rb")

    def send(self, data):
        self.connection.sendall(data)

    def receive_bytes(self, length):
        data = self.file.read(length)
        if len(data) < length:
            raise ConnectionError("the machine went off")
        return data

    def receive(self, form):
        return struct.unpack(form, self.receive_bytes(struct.calcsize(form)))


def agree(line, size):
    """Agrees with the machine on what it gets: one disk of this size, which can be flushed."""
    line.send(GREETING)
    line.receive(">I")
    export = struct.pack(">QH", size, HAS_FLAGS | SEND_FLUSH)
    while True:
        _, option, length = line.receive(">QII")
        line.receive_bytes(length)
        if option == OPT_EXPORT_NAME:
            line.send(export)
            return
        if option == OPT_GO:
            line.send(reply(option, REP_INFO, struct.pack(">H", 0) + export) + reply(option, REP_ACK))
            return
        line.send(reply(option, REP_UNSUPPORTED))


def reply(option, kind, data=b""):
    return struct.pack(">QIII", OPTION_REPLY, option, kind, len(data)) + data
