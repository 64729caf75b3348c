"""Downloads over connections that break, from servers that are busy, and of files that change."""

import hashlib
import os
import random

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    Gate,
    NETWORK_FAILED,
    STATUS_IS_ERROR,
    WRONG_CONTENT,
    main,
    make_bytes,
)


class Version:
    """An answer that serves ranges of a body, and breaks each response off where cut says."""

    def __init__(self, body, tag, cut=len):
        self.body = body
        self.tag = tag
        self.cut = cut

    def __call__(self, request):
        begin = 0
        if request.headers.get("If-Range") == self.tag:
            begin = int(request.headers["Range"].removeprefix("bytes=").removesuffix("-"))
        rest = self.body[begin:]
        headers = [("ETag", self.tag), ("Content-Length", len(rest))]
        if begin:
            place = "bytes %d-%d/%d" % (begin, len(self.body) - 1, len(self.body))
            headers.append(("Content-Range", place))
        request.send_header(206 if begin else 200, headers)
        request.send(rest[: self.cut(rest)])


class Persistence(ClientTest):
    def ranges(self):
        requests = [self.server.requests.get() for _ in range(self.server.requests.qsize())]
        return [request.headers["Range"] for request in requests]

    def test_a_body_whose_connections_break_anywhere_arrives_whole(self):
        seed = random.randrange(1 << 32)
        draw = random.Random(seed)
        for target in ((), ("-o", "out")):
            # An attempt that brings a byte is not counted.
            cuts = 5
            self.server.answers["/a"] = Version(
                BODY, '"a"', lambda rest: draw.randint(1, len(rest))
            )
            result = self.run_client(self.server.url("/a"), "--retry", str(cuts), *target)
            self.assertEqual(result.status, 0, "seed %d: %s" % (seed, result.errors))
            got = self.read("out") if target else result.output
            self.assertTrue(got == BODY, "seed %d" % seed)

    def test_a_part_of_an_earlier_run_is_continued_on_request(self):
        url = self.server.url("/a")
        for options, expected in ((("--continue",), "bytes=1000-"), ((), None)):
            self.server.answers["/a"] = Version(BODY, '"a"', lambda rest: 1000)
            result = self.run_client(url, "-o", "out", "--retry", "0")
            self.assert_failed(
                result,
                NETWORK_FAILED,
                url + ": the connection broke before the response was whole; "
                "--continue goes on with 'out.part'",
            )
            self.assert_files("out.part", "out.part.meta")
            self.server.answers["/a"] = Version(BODY, '"a"')
            self.assert_succeeded(self.run_client(url, "-o", "out", *options))
            self.assertEqual(self.ranges(), [None, expected])
            self.assertEqual(self.read("out"), BODY)
            self.assert_files("out")
            os.remove(self.path("out"))

    def test_a_file_that_changes_meanwhile_is_never_mixed(self):
        url = self.server.url("/a")
        other = make_bytes(1234567)[::-1]
        self.server.answers["/a"] = Version(BODY, '"a"', lambda rest: 1000)
        self.assertEqual(self.run_client(url, "-o", "out", "--retry", "0").status, NETWORK_FAILED)
        self.server.answers["/a"] = Version(other, '"b"')
        self.assert_succeeded(self.run_client(url, "-o", "out", "--continue"))
        self.assertEqual(self.read("out"), other)
        self.assert_files("out")

    def test_a_wrong_hash_leaves_the_old_file(self):
        self.write("out", b"before")
        url = self.serve("/a")
        self.assert_failed(
            self.run_client(url, "-o", "out", "--sha256", hashlib.sha256(b"other").hexdigest()),
            WRONG_CONTENT,
            url + ": the body's SHA-256 is not the expected one",
        )
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")
        right = hashlib.sha256(BODY).hexdigest()
        self.assert_succeeded(self.run_client(url, "-o", "out", "--sha256", right))
        self.assertEqual(self.read("out"), BODY)

    def test_a_busy_server_is_asked_again_when_it_says(self):
        answers = [
            lambda request: request.reply(b"busy", status=503, headers=[("Retry-After", "1")]),
            lambda request: request.reply(BODY),
        ]
        self.server.answers["/a"] = lambda request: answers.pop(0)(request)
        result = self.run_client(self.server.url("/a"), "-o", "out", "--trace", "trace")
        self.assert_succeeded(result)
        self.assertEqual(self.read("out"), BODY)
        self.assertEqual(self.server.requests.qsize(), 2)

    def test_a_busy_server_is_not_asked_for_ever(self):
        url = self.serve("/a", b"busy", status=503)
        self.assert_failed(
            self.run_client(url, "-o", "out", "--retry", "1"),
            STATUS_IS_ERROR,
            url + ": HTTP status 503",
        )
        self.assertEqual(self.server.requests.qsize(), 2)
        self.assert_files()


class Obstacles(ClientTest):
    def setUp(self):
        super().setUp()
        self.gate = Gate(BODY, 1000)
        self.server.answers["/a"] = self.gate
        self.addCleanup(self.gate.open)
        self.url = self.server.url("/a")

    def start_and_reach_the_middle(self, *arguments):
        client = self.start(self.url, *arguments)
        self.gate.wait_until_reached()
        return client

    def test_a_folder_that_vanishes_is_told(self):
        os.mkdir(self.path("folder"))
        client = self.start_and_reach_the_middle("-o", "folder/out", "--trace", "/dev/stderr")
        client.wait_for_line_with("first-body")
        os.rename(self.path("folder"), self.path("elsewhere"))
        self.gate.open()
        result = client.finish()
        self.assertEqual(result.status, CANNOT_WRITE)
        self.assertIn("cannot write 'folder/out': No such file or directory", result.errors)

    def test_a_target_that_becomes_a_folder_is_told(self):
        self.write("out", b"before")
        client = self.start_and_reach_the_middle("-o", "out")
        os.rename(self.path("out"), self.path("old"))
        os.mkdir(self.path("out"))
        self.gate.open()
        self.assert_failed(
            client.finish(), CANNOT_WRITE, self.url + ": cannot write 'out': Is a directory"
        )
        self.assertEqual(self.read("old"), b"before")
        self.assertEqual(os.listdir(self.path("out")), [])

    def test_a_file_that_another_program_downloads_is_left_to_it(self):
        client = self.start_and_reach_the_middle("-o", "out")
        self.assert_failed(
            self.run_client(self.url, "-o", "out"),
            CANNOT_WRITE,
            self.url + ": cannot write 'out': the file is being written by another transfer: "
            "process %d" % client.process.pid,
        )
        self.gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.read("out"), BODY)


class IfChanged(ClientTest):
    def answer(self, request):
        if request.headers["If-None-Match"] == self.tag:
            request.reply(status=304, headers=[("ETag", self.tag)])
        else:
            request.reply(BODY, headers=[("ETag", self.tag)])

    def setUp(self):
        super().setUp()
        self.tag = '"a"'
        self.server.answers["/a"] = self.answer
        self.url = self.server.url("/a")
        self.options = ("-q", "-o", "out", "--if-changed")

    def condition(self):
        self.assert_succeeded(self.run_client(self.url, *self.options))
        return self.server.requests.get().headers["If-None-Match"]

    def test_only_what_has_changed_is_downloaded(self):
        self.assertIsNone(self.condition())
        self.assert_files("out", "out.validator")
        self.assertEqual(self.condition(), '"a"')
        self.assertEqual(self.read("out"), BODY)
        self.tag = '"b"'
        self.assertEqual(self.condition(), '"a"')
        self.assertEqual(self.condition(), '"b"')

    def test_a_file_that_somebody_has_touched_is_downloaded_again(self):
        self.assertIsNone(self.condition())
        self.write("out", b"touched")
        self.assertIsNone(self.condition())
        self.assertEqual(self.read("out"), BODY)
        os.remove(self.path("out"))
        self.assertIsNone(self.condition())

    def test_the_validator_of_another_url_is_not_used(self):
        self.assertIsNone(self.condition())
        self.server.answers["/b"] = self.answer
        self.url = self.server.url("/b")
        self.assertIsNone(self.condition())

    def test_a_validator_that_is_none_is_ignored(self):
        for text in (b"", b"[]", b'{"url": 7}', b"\xff"):
            self.write("out.validator", text)
            self.write("out", b"before")
            self.assertIsNone(self.condition())
            self.assertEqual(self.read("out"), BODY)


if __name__ == "__main__":
    main()
