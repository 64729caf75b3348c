"""What the tests of the command-line client share: the program, and a server to talk to."""

import fcntl
import hashlib
import http.server
import os
import queue
import re
import select
import shutil
import signal
import socket
import stat
import struct
import subprocess
import tempfile
import termios
import threading
import traceback
import unittest

# Runs the program where it was built for another machine.
EMULATED = bool(os.environ.get("VORTAN_EMULATOR"))
EMULATOR = os.environ["VORTAN_EMULATOR"].split("|") if EMULATED else []
PROGRAM = [*EMULATOR, os.environ["VORTAN_TRANSFER"]]
# A sanitizer's own memory and limits hide the program's.
SANITIZED = bool(os.environ.get("VORTAN_SANITIZE"))

# How long a test waits for what must happen. An emulated program gets more time.
TIMEOUT = 120 if EMULATED else 30

# A disk that is busy with a build lets a program that syncs its file wait for many seconds.
MEMORY = "/dev/shm"

SUCCEEDED, TRANSFER_FAILED, WRONG_ARGUMENTS, CANNOT_WRITE, NETWORK_FAILED, TLS_FAILED = range(6)
NOT_AUTHORIZED, PROTOCOL_VIOLATED, STATUS_IS_ERROR, TOOK_TOO_LONG, WRONG_CONTENT = range(6, 11)
INTERRUPTED = 130


def gave_up(awaited):
    return "gave up waiting after %d s for %s" % (TIMEOUT, awaited)


def wait_until_readable(descriptor, awaited):
    readable, _, _ = select.select([descriptor], [], [], TIMEOUT)
    assert readable, gave_up(awaited)


def make_bytes(length):
    """Bytes that depend on their index."""
    block = b"".join(hashlib.sha256(str(index).encode()).digest() for index in range(509))
    return (block * (length // len(block) + 1))[:length]


BODY = make_bytes(1234567)


def environment(**changes):
    """The environment without what would change the program's behaviour."""
    dropped = (
        "VORTAN_DLOG",
        "VORTAN_DLOG_LEVEL",
        "http_proxy",
        "https_proxy",
        "all_proxy",
        "HTTP_PROXY",
        "HTTPS_PROXY",
        "ALL_PROXY",
        "NO_COLOR",
    )
    kept = {name: value for name, value in os.environ.items() if name not in dropped}
    return {**kept, "TERM": "dumb", **changes}


def options_of_help(text):
    """Each option's names, the name of its value or nothing, and what it is said to do."""
    form = r"^(?:  |      )(-\S(?:\S| (?! ))*)  +(\S.*(?:\n {10,}\S.*)*)"
    for shown, told in re.findall(form, text, re.MULTILINE):
        *names, last = shown.split(", ")
        name, _, value = last.partition(" ")
        yield [*names, name], value, " ".join(told.split())


class Request:
    """A request that the server has received. A test answers it."""

    def __init__(self, handler):
        self._handler = handler
        self.method = handler.command
        self.path = handler.path
        self.headers = handler.headers
        self.body = self._read_body()

    def _read_body(self):
        if self.headers.get("Transfer-Encoding", "").lower() == "chunked":
            return b"".join(iter(self._read_chunk, b""))
        return self._handler.rfile.read(int(self.headers.get("Content-Length", 0)))

    def _read_chunk(self):
        size = int(self._handler.rfile.readline().split(b";")[0], 16)
        chunk = self._handler.rfile.read(size)
        self._handler.rfile.readline()
        return chunk

    def send(self, data):
        self._handler.wfile.write(data)

    def send_header(self, status=200, headers=()):
        lines = ["HTTP/1.1 %d Reason" % status, "Connection: close"]
        lines += ["%s: %s" % pair for pair in headers]
        self.send(("\r\n".join(lines) + "\r\n\r\n").encode())

    def reply(self, body=b"", status=200, headers=()):
        self.send_header(status, [("Content-Length", len(body)), *headers])
        if self.method != "HEAD":
            self.send(body)

    def wait_until_closed(self):
        """Waits for the client to hang up."""
        self._handler.connection.settimeout(TIMEOUT)
        self._handler.rfile.read()

    def reset(self):
        """Makes the connection end with a reset."""
        self._handler.connection.setsockopt(
            socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0)
        )
        self._handler.connection.close()


class Server:
    """Runs on a free loopback port. answers maps paths to functions that get the Request; every
    other path is not found."""

    def __init__(self):
        self.answers = {}
        self.requests = queue.Queue()
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def handle_request(self):
                self.close_connection = True
                request = Request(self)
                outer.requests.put(request)
                answer = outer.answers.get(self.path.split("?")[0])
                try:
                    if answer:
                        answer(request)
                    else:
                        request.reply(b"not here", status=404)
                except (ConnectionError, ValueError):
                    pass  # the client has gone, or the answer has closed the connection

            do_GET = do_HEAD = do_POST = do_PUT = handle_request

            def finish(self):
                try:
                    super().finish()
                except (ConnectionError, ValueError):
                    pass

            def log_message(self, *_):
                pass

        class Quiet(http.server.ThreadingHTTPServer):
            daemon_threads = True
            request_queue_size = 128

            def shutdown_request(self, request):
                if request.fileno() >= 0:
                    super().shutdown_request(request)

        self._server = Quiet(("127.0.0.1", 0), Handler)
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(
            target=self._server.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True
        )
        self._thread.start()

    def url(self, path):
        return "http://127.0.0.1:%d%s" % (self.port, path)

    def close(self):
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()


class Gate:
    """An answer that sends a part of a body, and the rest only when it is opened."""

    def __init__(self, body, first, headers=None):
        self._body = body
        self._first = first
        self._headers = [("Content-Length", len(body))] if headers is None else headers
        self._opened = threading.Event()
        self.reached = threading.Semaphore(0)

    def __call__(self, request):
        request.send_header(200, self._headers)
        request.send(self._body[: self._first])
        self.reached.release()
        if self.wait_for_opening():
            request.send(self._body[self._first :])

    def wait_for_opening(self):
        return self._opened.wait(TIMEOUT)

    def wait_until_reached(self):
        give_next_wait_its_whole_time()
        assert self.reached.acquire(timeout=TIMEOUT), gave_up("a request to reach the gate")

    def open(self):
        self._opened.set()


class Result:
    def __init__(self, process, output, errors):
        self.status = process.returncode
        self.output = output
        self.errors = errors.decode()


def give_next_wait_its_whole_time():
    """The alarm is for the wait that hangs, not for the sum of those that a slow machine makes long."""
    signal.alarm(TIMEOUT)


class Running:
    """The program while it runs."""

    def __init__(self, arguments, **options):
        defaults = {
            "stdin": subprocess.DEVNULL,
            "stdout": subprocess.PIPE,
            "stderr": subprocess.PIPE,
            "env": environment(),
        }
        self.process = subprocess.Popen([*PROGRAM, *arguments], **{**defaults, **options})
        self._read = b""

    def wait_for_line_with(self, text):
        awaited = "a line with '%s' after %r" % (text, self._read)
        line = b""
        while True:
            wait_until_readable(self.process.stderr, awaited)
            byte = os.read(self.process.stderr.fileno(), 1)
            self._read += byte
            line = line + byte if not line.endswith(b"\n") else byte
            if line.endswith(b"\n") and text.encode() in line:
                return
            assert byte, "the program has ended: " + self._read.decode()

    def interrupt(self, number=signal.SIGINT):
        self.process.send_signal(number)

    def finish(self, data=None):
        give_next_wait_its_whole_time()
        try:
            output, errors = self.process.communicate(data, timeout=TIMEOUT)
        except subprocess.TimeoutExpired as expired:
            raise AssertionError(gave_up("the program to end: %s" % self.process.args)) from expired
        return Result(self.process, output, self._read + (errors or b""))


class Terminal:
    """A terminal whose screen the test reads."""

    def __init__(self, columns=80):
        self._master, self.slave = os.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        self._written = b""

    def wait_for(self, pattern):
        while not re.search(pattern, self._written):
            wait_until_readable(self._master, "%r on a screen with %r" % (pattern, self._written))
            self._written += os.read(self._master, 65536)

    def close_and_read(self):
        """After the program has ended: everything that it wrote."""
        os.close(self.slave)
        try:
            while True:
                piece = os.read(self._master, 65536)
                if not piece:
                    break
                self._written += piece
        except OSError:
            pass  # Linux says so when the last writer has gone
        os.close(self._master)
        return self._written.decode(errors="surrogateescape")


class ClientTest(unittest.TestCase):
    """Gives each test a server and a folder, in which the program runs."""

    maxDiff = 2000

    def setUp(self):
        # Interrupts whatever the test waits for without a limit of its own.
        signal.signal(signal.SIGALRM, self._give_up)
        give_next_wait_its_whole_time()
        self.addCleanup(signal.alarm, 0)
        self.server = Server()
        self.addCleanup(self.server.close)
        self.folder = self._make_folder(MEMORY if os.access(MEMORY, os.W_OK) else None)

    def start(self, *arguments, **options):
        running = Running(arguments, **{"cwd": self.folder, **options})
        self.addCleanup(self._end, running.process)
        return running

    @staticmethod
    def _give_up(_number, frame):
        calls = traceback.extract_stack(frame)
        call = [call for call in calls if os.path.basename(call.filename).startswith("test_")][-1]
        raise AssertionError(gave_up("%s:%d: %s" % (call.filename, call.lineno, call.line)))

    @staticmethod
    def _end(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def run_client(self, *arguments, data=None, **options):
        if data is not None:
            options["stdin"] = subprocess.PIPE
        return self.start(*arguments, **options).finish(data)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def device(self, name):
        """A device such as /dev/full. Root gets one to itself: a wrong program could replace it."""
        if os.geteuid() != 0:
            return "/dev/" + name
        path = os.path.join(self._make_folder(), name)  # memory may be mounted without devices
        os.mknod(path, stat.S_IFCHR | 0o666, os.stat("/dev/" + name).st_rdev)
        try:
            os.close(os.open(path, os.O_WRONLY))
        except OSError:
            self.skipTest("no device can be opened beside " + path)
        return path

    def _make_folder(self, parent=None):
        folder = tempfile.mkdtemp(dir=parent)
        self.addCleanup(shutil.rmtree, folder)
        return folder

    def serve(self, path, body=BODY, **options):
        self.server.answers[path] = lambda request: request.reply(body, **options)
        return self.server.url(path)

    def assert_succeeded(self, result):
        self.assertEqual((result.status, result.errors), (SUCCEEDED, ""))

    def assert_failed(self, result, status, line):
        self.assertEqual((result.status, result.errors), (status, "vortan-transfer: %s\n" % line))

    def assert_files(self, *names):
        self.assertEqual(sorted(os.listdir(self.folder)), sorted(names))


def main():
    unittest.main(verbosity=2)
