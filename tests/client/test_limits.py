"""A run ends when a limit has passed, whatever a server does, and keeps within its bounds."""

import socket
import time

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    PROTOCOL_VIOLATED,
    SANITIZED,
    STATUS_IS_ERROR,
    SUCCEEDED,
    TOOK_TOO_LONG,
    main,
)

# An emulated program takes seconds to start and to end.
SLACK = 10 if EMULATED or SANITIZED else 1


class Limits(ClientTest):
    def assert_ends_within(self, seconds, *arguments):
        begin = time.monotonic()
        result = self.run_client("-q", *arguments)
        took = time.monotonic() - begin
        self.assertEqual(result.status, TOOK_TOO_LONG, result.errors)
        self.assertGreaterEqual(took, seconds)
        self.assertLess(took, seconds + SLACK, result.errors)
        return result

    def silent_url(self, sent=0):
        def answer(request):
            if sent:
                request.send_header(200, [("Content-Length", len(BODY))])
                request.send(BODY[:sent])
            request.wait_until_closed()

        self.server.answers["/silent"] = answer
        return self.server.url("/silent")

    def mute_address(self, backlog):
        """A port that takes connections as far as the backlog goes, and never says anything."""
        listener = socket.socket()
        self.addCleanup(listener.close)
        listener.bind(("127.0.0.1", 0))
        listener.listen(backlog)
        return listener.getsockname()

    def fill(self, address):
        """Connects until the system takes no further connection."""
        for _ in range(8):
            client = socket.socket()
            self.addCleanup(client.close)
            client.settimeout(0.2)
            try:
                client.connect(address)
            except socket.timeout:
                return
        self.skipTest("the system takes more connections than the backlog says")

    def test_of_the_whole_time_ends_a_silent_server(self):
        self.assert_ends_within(2, "--max-time", "2", self.silent_url())

    def test_of_the_whole_time_ends_a_body_that_stops(self):
        self.assert_ends_within(2, "--max-time", "2", "-o", "out", self.silent_url(1000))

    def test_of_the_whole_time_spans_all_attempts(self):
        arguments = ("--max-time", "2", "--silence", "0.5", "--retry", "1000")
        self.assert_ends_within(2, *arguments, "--retry-delay", "0.01", self.silent_url())
        self.assertGreater(self.server.requests.qsize(), 1)

    def test_of_silence_ends_a_silent_server(self):
        for sent in (0, 1000):
            url = self.silent_url(sent)
            self.assert_ends_within(1, "--silence", "1", "--retry", "0", "-o", "out", url)

    def test_of_the_connection_ends_when_nobody_accepts_it(self):
        address = self.mute_address(0)
        self.fill(address)
        arguments = ("--connect-timeout", "1", "--retry", "0")
        self.assert_ends_within(1, *arguments, "http://%s:%d/" % address)

    def test_of_the_connection_ends_a_handshake_that_nobody_answers(self):
        arguments = ("--connect-timeout", "1", "--retry", "0")
        self.assert_ends_within(1, *arguments, "https://%s:%d/" % self.mute_address(8))

    def test_of_the_length_refuses_an_announced_body(self):
        self.write("out", b"before")
        url = self.serve("/a")
        result = self.run_client("-q", "--max-filesize", "1k", "-o", "out", url)
        self.assertEqual(result.status, PROTOCOL_VIOLATED, result.errors)
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_of_the_length_ends_a_body_that_was_not_announced(self):
        def answer(request):
            request.send_header(200)
            request.send(BODY)

        self.server.answers["/a"] = answer
        url = self.server.url("/a")
        for limit, status in ((len(BODY) - 1, PROTOCOL_VIOLATED), (len(BODY), SUCCEEDED)):
            result = self.run_client("-q", "--max-filesize", str(limit), url)
            self.assertEqual(result.status, status, result.errors)
            self.assertLessEqual(len(result.output), limit)
            self.assertTrue(BODY.startswith(result.output))

    def chain(self, count):
        """A URL from which so many redirects lead to a file."""
        for left in range(1, count + 1):
            to = self.server.url("/%d" % (left - 1))
            self.serve("/%d" % left, b"", status=302, headers=[("Location", to)])
        self.serve("/0")
        return self.server.url("/%d" % count)

    def test_of_redirects_are_followed_to_the_last(self):
        url = self.chain(11)
        result = self.run_client("-q", "--max-redirs", "10", "-o", "out", url)
        self.assertEqual(result.status, PROTOCOL_VIOLATED)
        self.assertIn(self.server.url("/1"), result.errors)
        self.assert_files()
        self.assert_succeeded(self.run_client("-q", "--max-redirs", "11", "-o", "out", url))
        self.assertEqual(self.read("out"), BODY)

    def test_of_redirects_may_be_none(self):
        url = self.chain(1)
        result = self.run_client("-q", "--max-redirs", "0", url)
        self.assertEqual(result.status, PROTOCOL_VIOLATED)
        self.assertEqual([request.path for request in self.received()], ["/1"])

    def received(self):
        return [self.server.requests.get() for _ in range(self.server.requests.qsize())]

    def test_a_failed_redirect_names_its_target(self):
        missing = self.server.url("/missing")
        url = self.serve("/a", b"", status=302, headers=[("Location", missing)])
        result = self.run_client("-q", "-o", "out", url)
        line = "%s: redirected to %s: HTTP status 404" % (url, missing)
        self.assert_failed(result, STATUS_IS_ERROR, line)


if __name__ == "__main__":
    main()
