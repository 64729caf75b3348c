"""However long a body is, it takes little memory."""

import os
import re
import socket
import subprocess

from client_support import (
    ClientTest,
    EMULATED,
    SANITIZED,
    TIMEOUT,
    give_next_wait_its_whole_time,
    main,
    wait_until_readable,
)

MIB = 1 << 20
# .ci/nightly moves 5 GiB.
SIZE = int(os.environ.get("VORTAN_CLIENT_MIB", "8" if EMULATED or SANITIZED else "256")) * MIB
# An emulator's or a sanitizer's memory hides the program's.
MOST_KIB = None if EMULATED or SANITIZED else 20 * 1024


def peak_of(process):
    """How much memory the program has had so far. ru_maxrss would count the one that started it."""
    with open("/proc/%d/status" % process.pid, encoding="ascii") as file:
        return int(re.search(r"VmHWM:\s+(\d+) kB", file.read())[1])


class Peer:
    """A server for one connection, whose request and response the test moves by itself."""

    def __init__(self, test):
        self._listener = socket.create_server(("127.0.0.1", 0))
        test.addCleanup(self._listener.close)
        self.url = "http://127.0.0.1:%d/large" % self._listener.getsockname()[1]
        self._test = test
        self._socket = None
        self._rest = b""

    def accept(self):
        """Returns the lines of the request's header."""
        wait_until_readable(self._listener, "a connection")
        self._socket, _ = self._listener.accept()
        self._test.addCleanup(self._socket.close)
        self._socket.settimeout(TIMEOUT)
        received = b""
        while b"\r\n\r\n" not in received:
            piece = self._socket.recv(65536)
            assert piece, received
            received += piece
        header, _, self._rest = received.partition(b"\r\n\r\n")
        return header.decode().split("\r\n")

    def receive(self, length):
        """Returns how many bytes arrived, and how many of them were not 0."""
        buffer = bytearray(MIB)
        zeros = bytes(MIB)
        count, others = len(self._rest), len(self._rest) - self._rest.count(0)
        while count < length:
            give_next_wait_its_whole_time()
            got = self._socket.recv_into(buffer)
            if got == 0:
                break
            if memoryview(buffer)[:got] != memoryview(zeros)[:got]:
                others += got - buffer.count(0, 0, got)
            count += got
        return count, others

    def send(self, data):
        self._socket.sendall(data)

    def send_zeros(self, length):
        block = memoryview(bytes(MIB))
        for left in range(length, 0, -MIB):
            give_next_wait_its_whole_time()
            self._socket.sendall(block[: min(left, MIB)])


class Large(ClientTest):
    def setUp(self):
        super().setUp()
        self.peer = Peer(self)

    def assert_small(self, client):
        if MOST_KIB:
            peak = peak_of(client.process)
            print("peak: %d KiB for %d MiB ... " % (peak, SIZE // MIB), end="")
            self.assertLess(peak, MOST_KIB)

    def make_sparse(self, name):
        with open(self.path(name), "wb") as file:
            file.truncate(SIZE)

    def test_an_upload_streams_its_file(self):
        self.make_sparse("sparse")
        client = self.start("-q", "-T", "sparse", self.peer.url)
        first, *lines = self.peer.accept()
        headers = dict(line.lower().split(": ", 1) for line in lines)
        self.assertEqual(first, "PUT /large HTTP/1.1")
        self.assertEqual(headers["content-length"], str(SIZE))
        self.assertNotIn("expect", headers)
        self.assertNotIn("transfer-encoding", headers)
        self.assertEqual(self.peer.receive(SIZE), (SIZE, 0))
        self.assert_small(client)
        self.peer.send(b"HTTP/1.1 201 Created\r\nContent-Length: 4\r\n\r\ndone")
        result = client.finish()
        self.assert_succeeded(result)
        self.assertEqual(result.output, b"done")

    def download(self, *arguments, **options):
        client = self.start("-q", *arguments, self.peer.url, **options)
        self.peer.accept()
        self.peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % SIZE)
        self.peer.send_zeros(SIZE - 1)
        self.assert_small(client)
        self.peer.send(b"\1")
        self.assert_succeeded(client.finish())

    def test_a_download_into_a_device_takes_little_memory(self):
        self.download("-o", self.device("null"))

    def test_a_download_to_standard_output_takes_little_memory(self):
        self.download(stdout=subprocess.DEVNULL)

    def test_a_download_into_a_file_takes_little_memory(self):
        folder = self._make_folder()  # not in memory
        self.download("-o", os.path.join(folder, "out"))
        with open(os.path.join(folder, "out"), "rb") as file:
            self.assertEqual(file.seek(0, os.SEEK_END), SIZE)
            file.seek(-2, os.SEEK_END)
            self.assertEqual(file.read(), b"\0\1")


if __name__ == "__main__":
    main()
