"""What a person is told of several sources in the end, and in which colours."""

import os
import re

from client_support import (
    BODY,
    ClientTest,
    Gate,
    INTERRUPTED,
    STATUS_IS_ERROR,
    TRANSFER_FAILED,
    Terminal,
    environment,
    main,
)

NUMBERS = r" +\d+\.\d{3} s +([\d.]+ [KMGT]?i?B/s|-)  "


class Summary(ClientTest):
    def setUp(self):
        super().setUp()
        self.good = self.serve("/good")
        self.missing = self.server.url("/missing")

    def test_tells_what_became_of_each_source(self):
        result = self.run_client("-O", self.good, self.missing)
        self.assertEqual((result.status, result.output), (STATUS_IS_ERROR, b""))
        failure, heading, good, missing, total = result.errors.splitlines()
        self.assertEqual(failure, "vortan-transfer: %s: HTTP status 404" % self.missing)
        self.assertEqual(heading.split(), ["result", "bytes", "time", "rate", "source"])
        self.assertRegex(good, "^succeeded  1.2 MiB" + NUMBERS + re.escape(self.good) + "$")
        self.assertRegex(missing, "^failed         0 B" + NUMBERS + re.escape(self.missing) + "$")
        self.assertRegex(total, "^1 of 2     1.2 MiB" + NUMBERS + "total$")

    def test_is_not_shown_of_one_source(self):
        self.assert_succeeded(self.run_client("-O", self.good))

    def test_is_not_shown_when_quiet(self):
        self.assert_succeeded(self.run_client("-q", "-O", self.good, self.serve("/other")))

    def test_tells_what_was_not_written(self):
        os.mkdir(self.path("good"))
        lines = self.run_client("-O", self.good, self.serve("/other")).errors.splitlines()
        self.assertRegex(lines[2], "^not written      0 B" + NUMBERS + re.escape(self.good) + "$")

    def test_tells_what_was_interrupted(self):
        gate = Gate(BODY, 1000)
        self.addCleanup(gate.open)
        urls = []
        for index in range(5):
            self.server.answers["/%d" % index] = gate
            urls.append(self.server.url("/%d" % index))
        client = self.start("-O", *urls)
        for _ in range(4):
            gate.wait_until_reached()
        client.interrupt()
        result = client.finish()
        self.assertEqual(result.status, INTERRUPTED)
        rows = result.errors.splitlines()[2:]
        for row, url in zip(rows, urls):
            self.assertRegex(row, "^interrupted .*" + re.escape(url) + "$")
        self.assertRegex(rows[4], "^interrupted +0 B +0.000 s +-  ")
        self.assertRegex(rows[5], "^0 of 5 .* total$")


class Colours(ClientTest):
    def setUp(self):
        super().setUp()
        self.write("good", b"")

    def run_on_terminal(self, **variables):
        terminal = Terminal()
        client = self.start(
            "-O", "good", "missing", stderr=terminal.slave, env=environment(**variables)
        )
        self.assertEqual(client.finish().status, TRANSFER_FAILED)
        return terminal.close_and_read()

    def test_are_shown_on_a_terminal(self):
        screen = self.run_on_terminal(TERM="xterm")
        self.assertIn("\033[31mvortan-transfer:\033[0m missing: No such file", screen)
        self.assertIn("\033[32msucceeded\033[0m ", screen)
        self.assertIn("\033[31mfailed   \033[0m ", screen)

    def test_are_shown_if_the_variable_that_forbids_them_is_empty(self):
        self.assertIn("\033[", self.run_on_terminal(TERM="xterm", NO_COLOR=""))

    def test_are_not_shown_if_a_variable_forbids_them(self):
        self.assertNotIn("\033", self.run_on_terminal(TERM="xterm", NO_COLOR="1"))

    def test_are_not_shown_on_a_terminal_that_has_none(self):
        self.assertNotIn("\033", self.run_on_terminal(TERM="dumb"))
        self.assertNotIn("\033", self.run_on_terminal(TERM=""))

    def test_are_not_shown_on_a_pipe(self):
        result = self.run_client("-O", "good", "missing", env=environment(TERM="xterm"))
        self.assertNotIn("\033", result.errors)


if __name__ == "__main__":
    main()
