"""What a person sees."""

import gzip
import os
import re
import subprocess
import unittest

from client_support import (
    BODY,
    ClientTest,
    EMULATED,
    Gate,
    SANITIZED,
    SUCCEEDED,
    STATUS_IS_ERROR,
    TRANSFER_FAILED,
    Terminal,
    WRONG_ARGUMENTS,
    environment,
    main,
)


class Progress(ClientTest):
    def setUp(self):
        super().setUp()
        self.gate = Gate(BODY, len(BODY) // 2)
        self.server.answers["/a"] = self.gate
        self.addCleanup(self.gate.open)
        self.url = self.server.url("/a")

    def run_on_terminal(self, *arguments, terminal=None, see=None, **options):
        terminal = terminal or Terminal()
        client = self.start(*arguments, stderr=terminal.slave, **options)
        if see:
            terminal.wait_for(see)
        self.gate.open()
        result = client.finish()
        self.assertEqual(result.status, SUCCEEDED)
        return terminal.close_and_read()

    def test_shows_bytes_and_percentage_of_a_known_length(self):
        screen = self.run_on_terminal(self.url, "-o", "out", see=rb"602\.8 KiB of 1\.2 MiB, 49%")
        self.assertEqual(screen.count("\n"), 1)
        self.assertEqual(self.read("out"), BODY)

    def test_shows_no_percentage_of_an_unknown_length(self):
        self.gate._headers = []
        screen = self.run_on_terminal(self.url, "-o", "out", see=rb"602\.8 KiB, ")
        self.assertNotIn("%", screen)

    def test_shows_no_percentage_of_an_encoded_length(self):
        packed = gzip.compress(BODY)
        self.gate = Gate(
            packed,
            len(packed) // 2,
            [("Content-Length", len(packed)), ("Content-Encoding", "gzip")],
        )
        self.server.answers["/a"] = self.gate
        arguments = (self.url, "-o", "/dev/null", "--handler", "curl")
        screen = self.run_on_terminal(*arguments, see=rb"\d KiB, ")
        self.assertNotIn("%", screen)

    def test_takes_the_length_from_the_last_response(self):
        self.serve("/first", b"gone", status=302, headers=[("Location", "/a")])
        self.run_on_terminal(self.server.url("/first"), "-o", "out", see=rb"of 1\.2 MiB, 49%")

    def test_counts_several_sources(self):
        self.write("file", BODY)
        os.mkdir(self.path("inside"))
        self.run_on_terminal(
            "-O",
            self.url,
            self.path("file"),
            cwd=self.path("inside"),
            see=rb"1\.8 MiB of 2\.4 MiB, 74%.*, 1 of 2 done",
        )

    def test_tells_how_long_the_next_attempt_is_waited_for(self):
        gate = self.gate

        def busy_once(request):
            self.server.answers["/a"] = gate
            request.reply(status=503, headers=[("Retry-After", "2")])

        self.server.answers["/a"] = busy_once
        gate.open()
        screen = self.run_on_terminal(self.url, "-o", "out", see=rb"0 B, waiting \d s")
        self.assertIn(", 2 attempts\r\n", screen)

    def test_tells_how_long_nothing_has_arrived(self):
        self.run_on_terminal(self.url, "-o", "out", see=rb"602\.8 KiB of .*%, silent for \d+ s")

    def test_tells_what_is_sent(self):
        self.write("file", BODY)

        def take_all(request):
            self.assertEqual(request.body, BODY)
            self.gate.wait_for_opening()
            request.reply()

        self.server.answers["/a"] = take_all
        screen = self.run_on_terminal(
            self.url, "-T", "file", "-o", "out", see=rb"sent 1\.2 MiB of 1\.2 MiB, 100%"
        )
        self.assertRegex(screen, r"sent 1\.2 MiB in ")

    def test_makes_room_for_what_came_of_it(self):
        screen = self.run_on_terminal(self.url, "-o", "out", see=rb"49%")
        self.assertRegex(screen, r"\r +\r1\.2 MiB in \d+\.\d{3} s, [\d.]+ [KM]iB/s\r\n$")

    def test_keeps_the_percentage_on_a_narrow_terminal(self):
        screen = self.run_on_terminal(self.url, "-o", "out", terminal=Terminal(20), see=rb"\r49% ")
        progress = screen[: screen.rindex("\r1.2 MiB in ")]
        self.assertLessEqual(max(len(shown) for shown in progress.split("\r")), 19)

    def test_makes_room_for_a_failure(self):
        terminal = Terminal()
        client = self.start(self.server.url("/missing"), "-o", "out", stderr=terminal.slave)
        self.assertEqual(client.finish().status, STATUS_IS_ERROR)
        self.assertRegex(
            terminal.close_and_read(),
            r"\r +\rvortan-transfer: [^\r\n]+/missing: HTTP status 404\r\n$",
        )

    def test_is_not_shown_when_quiet(self):
        self.assertEqual(self.run_on_terminal(self.url, "-q", "-o", "out"), "")

    def test_is_not_shown_when_the_body_is(self):
        body = Terminal()
        self.write("empty", b"")
        self.assertEqual(self.run_on_terminal("empty", stdout=body.slave), "")
        body.close_and_read()

    def test_is_not_shown_on_a_file_or_a_pipe(self):
        client = self.start(self.url, "-o", "out")
        self.gate.wait_until_reached()
        self.gate.open()
        self.assert_succeeded(client.finish())


class Body(ClientTest):
    def test_reaches_a_terminal_without_control_characters(self):
        terminal = Terminal()
        self.write("body", b"one\x1b]0;title\x07\ttwo\r\n\xc2\x9b2Jthree\r")
        self.assert_succeeded(self.run_client("body", stdout=terminal.slave))
        shown = terminal.close_and_read()
        self.assertEqual(
            shown.replace("\r\r\n", "\r\n"), "one\\x1b]0;title\\x07\ttwo\r\n\\xc2\\x9b2Jthree\\r"
        )

    def shown(self, body):
        """What a terminal gets of a body that the server sends byte by byte."""

        def answer(request):
            request.send_header(200, [("Transfer-Encoding", "chunked")])
            for byte in body:
                request.send(b"1\r\n%c\r\n" % byte)
            request.send(b"0\r\n\r\n")

        self.server.answers["/bytes"] = answer
        terminal = Terminal()
        self.assert_succeeded(self.run_client(self.server.url("/bytes"), stdout=terminal.slave))
        return terminal.close_and_read()

    def test_reaches_a_terminal_without_del(self):
        self.assertEqual(self.shown(b"a\x7fb"), "a\\x7fb")

    def test_reaches_a_terminal_without_controls_of_eight_bits(self):
        self.assertEqual(self.shown(b"a\x9b2J\xc0\x9b"), "a\\x9b2J\udcc0\\x9b")
        self.assertEqual(self.shown(b"a\xc2\x9b2J\xc2\x85"), "a\\xc2\\x9b2J\\xc2\\x85")

    def test_reaches_a_terminal_without_what_turns_its_direction(self):
        self.assertEqual(
            self.shown("a\u202eb\u2066c\u200f".encode()), r"a\xe2\x80\xaeb\xe2\x81\xa6c\xe2\x80\x8f"
        )

    def test_reaches_a_terminal_with_its_characters_whole(self):
        self.assertEqual(self.shown("\u00e4\u20ac\U0001f600".encode()), "\u00e4\u20ac\U0001f600")

    def test_that_ends_inside_a_character_is_shown_to_its_end(self):
        self.assertEqual(self.shown(b"a\xe2\x80"), "a\udce2\\x80")

    def test_is_not_changed_on_its_way_to_a_file_or_a_pipe(self):
        body = b"\x1b]0;title\x07\r\xc2\x9b\x9b\xe2\x80\xae"
        self.write("body", body)
        self.assertEqual(self.run_client("body").output, body)
        self.assert_succeeded(self.run_client("body", "-o", "out"))
        self.assertEqual(self.read("out"), body)


class Log(ClientTest):
    def test_is_shown_when_verbose(self):
        url = self.serve("/a")
        result = self.run_client("-v", url)
        self.assertEqual(result.output, BODY)
        self.assertRegex(result.errors, r"RequestTransfer\(\d+\) > Url: " + re.escape(url) + "\n")
        self.assertIn("Requesting transfer for: %s handle: 0" % url, result.errors)

    def test_is_not_shown_otherwise(self):
        self.assert_succeeded(self.run_client(self.serve("/a"), "-o", "out"))

    def test_goes_where_the_environment_says(self):
        url = self.serve("/a")
        for option in ((), ("-v",)):
            log = self.path("log")
            self.assert_succeeded(
                self.run_client(
                    url, *option, "-o", "out", env=environment(VORTAN_DLOG="file:" + log)
                )
            )
            self.assertIn(b"Requesting transfer for: " + url.encode(), self.read("log"))
            os.remove(log)
            self.assert_succeeded(
                self.run_client(url, *option, "-o", "out", env=environment(VORTAN_DLOG="none"))
            )

    def test_is_filtered_as_the_environment_says(self):
        url = self.server.url("/missing")
        result = self.run_client(url, "-v", env=environment(VORTAN_DLOG_LEVEL="error"))
        log, failure = result.errors.splitlines()
        self.assertIn("The server answered with HTTP status 404", log)
        self.assertEqual(failure, "vortan-transfer: %s: HTTP status 404" % url)


class LogColours(ClientTest):
    COLOURED = "> \x1b[32mRequesting transfer for: %s handle: 0\x1b[0m\r\n"
    PLAIN = "> Requesting transfer for: %s handle: 0\r\n"

    def setUp(self):
        super().setUp()
        self.write("a", b"")

    def log_on_terminal(self, source="a", **changes):
        terminal = Terminal()
        result = self.run_client(
            "-v",
            source,
            stdout=subprocess.DEVNULL,
            stderr=terminal.slave,
            env=environment(**{"TERM": "xterm", **changes}),
        )
        self.assertEqual(result.status, SUCCEEDED)
        return terminal.close_and_read()

    def test_are_on_a_terminal(self):
        self.assertIn(self.COLOURED % "a", self.log_on_terminal())
        self.assertIn(self.COLOURED % "a", self.log_on_terminal(NO_COLOR=""))

    def test_are_not_on_a_terminal_that_is_to_have_none(self):
        for changes in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
            log = self.log_on_terminal(**changes)
            self.assertIn(self.PLAIN % "a", log)
            self.assertNotIn("\x1b", log)

    def test_are_not_in_a_pipe_or_a_file(self):
        self.assertNotIn("\x1b", self.run_client("-v", "a").errors)
        self.log_on_terminal(VORTAN_DLOG="file:" + self.path("log"))
        self.assertNotIn(b"\x1b", self.read("log"))

    @unittest.skipIf(SANITIZED or EMULATED, "the sanitizer or the emulator takes preloading badly")
    def test_do_not_reach_a_platform_log_that_would_keep_them(self):
        double = {"LD_PRELOAD": os.environ["VORTAN_LOG_DOUBLE"]}
        self.assertIn(self.COLOURED % "a", self.log_on_terminal(**double))
        for changes in ({"NO_COLOR": "1"}, {"VORTAN_DLOG": "file:" + self.path("log")}):
            log = self.log_on_terminal(**double, **changes)
            self.assertIn(self.PLAIN % "a", log)
            self.assertNotIn("\x1b", log)
        log = self.run_client("-v", "a", env=environment(**double, TERM="xterm")).errors
        self.assertIn((self.PLAIN % "a").replace("\r", ""), log)
        self.assertNotIn("\x1b", log)

    @unittest.skipIf(SANITIZED or EMULATED, "the sanitizer or the emulator takes preloading badly")
    def test_of_somebody_else_in_a_message_are_not_touched(self):
        self.write("\x1b[31mred\x1b[0m", b"")
        log = self.log_on_terminal(
            "./\x1b[31mred\x1b[0m", NO_COLOR="1", LD_PRELOAD=os.environ["VORTAN_LOG_DOUBLE"]
        )
        self.assertIn(self.PLAIN % "./\x1b[31mred\x1b[0m", log)


class Messages(ClientTest):
    # A control character of 8 bits on its own and in UTF-8, and one that turns the direction.
    NAME = b"a\x9b2J\xc2\x9b\xe2\x80\xaeb\x7f"
    ESCAPED = r"a\x9b2J\xc2\x9b\xe2\x80\xaeb\x7f"

    def test_name_files_without_what_would_steer_a_terminal(self):
        self.assert_failed(
            self.run_client(self.NAME),
            TRANSFER_FAILED,
            self.ESCAPED + ": No such file or directory",
        )

    def test_name_arguments_without_what_would_steer_a_terminal(self):
        self.assert_failed(
            self.run_client("-X", self.NAME, "a"),
            WRONG_ARGUMENTS,
            "--method: must be one of GET, HEAD, POST, PUT, not '%s' (--help tells more)"
            % self.ESCAPED,
        )

    def test_the_summary_has_nothing_that_would_steer_a_terminal(self):
        result = self.run_client("-O", self.NAME + b"/x", "y")
        self.assertIn("  %s/x\n" % self.ESCAPED, result.errors)

    def test_the_log_has_nothing_that_would_steer_a_terminal(self):
        result = self.run_client("-v", self.NAME)
        self.assertIn("RequestTransfer", result.errors)
        self.assertIn("Url: %s\n" % self.ESCAPED, result.errors)

    def test_no_file_is_named_so_that_it_would_steer_a_terminal(self):
        for name in ("%9B", "a%C2%9B", "%E2%80%AEgpj.exe", "a%E2%81%A9", "%7F"):
            url = self.serve("/" + name)
            result = self.run_client("-O", url)
            self.assert_failed(
                result,
                WRONG_ARGUMENTS,
                "'%s': has no name that a file can take, say where to write with -o "
                "(--help tells more)" % url,
            )
        self.assert_files()


class CommandLine(ClientTest):
    def test_help_and_version_go_to_standard_output(self):
        help_result = self.run_client("--help")
        self.assert_succeeded(help_result)
        self.assertIn(b"vortan-transfer [OPTIONS] [SOURCE...]", help_result.output)
        version_result = self.run_client("--version")
        self.assert_succeeded(version_result)
        self.assertRegex(version_result.output, rb"^vortan-transfer \d+\.\d+\.\d+\n$")

    def test_an_address_without_a_scheme_is_refused_with_what_to_type(self):
        for text in ("example.org", "example.org/a", "127.0.0.1:%d/" % self.server.port):
            self.assert_failed(
                self.run_client(text, "-o", "out"),
                TRANSFER_FAILED,
                "%s: No such file or directory. For a web address type http://%s" % (text, text),
            )
        self.assert_failed(
            self.run_client("-d", "x", "example.org"),
            WRONG_ARGUMENTS,
            "'example.org': a file can only be fetched. For a web address type "
            "http://example.org (--help tells more)",
        )
        self.assert_failed(
            self.run_client("localhost:8000/", "-o", "out"),
            WRONG_ARGUMENTS,
            "'localhost:8000/': for a web address type http://localhost:8000/, for "
            "a file ./localhost:8000/ (--help tells more)",
        )
        self.assert_files()

    def test_a_file_that_looks_like_an_address_is_read(self):
        self.write("example.org", BODY)
        self.assertEqual(self.run_client("example.org").output, BODY)

    def test_an_option_for_redirects_changes_nothing(self):
        url = self.serve("/a", b"contents")
        self.assertEqual(self.run_client("-L", url).output, b"contents")

    def test_wrong_arguments_are_one_line_and_touch_nothing(self):
        self.write("out", b"before")
        url = self.serve("/a")
        for arguments in (
            (),
            ("--unknown", url),
            ("-H", "nocolon", url),
            ("ftp://localhost/a",),
            ("-X", "DELETE", url),
            ("-X", "POST", url),
            ("-d", "x", "-X", "GET", url),
            ("--random-delay", "2:1", url),
            ("--fixed-delay", "-1", url),
            ("--segmented", "--fixed-delay", "1", url),
            (url, url),
            ("-O", url + "/"),
            ("-d",),
            ("--handler", "none", url),
            ("file://elsewhere/a",),
            ("-d", "x", "/etc/passwd"),
        ):
            result = self.run_client("-o", "out", *arguments)
            self.assertEqual(result.status, WRONG_ARGUMENTS, arguments)
            self.assertRegex(result.errors, r"^vortan-transfer: [^\n]+\n$")
            self.assertEqual(result.output, b"")
        self.assertTrue(self.server.requests.empty())
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")


if __name__ == "__main__":
    main()
