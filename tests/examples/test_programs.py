"""test_programs.py CLASS: the program of an example does what its first lines say."""

import os
import pathlib
import re
import resource
import signal
import socket
import threading

from client_support import (
    BODY,
    ClientTest,
    Gate,
    INTERRUPTED,
    SUCCEEDED,
    TIMEOUT,
    TRANSFER_FAILED,
    WRONG_ARGUMENTS,
    environment,
    main,
)


class ExampleTest(ClientTest):
    def test_without_arguments_it_says_which_it_takes(self):
        result = self.run_client()
        self.assertEqual((result.status, result.output), (WRONG_ARGUMENTS, b""))
        name = pathlib.Path(os.environ["VORTAN_TRANSFER"]).name
        self.assertRegex(result.errors, r"\A%s [A-Z. ]+\n\Z" % name)

    def start(self, *arguments, **options):
        return super().start(*arguments, **{"env": environment(VORTAN_DLOG="none"), **options})

    def assert_prints(self, output, *arguments):
        result = self.run_client(*arguments)
        self.assertEqual(result.status, SUCCEEDED)
        self.assertTrue(result.output == output, "%d bytes printed" % len(result.output))

    def assert_fails(self, why, *arguments):
        """Prints only why, and that on standard error."""
        result = self.run_client(*arguments)
        self.assertEqual(
            (result.status, result.output, result.errors), (TRANSFER_FAILED, b"", why + "\n")
        )

    def assert_tells_that_nothing_can_be_written(self, *arguments):
        with open("/dev/full", "wb") as full:
            result = self.run_client(*arguments, stdout=full)
        self.assertEqual(
            (result.status, result.errors), (TRANSFER_FAILED, "cannot write to standard output\n")
        )

    def serve_cut(self, path):
        """A response that ends before its body does."""
        self.server.answers[path] = Gate(BODY[:-1], 0, [("Content-Length", len(BODY))])
        self.server.answers[path].open()
        return self.server.url(path)

    @staticmethod
    def unserved():
        """A URL of a server that is not there."""
        with socket.socket() as bound:
            bound.bind(("127.0.0.1", 0))
            return "http://127.0.0.1:%d/" % bound.getsockname()[1]

    def serve_endlessly(self, path):
        def answer(request):
            request.send_header()
            while True:
                request.send(BODY)

        self.server.answers[path] = answer
        return self.server.url(path)

    def serve_gate(self, path, body, first):
        gate = Gate(body, first)
        self.addCleanup(gate.open)
        self.server.answers[path] = gate
        return gate, self.server.url(path)

    @staticmethod
    def wait_for(stream, text):
        read = b""
        while not read.endswith(text):
            byte = stream.read(1)
            assert byte, "the program has ended: %s" % read
            read += byte


class Download(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"))

    def test_what_the_server_has_is_printed(self):
        self.assert_prints(BODY, self.serve("/a"))

    def test_a_missing_page_is_a_failure(self):
        self.assert_fails("the download failed: HTTP status 404", self.server.url("/missing"))

    def test_a_download_that_breaks_off_is_a_failure(self):
        self.assert_fails(
            "the download failed: it broke off, HTTP status 200", self.serve_cut("/a")
        )

    def test_a_missing_server_is_a_failure(self):
        self.assert_fails("the download failed: no answer from the server", self.unserved())

    def test_a_refused_request_is_a_failure(self):
        self.assert_fails("the request was refused, the log says why", "")


class Fetch(ExampleTest):
    def test_the_page_is_printed_and_the_file_is_whole(self):
        self.write("copy", b"older")
        self.assert_prints(b"Hello", self.serve("/a", b"Hello"), self.serve("/b"), "copy")
        self.assertTrue(self.read("copy") == BODY)
        self.assert_files("copy")

    def test_both_run_at_a_time(self):
        meeting = threading.Barrier(2)

        def answer(request):
            meeting.wait(TIMEOUT)
            request.reply(BODY)

        self.server.answers["/a"] = answer
        url = self.server.url("/a")
        self.assert_prints(BODY, url, url, "copy")

    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"), self.serve("/b"), "copy")

    def test_each_failure_has_its_sentence(self):
        missing = self.server.url("/missing")
        why = "The server answered with HTTP status 404 (host 127.0.0.1)."
        self.assert_fails(why + "\n" + why, missing, missing, "copy")
        self.assert_files()

    def test_a_folder_that_is_not_there_is_a_failure(self):
        self.assert_fails(
            "The folder of the file does not exist.",
            self.serve("/a"),
            self.serve("/b"),
            "missing/copy",
        )


class ReadFile(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.write("file", BODY))

    def test_the_file_is_printed(self):
        self.assert_prints(BODY, self.write("file", BODY))

    def test_a_missing_file_is_a_failure(self):
        path = self.path("missing")
        self.assert_fails("cannot read %s: No such file or directory" % path, path)

    def test_a_folder_is_a_failure(self):
        self.assert_fails(
            "cannot read %s: it cannot be read to its end, or is no regular file" % self.folder,
            self.folder,
        )

    def test_a_refused_request_is_a_failure(self):
        self.assert_fails("the request was refused, the log says why", "")


class Upload(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.write("file", BODY), self.serve("/a"))

    def test_the_file_arrives_and_the_answer_is_printed(self):
        url = self.serve("/a", b"thanks")
        self.assert_prints(b"200\nthanks", self.write("file", BODY), url)
        request = self.server.requests.get(timeout=TIMEOUT)
        self.assertEqual(
            (request.method, request.headers["Content-Type"]), ("PUT", "application/octet-stream")
        )
        self.assertTrue(request.body == BODY)

    def test_a_refusal_is_a_failure_and_told(self):
        url = self.serve("/a", b"not you", status=403)
        result = self.run_client(self.write("file", BODY), url)
        self.assertEqual(
            (result.status, result.output, result.errors),
            (TRANSFER_FAILED, b"403\nnot you", "the upload failed: HTTP status 403\n"),
        )

    def test_a_missing_server_is_a_failure(self):
        result = self.run_client(self.write("file", BODY), self.unserved())
        self.assertEqual(
            (result.status, result.output, result.errors),
            (TRANSFER_FAILED, b"0\n", "the upload failed: no answer from the server\n"),
        )

    def test_a_file_that_cannot_be_read_is_not_sent(self):
        path = self.path("missing")
        self.assert_fails(
            "cannot read %s: No such file or directory" % path, path, self.serve("/a")
        )
        self.assertTrue(self.server.requests.empty())


class PacedDownload(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"), "0", "0", "4000000")

    def test_what_still_waits_at_shutdown_is_sent_at_once(self):
        self.assert_prints(BODY, self.serve("/a"), "4000000", "4000000", "0")

    def test_it_waits_as_long_as_was_asked_for(self):
        result = self.run_client(
            self.serve("/a"), "4000", "4000", "0", env=environment(VORTAN_DLOG="stderr")
        )
        self.assertIn("Start sleeping for: 4000000 milliseconds", result.errors)

    def test_it_ends_by_itself_when_the_download_has_arrived(self):
        self.assert_prints(BODY, self.serve("/a"), "0", "0", "4000000")

    def test_a_missing_page_is_a_failure(self):
        self.assert_fails(
            "the download failed: HTTP status 404", self.server.url("/missing"), "0", "0", "4000000"
        )

    def test_a_refused_request_is_a_failure(self):
        self.assert_fails("the request was refused, the log says why", "", "0", "0", "4000000")


class AgentDownloadToFile(ExampleTest):
    def assert_no_file_comes_of(self, why, *arguments, **options):
        self.write("copy", b"older")
        result = self.run_client(*arguments, "copy", **options)
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertTrue(
            result.errors.endswith(" bytes\nthe download failed: %s\n" % why), result.errors
        )
        self.assertEqual(self.read("copy"), b"older")
        self.assert_files("copy")

    def test_the_file_holds_what_the_server_has(self):
        self.write("copy", b"older")
        result = self.run_client(self.serve("/a"), "copy")
        self.assertEqual((result.status, result.output), (SUCCEEDED, b""))
        self.assertTrue(result.errors.endswith("\r1234567 bytes\n"))
        self.assertTrue(self.read("copy") == BODY)
        self.assert_files("copy")

    def test_the_file_appears_when_it_is_whole(self):
        gate, url = self.serve_gate("/a", BODY, 500000)
        running = self.start(url, "copy")
        self.wait_for(running.process.stderr, b"\r500000 bytes")
        self.assert_files("copy.part")
        gate.open()
        self.assertEqual(running.finish().status, SUCCEEDED)
        self.assertTrue(self.read("copy") == BODY)
        self.assert_files("copy")

    def test_a_download_that_breaks_off_leaves_no_file(self):
        self.assert_no_file_comes_of("it broke off, HTTP status 200", self.serve_cut("/a"))

    def test_a_response_that_ends_inside_its_header_leaves_no_file(self):
        self.server.answers["/a"] = lambda request: request.send(b"HTTP/1.1 200 OK\r\nX-One: 1\r\n")
        self.assert_no_file_comes_of("the response ended inside its header", self.server.url("/a"))

    def test_a_missing_page_leaves_no_file(self):
        self.assert_no_file_comes_of("HTTP status 404", self.server.url("/missing"))

    def test_a_refused_request_leaves_no_file(self):
        self.assert_no_file_comes_of("the request was refused, the log says why", "")

    def test_a_redirect_counts_by_its_last_response(self):
        def answer(request):
            request.reply(b"", status=302, headers=[("Location", "/b")])

        self.server.answers["/a"] = answer
        self.server.answers["/b"] = lambda request: request.send(b"HTTP/1.1 200 OK\r\nX-One: 1\r\n")
        self.assert_no_file_comes_of("the response ended inside its header", self.server.url("/a"))
        self.serve("/b")
        self.assertEqual(self.run_client(self.server.url("/a"), "copy").status, SUCCEEDED)
        self.assertTrue(self.read("copy") == BODY)

    def test_ctrl_c_leaves_no_file(self):
        running = self.start(self.serve_endlessly("/a"), "copy")
        self.server.requests.get(timeout=TIMEOUT)
        running.interrupt()
        result = running.finish()
        self.assertEqual(result.status, INTERRUPTED)
        self.assertTrue(result.errors.endswith(" bytes\nthe download failed: it was cancelled\n"))
        self.assert_files()

    def test_a_full_disk_ends_the_download(self):
        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

        self.assert_no_file_comes_of(
            "cannot write copy.part: File too large",
            self.serve_endlessly("/a"),
            preexec_fn=limit_files,
        )

    def test_a_file_that_cannot_be_made_is_told(self):
        result = self.run_client(self.serve("/a"), "missing/copy")
        self.assertEqual(
            (result.status, result.errors),
            (TRANSFER_FAILED, "cannot write missing/copy.part: No such file or directory\n"),
        )


class DownloadToFile(ExampleTest):
    def serve_versioned(self, path, first=len(BODY)):
        """Answers with BODY or the rest of it; the first response ends after some bytes."""
        ends = iter([first])

        def answer(request):
            start = int(request.headers.get("Range", "bytes=0-")[len("bytes=") : -1])
            headers = [("ETag", '"a"'), ("Content-Length", len(BODY) - start)]
            if start > 0:
                whole = (start, len(BODY) - 1, len(BODY))
                headers += [("Content-Range", "bytes %d-%d/%d" % whole)]
            request.send_header(206 if start > 0 else 200, headers)
            request.send(BODY[start : next(ends, len(BODY))])

        self.server.answers[path] = answer
        return self.server.url(path)

    def assert_copy_is_whole(self):
        self.assertTrue(self.read("copy") == BODY)
        self.assert_files("copy")

    def assert_no_file_comes_of(self, why, *arguments, **options):
        self.write("copy", b"older")
        result = self.run_client(*arguments, "copy", **options)
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertTrue(result.errors.endswith(why + "\n"), result.errors)
        self.assertEqual(self.read("copy"), b"older")
        self.assert_files("copy")

    def test_the_file_holds_what_the_server_has(self):
        self.write("copy", b"older")
        result = self.run_client(self.serve("/a"), "copy")
        self.assertEqual((result.status, result.output), (SUCCEEDED, b""))
        self.assertTrue(result.errors.endswith("\r1234567 bytes\n"))
        self.assert_copy_is_whole()

    def test_the_file_appears_when_it_is_whole(self):
        gate, url = self.serve_gate("/a", BODY, 500000)
        running = self.start(url, "copy")
        self.wait_for(running.process.stderr, b" bytes")
        self.assertFalse(os.path.exists(self.path("copy")))
        self.assertTrue(os.path.exists(self.path("copy.part")))
        gate.open()
        self.assertEqual(running.finish().status, SUCCEEDED)
        self.assert_copy_is_whole()

    def test_a_download_that_breaks_off_goes_on(self):
        self.assertEqual(
            self.run_client(self.serve_versioned("/a", 500000), "copy").status, SUCCEEDED
        )
        ranges = [self.server.requests.get(timeout=TIMEOUT).headers["Range"] for _ in range(2)]
        self.assertEqual(ranges, [None, "bytes=500000-"])
        self.assert_copy_is_whole()

    def test_after_ctrl_c_the_next_run_goes_on(self):
        ended = threading.Event()
        self.addCleanup(ended.set)

        def answer(request):  # slowly, because progress is shown when bytes move
            request.send_header(200, [("ETag", '"a"'), ("Content-Length", len(BODY))])
            for byte in BODY[:500000]:
                request.send(bytes([byte]))
                if ended.wait(0.01):
                    break

        self.server.answers["/a"] = answer
        running = self.start(self.server.url("/a"), "copy")
        self.wait_for(running.process.stderr, b"0 bytes\r")
        running.interrupt()
        result = running.finish()
        self.assertEqual(result.status, INTERRUPTED)
        self.assertTrue(result.errors.endswith("\nThe transfer was cancelled (host 127.0.0.1).\n"))
        self.assert_files("copy.part", "copy.part.meta")
        self.server.requests.get(timeout=TIMEOUT)

        kept = os.path.getsize(self.path("copy.part"))
        self.assertEqual(self.run_client(self.serve_versioned("/a"), "copy").status, SUCCEEDED)
        asked = self.server.requests.get(timeout=TIMEOUT).headers["Range"]
        self.assertEqual(asked, "bytes=%d-" % kept)
        self.assert_copy_is_whole()

    def test_a_missing_page_leaves_no_file(self):
        self.assert_no_file_comes_of(
            "The server answered with HTTP status 404 (host 127.0.0.1).",
            self.server.url("/missing"),
        )

    def test_a_refused_request_leaves_no_file(self):
        self.assert_no_file_comes_of("The request has no URL.", "")

    def test_a_full_disk_ends_the_download(self):
        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

        self.assert_no_file_comes_of(
            "The file could not be written: File too large (host 127.0.0.1).",
            self.serve("/a"),
            preexec_fn=limit_files,
        )

    def test_a_file_that_cannot_be_made_is_told(self):
        self.assert_fails(
            "The folder of the file does not exist.", self.serve("/a"), "missing/copy"
        )


class AgentDownloadMany(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"))

    def test_each_url_has_its_line(self):
        found = [self.serve("/%d" % length, BODY[:length]) for length in range(60)]
        result = self.run_client(*found)
        self.assertEqual(result.status, SUCCEEDED)
        self.assertEqual(
            sorted(result.output.decode().splitlines()),
            sorted("%s: %d bytes" % (url, length) for length, url in enumerate(found)),
        )

    def test_one_failure_keeps_nothing_from_going_on(self):
        urls = [self.serve("/a"), self.server.url("/missing"), "", self.serve("/b")]
        result = self.run_client(*urls)
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertEqual(
            sorted(result.output.decode().splitlines()),
            sorted("%s: 1234567 bytes" % url for url in (urls[0], urls[3])),
        )
        self.assertEqual(
            sorted(result.errors.splitlines()),
            sorted([urls[1] + ": HTTP status 404", ": the request was refused, the log says why"]),
        )

    def test_four_run_at_a_time(self):
        meeting = threading.Barrier(4)

        def answer(request):
            meeting.wait(TIMEOUT)
            request.reply(BODY)

        self.server.answers["/a"] = answer
        self.assertEqual(self.run_client(*[self.server.url("/a")] * 12).status, SUCCEEDED)


class DownloadMany(ExampleTest):
    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"))

    def test_each_url_has_its_line(self):
        found = [self.serve("/%d" % length, BODY[:length]) for length in range(60)]
        result = self.run_client(*found)
        self.assertEqual(result.status, SUCCEEDED)
        self.assertEqual(
            sorted(result.output.decode().splitlines()),
            sorted("%s: %d bytes" % (url, length) for length, url in enumerate(found)),
        )

    def test_one_failure_keeps_nothing_from_going_on(self):
        urls = [self.serve("/a"), self.server.url("/missing"), "", self.serve("/b")]
        result = self.run_client(*urls)
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertEqual(
            sorted(result.output.decode().splitlines()),
            sorted("%s: 1234567 bytes" % url for url in (urls[0], urls[3])),
        )
        self.assertEqual(
            sorted(result.errors.splitlines()),
            sorted(
                [
                    urls[1] + ": The server answered with HTTP status 404 (host 127.0.0.1).",
                    ": The request has no URL.",
                ]
            ),
        )

    def test_four_run_at_a_time(self):
        meeting = threading.Barrier(4)

        def answer(request):
            meeting.wait(TIMEOUT)
            request.reply(BODY)

        self.server.answers["/a"] = answer
        self.assertEqual(self.run_client(*[self.server.url("/a")] * 12).status, SUCCEEDED)


class ResilientDownload(ExampleTest):
    def assert_fails_with(self, sentence, url):
        """Prints only the kit's sentence, and that on standard error."""
        result = self.run_client(url)
        self.assertEqual((result.status, result.output), (TRANSFER_FAILED, b""))
        self.assertEqual(result.errors, sentence + " (host 127.0.0.1).\n")

    def test_a_full_output_is_a_failure(self):
        self.assert_tells_that_nothing_can_be_written(self.serve("/a"))

    def test_what_the_server_has_is_printed(self):
        self.assert_prints(BODY, self.serve("/a"))

    def test_a_download_that_breaks_off_goes_on(self):
        def answer(request):
            asked = request.headers.get("Range", "bytes=0-")
            start = int(asked[len("bytes=") : -1])
            headers = [("ETag", '"a"'), ("Content-Length", len(BODY) - start)]
            if start > 0:
                whole = (start, len(BODY) - 1, len(BODY))
                headers += [("Content-Range", "bytes %d-%d/%d" % whole)]
            request.send_header(206 if start > 0 else 200, headers)
            request.send(BODY[start : start + 500000])

        self.server.answers["/a"] = answer
        self.assert_prints(BODY, self.server.url("/a"))

    def test_a_failure_that_passes_is_tried_again(self):
        answers = iter([503, 503])

        def answer(request):
            status = next(answers, 200)
            request.reply(BODY if status == 200 else b"", status=status)

        self.server.answers["/a"] = answer
        self.assert_prints(BODY, self.server.url("/a"))

    def test_a_missing_page_is_a_failure(self):
        self.assert_fails_with(
            "The server answered with HTTP status 404", self.server.url("/missing")
        )

    def test_a_refused_request_is_a_failure(self):
        self.assert_fails("The request has no URL.", "")

    def test_ctrl_c_ends_it_though_the_server_is_silent(self):
        gate, url = self.serve_gate("/a", BODY, 1)
        running = self.start(url)
        self.wait_for(running.process.stdout, BODY[:1])
        running.interrupt()
        self.assertEqual(running.finish().status, INTERRUPTED)


class LoopTest(ExampleTest):
    """A program whose loop gets all calls of a queue."""

    def assert_tells_on_the_thread_of_the_loop(self, result, sentences):
        first, *lines = result.output.decode().splitlines()
        found = re.fullmatch(r"The loop is on thread (\w+)\.", first)
        self.assertTrue(found, first)
        self.assertEqual(
            sorted(lines), sorted("%s Told on thread %s." % (one, found[1]) for one in sentences)
        )


class PollLoop(LoopTest):
    def test_all_calls_come_on_the_thread_of_the_loop(self):
        urls = [self.serve("/%d" % length, BODY[:length]) for length in range(20)]
        result = self.run_client(*urls)
        self.assertEqual(result.status, SUCCEEDED)
        self.assert_tells_on_the_thread_of_the_loop(
            result, ["%s: The transfer succeeded (host 127.0.0.1)." % url for url in urls]
        )

    def test_a_failure_is_told_and_ends_the_program(self):
        url = self.server.url("/missing")
        result = self.run_client(url, self.serve("/a"))
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assert_tells_on_the_thread_of_the_loop(
            result,
            [
                url + ": The server answered with HTTP status 404 (host 127.0.0.1).",
                self.server.url("/a") + ": The transfer succeeded (host 127.0.0.1).",
            ],
        )


class GlibLoop(PollLoop):
    """The same, with GLib's main loop."""


class OwnHandler(ExampleTest):
    def pipe(self):
        path = self.path("pipe")
        os.mkfifo(path)
        return path

    def test_what_is_written_is_printed(self):
        path = self.pipe()
        running = self.start(path)
        written = BODY[:50000]  # fits into the pipes between here and there
        with open(path, "wb") as pipe:
            pipe.write(written)
        result = running.finish()
        self.assertEqual(result.status, SUCCEEDED)
        self.assertTrue(result.output == written)

    def test_it_waits_for_more_until_the_pipe_is_closed(self):
        path = self.pipe()
        running = self.start(path)
        with open(path, "wb", buffering=0) as pipe:
            for part in (b"one", b"two"):
                pipe.write(part)
                self.wait_for(running.process.stdout, part)
        self.assertEqual(running.finish().status, SUCCEEDED)

    def test_a_full_output_is_a_failure(self):
        path = self.pipe()
        with open("/dev/full", "wb") as full:
            running = self.start(path, stdout=full)
            with open(path, "wb") as pipe:
                pipe.write(BODY[:1000])
            result = running.finish()
        self.assertEqual(
            (result.status, result.errors), (TRANSFER_FAILED, "cannot write to standard output\n")
        )

    def test_a_pipe_that_is_not_there_is_a_failure(self):
        path = self.path("missing")
        self.assert_fails("cannot read %s to its end" % path, path)

    def test_a_refused_request_is_a_failure(self):
        self.assert_fails("the request was refused, the log says why", "")

    def test_ctrl_c_ends_it_though_nobody_writes_any_more(self):
        path = self.pipe()
        running = self.start(path)
        with open(path, "wb", buffering=0) as pipe:
            pipe.write(b"one")
            self.wait_for(running.process.stdout, b"one")
            running.interrupt()
            self.assertEqual(running.finish().status, INTERRUPTED)


if __name__ == "__main__":
    main()
