"""What the tests of interrupted downloads share: content that a server gives in parts."""

import random
import re
import threading

from client_support import make_bytes

MIB = 1 << 20


def tag_of(version):
    return '"%s"' % version


class Content:
    """An answer with a file of which a range may be requested. Whatever it has sent to a connection
    that it then closes in good order arrives."""

    PIECE = 16384

    def __init__(self, body, version="1", cut=None, watch=None):
        """cut gets the number of the request and how long the whole response is, and returns how
        many bytes of it are sent before the connection is closed, or None for all. watch gets how
        many bytes of a response were sent and how many are left, before each piece."""
        self.body = body
        self.tag = tag_of(version)
        self.firsts = []  # of each request: the first byte that its Range asks for, or None
        self.ends = []  # of each response: up to which byte of the body it was sent
        self._cut = cut or (lambda number, length: None)
        self._watch = watch or (lambda sent, left: None)
        self._lock = threading.Lock()

    def __call__(self, request):
        asked = re.fullmatch(r"bytes=(\d+)-", request.headers.get("Range", ""))
        first = int(asked[1]) if asked else 0
        with self._lock:
            number = len(self.firsts)
            self.firsts.append(first if asked else None)
            self.ends.append(first)
        if asked and self.takes(request.headers.get("If-Range")):
            self._send(request, number, first, True)
        else:
            self._send(request, number, 0, False)

    def takes(self, validator):
        """Whether a part may be sent to whom has one of the version with this validator."""
        return validator in (None, self.tag)

    def _header(self, first, is_part):
        length = len(self.body)
        lines = ["HTTP/1.1 " + ("206 Partial" if is_part else "200 OK"), "ETag: " + self.tag]
        if is_part:
            lines.append("Content-Range: bytes %d-%d/%d" % (first, length - 1, length))
        lines += ["Content-Length: %d" % (length - first), "Connection: close", "", ""]
        return "\r\n".join(lines).encode()

    def _send(self, request, number, first, is_part):
        header = self._header(first, is_part)
        response = header + self.body[first:]
        limit = self._cut(number, len(response))
        response = memoryview(response)[:limit]
        self.ends[number] = first
        for at in range(0, len(response), self.PIECE):
            piece = response[at : at + self.PIECE]
            self._watch(at, len(response) - at)
            request.send(piece)
            self.ends[number] = first + max(0, at + len(piece) - len(header))


class Alternating:
    """An answer that changes to the next of several contents with each request."""

    def __init__(self, contents, choose):
        """choose gets the number of the request and returns which content answers it."""
        self._contents = contents
        self._choose = choose
        self._number = 0

    def __call__(self, request):
        chosen = self._contents[self._choose(self._number)]
        self._number += 1
        chosen(request)


def random_cuts(seed, longest):
    """For Content: cuts each response at a random byte of its header or body."""
    generator = random.Random(seed)

    def cut(_number, length):
        at = generator.randrange(longest)
        return at if at < length else None

    return cut


def versions(count, length):
    """Bodies of which no byte range of one fits into another."""
    return [make_bytes(length + 7 * index)[7 * index :] for index in range(count)]
