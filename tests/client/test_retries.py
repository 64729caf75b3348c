"""How long and how often a failure that may pass is tried again."""

import email.utils
import os
import time

from client_support import (
    BODY,
    ClientTest,
    NETWORK_FAILED,
    STATUS_IS_ERROR,
    TOOK_TOO_LONG,
    main,
)


class Retries(ClientTest):
    """A server that asks for patience gets it."""

    def answer_once_with(self, times, headers):
        def answer(request):
            times.append(time.monotonic())
            if len(times) == 1:
                request.reply(b"busy", status=503, headers=headers())
                times.append(time.monotonic())
            else:
                request.reply(BODY)

        self.server.answers["/a"] = answer
        return self.server.url("/a")

    def assert_waits(self, headers, arguments=()):
        times = []
        url = self.answer_once_with(times, headers)
        result = self.run_client("-q", "-o", "out", "--retry-delay", "0.01", *arguments, url)
        self.assert_succeeded(result)
        self.assertEqual(self.read("out"), BODY)
        _, answered, again = times
        return again - answered

    def test_of_seconds_are_kept(self):
        self.assertGreaterEqual(self.assert_waits(lambda: [("Retry-After", "1")]), 0.99)

    def test_until_a_date_are_kept(self):
        def in_two_seconds():
            return [("Retry-After", email.utils.formatdate(time.time() + 2, usegmt=True))]

        self.assertGreaterEqual(self.assert_waits(in_two_seconds), 0.9)

    def test_longer_than_the_whole_time_end_at_once(self):
        url = self.answer_once_with([], lambda: [("Retry-After", "50")])
        result = self.run_client("-q", "--max-time", "20", "-o", "out", url)
        self.assertIn(result.status, (STATUS_IS_ERROR, TOOK_TOO_LONG), result.errors)
        self.assertEqual(self.server.requests.qsize(), 1)

    def test_are_not_made_without_retries(self):
        url = self.answer_once_with([], lambda: [("Retry-After", "50")])
        result = self.run_client("-q", "--retry", "0", "-o", "out", url)
        self.assert_failed(result, STATUS_IS_ERROR, url + ": HTTP status 503")
        self.assertEqual(self.server.requests.qsize(), 1)
        self.assertEqual(os.listdir(self.folder), [])

    def test_between_attempts_end_when_their_number_does(self):
        def answer(request):
            request.reset()

        self.server.answers["/a"] = answer
        arguments = ("--retry", "3", "--retry-delay", "0.01", "-o", "out")
        result = self.run_client("-q", *arguments, self.server.url("/a"))
        self.assertEqual(result.status, NETWORK_FAILED, result.errors)
        self.assertEqual(self.server.requests.qsize(), 4)

    def test_send_a_file_again_from_its_first_byte(self):
        bodies = []

        def answer(request):
            bodies.append(request.body)
            if len(bodies) == 1:
                request.reset()
            else:
                request.reply(b"done", status=201)

        self.server.answers["/a"] = answer
        self.write("source", BODY)
        arguments = ("-q", "--retry-delay", "0.01", "-T", "source")
        result = self.run_client(*arguments, self.server.url("/a"))
        self.assert_succeeded(result)
        self.assertEqual(result.output, b"done")
        self.assertTrue(bodies == [BODY, BODY], list(map(len, bodies)))


if __name__ == "__main__":
    main()
