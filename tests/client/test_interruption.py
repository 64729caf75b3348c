"""Ctrl-C and the like end transfers, and leave no part behind that nobody could go on with."""

import json
import signal
import subprocess
import time

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    Gate,
    INTERRUPTED,
    SANITIZED,
    TIMEOUT,
    main,
)


class Interruption(ClientTest):
    NOTICE = "interrupted; again to stop at once"
    SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def setUp(self):
        super().setUp()
        self.gate = Gate(BODY, 1000)
        self.server.answers["/a"] = self.gate
        self.addCleanup(self.gate.open)
        self.url = self.server.url("/a")

    def start_and_reach_the_middle(self, *arguments, **options):
        client = self.start(self.url, *arguments, **options)
        self.gate.wait_until_reached()
        return client

    def assert_interrupted(self, result, number=signal.SIGINT):
        notice = self.NOTICE if number == signal.SIGINT else "interrupted"
        self.assert_failed(result, INTERRUPTED, notice)

    def test_a_signal_ends_transfers_and_leaves_an_existing_file_untouched(self):
        self.write("out", b"before")
        for number in self.SIGNALS:
            for mode in ("--segmented", "--plain"):
                client = self.start_and_reach_the_middle(mode, "-o", "out")
                client.interrupt(number)
                self.assert_interrupted(client.finish(), number)
                self.assertEqual(self.read("out"), b"before")
                self.assert_files("out")

    def test_a_signal_leaves_no_file_where_there_was_none(self):
        client = self.start_and_reach_the_middle("-o", "out")
        client.interrupt()
        self.assert_interrupted(client.finish())
        self.assert_files()

    def test_a_part_that_can_be_continued_stays_and_is_named(self):
        headers = [("Content-Length", len(BODY)), ("ETag", '"a"')]
        self.gate = Gate(BODY, 1000, headers)
        self.server.answers["/a"] = self.gate
        self.addCleanup(self.gate.open)
        for number in self.SIGNALS:
            # The bytes have arrived when the progress has told of them.
            client = self.start_and_reach_the_middle("-o", "out", "--trace", "/dev/stderr")
            client.wait_for_line_with("first-body")
            client.interrupt(number)
            result = client.finish()
            self.assertEqual(result.status, INTERRUPTED)
            self.assertIn("--continue goes on with 'out.part'\n", result.errors)
            self.assert_files("out.part", "out.part.meta")
        self.gate.open()
        self.assert_succeeded(self.run_client(self.url, "-o", "out"))
        self.assertEqual(self.read("out"), BODY)
        self.assert_files("out")

    def test_a_second_signal_does_not_wait_for_a_silent_server(self):
        self.write("out", b"before")
        client = self.start_and_reach_the_middle("-o", "out", "--handler", "curl")
        client.interrupt()
        client.wait_for_line_with(self.NOTICE)
        client.interrupt()
        self.assert_interrupted(client.finish())
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_a_first_signal_waits_for_a_handler_that_cannot_be_stopped(self):
        client = self.start_and_reach_the_middle("-o", "out", "--handler", "curl")
        client.interrupt()
        client.wait_for_line_with(self.NOTICE)
        self.gate.open()
        self.assert_interrupted(client.finish())
        self.assert_files()

    def test_a_signal_to_terminate_waits_for_no_handler(self):
        self.write("out", b"before")
        for number in (signal.SIGTERM, signal.SIGHUP):
            for handler in ("curl", "vendor", "session"):
                client = self.start_and_reach_the_middle(
                    "-o", "out", "--handler", handler, "--json"
                )
                begin = time.monotonic()
                client.interrupt(number)
                result = client.finish()
                if not (EMULATED or SANITIZED):
                    self.assertLess(time.monotonic() - begin, 1)
                self.assert_interrupted(result, number)
                self.assertEqual(json.loads(result.output)["result"], "interrupted")
                self.assertEqual(self.read("out"), b"before")
                self.assert_files("out")

    def test_a_signal_ends_the_waiting_for_a_delay(self):
        self.gate.open()
        for delay in (("--fixed-delay", "9223372036854775807"), ("--random-delay", "3600:4294967")):
            client = self.start(self.url, *delay, "-o", "out", "--trace", "/dev/stderr")
            client.wait_for_line_with("started")
            client.interrupt()
            self.assertEqual(client.finish().status, INTERRUPTED)
            self.assert_files()
        self.assertTrue(self.server.requests.empty())

    def test_a_signal_keeps_waiting_sources_from_starting(self):
        urls = []
        for index in range(6):
            path = "/%d" % index
            self.server.answers[path] = self.gate
            urls.append(self.server.url(path))
        client = self.start("-q", "-O", *urls)
        for _ in range(4):
            self.gate.wait_until_reached()
        client.interrupt()
        self.assert_interrupted(client.finish())
        self.assertEqual(self.server.requests.qsize(), 4)
        self.assert_files()

    def test_what_was_complete_before_the_signal_stays(self):
        self.serve("/done")
        client = self.start("-O", self.server.url("/done"), self.url, "--trace", "/dev/stderr")
        self.gate.wait_until_reached()
        client.wait_for_line_with("complete")
        client.interrupt()
        self.assertEqual(client.finish().status, INTERRUPTED)
        self.assertEqual(self.read("done"), BODY)
        self.assert_files("done")

    def test_a_signal_ends_the_reading_of_standard_input(self):
        client = self.start(self.url, "-d", "@-", stdin=subprocess.PIPE)
        client.process.stdin.write(bytes(1 << 20))  # more than fits: the program is reading
        client.interrupt()
        self.assertEqual(client.process.wait(TIMEOUT), INTERRUPTED)
        client.process.stdin.close()
        client.process.stdin = None
        self.assertEqual(client.finish().errors, "")
        self.assertTrue(self.server.requests.empty())

    def test_a_signal_that_was_switched_off_stays_off(self):
        client = self.start_and_reach_the_middle(
            "-o", "out", preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)
        )
        client.interrupt(signal.SIGHUP)
        self.gate.open()
        self.assert_succeeded(client.finish())
        self.assertEqual(self.read("out"), BODY)


if __name__ == "__main__":
    main()
