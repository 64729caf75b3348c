"""An HTTP/1.1 server that does, as the URL says, what other servers refuse to do.

    /bytes/N            N bytes that depend on their index
    /chunked/N          the same in chunks
    /cut-chunks/N       the same without the chunk that ends it, then the connection is closed
    /drip/N             the same, one byte for each write
    /gzip/N             the same, compressed
    /gzip-bomb/N        N MiB of zero bytes, compressed a thousandfold, of which nothing is stored
    /length/L/N         the same with "Content-Length: L", then the connection is closed
    /truncate/N         all but the last byte of the same, then the connection is closed
    /reset/N            the first N bytes of an endless body, then the connection is reset
    /unmeasured/N       N bytes without a length, then the connection is closed
    /until-closed       an endless body, until the peer closes the connection
    /pieces/KIND/N/SIZE /bytes/N with an ETag, but after SIZE bytes the connection is closed. A
                        request for the rest gets it, SIZE bytes at a time, from a "sound" server;
                        do_pieces tells what others do
    /stall/KEY          one byte of two, then silence until /release/KEY is asked for
    /await-stall/KEY    answers when a behaviour with that KEY has been asked for
    /release/KEY        ends the silence of /stall/KEY, which closes its connection
    /silence/KEY        nothing, until the peer closes the connection
    /garbage            no HTTP at all
    /status/CODE        that status with the body "status CODE"
    /redirect/CODE/N    N redirects with that status, then /echo
    /redirect-mirror/CODE
                        a redirect with that status to /mirror
    /redirect-to/CODE/URL
                        a redirect with that status to URL, whose special characters are encoded
                        (%2F and the like)
    /early-redirect/CODE/URL
                        the same, before the request's body is read
    /redirect-forever   a redirect to itself
    /redirect-until/KEY a redirect to itself, to /echo when /release/KEY was asked for
    /big-header/N       a header line with a value of N bytes
    /headers/N          N header lines of 1000 bytes
    /interim/N          N responses with the status 103, then /echo
    /trailers/N         an empty body in chunks with N trailers of 30 bytes
    /trailers-forever   the same without end
    /echo               the head of the request, as it came, is the body
    /mirror             the body of the request is the body
    /silent-mirror      the same, but "Expect: 100-continue" is not answered

A query string is passed over, the request's body read before the answer. Every response tells the
request's line, and its values of Expect, Content-Length and Transfer-Encoding ("-" for none), in
headers of its own.

On SIGTERM the server waits until its peers have closed every connection, and exits with 0; with 1
if one is left open.
"""

import gzip
import itertools
import signal
import socket
import struct
import sys
import threading
import time
import urllib.parse
import zlib

# Only reached when a connection was leaked.
PATIENCE_SECONDS = 30
ENDLESS = 1 << 40


# After so many, the indexed bytes repeat themselves.
PERIOD = 1 << 24


def indexed_bytes(count):
    """The byte at each index is the exclusive or of the index's three lowest bytes."""
    blocks = [bytes(low ^ high for low in range(256)) for high in range(256)]
    used = (blocks[(block ^ block >> 8) & 0xFF] for block in range(count // 256 + 1))
    return b"".join(used)[:count]


class Closed(Exception):
    """The connection is over."""


class Request:
    def __init__(self, head):
        self.head = head
        lines = head.decode("latin-1").split("\r\n")
        self.line = lines[0]
        self.method, target, _ = self.line.split(" ")
        self.headers = {}
        for line in filter(None, lines[1:]):
            name, _, value = line.partition(":")
            self.headers[name.lower()] = value.strip()
        # A proxy is asked for a whole URL.
        self.path = target.split("://", 1)[-1].partition("/")[2].partition("?")[0]
        self.body = b""

    def seen(self):
        names = ("Expect", "Content-Length", "Transfer-Encoding")
        return [("X-Seen-Request", self.line)] + [
            ("X-Seen-" + name, self.headers.get(name.lower(), "-")) for name in names
        ]


class Gates:
    """Events by key."""

    def __init__(self):
        self.lock = threading.Lock()
        self.events = {}

    def __getitem__(self, key):
        with self.lock:
            return self.events.setdefault(key, threading.Event())


class Connection:
    gates = Gates()
    versions = itertools.count()

    def __init__(self, peer):
        self.peer = peer
        self.input = peer.makefile("rb")
        self.request = None

    def serve(self):
        try:
            while True:
                self.request = Request(self.read_head())
                self.answer(self.request.path.split("/"))
        except (Closed, ConnectionError):
            pass
        finally:
            self.input.close()
            self.peer.close()

    def answer(self, parts):
        if parts[0] != "early-redirect":
            self.read_body(answer_expect=parts[0] != "silent-mirror")
        behaviour = getattr(self, "do_" + parts[0].replace("-", "_"), None)
        if behaviour:
            behaviour(*parts[1:])
        else:
            self.send(b"no such behaviour", status=404)

    # Reading

    def read_line(self):
        line = self.input.readline()
        if not line.endswith(b"\n"):
            raise Closed
        return line

    def read_head(self):
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            head += self.read_line()
        return head

    def read_exactly(self, count):
        data = self.input.read(count)
        if len(data) < count:
            raise Closed
        return data

    def read_body(self, answer_expect):
        headers = self.request.headers
        if answer_expect and headers.get("expect") == "100-continue":
            self.peer.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
        if headers.get("transfer-encoding") == "chunked":
            self.request.body = self.read_chunks()
        else:
            self.request.body = self.read_exactly(int(headers.get("content-length", 0)))

    def read_chunks(self):
        body = b""
        while True:
            size = int(self.read_line(), 16)
            body += self.read_exactly(size)
            self.read_line()
            if size == 0:
                return body

    # Writing

    def head(self, status, headers):
        lines = ["HTTP/1.1 %d Status" % status]
        lines += ["%s: %s" % header for header in self.request.seen() + headers]
        self.peer.sendall(("\r\n".join(lines) + "\r\n\r\n").encode("latin-1"))

    def write(self, body):
        if self.request.method != "HEAD":
            self.peer.sendall(body)

    def send(self, body, status=200, headers=(), length=None):
        length = len(body) if length is None else length
        self.head(status, [("Content-Length", length), *headers])
        self.write(body)

    def do_bytes(self, count):
        left = int(count)
        self.head(200, [("Content-Length", left)])
        period = indexed_bytes(min(left, PERIOD))
        while left > 0:
            self.write(period[:left])
            left -= len(period)

    def do_chunked(self, count):
        self.send_chunks(count)
        self.write(b"0\r\n\r\n")

    def do_cut_chunks(self, count):
        self.send_chunks(count)
        raise Closed

    def send_chunks(self, count):
        body = indexed_bytes(int(count))
        self.head(200, [("Transfer-Encoding", "chunked")])
        size = 1000
        for start in range(0, len(body), size):
            piece = body[start : start + size]
            self.write(b"%x\r\n%s\r\n" % (len(piece), piece))

    def do_drip(self, count):
        self.peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.head(200, [("Content-Length", count)])
        for byte in indexed_bytes(int(count)):
            self.write(bytes([byte]))

    def do_gzip(self, count):
        self.send(gzip.compress(indexed_bytes(int(count))), headers=[("Content-Encoding", "gzip")])

    def do_gzip_bomb(self, mebibytes):
        block = bytes(1 << 20)
        # What ends in a full flush refers to nothing before it, and can be repeated.
        compressor = zlib.compressobj(wbits=-zlib.MAX_WBITS)
        piece = compressor.compress(block) + compressor.flush(zlib.Z_FULL_FLUSH)
        checksum = 0
        for _ in range(int(mebibytes)):
            checksum = zlib.crc32(block, checksum)
        end = zlib.compressobj(wbits=-zlib.MAX_WBITS).flush()
        length = int(mebibytes) << 20
        trailer = end + struct.pack("<II", checksum, length & 0xFFFFFFFF)
        start = b"\x1f\x8b\x08" + bytes(6) + b"\xff"
        self.head(
            200,
            [
                ("Content-Encoding", "gzip"),
                ("Content-Length", len(start) + int(mebibytes) * len(piece) + len(trailer)),
            ],
        )
        self.write(start)
        for _ in range(int(mebibytes)):
            self.write(piece)
        self.write(trailer)

    def do_length(self, length, count):
        self.send(indexed_bytes(int(count)), length=length)
        raise Closed

    def do_truncate(self, count):
        self.do_length(count, int(count) - 1)

    def do_reset(self, count):
        self.send(indexed_bytes(int(count)), length=ENDLESS)
        self.peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        raise Closed

    def do_unmeasured(self, count):
        self.head(200, [])
        self.write(indexed_bytes(int(count)))
        raise Closed

    def do_until_closed(self):
        self.send(b"", length=ENDLESS)
        piece = indexed_bytes(10000)
        while self.request.method != "HEAD":
            self.write(piece)

    def do_pieces(self, kind, count, size):
        body, tag = indexed_bytes(int(count)), '"same"'
        if kind == "weakly-tagged":
            tag = "W/" + tag
        if kind == "changing":
            tag = '"%d"' % next(self.versions)
        start = int(self.request.headers.get("range", "bytes=0-")[len("bytes=") : -1])
        if start == 0 or kind == "rangeless" or self.request.headers.get("if-range", tag) != tag:
            self.send_piece(200, body, tag, 0, int(size))
        elif kind == "refusing":
            self.send(b"", status=416)
        elif kind == "shifted":
            self.send_piece(206, body, tag, start + 1, int(size))
        else:
            self.send_piece(206, body, tag, start, int(size))
        raise Closed

    def send_piece(self, status, body, tag, start, size):
        headers = [("ETag", tag)]
        if status == 206:
            headers += [("Content-Range", "bytes %d-%d/%d" % (start, len(body) - 1, len(body)))]
        self.send(
            body[start : start + size], status=status, headers=headers, length=len(body) - start
        )

    def do_silence(self, key):
        self.gates["asked " + key].set()
        self.input.read()
        raise Closed

    def do_stall(self, key):
        self.gates["asked " + key].set()
        self.send(b"1", length=2)
        self.gates["released " + key].wait()
        raise Closed

    def do_await_stall(self, key):
        self.gates["asked " + key].wait()
        self.send(b"asked")

    def do_release(self, key):
        self.gates["released " + key].set()
        self.send(b"released")

    def do_garbage(self):
        self.peer.sendall(b"\x00\x01\x02 this is not HTTP\r\n\r\n")
        raise Closed

    def do_status(self, code):
        self.send(b"status " + code.encode(), status=int(code))

    def do_redirect(self, code, count):
        left = int(count) - 1
        to = "/redirect/%s/%d" % (code, left) if left > 0 else "/echo"
        self.send(b"moved", status=int(code), headers=[("Location", to)])

    def do_redirect_mirror(self, code):
        self.send(b"moved", status=int(code), headers=[("Location", "/mirror")])

    def do_redirect_to(self, code, url):
        location = ("Location", urllib.parse.unquote(url))
        self.send(b"moved", status=int(code), headers=[location])

    def do_early_redirect(self, code, url):
        self.do_redirect_to(code, url)
        raise Closed

    def do_redirect_forever(self):
        self.send(b"moved", status=302, headers=[("Location", "/redirect-forever")])

    def do_redirect_until(self, key):
        self.gates["asked " + key].set()
        to = "/echo" if self.gates["released " + key].is_set() else "/redirect-until/" + key
        self.send(b"moved", status=302, headers=[("Location", to)])

    def do_big_header(self, count):
        self.send(b"", headers=[("X-Big", "x" * int(count))])

    def do_headers(self, count):
        self.send(b"", headers=[("X-Many", "x" * 990)] * int(count))

    def do_interim(self, count):
        self.peer.sendall(b"HTTP/1.1 103 Early\r\n\r\n" * int(count))
        self.do_echo()

    def do_trailers(self, count):
        self.head(200, [("Transfer-Encoding", "chunked")])
        self.write(b"0\r\n")
        self.send_trailers(range(int(count)))
        self.write(b"\r\n")

    def do_trailers_forever(self):
        self.head(200, [("Transfer-Encoding", "chunked")])
        self.write(b"0\r\n")
        self.send_trailers(itertools.count())

    def send_trailers(self, numbers):
        lines = (b"X-Trailer-%08d: %08d\r\n" % (number, number) for number in numbers)
        while piece := b"".join(itertools.islice(lines, 1000)):
            self.write(piece)

    def do_echo(self):
        self.send(self.request.head)

    def do_mirror(self):
        self.send(self.request.body)

    do_silent_mirror = do_mirror


def accept_until_shut(listener, threads):
    while True:
        try:
            peer, _ = listener.accept()
        except OSError:
            return
        thread = threading.Thread(target=Connection(peer).serve, daemon=True)
        threads.append(thread)
        thread.start()


def serve(listener):
    """Serves on a listening socket until SIGTERM, which is blocked; returns the exit code."""
    threads = []
    acceptor = threading.Thread(target=accept_until_shut, args=(listener, threads))
    acceptor.start()
    signal.sigwait([signal.SIGTERM])
    listener.shutdown(socket.SHUT_RDWR)
    acceptor.join()
    deadline = time.monotonic() + PATIENCE_SECONDS
    for thread in threads:
        thread.join(max(0, deadline - time.monotonic()))
    left = sum(thread.is_alive() for thread in threads)
    if left:
        print("%d connections were left open" % left, file=sys.stderr)
    return 1 if left else 0
