"""Files and HTTP responses reach the place that the user asked for."""

import gzip
import hashlib
import os
import resource
import signal
import socket
import subprocess
import sys
import unittest

from client_support import (
    BODY,
    CANNOT_WRITE,
    ClientTest,
    EMULATED,
    Gate,
    NETWORK_FAILED,
    PROGRAM,
    PROTOCOL_VIOLATED,
    SANITIZED,
    STATUS_IS_ERROR,
    SUCCEEDED,
    TRANSFER_FAILED,
    WRONG_ARGUMENTS,
    environment,
    main,
)


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (400 << 20, 400 << 20))


BROKEN = "the connection broke before the response was whole"


class Files(ClientTest):
    def test_a_file_is_written_to_standard_output(self):
        path = self.write("a", BODY)
        for source in (
            path,
            "a",
            "file://" + path,
            "FILE://localhost" + path,
            "file://LOCALHOST" + path,
        ):
            result = self.run_client(source)
            self.assert_succeeded(result)
            self.assertEqual(result.output, BODY)

    def test_an_empty_file_yields_an_empty_one(self):
        self.write("a", b"")
        self.assert_succeeded(self.run_client("a", "-o", "b"))
        self.assertEqual(self.read("b"), b"")

    def test_a_file_url_is_decoded(self):
        path = self.write("a b%", b"contents")
        url = "file://" + path.replace("%", "%25").replace(" ", "%20")
        self.assertEqual(self.run_client(url).output, b"contents")

    def test_a_file_of_unknown_size_is_read_to_its_end(self):
        self.assertEqual(self.run_client("/proc/sys/kernel/ostype").output, b"Linux\n")

    def test_a_file_has_no_header_to_include(self):
        self.write("a", b"contents")
        self.assertEqual(self.run_client("-i", "a").output, b"contents")
        self.assertEqual(self.run_client("-i", "--plain", "a").output, b"contents")

    def test_a_missing_file_is_named_with_the_cause(self):
        self.assert_failed(
            self.run_client("missing", "-o", "out"),
            TRANSFER_FAILED,
            "missing: No such file or directory",
        )
        self.assert_files()

    def test_a_directory_is_called_one(self):
        self.assert_failed(self.run_client("/", "-o", "out"), TRANSFER_FAILED, "/: Is a directory")
        self.assert_files()

    def test_an_unreadable_file_is_named_with_the_cause(self):
        # A file that even root cannot read.
        self.assert_failed(
            self.run_client("/proc/self/mem", "-o", "out"),
            TRANSFER_FAILED,
            "/proc/self/mem: Input/output error",
        )
        self.assert_files()

    def test_control_characters_in_a_name_are_escaped(self):
        self.assert_failed(
            self.run_client("a\nb\033[2J"),
            TRANSFER_FAILED,
            "a\\nb\\x1b[2J: No such file or directory",
        )

    def test_a_source_may_be_its_own_target(self):
        self.write("a", BODY)
        self.assert_succeeded(self.run_client("a", "-o", "a"))
        self.assertEqual(self.read("a"), BODY)

    def test_what_is_no_regular_file_is_refused(self):
        self.assert_failed(
            self.run_client("/dev/zero", "-o", "out"),
            TRANSFER_FAILED,
            "/dev/zero: Is not a regular file",
        )
        self.assert_files()

    def test_a_file_that_makes_readers_wait_is_refused(self):
        try:
            os.close(os.open("/proc/kmsg", os.O_RDONLY))
        except OSError:
            self.skipTest("the kernel's messages may not be read here")
        self.assert_failed(
            self.run_client("/proc/kmsg", "-o", "out"),
            CANNOT_WRITE,
            "/proc/kmsg: Has no end, copy what you need of it to a file first",
        )
        self.assert_files()

    @unittest.skipIf(SANITIZED, "a sanitizer ends the program when memory is short")
    def test_a_file_that_exceeds_the_memory_fails(self):
        with open(self.path("huge"), "wb") as file:
            file.truncate(1 << 40)
        # What runs under emulation has 32 bits, and no memory for it anyway.
        limit = {} if EMULATED else {"preexec_fn": limit_memory}
        self.assert_failed(
            self.run_client("huge", "-o", "out", **limit),
            TRANSFER_FAILED,
            "huge: Cannot be read as a whole",
        )
        self.assert_files("huge")


class Http(ClientTest):
    def test_a_body_is_written_byte_for_byte(self):
        url = self.serve("/a")
        for mode in ((), ("--segmented",), ("--plain",)):
            result = self.run_client(url, *mode)
            self.assert_succeeded(result)
            self.assertEqual(result.output, BODY)

    def test_a_body_is_written_to_a_file(self):
        url = self.serve("/a")
        for mode in ("--segmented", "--plain"):
            self.assert_succeeded(self.run_client(url, mode, "-o", "out"))
            self.assertEqual(self.read("out"), BODY)
            self.assert_files("out")

    def test_an_empty_body_yields_an_empty_file(self):
        self.assert_succeeded(self.run_client(self.serve("/a", b""), "-o", "out"))
        self.assertEqual(self.read("out"), b"")

    def test_a_body_without_a_length_is_written(self):
        def answer(request):
            request.send_header()
            request.send(BODY)

        self.server.answers["/a"] = answer
        self.assertEqual(self.run_client(self.server.url("/a")).output, BODY)

    def test_an_encoded_body_is_not_asked_for_and_stays_as_it_is(self):
        encoded = gzip.compress(BODY)
        url = self.serve("/a", encoded, headers=[("Content-Encoding", "gzip")])
        self.assertEqual(self.run_client(url).output, encoded)
        self.assertIn(self.server.requests.get().headers["Accept-Encoding"], (None, "identity"))

    def test_the_letter_case_of_the_scheme_does_not_matter(self):
        url = self.serve("/a", b"contents").replace("http", "hTTp")
        self.assertEqual(self.run_client(url).output, b"contents")

    def test_headers_are_sent_in_order(self):
        url = self.serve("/a", b"")
        self.assert_succeeded(
            self.run_client(
                url, "-H", "X-B: 1", "-H", "X-A:", "-H", "X-B: 2", "-H", "User-Agent: me"
            )
        )
        headers = self.server.requests.get().headers
        self.assertEqual(headers.get_all("X-B"), ["1", "2"])
        self.assertEqual(headers["User-Agent"], "me")

    def test_the_given_handler_is_used(self):
        address = self.serve("/a", b"contents")[len("http://") :]
        self.assertEqual(self.run_client("--handler", "curl", address).output, b"contents")

    def test_a_chain_of_redirects_is_followed_and_shown_with_include(self):
        self.serve("/a", b"gone to b", status=302, headers=[("Location", "/b")])
        self.serve("/b", b"gone to c", status=301, headers=[("Location", "/c")])
        self.serve("/c", b"contents")
        self.assertEqual(self.run_client(self.server.url("/a")).output, b"contents")
        for mode in ("--segmented", "--plain"):
            result = self.run_client("-i", mode, self.server.url("/a"))
            self.assert_succeeded(result)
            self.assertEqual(
                result.output,
                b"HTTP/1.1 200 Reason\r\nConnection: close\r\nContent-Length: 8\r\n\r\n"
                b"contents",
            )

    def redirect(self, path, location, status=302):
        return self.serve(path, b"gone", status=status, headers=[("Location", location)])

    def assert_redirect_fails(self, url, target, status, cause):
        for mode in ("--segmented", "--plain"):
            self.assert_failed(
                self.run_client(mode, url, "-o", "out", "--retry", "0"),
                status,
                "%s: redirected to %s: %s" % (url, target, cause),
            )
        self.assert_files()

    def test_a_failure_after_redirects_names_the_last_target(self):
        with socket.socket() as bound:
            bound.bind(("127.0.0.1", 0))
            closed = "http://127.0.0.1:%d/b" % bound.getsockname()[1]
            refused = (NETWORK_FAILED, "the host refused the connection")
            self.assert_redirect_fails(self.redirect("/a", closed), closed, *refused)
            self.assert_redirect_fails(self.redirect("/first", "/a", 301), closed, *refused)

    def test_a_relative_target_is_named_as_a_whole(self):
        url = self.redirect("/x/a", "../b?c")
        self.assert_redirect_fails(url, self.server.url("/b?c"), STATUS_IS_ERROR, "HTTP status 404")

    def test_a_target_is_named_without_its_password(self):
        target = self.server.url("/b").replace("http://", "http://user:%s@")
        self.assert_redirect_fails(
            self.redirect("/a", target % "secret"),
            target % "***",
            PROTOCOL_VIOLATED,
            "a redirect leads where the policy forbids to go",
        )

    def test_a_target_of_another_kind_is_named(self):
        self.assert_redirect_fails(
            self.redirect("/a", "gopher://localhost/b"),
            "gopher://localhost/b",
            PROTOCOL_VIOLATED,
            "a redirect leads where the policy forbids to go",
        )

    def test_a_location_without_a_redirect_is_not_named(self):
        url = self.serve("/a", b"sorry", status=404, headers=[("Location", "/b")])
        self.assert_failed(self.run_client(url), STATUS_IS_ERROR, url + ": HTTP status 404")

    def test_trailers_are_not_mistaken_for_the_body(self):
        def answer(request):
            request.send_header(200, [("Transfer-Encoding", "chunked")])
            request.send(b"8\r\ncontents\r\n0\r\nX-Trailer: 1\r\n\r\n")

        self.server.answers["/a"] = answer
        result = self.run_client("-i", self.server.url("/a"))
        self.assertTrue(result.output.endswith(b"\r\n\r\ncontents"), result.output)

    def test_a_head_request_yields_the_header_alone(self):
        url = self.serve("/a")
        for mode in ("--segmented", "--plain"):
            result = self.run_client("-X", "HEAD", mode, url)
            self.assert_succeeded(result)
            self.assertEqual(
                result.output,
                b"HTTP/1.1 200 Reason\r\nConnection: close\r\n" b"Content-Length: 1234567\r\n\r\n",
            )
            self.assertEqual(self.server.requests.get().method, "HEAD")

    def test_an_http_error_is_named_by_its_status(self):
        self.write("out", b"before")
        for status in (400, 404, 503):
            url = self.serve("/a", b"sorry", status=status)
            for mode in ("--segmented", "--plain"):
                result = self.run_client(url, mode, "-o", "out", "--retry", "0")
                self.assert_failed(result, STATUS_IS_ERROR, "%s: HTTP status %d" % (url, status))
                self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_no_fail_takes_an_http_error_for_an_answer(self):
        url = self.serve("/a", b"sorry", status=503)
        self.assert_succeeded(self.run_client("--no-fail", url, "-o", "out"))
        self.assertEqual(self.read("out"), b"sorry")

    def test_a_closed_port_is_named_with_the_cause(self):
        with socket.socket() as bound:
            bound.bind(("127.0.0.1", 0))
            url = "http://127.0.0.1:%d/a" % bound.getsockname()[1]
            self.assert_failed(
                self.run_client(url, "-o", "out", "--retry", "0"),
                NETWORK_FAILED,
                url + ": the host refused the connection",
            )
        self.assert_files()

    def test_an_invalid_url_is_named_with_the_cause(self):
        self.assert_failed(
            self.run_client("http://"),
            WRONG_ARGUMENTS,
            "'http://': malformed http: or https: URL (--help tells more)",
        )

    def test_a_truncated_response_leaves_an_existing_file_untouched(self):
        def answer(request):
            request.send_header(200, [("Content-Length", len(BODY))])
            request.send(BODY[:-1])

        self.server.answers["/a"] = answer
        self.write("out", b"before")
        url = self.server.url("/a")
        for mode in ("--segmented", "--plain"):
            self.assert_failed(
                self.run_client(url, mode, "-o", "out", "--retry", "0"),
                NETWORK_FAILED,
                url + ": " + BROKEN,
            )
            self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_a_truncated_response_on_standard_output_fails_too(self):
        def answer(request):
            request.send_header(200, [("Content-Length", len(BODY))])
            request.send(BODY[:1000])

        self.server.answers["/a"] = answer
        url = self.server.url("/a")
        result = self.run_client(url, "--retry", "0")
        self.assert_failed(result, NETWORK_FAILED, url + ": " + BROKEN)
        self.assertEqual(result.output, BODY[:1000])

    def assert_header_cut(self, cause, *arguments):
        """/a sends a response that is cut inside its header."""
        url = self.server.url("/a")
        self.assert_failed(
            self.run_client(url, "-o", "out", *arguments), NETWORK_FAILED, url + ": " + cause
        )
        self.assertEqual(self.read("out"), b"before")
        self.assert_files("out")

    def test_a_response_cut_inside_its_header_leaves_an_existing_file_untouched(self):
        self.write("out", b"before")
        interim = b"HTTP/1.1 100 Continue\r\n\r\n"
        for before in (b"", interim):
            for cut in (b"", b"Content-Type: te", b"Content-Length: 0\r\n"):
                response = before + b"HTTP/1.1 200 OK\r\n" + cut
                self.server.answers["/a"] = lambda request: request.send(response)
                for mode in ("--segmented", "--plain"):
                    for handler in ("curl", "vendor"):
                        self.assert_header_cut(
                            "the connection was closed inside the header of the response",
                            *(mode, "--handler", handler),
                        )
                    self.assert_header_cut(BROKEN, mode, "--retry", "0")

    def test_a_header_cut_after_a_redirect_leaves_an_existing_file_untouched(self):
        self.write("out", b"before")
        answers = [b"HTTP/1.1 302 Found\r\nLocation: /a\r\n\r\n", b"HTTP/1.1 200 OK\r\nA: b\r\n"]
        self.server.answers["/a"] = lambda request: request.send(answers.pop(0))
        self.assert_header_cut(
            "redirected to %s: %s" % (self.server.url("/a"), BROKEN), "--retry", "0"
        )

    def test_a_reset_connection_leaves_no_partial_file(self):
        self.server.answers["/a"] = lambda request: request.reset()
        url = self.server.url("/a")
        self.assert_failed(
            self.run_client(url, "-o", "out", "--retry", "0"),
            NETWORK_FAILED,
            url + ": " + BROKEN,
        )
        self.assert_files()

    def test_a_killed_server_leaves_no_partial_file(self):
        server = subprocess.Popen(
            [
                sys.executable,
                "-c",
                "import socket\n"
                "listener = socket.create_server(('127.0.0.1', 0))\n"
                "print(listener.getsockname()[1], flush=True)\n"
                "connection = listener.accept()[0]\n"
                "connection.recv(65536)\n"
                "connection.sendall(b'HTTP/1.1 200 OK\\r\\nContent-Length: 99\\r\\n\\r\\nsome')\n"
                "print('sent', flush=True)\n"
                "connection.recv(1)\n",
            ],
            stdout=subprocess.PIPE,
        )
        self.addCleanup(server.communicate)
        url = "http://127.0.0.1:%d/a" % int(server.stdout.readline())
        client = self.start(url, "-o", "out", "--retry", "0")
        server.stdout.readline()  # the first bytes are sent
        server.send_signal(signal.SIGKILL)
        result = client.finish()
        self.assert_failed(result, NETWORK_FAILED, url + ": " + BROKEN)
        self.assert_files()


class Memory(ClientTest):
    SIZE = 96 << 20

    @unittest.skipIf(SANITIZED or EMULATED, "sanitizers and emulators need more than the limit")
    def test_a_response_that_exceeds_the_memory_leaves_nothing_behind(self):
        def answer(request):
            request.send_header()
            while True:
                request.send(bytes(1 << 16))

        self.server.answers["/a"] = answer
        url = self.server.url("/a")
        result = self.run_client(url, "--plain", preexec_fn=limit_memory)
        self.assert_failed(
            result, TRANSFER_FAILED, url + ": there was not enough memory for the transfer"
        )

    def peak(self, *arguments):
        def answer(request):
            request.send_header(200, [("Content-Length", self.SIZE)])
            piece = bytes(1 << 16)
            for _ in range(self.SIZE // len(piece)):
                request.send(piece)

        self.server.answers["/a"] = answer
        process = subprocess.Popen(
            [*PROGRAM, self.server.url("/a"), *arguments],
            stdout=subprocess.DEVNULL,
            env=environment(),
        )
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
        self.assertEqual(status, 0)
        return usage.ru_maxrss * 1024

    @unittest.skipIf(SANITIZED, "a sanitizer keeps freed memory")
    def test_memory_does_not_grow_with_a_segmented_transfer(self):
        self.assertLess(self.peak("--segmented"), self.SIZE // 2)
        self.assertGreater(self.peak("--plain"), self.SIZE)


class WithoutLength(ClientTest):
    def setUp(self):
        super().setUp()
        self.server.answers["/a"] = Gate(BODY, len(BODY), [])
        self.server.answers["/a"].open()
        self.url = self.server.url("/a")

    def test_a_file_is_made_with_a_note(self):
        result = self.run_client(self.url, "-o", "out")
        self.assertEqual(result.status, SUCCEEDED)
        self.assertEqual(self.read("out"), BODY)
        self.assertEqual(
            result.errors,
            "vortan-transfer: %s: the server told no length, so nobody knows whether the file is "
            "whole\n" % self.url,
        )

    def test_a_hash_makes_the_note_needless(self):
        hash_of_body = hashlib.sha256(BODY).hexdigest()
        self.assert_succeeded(self.run_client(self.url, "-o", "out", "--sha256", hash_of_body))
        self.assertEqual(self.read("out"), BODY)


if __name__ == "__main__":
    main()
