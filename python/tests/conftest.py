# SPDX-License-Identifier: MIT
"""Shared pieces of the module's tests: programs run as child processes
(quor-simd on a free port, the examples, the C++ clients), a raw TCP peer
that speaks the protocol's frames byte by byte, and polling with generous
deadlines (no test asserts how fast anything is)."""

import contextlib
import os
import pathlib
import queue
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
import zlib

import pytest

import quor

SOURCE_DIR = pathlib.Path(os.environ.get("QUOR_SOURCE_DIR",
                                         pathlib.Path(__file__).resolve().parents[2]))
SIMD = os.environ.get("QUOR_SIMD")
STEER_DEMO = os.environ.get("QUOR_STEER_DEMO")
STEER_CHECK = os.environ.get("QUOR_STEER_CHECK")
# Long enough for a loaded machine; a correct program needs a fraction.
DEADLINE = 60.0


class Program:
    """A child process; threads collect its stdout lines and its stderr.
    Leaving the ``with`` block kills it if it still runs."""

    def __init__(self, args, cwd=None, env=None):
        self.args = [str(a) for a in args]
        self.process = subprocess.Popen(self.args, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, cwd=cwd, env=env)
        self.lines = queue.Queue()
        self.out = []
        self.err = []
        self._readers = [threading.Thread(target=self._read, args=(self.process.stdout, True)),
                         threading.Thread(target=self._read, args=(self.process.stderr, False))]
        for reader in self._readers:
            reader.daemon = True
            reader.start()

    def _read(self, stream, is_out):
        for line in stream:
            (self.out if is_out else self.err).append(line)
            if is_out:
                self.lines.put(line.rstrip("\n"))
        if is_out:
            self.lines.put(None)

    def wait_for_line(self, text, timeout=DEADLINE):
        """The first stdout line (from here on) that contains ``text``."""
        deadline = time.monotonic() + timeout
        while True:
            try:
                line = self.lines.get(timeout=max(deadline - time.monotonic(), 0.01))
            except queue.Empty:
                line = None
            if line is None:
                raise AssertionError(f"{self.args[0]} printed no line with {text!r}; "
                                     f"stdout: {''.join(self.out)!r}, stderr: "
                                     f"{''.join(self.err)!r}")
            if text in line:
                return line

    def wait_for_port(self, prefix):
        line = self.wait_for_line(prefix)
        return int(line.split(prefix, 1)[1].split()[0].rstrip(";,."))

    def wait(self, timeout=DEADLINE):
        """The exit status (the program must end within the timeout)."""
        status = self.process.wait(timeout=timeout)
        for reader in self._readers:
            reader.join(timeout)
        return status

    def signal(self, number=signal.SIGTERM):
        self.process.send_signal(number)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


class Simd:
    """quor-simd on a free port."""

    def __init__(self, *models):
        if not SIMD:
            pytest.skip("quor-simd is not built (QUOR_BUILD_APPS is OFF)")
        args = [SIMD, "--port", "0"]
        for model in models:
            args += ["--model", model]
        self.program = Program(args)
        self.port = self.program.wait_for_port("listening on port ")

    def connect(self, timeout=30.0):
        return quor.connect("127.0.0.1", self.port, timeout=timeout)

    def stop(self):
        if self.program.process.poll() is None:
            self.program.signal(signal.SIGTERM)
            assert self.program.wait() == 0, "".join(self.program.err)


@pytest.fixture
def simd():
    """quor-simd with its built-in SIR net."""
    server = Simd()
    with server.program:
        yield server
        server.stop()


@pytest.fixture
def start_simd():
    """Starts quor-simd with the PNML files given; stopped afterwards."""
    started = []

    def start(*models):
        server = Simd(*models)
        started.append(server)
        return server

    yield start
    for server in started:
        with server.program:
            server.stop()


@pytest.fixture
def client(simd):
    """A client attached to quor-simd's SIR model."""
    with simd.connect() as connected:
        connected.attach(0)
        yield connected


def free_port():
    """A port that nothing listens on (it was free a moment ago)."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, what, timeout=DEADLINE, interval=0.01):
    """Polls until condition() is true; fails the test at the deadline."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out waiting for {what}")
        time.sleep(interval)


# The protocol's frames, written out byte by byte for the raw peer: a value
# of up to 100 bytes travels raw, a larger one as its zlib block behind an
# 8-byte length; the receiver acknowledges each with b"a".
ACK = b"a"


class RawPeer:
    """One accepted TCP connection, driven by the test."""

    def __init__(self, connection):
        self.socket = connection
        self.socket.settimeout(DEADLINE)

    def read_exact(self, count):
        data = b""
        while len(data) < count:
            chunk = self.socket.recv(count - len(data))
            if not chunk:
                raise EOFError(f"the peer closed the connection after {len(data)} of "
                               f"{count} bytes")
            data += chunk
        return data

    def send_value(self, data):
        if len(data) > 100:
            block = zlib.compress(data)
            self.send_value(struct.pack("<Q", len(block)))
            self.socket.sendall(block)
        else:
            self.socket.sendall(data)
        ack = self.read_exact(1)
        assert ack == ACK, f"expected an acknowledgement, got {ack!r}"

    def receive_value(self, size):
        if size > 100:
            (length,) = struct.unpack("<Q", self.receive_value(8))
            data = zlib.decompress(self.read_exact(length))
        else:
            data = self.read_exact(size)
        self.socket.sendall(ACK)
        return data

    def send_u32(self, number):
        self.send_value(struct.pack("<I", number))

    def receive_u32(self):
        return struct.unpack("<I", self.receive_value(4))[0]

    def send_strings(self, texts):
        """A list of strings: total bytes, count, 16-bit lengths, bytes."""
        data = [t.encode("ascii") for t in texts]
        self.send_value(struct.pack("<I", sum(len(d) for d in data)))
        self.send_value(struct.pack("<Q", len(data)))
        if data:
            self.send_value(b"".join(struct.pack("<h", len(d)) for d in data))
        self.send_value(b"".join(data))

    def pending(self):
        """True when bytes from the peer are waiting to be read."""
        self.socket.setblocking(False)
        try:
            return len(self.socket.recv(1, socket.MSG_PEEK)) > 0
        except BlockingIOError:
            return False
        finally:
            self.socket.setblocking(True)
            self.socket.settimeout(DEADLINE)

    def close(self):
        self.socket.close()


class RawServer:
    """A TCP listener on a free port of 127.0.0.1 for raw peers."""

    def __init__(self):
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(4)
        self.listener.settimeout(DEADLINE)
        self.port = self.listener.getsockname()[1]

    def accept(self):
        connection, _ = self.listener.accept()
        return RawPeer(connection)

    def close(self):
        self.listener.close()


@pytest.fixture
def raw_server():
    server = RawServer()
    yield server
    server.close()


@contextlib.contextmanager
def background(function, *args):
    """Runs function(*args) on a thread; the block's end joins it and
    raises what it raised. The thread's result is in box["result"]."""
    box = {}

    def run():
        try:
            box["result"] = function(*args)
        except BaseException as error:  # handed to the test's thread
            box["error"] = error

    thread = threading.Thread(target=run, daemon=True)
    thread.start()
    try:
        yield box
    finally:
        thread.join(DEADLINE)
        assert not thread.is_alive(), "the background thread did not end"
    if "error" in box:
        raise box["error"]


def python_program(script, *args, **options):
    """A Python script as a child process, with this interpreter and quor."""
    return Program([sys.executable, script, *args], **options)
